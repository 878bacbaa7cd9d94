// Probe history per sensor name (probeInfoMap) and the retry decision the
// sensor probe hook takes from it; the sensor-name filter of the hooks.
//
// The history is in-process only: it starts empty at load and grows until the
// camera process ends. Entries are never removed.
#pragma once

#include <cstdint>
#include <string>

namespace CamX {

// Records one probe of `name` with its kernel-side result. A known name gets
// one more count and result; its cameraId stays the one first recorded.
void SetProbeInfoMap(std::string name, int64_t result, uint32_t cameraId);

// True once `name` has been probed at least `retryTimes` times and at least
// `retryTimes` of those probes failed, counted over its whole history.
// `retryTimes` below 2 never gives true. Logs its verdict at INFO. The third
// argument is not used.
bool IsLastRetryTimes(std::string name, int32_t retryTimes, int32_t = 0);

// False only for an empty name or one holding all six role words ("macro",
// "ultra", "wide", "tele", "depth", "front"); every ordinary sensor name
// passes. Deliberately this lenient: hooks skip name-based work on false.
bool CheckIsCameraName(std::string name);

}  // namespace CamX
