#include "hook/src/probeinfo.h"

#include <cstring>

#include "client/interface/logsites.h"
#include "hook/src/globals.h"

namespace CamX {

uint32_t CheckedIncrement(uint32_t value) {
  uint32_t next = 0;
  // A count past 4294967295 is a fault, not a wrap to 0.
  if (__builtin_add_overflow(value, 1u, &next)) __builtin_trap();
  return next;
}

void SetProbeInfoMap(std::string name, int64_t result, uint32_t cameraId) {
  probeInfoMap.With([&](ProbeInfoMap& map) {
    const auto it = map.find(name);
    if (it == map.end()) {
      map.emplace(std::move(name), ProbeInfo{1, {result}, cameraId});
      return;
    }
    it->second.probeCount = CheckedIncrement(it->second.probeCount);
    it->second.probeResults.push_back(result);
  });
}

bool IsLastRetryTimes(std::string name, int32_t retryTimes, int32_t) {
  uint32_t probeFailCount = 0;
  bool last = false;
  if (retryTimes >= 2) {
    probeInfoMap.With([&](const ProbeInfoMap& map) {
      const auto it = map.find(name);
      if (it == map.end() || it->second.probeCount < static_cast<uint32_t>(retryTimes)) return;
      for (const int64_t result : it->second.probeResults) {
        if (result != 0) probeFailCount = CheckedIncrement(probeFailCount);
      }
      last = probeFailCount >= static_cast<uint32_t>(retryTimes);
    });
  }
  // "rerty" is the text the maker's log tools match.
  REMEDIUM_LOG(LastRetryVerdict, name.c_str(), retryTimes, probeFailCount, last ? 1 : 0);
  return last;
}

bool CheckIsCameraName(std::string name) {
  if (name.empty()) return false;
  for (const char* word : {"macro", "ultra", "wide", "tele", "depth", "front"}) {
    if (std::strstr(name.c_str(), word) == nullptr) return true;
  }
  return false;
}

}  // namespace CamX
