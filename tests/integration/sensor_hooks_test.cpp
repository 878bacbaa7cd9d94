// The sensor and EEPROM hooks through the loaded library, for what the bundled
// scenarios cannot show: a retry budget of one, the EEPROM name read through
// the HAL's own pointer chain, and the stop on a camera id beyond the slot
// table.
#include <unistd.h>

#include <array>
#include <cstdio>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/platform/simshadowhook.h"
#include "tests/support/fresh_process.h"
#include "tests/support/sensor_phone.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
namespace fw = sim::framework;
namespace hal = sim::hal;

using SensorProbeFlowTest = test::SensorPhoneTest;
using EepromTest = test::SensorPhoneTest;
using BringUpDeathTest = test::SensorPhoneTest;

// "SensorModuleRetryTimes=1" is a budget like any other; only a missing (0)
// one takes the neutral path. The probes keep their bookkeeping: the message
// centre is asked, the results are recorded and the kernel entries cleared,
// though a single try is never the last retry.
TEST_F(SensorProbeFlowTest, RetryBudgetOfOneStillRunsTheProbeBookkeeping) {
  Override("SensorModuleRetryTimes=1\nsensorModuleNumber=2\n");
  hal::SetDefaultResult("EEPROMDataProbe", 5);
  hal::ScriptResults("SensorProbe", {{1, -2}, {1, -2}});
  for (int i = 0; i < 2; ++i) EXPECT_EQ(EepromDataProbe(1, "imx766_wide"), 5);
  EXPECT_EQ(fw::MessageCenterRequests().size(), 4u);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Probe("imx766_wide", 1), 1);
  EXPECT_EQ(fw::MessageCenterRequests().size(), 8u);
  ASSERT_EQ(fw::CoreProbeRecords().size(), 2u);
  for (const auto& record : fw::CoreProbeRecords()) EXPECT_TRUE(record.name == "imx766_wide" && record.result);
  EXPECT_EQ(KernelWrites(), std::vector<std::vector<int64_t>>(2, std::vector<int64_t>(64, 0)));
  EXPECT_THAT(HookLines(), Not(Contains(HasSubstr("Failed to get cameraid or error retry times"))));
}

// The EEPROM name sits at the end of a pointer chain in the HAL's sensor info:
// info+0 -> A, A+24 -> B, B+0 -> C, C+24 -> the name. Built here by hand at
// those byte offsets, every other word zero, so that the library's layout is
// checked against the HAL's and not against itself.
TEST_F(EepromTest, ProbeReadsTheEepromNameAtTheHalsOffsets) {
  fw::SetHookArguments("ProbeEEPROM", {"gt24"});
  std::array<const void*, 8> info{}, a{}, b{}, c{};
  info[0] = a.data();
  a[3] = b.data();
  b[0] = c.data();
  c[3] = "imx766_eeprom_gt24";
  auto* sensorInfo = reinterpret_cast<CamX::HwSensorInfo*>(info.data());
  EXPECT_EQ(Proxy<test::ProbeEEPROMFn>("ProbeEEPROMHook")(nullptr, sensorInfo, nullptr), 1);
  EXPECT_THAT(HookLines(), ElementsAre(HasSubstr("arg: gt24"), HasSubstr("name: imx766_eeprom_gt24, result: 1")));
}

// HAL stand-ins for the death tests: one that must never be entered, and one
// that announces itself.
CamxResult NeverEntered(void*) { _exit(42); }
CamxResult Announced(void*) {
  std::fputs("HAL entered\n", stderr);
  return 0;
}

TEST_F(BringUpDeathTest, CameraIdBeyondTheSlotTableTrapsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  hal::SensorNodeObject node(16);
  const auto over = [&](const char* hook, CamxResult (*stand)(void*)) {
    sim::RegisterHook(reinterpret_cast<void*>(Proxy<test::ObjectHookFn>(hook)), reinterpret_cast<void*>(stand));
  };
  over("InitializeSensorDeviceHook", &NeverEntered);
  over("LoadSensorConfigCmdsHook", &NeverEntered);
  over("LoadSensorInitConfigCmdHook", &Announced);
  EXPECT_EXIT(RunNodeHook("InitializeSensorDeviceHook", node), test::KilledByTrap(), "");
  EXPECT_EXIT(RunNodeHook("LoadSensorConfigCmdsHook", node), test::KilledByTrap(), "");
  EXPECT_EXIT(RunNodeHook("LoadSensorInitConfigCmdHook", node), test::KilledByTrap(), "HAL entered");
  const auto submit = [&](uint32_t opcode) {
    return Proxy<test::SubmitFn>("SensorCreateAndSubmitCommandHook")(node.get(), 1, CamX::I2CRegSettingType{2},
                                                                     CSLPacketOpcodesSensor{opcode}, 3, 4, nullptr);
  };
  EXPECT_EXIT(
      {
        sim::SetLogEcho(true);
        submit(4);
      },
      test::KilledByTrap(), "In code 4");
  hal::SetDefaultResult("SensorCreateAndSubmitCommand", 9);
  EXPECT_EQ(submit(3), 9);  // no slot is needed for other packets
}

}  // namespace
