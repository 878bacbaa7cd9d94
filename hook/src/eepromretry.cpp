#include "hook/src/eepromretry.h"

#include <optional>

#include "client/interface/logsites.h"
#include "hook/src/globals.h"
#include "hook/src/probeinfo.h"

namespace CamX {

namespace {

struct EepromHistory {
  uint32_t probeCount = 0;
  uint32_t failCount = 0;
  uint32_t successCount = 0;
};

// Counts of `name`'s EEPROM history, or nothing when it has none. Uses find,
// never operator[]: asking must not add an empty record.
std::optional<EepromHistory> FindHistory(const std::string& name) {
  return eepromProbeInfoMap.With([&](const ProbeInfoMap& map) -> std::optional<EepromHistory> {
    const auto it = map.find(name);
    if (it == map.end()) return std::nullopt;
    EepromHistory history;
    history.probeCount = it->second.probeCount;
    for (const int64_t result : it->second.probeResults) {
      if (result != 0) {
        history.failCount = CheckedIncrement(history.failCount);
      } else {
        history.successCount = CheckedIncrement(history.successCount);
      }
    }
    return history;
  });
}

}  // namespace

bool IsLastEEPROMProbeRetryTimes(std::string name, int retryTimes, int) {
  uint32_t probeFailCount = 0;
  bool last = false;
  if (retryTimes >= 2) {
    const std::optional<EepromHistory> history = FindHistory(name);
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
    const std::optional<EepromHistory> history = FindHistory(name);
    if (history) {
      REMEDIUM_LOG(EepromBypassProbeCount, history->probeCount);
      if (history->probeCount >= static_cast<uint32_t>(retryTimes)) {
        probeFailCount = history->failCount;
        probeSuccessCount = history->successCount;
        // Exactly one success on purpose: see the header.
        last = probeFailCount != 0 && probeFailCount >= static_cast<uint32_t>(retryTimes) &&
               probeSuccessCount == 1;
      }
    }
  }
  REMEDIUM_LOG(EepromBypassVerdict, name.c_str(), retryTimes, probeFailCount, probeSuccessCount, last ? 1 : 0);
  return last;
}

}  // namespace CamX
