// The kernel probe-result channel: a table of 64 signed 64-bit values that
// the hooks and the camera kernel driver share through one module parameter,
// as number-list text ("1,0,0,...").
//
// The table is four blocks of 16 values, each indexed by camera id:
//   id + 0   apply-settings control flag (1 marks the camera for re-probe)
//   id + 16  control value (3 while marked)
//   id + 32  the kernel's result of the camera's last probe ("kmd result")
//   id + 48  cleared control value
// No lock: the file is shared with the kernel and other processes, and each
// operation is a plain read-modify-write of the whole table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace CamX {

inline constexpr char kSensorApplySettingsControlPath[] = "/sys/module/camera/parameters/sensor_apply_settings_control";

inline constexpr size_t kProbeResultTableSize = 64;
// Each block holds one value per camera id, so camera ids are below 16.
inline constexpr size_t kProbeResultBlockSize = 16;
inline constexpr size_t kApplyControlBlock = 0 * kProbeResultBlockSize;
inline constexpr size_t kControlValueBlock = 1 * kProbeResultBlockSize;
inline constexpr size_t kKmdResultBlock = 2 * kProbeResultBlockSize;
inline constexpr size_t kClearedControlBlock = 3 * kProbeResultBlockSize;
static_assert(kClearedControlBlock + kProbeResultBlockSize == kProbeResultTableSize);
// Values the kernel driver's protocol fixes for a marked camera.
inline constexpr long kApplyControlMarked = 1;
inline constexpr long kControlValueMarked = 3;

// Reads at most 1023 bytes; writes the text NUL-padded to 1024 bytes.
inline constexpr size_t kKernelTextSize = 1024;

// The parsed table: 64 values when valid; fewer (or none) otherwise.
using ProbeResultTable = std::vector<long>;

// The camera's entry in one block of a table. Callers index only a table of
// 64 values with camera ids below 16; anything past the table is a caller
// fault and stops the process, like a hardened bounds check, rather than
// reading or writing outside the table.
inline long& BlockEntry(ProbeResultTable& table, size_t block, uint32_t cameraId) {
  const size_t index = block + cameraId;
  if (index >= table.size()) __builtin_trap();
  return table[index];
}
inline long BlockEntry(const ProbeResultTable& table, size_t block, uint32_t cameraId) {
  const size_t index = block + cameraId;
  if (index >= table.size()) __builtin_trap();
  return table[index];
}

// The kernel's result of the camera's last probe ("kmd result", 0 success).
inline long& KmdResult(ProbeResultTable& table, uint32_t cameraId) {
  return BlockEntry(table, kKmdResultBlock, cameraId);
}
inline long KmdResult(const ProbeResultTable& table, uint32_t cameraId) {
  return BlockEntry(table, kKmdResultBlock, cameraId);
}

// The camera's cleared control value; the kernel sets it when applying the
// initial settings failed.
inline long ClearedControl(const ProbeResultTable& table, uint32_t cameraId) {
  return BlockEntry(table, kClearedControlBlock, cameraId);
}

// Parses number-list text, keeping at most the first 64 values.
ProbeResultTable ParseProbeResultTable(const std::string& text);

// Marks `cameraId` for the kernel (flag 1, control 3, cleared control 0) and
// writes the table back when it held exactly 64 values. Returns the table as
// written, the parsed values unchanged when they were not 64, or an empty
// table when the file could not be opened or read. `result` is not used.
ProbeResultTable SetSensorProbeResult(uint32_t cameraId, int64_t result);

// Returns the parsed table; the caller indexes it by camera id.
ProbeResultTable ReadSensorProbeResult(uint32_t cameraId);

// Clears the camera's four values and writes the table back when it held
// exactly 64 values.
void ResetSensorProbeResult(uint32_t cameraId);

// The kernel's per-slot initial-settings results, read by the sensor init
// hook: every value of the parameter (not cut to 64), or an empty table when
// the parameter cannot be opened or its text is empty or fills the whole
// read. The argument is not used.
ProbeResultTable ReadSensorInitResult(uint32_t unused);

}  // namespace CamX
