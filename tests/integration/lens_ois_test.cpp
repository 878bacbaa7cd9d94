// The actuator and OIS proxies through the loaded library: the slave-address
// toggle, the fixed results, the lens position delay and replacement, and
// their once-per-process reports to the core.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "simdevice.h"
#include "simlenspipelinehal.h"
#include "simshadowhook.h"
#include "support/camera_process.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fw = sim::framework;
namespace hal = sim::hal;

using ActuatorDataFn = void(void*, CamX::ActuatorDriverData*);

class ActuatorDataTest : public test::CameraProcessTest {
 protected:
  // Runs the proxy on an actuator record; returns the address it leaves.
  uint16_t Run(uint16_t address, std::optional<std::string> name = "imx766_ak7377") {
    hal::ActuatorDriverDataObject data(std::move(name), address);
    Proxy<ActuatorDataFn>("ActuatorDataHook")(nullptr, data.get());
    EXPECT_EQ(hal::LastActuatorSlaveAddressSeen(), data.slaveAddress()) << "changed after the HAL read it";
    return data.slaveAddress();
  }
};

TEST_F(ActuatorDataTest, EachMatchTogglesTheAddressSoTwoMatchesRestore) {
  fw::SetHookArguments("ActuatorI2CError", {"ak7377"});
  EXPECT_EQ(Run(0x18), 0x66);
  EXPECT_EQ(Run(0x66), 0x18);
  EXPECT_EQ(Run(0x20), 0x18);
  fw::SetHookArguments("ActuatorI2CError", {"imx766", "ak"});
  sim::ClearLog();
  EXPECT_EQ(Run(0x18), 0x18);
  EXPECT_THAT(test::HookMessages(),
              ElementsAre("camera name: imx766, actuator name: imx766_ak7377", "change slave address: 0x66",
                          "camera name: ak, actuator name: imx766_ak7377", "change slave address: 0x18",
                          "slave address: 0x18"));
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("ActuatorDataHook"));
}

TEST_F(ActuatorDataTest, SkippedArgumentsAreStillLogged) {
  // Empty; other case (the match is case-sensitive); and one that matches
  // but holds all six role words, so it is not a camera name.
  const std::string roles = "macro_ultra_wide_tele_depth_front";
  fw::SetHookArguments("ActuatorI2CError", {"", "LENS", roles});
  EXPECT_EQ(Run(0x18, "lens_" + roles), 0x18);
  const std::string name = ", actuator name: lens_" + roles;
  EXPECT_THAT(test::HookMessages(), ElementsAre("camera name: " + name, "camera name: LENS" + name,
                                                "camera name: " + roles + name, "slave address: 0x18"));
  sim::ClearLog();
  EXPECT_EQ(Run(0x18, std::nullopt), 0x18);  // no name: nothing matches
  EXPECT_THAT(test::HookMessages(),
              ElementsAre("camera name: , actuator name: (null)", "camera name: LENS, actuator name: (null)",
                          "camera name: " + roles + ", actuator name: (null)", "slave address: 0x18"));
}

TEST_F(ActuatorDataTest, FirstCallUsesUpItsReportEvenWithoutCore) {
  fw::RemoveCore();
  EXPECT_EQ(Run(0x18), 0x18);
  EXPECT_THAT(test::HookMessages(), ElementsAre("slave address: 0x18"));
  fw::InstallCore();
  fw::SetHookArguments("ActuatorI2CError", {"ak7377"});
  EXPECT_EQ(Run(0x18), 0x66);
  EXPECT_THAT(test::NotifiedHooks(), IsEmpty());
  EXPECT_EQ(hal::CallCount("ActuatorData"), 2);
}

class OISTest : public test::CameraProcessTest {};

