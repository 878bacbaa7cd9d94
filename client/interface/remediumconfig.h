// The framework's per-module on/off switches, taken once per process from
// the mask in "persist.vendor.camera.cloud.remedium.modswitch" (one bit per
// module, see moduleSwitchBits). A changed mask takes effect in a new process.
#pragma once

#include <cstdint>
#include <map>
#include <string>

inline constexpr char kModuleSwitchProperty[] = "persist.vendor.camera.cloud.remedium.modswitch";
// Unset or non-numeric: only "monitr" is on.
inline constexpr int32_t kDefaultModuleSwitch = 2;

// Module name to switch bit of the mask (7 rows), built at load. "monitr" is
// the framework's spelling of the monitor module.
extern const std::map<std::string, int32_t> moduleSwitchBits;

inline constexpr int32_t kModuleSwitchOn = 1;
inline constexpr int32_t kModuleSwitchOff = 2;

struct ModuleConfig {
  std::string moduleName;
  int32_t switchState = 0;  // kModuleSwitchOn / kModuleSwitchOff
};

class RemediumConfig {
 public:
  // The instance; built on first use (reads the mask then), destroyed at exit.
  static const RemediumConfig& GetInstance();

  // True only for a module with a record whose state is on. The lookup never
  // adds a record.
  bool IsModuleSwitchOpened(const std::string& moduleName) const {
    const auto it = m_moduleConfigs.find(moduleName);
    return it != m_moduleConfigs.end() && it->second.switchState == kModuleSwitchOn;
  }

  int32_t ModSwitch() const { return m_modSwitch; }
  const std::map<std::string, ModuleConfig>& ModuleConfigs() const { return m_moduleConfigs; }

  RemediumConfig(const RemediumConfig&) = delete;
  RemediumConfig& operator=(const RemediumConfig&) = delete;

 private:
  RemediumConfig() { InitSubModuleConfig(); }
  ~RemediumConfig() = default;

  // Reads the mask and gives every module of moduleSwitchBits a record: on when
  // all of its bits are set in the mask, off otherwise.
  void InitSubModuleConfig();

  // Written once during construction, read without a lock afterwards.
  int32_t m_modSwitch = 0;
  std::map<std::string, ModuleConfig> m_moduleConfigs;
};
