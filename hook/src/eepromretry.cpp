#include "hook/src/eepromretry.h"

#include <optional>

#include "hook/src/globals.h"
#include "hook/src/hooklogsites.h"

namespace CamX {

bool IsLastEEPROMProbeRetryTimes(std::string name, int retryTimes, int) {
  uint32_t probeFailCount = 0;
  bool last = false;
  if (retryTimes >= 2) {
    const std::optional<ProbeHistory::Counts> history = eepromProbeInfoMap.Find(name);
    if (history && history->probeCount >= static_cast<uint32_t>(retryTimes)) {
      probeFailCount = history->failCount;
      last = probeFailCount >= static_cast<uint32_t>(retryTimes);
    }
  }
  REMEDIUM_LOG(EepromLastRetryVerdict, name.c_str(), retryTimes, probeFailCount, last ? 1 : 0);
  return last;
}

bool IsLastEEPROMProbeRetryBypassSensor(std::string name, int retryTimes, int) {
  uint32_t probeFailCount = 0;
  uint32_t probeSuccessCount = 0;
  bool last = false;
  if (retryTimes >= 2) {
    const std::optional<ProbeHistory::Counts> history = eepromProbeInfoMap.Find(name);
    if (history) {
      REMEDIUM_LOG(EepromBypassProbeCount, history->probeCount);
      if (history->probeCount >= static_cast<uint32_t>(retryTimes)) {
        probeFailCount = history->failCount;
        probeSuccessCount = history->successCount;
        // Exactly one success on purpose: see the header.
        last = probeFailCount != 0 && probeFailCount >= static_cast<uint32_t>(retryTimes) && probeSuccessCount == 1;
      }
    }
  }
  REMEDIUM_LOG(EepromBypassVerdict, name.c_str(), retryTimes, probeFailCount, probeSuccessCount, last ? 1 : 0);
  return last;
}

}  // namespace CamX