TEST_F(OISTest, RegisterProviderNeverRunsTheHalButLeavesThroughTheFrame) {
  auto* proxy = Proxy<CamxResult(void*, void*, const CamX::NCSProviderCap*)>("OISRegisterProviderHook");
  EXPECT_EQ(proxy(nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(proxy(nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(hal::CallCount("OISRegisterProvider"), 0);
  EXPECT_EQ(sim::PoppedAddresses().size(), 2u);
  EXPECT_THAT(test::HookMessages(), ElementsAre("change result to: 1", "change result to: 1"));
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("OISRegisterProviderHook"));
}

TEST_F(OISTest, CreateI2CInfoCmdTogglesAfterTheHalOnEveryCall) {
  auto* proxy = Proxy<CamxResult(void*, CSLOISI2CInfo*, int)>("OISCreateI2CInfoCmdHook");
  hal::ScriptResults("OISCreateI2CInfoCmd", {-7, 0, 3});
  hal::OISI2CInfoObject info(0x18), other(0x20);
  EXPECT_EQ(proxy(nullptr, info.get(), 2), -7);
  EXPECT_EQ(hal::LastOISSlaveAddressSeen(), 0x18u);
  EXPECT_EQ(info.slaveAddress(), 0x66u);
  EXPECT_EQ(proxy(nullptr, info.get(), 2), 0);
  EXPECT_EQ(info.slaveAddress(), 0x18u);
  EXPECT_EQ(proxy(nullptr, other.get(), 0), 3);
  EXPECT_EQ(other.slaveAddress(), 0x18u);
  EXPECT_THAT(test::HookMessages(), ElementsAre("slaveAddr:0x66", "slaveAddr:0x18", "slaveAddr:0x18"));
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("OISCreateI2CInfoCmdHook"));
}

TEST_F(OISTest, FormatLensPositionDataAlwaysYieldsOneSilently) {
  auto* proxy =
      Proxy<CamxResult(void*, CamX::OISLensPositionData*, unsigned char*, unsigned long)>("FormatLensPositionDataHook");
  hal::ScriptResults("FormatLensPositionData", {0, 9});
  EXPECT_EQ(proxy(nullptr, nullptr, nullptr, 0), 1);
  EXPECT_EQ(proxy(nullptr, nullptr, nullptr, 0), 1);
  EXPECT_EQ(hal::CallCount("FormatLensPositionData"), 2);
  EXPECT_THAT(test::HookMessages(), IsEmpty());
  EXPECT_THAT(test::NotifiedHooks(), IsEmpty());
}

class ReadLensPositionDataTest : public test::CameraProcessTest {
 protected:
  // Runs the proxy with these core arguments; returns its result.
  CamxResult Run(std::vector<std::string> arguments, long minMicroseconds = 0) {
    fw::SetHookArguments("ReadLensPositionData", std::move(arguments));
    const auto start = std::chrono::steady_clock::now();
    const CamxResult result = Proxy<CamxResult(void*)>("ReadLensPositionDataHook")(nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::microseconds(minMicroseconds));
    return result;
  }
};

TEST_F(ReadLensPositionDataTest, DelayKeepsTheHalResultReplacementReplacesIt) {
  hal::SetDefaultResult("ReadLensPositionData", 3);
  EXPECT_EQ(Run({"2000", "0"}, 2000), 3);
  EXPECT_EQ(Run({"2000"}, 2000), 3);
  EXPECT_EQ(Run({"0", "5"}), 5);
  EXPECT_EQ(Run({"1000", "-2", "ignored"}, 1000), -2);
  EXPECT_EQ(hal::CallCount("ReadLensPositionData"), 4);
  // One report per branch, under the same name.
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("ReadLensPositionDataHook", "ReadLensPositionDataHook"));
}

TEST_F(ReadLensPositionDataTest, DelayIsReportedBeforeTheHalReplacementAfter) {
  Run({"1000", "7"}, 1000);
  std::vector<std::string> order;
  for (const sim::Event& event : sim::Journal()) {
    if (event.source == "hal" || event.text.rfind("NotifyHookMessage", 0) == 0) order.push_back(event.text);
  }
  EXPECT_THAT(order, ElementsAre("NotifyHookMessage(ReadLensPositionDataHook, 1)", "ReadLensPositionData -> 0",
                                 "NotifyHookMessage(ReadLensPositionDataHook, 1)"));
}

TEST_F(ReadLensPositionDataTest, NonNumbersNoArgumentsAndNoCorePassThrough) {
  hal::SetDefaultResult("ReadLensPositionData", 4);
  EXPECT_EQ(Run({"slow", "five"}), 4);
  EXPECT_EQ(Run({}), 4);
  fw::RemoveCore();
  phone_.RestartCameraService();
  library_ = phone_.library();
  EXPECT_EQ(Run({"0", "5"}), 4);
  EXPECT_THAT(test::NotifiedHooks(), IsEmpty());
  EXPECT_THAT(test::HookMessages(), IsEmpty());
}

}  // namespace
