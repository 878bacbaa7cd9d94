// The EEPROM hooks through the loaded library: the data probe's pass on the
// last retry, the core's faults on the EEPROM probe and read, and the
// checksum disturbance.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "support/sensor_phone.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Each;
using ::testing::IsEmpty;
namespace fw = sim::framework;
namespace hal = sim::hal;

using EepromTest = test::SensorPhoneTest;

TEST_F(EepromTest, DataProbePassesOnlyTheLastRetryOfAQualifyingModule) {
  Override("SensorModuleRetryTimes=3\nsensorModuleNumber=2\n");
  hal::SetDefaultResult("EEPROMDataProbe", 5);
  // The message centre names no sensor of this type: never probed before.
  std::vector<CamxResult> results;
  std::vector<uint32_t> flags;
  for (int i = 0; i < 5; ++i) {
    uint32_t flag = 0;
    results.push_back(EepromDataProbe(1, "gc02m1_macro", &flag));
    flags.push_back(flag);
  }
  EXPECT_THAT(results, ElementsAre(5, 5, 5, 0, 0));
  EXPECT_THAT(flags, ElementsAre(0, 0, 0, 1, 1));
  // The forced success is recorded as 0: the fifth call still counts three
  // failures, checked before and after the HAL call.
  const std::vector<std::string> messages = test::HookMessages();
  EXPECT_EQ(std::count(messages.begin(), messages.end(),
                       "Camera name: gc02m1_macro, rerty times: 3, probeFailCount: 3, last retry times: 1"),
            4);
  EXPECT_THAT(messages, Contains("camera id: 1, sensor name: gc02m1_macro, result: 0"));

  // The message centre prefers another sensor of the type, or knows this one
  // with no records: nothing is forced, however often it fails.
  fw::SetSensorType("ov02b_depth", "depth");
  fw::SetMostProbedSensor("depth", "gc02m1_depth", 5);
  fw::SetSensorType("sc202_mono", "mono");
  fw::SetMostProbedSensor("mono", "sc202_mono", 0);
  results.clear();
  flags.clear();
  for (int i = 0; i < 4; ++i) {
    uint32_t flag = 0;
    results.push_back(EepromDataProbe(2, "ov02b_depth", &flag));
    flags.push_back(flag);
    results.push_back(EepromDataProbe(3, "sc202_mono", &flag));
    flags.push_back(flag);
  }
  EXPECT_THAT(results, Each(5));
  EXPECT_THAT(flags, Each(0u));

  // Camera id 16: the HAL's result, no question asked, but still recorded.
  const size_t asked = fw::MessageCenterRequests().size();
  uint32_t flag = 7;
  EXPECT_EQ(EepromDataProbe(16, "gc02m1_macro", &flag), 5);
  EXPECT_EQ(flag, 0u);
  EXPECT_EQ(fw::MessageCenterRequests().size(), asked);
  EXPECT_THAT(test::HookMessages(), Contains("Camera name: gc02m1_macro, probeCount: 6"));
  EXPECT_EQ(hal::CallCount("EEPROMDataProbe"), 14);
}

TEST_F(EepromTest, ProbeAndReadFailNamedModulesAndNotifyOncePerHook) {
  auto* probe = Proxy<test::ProbeEEPROMFn>("ProbeEEPROMHook");
  auto* read = Proxy<test::ObjectHookFn>("ReadEEPROMDeviceHook");
  hal::SetDefaultResult("ReadEEPROMDevice", 4);
  hal::HwSensorInfoObject info("imx766_eeprom_gt24");
  hal::EepromDataObject eeprom(0, "imx766_wide");

  // No instruction from the core: the probe passes through, the read is
  // skipped and reported done.
  EXPECT_EQ(probe(nullptr, info.get(), nullptr), 0);
  EXPECT_EQ(read(eeprom.get()), 0);
  EXPECT_EQ(hal::CallCount("ReadEEPROMDevice"), 0);

  fw::SetHookArguments("ProbeEEPROM", {"ov50d", "imx766", "gt24"});
  fw::SetHookArguments("ReadEEPROMDeviceFail", {"imx766"});
  sim::ClearLog();
  EXPECT_EQ(probe(nullptr, info.get(), nullptr), 1);
  EXPECT_EQ(probe(nullptr, info.get(), nullptr), 1);
  EXPECT_EQ(read(eeprom.get()), 1);
  EXPECT_EQ(read(eeprom.get()), 1);
  fw::SetHookArguments("ReadEEPROMDeviceFail", {"ov50d"});
  EXPECT_EQ(read(eeprom.get()), 4);
  EXPECT_EQ(hal::CallCount("ProbeEEPROM"), 3);
  EXPECT_EQ(hal::CallCount("ReadEEPROMDevice"), 3);
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("ProbeEEPROMHook", "ReadEEPROMDeviceHook"));
  EXPECT_THAT(test::HookMessages(), Contains("Probe EEPROM name: imx766_eeprom_gt24, result: 1"));
  EXPECT_THAT(test::HookMessages(), Contains("sensor name: imx766_wide"));
}

TEST_F(EepromTest, ChecksumDataIsDisturbedBeforeTheHalSeesIt) {
  auto* checksum = Proxy<test::ChecksumFn>("EEPROMVerifyChecksumHook");
  hal::SetDefaultResult("EEPROMVerifyChecksum", 3);
  std::vector<unsigned char> data(1024, 0xFF), expected(1024, 0xFF);
  for (size_t offset = 0; offset <= 990; offset += 30) expected[offset] = 0;
  EXPECT_EQ(checksum(nullptr, data.data(), 16), 3);  // the size is not consulted
  EXPECT_EQ(data, expected);
  EXPECT_EQ(hal::LastChecksumData(), expected);
  EXPECT_EQ(checksum(nullptr, nullptr, 1024), 3);
  EXPECT_THAT(hal::LastChecksumData(), IsEmpty());
  EXPECT_EQ(hal::CallCount("EEPROMVerifyChecksum"), 2);
  EXPECT_THAT(test::HookMessages(), IsEmpty());
}

// The EEPROM name sits at the end of a pointer chain in the HAL's sensor info:
// info+0 -> A, A+24 -> B, B+0 -> C, C+24 -> the name. Built here by hand at
// those byte offsets, every other word zero, so that the library's layout is
// checked against the HAL's and not against itself.
struct RawSensorInfo {
  explicit RawSensorInfo(const char* name) {
    info[0] = a.data();
    a[3] = b.data();
    b[0] = c.data();
    c[3] = name;
  }
  CamX::HwSensorInfo* get() { return reinterpret_cast<CamX::HwSensorInfo*>(info.data()); }
  std::array<const void*, 8> info{}, a{}, b{}, c{};
};

TEST_F(EepromTest, ProbeReadsTheEepromNameAtTheHalsOffsets) {
  fw::SetHookArguments("ProbeEEPROM", {"gt24"});
  RawSensorInfo info("imx766_eeprom_gt24");
  EXPECT_EQ(Proxy<test::ProbeEEPROMFn>("ProbeEEPROMHook")(nullptr, info.get(), nullptr), 1);
  EXPECT_THAT(test::HookMessages(), ElementsAre("arg: gt24", "Probe EEPROM name: imx766_eeprom_gt24, result: 1"));
}

}  // namespace
