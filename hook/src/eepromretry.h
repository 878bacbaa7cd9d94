// Retry decisions over the EEPROM probe history (eepromProbeInfoMap). Both
// are pure reads: an unknown name never creates an entry.
#pragma once

#include <string>

namespace CamX {

// True once `name` has at least `retryTimes` EEPROM probes recorded and at
// least `retryTimes` of them failed. `retryTimes` below 2 gives false. Logs
// its verdict at INFO. The third argument is not used.
bool IsLastEEPROMProbeRetryTimes(std::string name, int retryTimes, int = 0);

// True only when, with at least `retryTimes` probes recorded, at least
// `retryTimes` failed and exactly one succeeded: a module that never probed
// or probed fine twice does not qualify. Logs the count and its verdict at
// INFO. The third argument is not used.
bool IsLastEEPROMProbeRetryBypassSensor(std::string name, int retryTimes, int = 0);

}  // namespace CamX
