// The override-settings reader, the number-list texts and the recovery
// settings copied into properties.
#include <climits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hook/src/numberlist.h"
#include "hook/src/settings.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simproperties.h"
#include "tests/support/fresh_process.h"
#include "tests/support/log_matchers.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using Properties = std::map<std::string, std::string>;

using OverrideSettingsTest = test::PhoneTest;

TEST_F(OverrideSettingsTest, ReadsLinesLiterallyAndLastLineWins) {
  sim::WriteDeviceFile("/odm/etc/camera/camxoverridesettings.txt",
                       "a=1\na=2\nkey\nkey=\nkey==v\n\n=empty\n#c=x\n k = v \nwin=1\r\nSensorModuleRetryTimes=3");
  const CamX::SettingsMap expected = {{"a", "2"},
                                      {"key", "=v"},
                                      {"", "empty"},
                                      {"#c", "x"},
                                      {" k ", " v "},
                                      {"win", "1\r"},
                                      {"SensorModuleRetryTimes", "3"}};
  EXPECT_EQ(CamX::ParseConfigFile(CamX::kOverrideSettingsPath), expected);
}

TEST(NumberListTest, FormatsWithSingleCommasAndParsesUpToTheFirstBadNumber) {
  EXPECT_EQ(CamX::ArrayToString({}), "");
  EXPECT_EQ(CamX::ArrayToString({1, -2}), "1,-2");
  EXPECT_EQ(CamX::ArrayToString64({LONG_MIN, 4294967296L, 0, LONG_MAX}),
            "-9223372036854775808,4294967296,0,9223372036854775807");
  EXPECT_THAT(CamX::StringToArray64("1,2,3", 0), ElementsAre(1, 2, 3));
  EXPECT_THAT(CamX::StringToArray64("1,,2", 0), ElementsAre(1));
  EXPECT_THAT(CamX::StringToArray64("", 0), IsEmpty());
  EXPECT_THAT(CamX::StringToArray64("5, 6", 0), ElementsAre(5, 6));
  EXPECT_THAT(CamX::StringToArray64("1,2x,3", 0), ElementsAre(1, 2));
  EXPECT_THAT(CamX::StringToArray64("4,5,\n", 0), ElementsAre(4, 5));
  EXPECT_THAT(CamX::StringToArray64("-9223372036854775808,-4294967297,9223372036854775807", 0),
              ElementsAre(LONG_MIN, -4294967297L, LONG_MAX));
  EXPECT_THAT(CamX::StringToArray64("1,9223372036854775808,2", 0), ElementsAre(1));  // out of range is bad text
}

using RecoverySettingsTest = test::PhoneTest;

// Only the five recovery keys present are copied, values as they stand (a
// value too long for a property is refused by the store, which records it).
TEST_F(RecoverySettingsTest, CopiesThePresentKeysAsTheyStand) {
  CamX::RecoverySettings({});
  EXPECT_THAT(sim::AllProperties(), IsEmpty());
  CamX::RecoverySettings({{"numPCRsBeforeStreamOn", "3"}, {"EnableEarlyPipelineActivate", "TRUE"}});
  EXPECT_EQ(sim::AllProperties(), (Properties{{"vendor.debug.camera.numPCRsBeforeStreamOn", "3"}}));
  CamX::RecoverySettings({{"enableEarlyPipelineActivate", " TRUE "},
                          {"isSatFollowFingersOpt", "0"},
                          {"enableSATWideAlwaysOn", std::string(200, 'x')},
                          {"numPCRsBeforeStreamOn", "2\r"},
                          {"isEarlysettingsEnable", "FALSE"},
                          {"SensorModuleRetryTimes", "3"}});
  EXPECT_EQ(sim::AllProperties(), (Properties{{"persist.vendor.camera.enableEarlyPipelineActivate", " TRUE "},
                                              {"persist.vendor.camera.isSatFollowFingersOpt", "0"},
                                              {"vendor.debug.camera.numPCRsBeforeStreamOn", "2\r"},
                                              {"persist.vendor.camera.isEarlysettingsEnable", "FALSE"}}));
  ASSERT_EQ(sim::RejectedPropertySets().size(), 1u);
  EXPECT_EQ(sim::RejectedPropertySets()[0].key, "persist.vendor.camera.enableSATWideAlwaysOn");
  EXPECT_THAT(sim::Journal(), Contains(Field(&sim::Event::text,
                                             "property_set persist.vendor.camera.enableSATWideAlwaysOn "
                                             "rejected: value of 200 bytes")));
}

}  // namespace
