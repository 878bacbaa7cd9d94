// Whole HAL call sequences on the simulated phone: the input is read as up to
// 64 operations (sim/sequence/sequence.h: proxies of the catalogue and
// CamX::SetErrorFrameworkId, the HAL's and the kernel's results, the core and
// the message centre coming and going, properties, the kernel parameter and
// override-settings files, camera-service restarts and reboots), played on a
// fresh phone per input with the library's invariants checked after every
// operation. A violation aborts with the operation's index and the invariant.
// `remedium-seq show|play|json INPUT` replays a kept input outside the fuzzer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "sim/sequence/sequence.h"

namespace {

// The hook library's coverage, gathered across the camera processes of one
// input (see coverage_relay.cpp); libFuzzer clears and reads these itself.
__attribute__((used, section("__libfuzzer_extra_counters"))) uint8_t g_counters[1 << 16];
uint8_t* g_libraryStart = nullptr;
uint8_t* g_libraryStop = nullptr;

void GatherCoverage() {
  if (g_libraryStart == nullptr) return;
  const size_t count = std::min(static_cast<size_t>(g_libraryStop - g_libraryStart), sizeof(g_counters));
  for (size_t i = 0; i < count; ++i) {
    const unsigned sum = g_counters[i] + g_libraryStart[i];
    g_counters[i] = static_cast<uint8_t>(std::min(sum, 255u));
  }
  g_libraryStart = g_libraryStop = nullptr;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void RemediumCoverageCounters(uint8_t* start, uint8_t* stop) {
  if (static_cast<size_t>(stop - start) > sizeof(g_counters)) {
    std::fprintf(stderr, "call-sequence fuzzer: the library has %zu coverage counters, more than the %zu gathered\n",
                 static_cast<size_t>(stop - start), sizeof(g_counters));
  }
  g_libraryStart = start;
  g_libraryStop = stop;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<sim::sequence::Op> ops = sim::sequence::Decode(data, size);
  sim::sequence::PlayHooks hooks;
  hooks.beforeProcessEnds = GatherCoverage;
  sim::sequence::Play(ops, hooks);
  return 0;
}
