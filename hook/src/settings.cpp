#include "hook/src/settings.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include <cutils/properties.h>

#include "hook/src/hooklogsites.h"

namespace CamX {

SettingsMap ParseConfigFile(const std::string& path) {
  SettingsMap settings;
  std::ifstream file(path);
  if (!file.is_open()) {
    REMEDIUM_LOG(SettingsOpenFailure, path.c_str());
    return settings;
  }
  std::string line;
  while (std::getline(file, line)) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos || equals + 1 == line.size()) continue;
    // OK: a repeated key takes the later line's value.
    settings[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return settings;
}

void RecoverySettings(std::map<std::string, std::string> settings) {
  if (settings.empty()) return;
  for (const auto& row : kRecoveryRows) {
    const auto it = settings.find(row.key);
    // OK: a value too long for a property is dropped by property_set.
    if (it != settings.end()) property_set(row.property, it->second.c_str());
  }
}

int SettingAsInt(const SettingsMap& settings, const std::string& key) {
  auto it = settings.find(key);
  return it == settings.end() ? 0 : std::atoi(it->second.c_str());
}

}  // namespace CamX
