#include "hook/src/probehistory.h"

namespace CamX {

uint32_t CheckedIncrement(uint32_t value) {
  uint32_t next = 0;
  // A count past 4294967295 is a fault, not a wrap to 0.
  if (__builtin_add_overflow(value, 1u, &next)) __builtin_trap();
  return next;
}

uint32_t ProbeHistory::Record(const std::string& name, int64_t result, uint32_t cameraId) {
  return m_map.With([&](ProbeInfoMap& map) {
    auto [it, inserted] = map.try_emplace(name);
    ProbeInfo& info = it->second;
    if (inserted) info.cameraId = cameraId;
    info.probeCount = CheckedIncrement(info.probeCount);
    info.probeResults.push_back(result);
    return info.probeCount;
  });
}

std::optional<ProbeHistory::Counts> ProbeHistory::Find(const std::string& name) {
  return m_map.With([&](const ProbeInfoMap& map) -> std::optional<Counts> {
    const auto it = map.find(name);
    if (it == map.end()) return std::nullopt;
    Counts counts;
    counts.probeCount = it->second.probeCount;
    for (const int64_t result : it->second.probeResults) {
      if (result != 0) {
        counts.failCount = CheckedIncrement(counts.failCount);
      } else {
        counts.successCount = CheckedIncrement(counts.successCount);
      }
    }
    return counts;
  });
}

uint32_t ProbeHistory::ProbeCount(const std::string& name) {
  return m_map.With([&](const ProbeInfoMap& map) {
    const auto it = map.find(name);
    return it == map.end() ? 0u : it->second.probeCount;
  });
}

std::vector<std::pair<std::string, int64_t>> ProbeHistory::LastResults() {
  return m_map.With([](const ProbeInfoMap& map) {
    std::vector<std::pair<std::string, int64_t>> lastResults;
    for (const auto& [name, info] : map) {
      if (!name.empty() && !info.probeResults.empty()) lastResults.emplace_back(name, info.probeResults.back());
    }
    return lastResults;
  });
}

std::optional<std::string> ProbeHistory::FirstNameOfCamera(uint32_t cameraId) {
  return m_map.With([&](const ProbeInfoMap& map) -> std::optional<std::string> {
    for (const auto& [name, info] : map) {
      if (info.cameraId == cameraId) return name;
    }
    return std::nullopt;
  });
}

}  // namespace CamX
