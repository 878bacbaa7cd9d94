#include "remediumconfig.h"

#include <cutils/properties.h>

#include "hook/src/globals.h"

const RemediumConfig& RemediumConfig::GetInstance() {
  static const RemediumConfig s_instance;
  return s_instance;
}

void RemediumConfig::InitSubModuleConfig() {
  m_modSwitch = property_get_int32(kModuleSwitchProperty, kDefaultModuleSwitch);
  for (const auto& [name, bit] : CamX::moduleSwitchBits) {
    if (name.empty() || bit < 1) continue;
    ModuleConfig& config = m_moduleConfigs[name];
    config.moduleName = name;
    config.switchState = kModuleSwitchOff;
    // On only when every bit of the module is set; a negative mask sets all.
    if ((bit & ~m_modSwitch) == 0) config.switchState = kModuleSwitchOn;
  }
}
