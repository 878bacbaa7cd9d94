// The bring-up hooks through the loaded library: failures of initialisation,
// configuration and command packets reach the HAL as success while the state
// property, the error list and the init state keep the truth; the kernel's
// verdict on the initial settings; the I2C address switch; and the stop on a
// camera id beyond the slot table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "simlog.h"
#include "simshadowhook.h"
#include "support/fresh_process.h"
#include "support/sensor_phone.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
namespace fw = sim::framework;
namespace hal = sim::hal;

class BringUpTest : public test::SensorPhoneTest {
 protected:
  CamxResult Submit(hal::SensorNodeObject& node, uint32_t opcode) {
    return Proxy<test::SubmitFn>("SensorCreateAndSubmitCommandHook")(
        node.get(), 1, CamX::I2CRegSettingType{2}, CSLPacketOpcodesSensor{opcode}, 3, 4, nullptr);
  }
};

std::string Pointer(const void* p) {
  char text[32];
  std::snprintf(text, sizeof(text), "%p", p);
  return text;
}

TEST_F(BringUpTest, FailedCommandPacketsReachTheHalAsSuccessButAreRecorded) {
  MapCameraToSlot(0, 1);  // framework id 1
  hal::SensorNodeObject node(0);
  hal::ScriptResults("SensorCreateAndSubmitCommand", {0, 7, 9, 0});
  sim::ClearLog();
  // Result, then the slot's state and error list after each packet.
  const auto submit = [&](uint32_t opcode) {
    return std::to_string(Submit(node, opcode)) + " " + SensorState(1) + " " + ErrorIds();
  };
  EXPECT_EQ(submit(2), "0 " + States("-", "S", "-") + " (unset)");
  EXPECT_EQ(submit(4), "0 " + States("-", "S", "F") + " 1");
  EXPECT_EQ(submit(3), "9 " + States("-", "S", "F") + " 1");  // other packets pass untouched
  EXPECT_EQ(submit(4), "0 " + States("-", "S", "S") + " 1");  // a later success clears no error
  const std::string change = "SensorCreateAndSubmitCommandHook() hook CreateAndSubmitCommand, change result: ";
  const std::string self = ", pThis: " + Pointer(node.get());
  EXPECT_THAT(HookLines(), ElementsAre("hook.cpp:674 SensorCreateAndSubmitCommandHook() In code 2",
                                       "hook.cpp:676 " + change + "0 to: 0" + self,
                                       "hook.cpp:684 SensorCreateAndSubmitCommandHook() In code 4",
                                       "hook.cpp:686 " + change + "7 to: 0" + self,
                                       "hook.cpp:684 SensorCreateAndSubmitCommandHook() In code 4",
                                       "hook.cpp:686 " + change + "0 to: 0" + self));
}

