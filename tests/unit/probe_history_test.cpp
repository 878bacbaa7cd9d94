// Sensor probe history and its last-retry decision, the sensor-name filter,
// and the two EEPROM retry predicates over the EEPROM history.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hook/src/eepromretry.h"
#include "hook/src/globals.h"
#include "hook/src/probeinfo.h"
#include "tests/support/fresh_process.h"
#include "tests/support/log_matchers.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

CamX::ProbeInfo SensorHistory(const std::string& name) {
  return CamX::probeInfoMap.With([&](CamX::ProbeInfoMap& map) { return map.at(name); });
}
void SetEepromHistory(const std::string& name, std::vector<int64_t> results) {
  CamX::eepromProbeInfoMap.With(
      [&](CamX::ProbeInfoMap& map) { map[name] = CamX::ProbeInfo{static_cast<uint32_t>(results.size()), results, 0}; });
}

// Every case uses names of its own: the histories live for the process.
using ProbeHistoryTest = test::PhoneTest;

TEST_F(ProbeHistoryTest, KeepsTheFirstCameraIdAndEveryResult) {
  CamX::SetProbeInfoMap("h1_imx766", 5, 3);
  CamX::SetProbeInfoMap("h1_imx766", -4294967296, 5);
  CamX::SetProbeInfoMap("h1_imx766_front", 0, 1);
  const CamX::ProbeInfo info = SensorHistory("h1_imx766");
  EXPECT_EQ(info.probeCount, 2u);
  EXPECT_THAT(info.probeResults, ElementsAre(5, -4294967296));
  EXPECT_EQ(info.cameraId, 3u);
  EXPECT_EQ(SensorHistory("h1_imx766_front").probeCount, 1u);
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryTimes("h1_imx766", 2));  // the EEPROM history is another map
}

TEST_F(ProbeHistoryTest, LastRetryNeedsRetryTimesFailuresOverTheWholeHistory) {
  for (int64_t result : {5, 0, 7}) CamX::SetProbeInfoMap("h2_imx766", result, 0);
  EXPECT_FALSE(CamX::IsLastRetryTimes("h2_imx766", 3, 0));  // 3 probes, 2 failures
  CamX::SetProbeInfoMap("h2_imx766", 9, 0);
  EXPECT_TRUE(CamX::IsLastRetryTimes("h2_imx766", 3, 0));
  CamX::SetProbeInfoMap("h2_imx766", 0, 0);  // a later success does not reset the count
  EXPECT_TRUE(CamX::IsLastRetryTimes("h2_imx766", 3, 0));
}

// A budget below two, fewer probes than the budget, or no history: not the
// last retry, and nothing is added to the history.
TEST_F(ProbeHistoryTest, EarlyExitsAreNotLastAndPrintZeroes) {
  for (int i = 0; i < 4; ++i) CamX::SetProbeInfoMap("h3_ov50d", 1, 0);
  for (int i = 0; i < 2; ++i) CamX::SetProbeInfoMap("h3_gc02", 1, 0);
  for (int retryTimes : {1, 0, -5}) EXPECT_FALSE(CamX::IsLastRetryTimes("h3_ov50d", retryTimes));
  EXPECT_FALSE(CamX::IsLastRetryTimes("h3_gc02", 3));
  EXPECT_FALSE(CamX::IsLastRetryTimes("h3_unknown", 3));
  EXPECT_EQ(CamX::probeInfoMap.With([](CamX::ProbeInfoMap& map) { return map.count("h3_unknown"); }), 0u);
}

TEST(CameraNameTest, RejectsOnlyEmptyNamesAndNamesWithAllSixWords) {
  EXPECT_FALSE(CamX::CheckIsCameraName(""));
  EXPECT_FALSE(CamX::CheckIsCameraName("macro_ultra_wide_tele_depth_front"));
  EXPECT_FALSE(CamX::CheckIsCameraName("frontdepthteleXwideultramacro"));
  EXPECT_TRUE(CamX::CheckIsCameraName("s5k3p9sp_front"));
  EXPECT_TRUE(CamX::CheckIsCameraName("macro_ultra_wide_tele_depth"));        // five of six
  EXPECT_TRUE(CamX::CheckIsCameraName("MACRO_ULTRA_WIDE_TELE_DEPTH_FRONT"));  // case-sensitive
}

TEST_F(ProbeHistoryTest, EepromBudgetBelowTwoOrUnknownNameIsNeverLast) {
  SetEepromHistory("e1_imx766", {1, 1, 1, 0});
  for (int retryTimes : {1, 0, -1, INT32_MIN}) {
    EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryTimes("e1_imx766", retryTimes));
    EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("e1_imx766", retryTimes));
  }
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryTimes("e1_ov50d", 2));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("e1_ov50d", 2));
  CamX::SetProbeInfoMap("e1_gc02", 1, 0);  // sensor history is a different map
  CamX::SetProbeInfoMap("e1_gc02", 1, 0);
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryTimes("e1_gc02", 2));
  EXPECT_EQ(CamX::eepromProbeInfoMap.With([](CamX::ProbeInfoMap& map) { return map.count("e1_ov50d"); }), 0u);
}

// All failed: the last retry, but a bypass needs exactly one success.
TEST_F(ProbeHistoryTest, EepromAllFailedIsLastRetryAndBypassNeedsExactlyOneSuccess) {
  SetEepromHistory("e2_all", {1, -2, 4294967296});
  EXPECT_TRUE(CamX::IsLastEEPROMProbeRetryTimes("e2_all", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("e2_all", 3));
  SetEepromHistory("e2_one", {0, 1, 1, 1});
  SetEepromHistory("e2_two", {0, 0, 1, 1, 1});
  SetEepromHistory("e2_few", {0, 1, 1});  // fewer failures than the budget
  SetEepromHistory("e2_short", {1, 1});   // fewer probes than the budget, all failed
  EXPECT_TRUE(CamX::IsLastEEPROMProbeRetryBypassSensor("e2_one", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("e2_two", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("e2_few", 3));
  EXPECT_TRUE(CamX::IsLastEEPROMProbeRetryTimes("e2_two", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryTimes("e2_few", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryTimes("e2_short", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("e2_short", 3));
  EXPECT_THAT(test::LogTexts().back(), EndsWith("probeFailCount: 0, probeSuccessCount: 0, last retry times: 0"));
}

}  // namespace
