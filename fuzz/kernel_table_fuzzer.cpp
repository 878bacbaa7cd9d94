// The kernel probe-result channel over arbitrary parameter text: at most 64
// values are taken; a valid table formats back to the same values; only a
// valid table is ever written, as exactly one 1024-byte NUL-padded write
// that changes only the camera's own entries.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "hook/src/kernelchannel.h"
#include "hook/src/numberlist.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simlog.h"

namespace {

// The text of the one write since the last clear, up to its padding.
std::string OnlyWrittenText() {
  const std::vector<sim::SysfsWrite> writes = sim::SysfsWrites();
  FUZZ_CHECK(writes.size() == 1);
  FUZZ_CHECK(writes[0].bytes.size() == CamX::kKernelTextSize);
  return writes[0].bytes.substr(0, writes[0].bytes.find('\0'));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const std::filesystem::path cwd = std::filesystem::current_path();
  sim::SetDeviceRoot(fuzz::MakeScratchDir("kernel"));
  // Only /sys paths need the root; libFuzzer keeps its own relative paths.
  std::filesystem::current_path(cwd);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const uint32_t cameraId = size == 0 ? 0 : data[0] % 16;
  sim::WriteDeviceFile(CamX::kSensorApplySettingsControlPath, text);
  sim::ClearLog();  // the simulated platform's records would grow run after run
  sim::ClearJournal();
  sim::ClearSysfsWrites();

  // A read takes at most 1023 bytes, and the text ends at its first NUL.
  const CamX::ProbeResultTable table = CamX::ReadSensorProbeResult(cameraId);
  FUZZ_CHECK(table.size() <= CamX::kProbeResultTableSize);
  FUZZ_CHECK(table == CamX::ParseProbeResultTable(text.substr(0, CamX::kKernelTextSize - 1).c_str()));

  if (table.size() != CamX::kProbeResultTableSize) {
    FUZZ_CHECK(CamX::SetSensorProbeResult(cameraId, 0) == table);
    CamX::ResetSensorProbeResult(cameraId);
    FUZZ_CHECK(sim::SysfsWrites().empty());
    return 0;
  }

  const std::string formatted = CamX::ArrayToString64(table);
  FUZZ_CHECK(CamX::ParseProbeResultTable(formatted) == table);

  CamX::ProbeResultTable marked = table;
  marked[cameraId] = 1;
  marked[cameraId + 16] = 3;
  marked[cameraId + 48] = 0;
  FUZZ_CHECK(CamX::SetSensorProbeResult(cameraId, 0) == marked);
  const std::string markedText = CamX::ArrayToString64(marked);
  const std::string written = OnlyWrittenText();
  // OK: a text longer than the buffer is cut; the driver sees the cut text.
  FUZZ_CHECK(written == markedText.substr(0, CamX::kKernelTextSize));
  if (markedText.size() >= CamX::kKernelTextSize) return 0;

  sim::ClearSysfsWrites();
  CamX::ResetSensorProbeResult(cameraId);
  CamX::ProbeResultTable cleared = marked;
  for (const size_t block : {0u, 16u, 32u, 48u}) cleared[block + cameraId] = 0;
  FUZZ_CHECK(CamX::ParseProbeResultTable(OnlyWrittenText()) == cleared);
  return 0;
}