TEST_F(BringUpTest, InitAndConfigFailuresAndKernelVerdictsAreRecordedNotReturned) {
  MapCameraToSlot(0, 3);  // framework id 4
  hal::SensorNodeObject node(0);
  hal::ScriptResults("InitializeSensorDevice", {5});
  EXPECT_EQ(RunNodeHook("InitializeSensorDeviceHook", node), 0);
  EXPECT_EQ(node.initState(), 2u);
  EXPECT_EQ(SensorState(3) + ErrorIds(), States("-", "F", "-") + "4");

  // The initial settings: each kernel verdict with a succeeding HAL, then a
  // failing HAL with a clean kernel, a text filling the whole read, a short
  // table and no parameter at all.
  std::vector<int64_t> table(64, 0);
  hal::ScriptResults("LoadSensorInitConfigCmd", {0, 0, 0, 6, 0, 0});
  const auto run = [&](std::vector<int64_t> kernel, size_t padding = 0) {
    hal::WriteKernelTable(kernel);
    if (padding > 0) {
      sim::WriteDeviceFile(hal::kProbeResultParameter,
                           sim::ReadDeviceFile(hal::kProbeResultParameter) + std::string(padding, ' '));
    }
    sim::PresetProperty(test::kErrorIdProperty, "");
    sim::PresetProperty("persist.vendor.camera.isSatFollowFingersOpt", "true");
    EXPECT_EQ(RunNodeHook("LoadSensorInitConfigCmdHook", node), 0);
    return SensorState(3).substr(7, 9) + ErrorIds() + ":" +
           sim::GetProperty("persist.vendor.camera.isSatFollowFingersOpt").value_or("");
  };
  table[35] = 1;
  EXPECT_EQ(run(table), "<I:F:100>4:false");
  table[35] = 0;
  table[51] = -3;
  EXPECT_EQ(run(table), "<I:F:100>4:false");
  table[51] = 0;
  EXPECT_EQ(run(table), "<I:S:100>:true");
  EXPECT_EQ(run(table), "<I:F:100>4:false");
  table[35] = 1;
  EXPECT_EQ(run(table, 1000), "<I:S:100>:true");  // a full 1023-byte read is not used
  table.pop_back();
  EXPECT_EQ(run(table), "<I:S:100>:true");
  sim::RemoveDeviceFile(hal::kProbeResultParameter);
  hal::ScriptResults("LoadSensorInitConfigCmd", {0});
  EXPECT_EQ(RunNodeHook("LoadSensorInitConfigCmdHook", node), 0);
  EXPECT_EQ(SensorState(3), States("-", "S", "-"));

  EXPECT_EQ(sim::GetProperty("persist.vendor.camera.enableEarlyPipelineActivate"), "false");

  // Configuration: a HAL failure is recorded, a success records success.
  hal::ScriptResults("LoadSensorConfigCmds", {7, 0});
  EXPECT_EQ(RunNodeHook("LoadSensorConfigCmdsHook", node), 0);
  EXPECT_EQ(SensorState(3) + ErrorIds(), States("-", "S", "F") + "4");
  EXPECT_EQ(RunNodeHook("LoadSensorConfigCmdsHook", node), 0);
  EXPECT_EQ(SensorState(3), States("-", "S", "S"));
}

TEST_F(BringUpTest, I2CAddressSwitchTogglesAfterTheHalAndNotifiesOnce) {
  auto* proxy = Proxy<test::I2CInfoFn>("CreateI2CInfoCmdHook");
  hal::SetDefaultResult("CreateI2CInfoCmd", 3);
  const auto run = [&](std::vector<std::string> arguments, uint32_t address) {
    fw::SetHookArguments("EEPROMI2C", std::move(arguments));
    hal::SensorI2CInfoObject info(address);
    EXPECT_EQ(proxy(nullptr, info.get(), 1), 3);
    EXPECT_EQ(hal::LastSensorSlaveAddressSeen(), address) << "changed before the HAL ran";
    return info.slaveAddress();
  };
  EXPECT_EQ(run({"24", "102"}, 0x18), 0x66u);  // only the first argument counts
  EXPECT_EQ(run({"24"}, 0x18), 0x66u);
  EXPECT_EQ(run({"24"}, 0x66), 0x66u);
  EXPECT_EQ(run({"102"}, 0x66), 0x18u);
  EXPECT_EQ(run({"32"}, 0x20), 0x18u);
  EXPECT_EQ(run({"0x18"}, 0x18), 0x18u);
  EXPECT_EQ(run({"0"}, 0), 0u);
  EXPECT_EQ(run({}, 0x18), 0x18u);
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("CreateI2CInfoCmdHook"));
  EXPECT_THAT(HookLines(), Contains("hook.cpp:530 CreateI2CInfoCmdHook() slaveAddr:0x66"));
  EXPECT_EQ(HookLines().size(), 8u);
}

// HAL stand-ins for the death tests: one that must never be entered, and one
// that announces itself.
CamxResult NeverEntered(void*) { _exit(42); }
CamxResult Announced(void*) {
  std::fputs("HAL entered\n", stderr);
  return 0;
}

using BringUpDeathTest = BringUpTest;

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
  EXPECT_EXIT(
      {
        sim::SetLogEcho(true);
        Submit(node, 4);
      },
      test::KilledByTrap(), "In code 4");
  hal::SetDefaultResult("SensorCreateAndSubmitCommand", 9);
  EXPECT_EQ(Submit(node, 3), 9);  // no slot is needed for other packets
}

}  // namespace
