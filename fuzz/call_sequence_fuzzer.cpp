// Whole HAL call sequences on the simulated phone: the input is read as a
// scenario of up to 64 steps (sim/sequence/sequence.h: proxies of the
// catalogue, CamX::SetErrorFrameworkId included, with the HAL's and the
// kernel's results; the core, its switches and arguments, and the message
// centre coming and going; properties, the kernel parameter and
// override-settings files; camera-service restarts and reboots), played by
// the scenario runner on a fresh phone per input with the library's
// invariants checked after every step. A violation aborts with the step and
// the invariant. `remedium-seq show|play|json INPUT` replays a kept input
// outside the fuzzer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "sim/invariants/invariants.h"
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

namespace {

// Gathers the library's coverage before each camera process unloads it.
class Coverage : public sim::scenario::Observer {
 public:
  void ProcessEnds() override { GatherCoverage(); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Coverage coverage;
  const auto invariants = sim::invariants::Make({});
  sim::scenario::PlayOptions options;
  options.keepOutcomes = false;
  options.observers = {invariants.get(), &coverage};
  const sim::scenario::RunResult run = sim::scenario::Play(sim::sequence::Decode(data, size), options);
  if (!run.error.empty()) {
    std::fprintf(stderr, "call-sequence fuzzer: %s\n", run.error.c_str());
    std::abort();
  }
  return 0;
}
