// The bundled scenario files (sim/scenarios/*.json), sorted by name, for the
// tests that go over every one; the test target defines REMEDIUM_SCENARIO_DIR.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace test {

inline std::vector<std::string> BundledScenarioFiles() {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(REMEDIUM_SCENARIO_DIR)) {
    if (entry.path().extension() == ".json") files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace test
