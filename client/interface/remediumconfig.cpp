#include "client/interface/remediumconfig.h"

#include <cutils/properties.h>

#include "client/interface/loadorder.h"

const std::map<std::string, int32_t> moduleSwitchBits REMEDIUM_LOAD_ORDER(kLoadOrderModuleSwitchBits) = {
    {"vlcdb", 1},     {"monitr", 2},   {"hookswitch", 4},   {"inithookswitch", 8},
    {"firmware", 16}, {"bigdata", 32}, {"sensorstate", 64},
};

const RemediumConfig& RemediumConfig::GetInstance() {
  static const RemediumConfig s_instance;
  return s_instance;
}

void RemediumConfig::InitSubModuleConfig() {
  m_modSwitch = property_get_int32(kModuleSwitchProperty, kDefaultModuleSwitch);
  for (const auto& [name, bit] : moduleSwitchBits) {
    if (name.empty() || bit < 1) continue;
    ModuleConfig& config = m_moduleConfigs[name];
    config.moduleName = name;
    config.switchState = kModuleSwitchOff;
    // On only when every bit of the module is set; a negative mask sets all.
    if ((bit & ~m_modSwitch) == 0) config.switchState = kModuleSwitchOn;
  }
}
