// Sensor probe history and its last-retry decision, the sensor-name filter,
// and the two EEPROM retry predicates over the EEPROM history.
#include "hook/src/probeinfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "harness.h"
#include "hook/src/eepromretry.h"
#include "hook/src/globals.h"
#include "support/log_matchers.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

void ClearHistories() {
  CamX::probeInfoMap.With([](CamX::ProbeInfoMap& map) { map.clear(); });
  CamX::eepromProbeInfoMap.With([](CamX::ProbeInfoMap& map) { map.clear(); });
}

CamX::ProbeInfo SensorHistory(const std::string& name) {
  return CamX::probeInfoMap.With([&](CamX::ProbeInfoMap& map) { return map.at(name); });
}

void SetEepromHistory(const std::string& name, std::vector<int64_t> results) {
  CamX::eepromProbeInfoMap.With([&](CamX::ProbeInfoMap& map) {
    map[name] = CamX::ProbeInfo{static_cast<uint32_t>(results.size()), results, 0};
  });
}

size_t EepromEntries() {
  return CamX::eepromProbeInfoMap.With([](CamX::ProbeInfoMap& map) { return map.size(); });
}

class ProbeHistoryTest : public ::testing::Test {
 protected:
  void SetUp() override { ClearHistories(); }
  void TearDown() override { ClearHistories(); }
  sim::Phone phone_;
};

TEST_F(ProbeHistoryTest, KeepsTheFirstCameraIdAndEveryResult) {
  CamX::SetProbeInfoMap("imx766", 5, 3);
  CamX::SetProbeInfoMap("imx766", -4294967296, 5);
  CamX::SetProbeInfoMap("imx766_front", 0, 1);
  const CamX::ProbeInfo info = SensorHistory("imx766");
  EXPECT_EQ(info.probeCount, 2u);
  EXPECT_THAT(info.probeResults, ElementsAre(5, -4294967296));
  EXPECT_EQ(info.cameraId, 3u);
  EXPECT_EQ(SensorHistory("imx766_front").probeCount, 1u);
  EXPECT_TRUE(CamX::eepromProbeInfoMap.With([](CamX::ProbeInfoMap& map) { return map.empty(); }));
}

TEST_F(ProbeHistoryTest, LastRetryNeedsRetryTimesFailuresOverTheWholeHistory) {
  for (int64_t result : {5, 0, 7}) CamX::SetProbeInfoMap("imx766", result, 0);
  EXPECT_FALSE(CamX::IsLastRetryTimes("imx766", 3, 0));  // 3 probes, 2 failures
  CamX::SetProbeInfoMap("imx766", 9, 0);
  EXPECT_TRUE(CamX::IsLastRetryTimes("imx766", 3, 0));
  CamX::SetProbeInfoMap("imx766", 0, 0);  // a later success does not reset the count
  EXPECT_TRUE(CamX::IsLastRetryTimes("imx766", 3, 0));
  EXPECT_THAT(test::LogTexts(),
              ElementsAre(EndsWith("IsLastRetryTimes() Camera name: imx766, rerty times: 3, probeFailCount: 2, "
                                   "last retry times: 0"),
                          EndsWith("probeFailCount: 3, last retry times: 1"),
                          EndsWith("probeFailCount: 3, last retry times: 1")));
}

TEST_F(ProbeHistoryTest, EarlyExitsAreNotLastAndPrintZeroes) {
  for (int i = 0; i < 4; ++i) CamX::SetProbeInfoMap("ov50d", 1, 0);
  CamX::SetProbeInfoMap("gc02", 1, 0);
  CamX::SetProbeInfoMap("gc02", 1, 0);
  EXPECT_FALSE(CamX::IsLastRetryTimes("ov50d", 1));
  EXPECT_FALSE(CamX::IsLastRetryTimes("ov50d", 0));
  EXPECT_FALSE(CamX::IsLastRetryTimes("ov50d", -5));
  EXPECT_FALSE(CamX::IsLastRetryTimes("gc02", 3));     // 2 probes < 3
  EXPECT_FALSE(CamX::IsLastRetryTimes("unknown", 3));  // no history
  for (const std::string& text : test::LogTexts()) EXPECT_THAT(text, EndsWith("probeFailCount: 0, last retry times: 0"));
  EXPECT_EQ(test::LogTexts().size(), 5u);
  EXPECT_EQ(CamX::probeInfoMap.With([](CamX::ProbeInfoMap& map) { return map.count("unknown"); }), 0u);
}

