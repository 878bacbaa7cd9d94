// Probe history per sensor or EEPROM name: how often each name was probed,
// every result in recorded order, and the camera id of its first probe. The
// sensor probe history (probeInfoMap) and the EEPROM one (eepromProbeInfoMap)
// are two instances of this type and are never mixed.
//
// In-process only: a history starts empty at load and grows until the camera
// process ends. Entries are never removed. Each operation holds the history's
// lock for its own duration only.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hook/src/guarded.h"

namespace CamX {

// Probe history of one name.
struct ProbeInfo {
  uint32_t probeCount = 0;
  std::vector<int64_t> probeResults;  // in recorded order; 0 is a success
  uint32_t cameraId = 0;              // from the first recorded probe
};
using ProbeInfoMap = std::map<std::string, ProbeInfo>;

// `value` + 1 for the probe counters; an overflow terminates the process
// instead of wrapping to 0.
uint32_t CheckedIncrement(uint32_t value);

class ProbeHistory {
 public:
  // What a retry decision needs of one name's history.
  struct Counts {
    uint32_t probeCount = 0;
    uint32_t failCount = 0;     // results other than 0
    uint32_t successCount = 0;  // results equal to 0
  };

  // Appends one probe of `name`: one more count and result; a new name takes
  // `cameraId`, a known one keeps its first. Returns the new count.
  uint32_t Record(const std::string& name, int64_t result, uint32_t cameraId);

  // The counts of `name`, or nothing when it has no history. Never adds an
  // entry.
  std::optional<Counts> Find(const std::string& name);

  // The recorded probe count of `name`; 0 when it has no history.
  uint32_t ProbeCount(const std::string& name);

  // Each non-empty name with its last recorded result, in name order.
  std::vector<std::pair<std::string, int64_t>> LastResults();

  // The first name, in name order, whose first probe was of `cameraId`.
  std::optional<std::string> FirstNameOfCamera(uint32_t cameraId);

  // Runs `fn(map)` under the lock, for tests and whole-map reads.
  template <typename Fn>
  decltype(auto) With(Fn&& fn) {
    return m_map.With(std::forward<Fn>(fn));
  }

 private:
  Guarded<ProbeInfoMap> m_map;
};

}  // namespace CamX
