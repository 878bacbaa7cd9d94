// RemediumConfig: the module table built once from the module switch mask.
#include "client/interface/remediumconfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <set>

#include "harness.h"
#include "simproperties.h"
#include "support/fresh_process.h"

namespace {

const std::set<std::string> kAllModules = {"vlcdb",    "monitr",  "hookswitch", "inithookswitch",
                                           "firmware", "bigdata", "sensorstate"};

struct MaskCase {
  const char* name;
  std::optional<std::string> property;  // unset when empty
  int32_t modSwitch;
  std::set<std::string> on;
};

void PrintTo(const MaskCase& c, std::ostream* os) { *os << c.name; }

class RemediumConfigMaskTest : public ::testing::TestWithParam<MaskCase> {
 protected:
  sim::Phone phone_;
};

TEST_P(RemediumConfigMaskTest, EveryModuleGetsARecordOnOnlyWhenAllItsBitsAreSet) {
  if (GetParam().property) sim::PresetProperty("persist.vendor.camera.cloud.remedium.modswitch", *GetParam().property);
  const MaskCase expected = GetParam();
  EXPECT_IN_FRESH_PROCESS([&expected] {
    const RemediumConfig& config = RemediumConfig::GetInstance();
    EXPECT_EQ(config.ModSwitch(), expected.modSwitch);
    ASSERT_EQ(config.ModuleConfigs().size(), kAllModules.size());
    for (const std::string& module : kAllModules) {
      const ModuleConfig& record = config.ModuleConfigs().at(module);
      const bool on = expected.on.count(module) != 0;
      EXPECT_EQ(record.moduleName, module);
      EXPECT_EQ(record.switchState, on ? 1 : 2) << module;
      EXPECT_EQ(config.IsModuleSwitchOpened(module), on) << module;
    }
  });
}

INSTANTIATE_TEST_SUITE_P(
    Masks, RemediumConfigMaskTest,
    ::testing::Values(MaskCase{"Unset", std::nullopt, 2, {"monitr"}},
                      MaskCase{"SensorStateOnly", "64", 64, {"sensorstate"}},
                      MaskCase{"Nothing", "0", 0, {}},
                      MaskCase{"EverythingButSensorState", "63", 63,
                               {"vlcdb", "monitr", "hookswitch", "inithookswitch", "firmware", "bigdata"}},
                      MaskCase{"NegativeSetsEveryBit", "-1", -1, kAllModules},
                      MaskCase{"NotANumber", "on", 2, {"monitr"}}),
    [](const ::testing::TestParamInfo<MaskCase>& info) { return std::string(info.param.name); });

class RemediumConfigTest : public ::testing::Test {
 protected:
  sim::Phone phone_;
};

TEST_F(RemediumConfigTest, UnknownModuleIsOffAndNeverAdded) {
  sim::PresetProperty("persist.vendor.camera.cloud.remedium.modswitch", "-1");
  EXPECT_IN_FRESH_PROCESS([] {
    const RemediumConfig& config = RemediumConfig::GetInstance();
    EXPECT_FALSE(config.IsModuleSwitchOpened("monitor"));  // the framework spells it "monitr"
    EXPECT_FALSE(config.IsModuleSwitchOpened(""));
    EXPECT_EQ(config.ModuleConfigs().size(), 7u);
  });
}

TEST_F(RemediumConfigTest, MaskIsReadOncePerProcess) {
  sim::PresetProperty("persist.vendor.camera.cloud.remedium.modswitch", "64");
  EXPECT_IN_FRESH_PROCESS([] {
    EXPECT_TRUE(RemediumConfig::GetInstance().IsModuleSwitchOpened("sensorstate"));
    sim::PresetProperty("persist.vendor.camera.cloud.remedium.modswitch", "0");
    EXPECT_TRUE(RemediumConfig::GetInstance().IsModuleSwitchOpened("sensorstate"));
    EXPECT_EQ(&RemediumConfig::GetInstance(), &RemediumConfig::GetInstance());
  });
}

}  // namespace