TEST(CameraNameTest, RejectsOnlyEmptyNamesAndNamesWithAllSixWords) {
  EXPECT_FALSE(CamX::CheckIsCameraName(""));
  EXPECT_FALSE(CamX::CheckIsCameraName("macro_ultra_wide_tele_depth_front"));
  EXPECT_FALSE(CamX::CheckIsCameraName("frontdepthteleXwideultramacro"));
  EXPECT_TRUE(CamX::CheckIsCameraName("s5k3p9sp_front"));
  EXPECT_TRUE(CamX::CheckIsCameraName("imx766"));
  EXPECT_TRUE(CamX::CheckIsCameraName("macro_ultra_wide_tele_depth"));         // five of six
  EXPECT_TRUE(CamX::CheckIsCameraName("MACRO_ULTRA_WIDE_TELE_DEPTH_FRONT"));  // case-sensitive
}

using EepromRetryTest = ProbeHistoryTest;

TEST_F(EepromRetryTest, SmallRetryBudgetOrUnknownNameIsFalseAndNeverInserts) {
  SetEepromHistory("imx766", {1, 1, 1, 0});
  for (int retryTimes : {1, 0, -1, INT32_MIN}) {
    EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryTimes("imx766", retryTimes));
    EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("imx766", retryTimes));
  }
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryTimes("ov50d", 2));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("ov50d", 2));
  EXPECT_EQ(EepromEntries(), 1u);
  CamX::SetProbeInfoMap("gc02", 1, 0);  // sensor history is a different map
  CamX::SetProbeInfoMap("gc02", 1, 0);
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryTimes("gc02", 2));
  EXPECT_EQ(EepromEntries(), 1u);
}

TEST_F(EepromRetryTest, AllFailedIsLastRetryButNotBypass) {
  SetEepromHistory("imx766", {1, -2, 4294967296});
  EXPECT_TRUE(CamX::IsLastEEPROMProbeRetryTimes("imx766", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("imx766", 3));
  EXPECT_THAT(test::LogTexts(),
              ElementsAre(EndsWith("IsLastEEPROMProbeRetryTimes() Camera name: imx766, rerty times: 3, "
                                   "probeFailCount: 3, last retry times: 1"),
                          EndsWith("IsLastEEPROMProbeRetryBypassSensor() probeCount: 3"),
                          EndsWith("IsLastEEPROMProbeRetryBypassSensor() Camera name: imx766, rerty times: 3, "
                                   "probeFailCount: 3, probeSuccessCount: 0, last retry times: 0")));
}

TEST_F(EepromRetryTest, BypassNeedsExactlyOneSuccess) {
  SetEepromHistory("one", {0, 1, 1, 1});
  SetEepromHistory("two", {0, 0, 1, 1, 1});
  SetEepromHistory("few", {0, 1, 1});  // fewer failures than the budget
  SetEepromHistory("short", {1, 1});   // fewer probes than the budget, all failed
  EXPECT_TRUE(CamX::IsLastEEPROMProbeRetryBypassSensor("one", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("two", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("few", 3));
  EXPECT_TRUE(CamX::IsLastEEPROMProbeRetryTimes("two", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryTimes("few", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryTimes("short", 3));
  EXPECT_FALSE(CamX::IsLastEEPROMProbeRetryBypassSensor("short", 3));
  EXPECT_THAT(test::LogTexts().back(), EndsWith("probeFailCount: 0, probeSuccessCount: 0, last retry times: 0"));
}

}  // namespace
