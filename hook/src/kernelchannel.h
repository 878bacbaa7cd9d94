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

inline constexpr char kSensorApplySettingsControlPath[] =
    "/sys/module/camera/parameters/sensor_apply_settings_control";

inline constexpr size_t kProbeResultTableSize = 64;
inline constexpr size_t kApplyControlBlock = 0;
inline constexpr size_t kControlValueBlock = 16;
inline constexpr size_t kKmdResultBlock = 32;
inline constexpr size_t kClearedControlBlock = 48;
// Values the kernel driver's protocol fixes for a marked camera.
inline constexpr long kApplyControlMarked = 1;
inline constexpr long kControlValueMarked = 3;

// Reads at most 1023 bytes; writes the text NUL-padded to 1024 bytes.
inline constexpr size_t kKernelTextSize = 1024;

// The parsed table: 64 values when valid; fewer (or none) otherwise.
using ProbeResultTable = std::vector<long>;

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

}  // namespace CamX
