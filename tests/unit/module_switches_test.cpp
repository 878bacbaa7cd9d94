// RemediumConfig: the module table built once from the module switch mask.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <set>

#include "client/interface/remediumconfig.h"
#include "harness.h"
#include "simproperties.h"
#include "support/fresh_process.h"

namespace {

constexpr char kModSwitch[] = "persist.vendor.camera.cloud.remedium.modswitch";
const std::set<std::string> kAllModules = {"vlcdb",    "monitr",  "hookswitch", "inithookswitch",
                                           "firmware", "bigdata", "sensorstate"};

struct MaskCase {
  const char* name;
  std::optional<std::string> property;  // unset when empty
  int32_t modSwitch;
  std::set<std::string> on;
};

void PrintTo(const MaskCase& c, std::ostream* os) { *os << c.name; }

class ModuleSwitchTest : public ::testing::TestWithParam<MaskCase> {
 protected:
  sim::Phone phone_;
};

// Also: an unknown module is off and never added, and the mask is read once.
TEST_P(ModuleSwitchTest, ModuleIsOnOnlyWhenAllItsBitsAreSet) {
  if (GetParam().property) sim::PresetProperty(kModSwitch, *GetParam().property);
  const MaskCase expected = GetParam();
  EXPECT_IN_FRESH_PROCESS([&expected] {
    const RemediumConfig& config = RemediumConfig::GetInstance();
    EXPECT_EQ(config.ModSwitch(), expected.modSwitch);
    sim::PresetProperty(kModSwitch, expected.modSwitch == 0 ? "-1" : "0");
    for (const std::string& module : kAllModules) {
      const ModuleConfig& record = RemediumConfig::GetInstance().ModuleConfigs().at(module);
      const bool on = expected.on.count(module) != 0;
      EXPECT_EQ(record.moduleName, module);
      EXPECT_EQ(record.switchState, on ? 1 : 2) << module;
      EXPECT_EQ(config.IsModuleSwitchOpened(module), on) << module;
    }
    EXPECT_FALSE(config.IsModuleSwitchOpened("monitor"));  // the framework spells it "monitr"
    EXPECT_FALSE(config.IsModuleSwitchOpened(""));
    EXPECT_EQ(config.ModuleConfigs().size(), kAllModules.size());
    EXPECT_EQ(&config, &RemediumConfig::GetInstance());
  });
}

INSTANTIATE_TEST_SUITE_P(
    Masks, ModuleSwitchTest,
    ::testing::Values(MaskCase{"Unset", std::nullopt, 2, {"monitr"}},
                      MaskCase{"SensorStateOnly", "64", 64, {"sensorstate"}}, MaskCase{"Nothing", "0", 0, {}},
                      MaskCase{"EverythingButSensorState", "63", 63,
                               {"vlcdb", "monitr", "hookswitch", "inithookswitch", "firmware", "bigdata"}},
                      MaskCase{"NegativeSetsEveryBit", "-1", -1, kAllModules},
                      MaskCase{"NotANumber", "on", 2, {"monitr"}}),
    [](const ::testing::TestParamInfo<MaskCase>& info) { return std::string(info.param.name); });

}  // namespace
