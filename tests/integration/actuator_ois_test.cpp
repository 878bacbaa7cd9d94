// The actuator, OIS and lens proxies through the loaded library: the
// slave-address toggles, the fixed results, the lens position delay and
// replacement, and their once-per-process reports to the core.
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

class ActuatorOISTest : public test::CameraProcessTest {
 protected:
  // Runs the actuator proxy on a record; returns the address it leaves.
  uint16_t Actuator(uint16_t address, std::optional<std::string> name = "imx766_ak7377") {
    hal::ActuatorDriverDataObject data(std::move(name), address);
    Proxy<void(void*, CamX::ActuatorDriverData*)>("ActuatorDataHook")(nullptr, data.get());
    EXPECT_EQ(hal::LastActuatorSlaveAddressSeen(), data.slaveAddress()) << "changed after the HAL read it";
    return data.slaveAddress();
  }
  // Runs the lens position read with these core arguments.
  CamxResult ReadLens(std::vector<std::string> arguments, long minMicroseconds = 0) {
    fw::SetHookArguments("ReadLensPositionData", std::move(arguments));
    const auto start = std::chrono::steady_clock::now();
    const CamxResult result = Proxy<CamxResult(void*)>("ReadLensPositionDataHook")(nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::microseconds(minMicroseconds));
    return result;
  }
};

// Each matching camera-name argument toggles the address, so two restore it;
// an empty argument, another case or one holding all six role words does not.
TEST_F(ActuatorOISTest, ActuatorAddressTogglesOncePerMatchBeforeTheHal) {
  fw::SetHookArguments("ActuatorI2CError", {"ak7377"});
  EXPECT_EQ(Actuator(0x18), 0x66);
  EXPECT_EQ(Actuator(0x66), 0x18);
  EXPECT_EQ(Actuator(0x20), 0x18);
  fw::SetHookArguments("ActuatorI2CError", {"imx766", "ak"});
  sim::ClearLog();
  EXPECT_EQ(Actuator(0x18), 0x18);
  EXPECT_THAT(test::HookMessages(),
              ElementsAre("camera name: imx766, actuator name: imx766_ak7377", "change slave address: 0x66",
                          "camera name: ak, actuator name: imx766_ak7377", "change slave address: 0x18",
                          "slave address: 0x18"));
  const std::string roles = "macro_ultra_wide_tele_depth_front";
  fw::SetHookArguments("ActuatorI2CError", {"", "LENS", roles});
  EXPECT_EQ(Actuator(0x18, "lens_" + roles), 0x18);
  EXPECT_EQ(Actuator(0x18, std::nullopt), 0x18);  // no name: nothing matches
  EXPECT_THAT(test::HookMessages().back(), "slave address: 0x18");
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("ActuatorDataHook"));
}

TEST_F(ActuatorOISTest, ActuatorFirstCallUsesUpItsReportEvenWithoutCore) {
  fw::RemoveCore();
  EXPECT_EQ(Actuator(0x18), 0x18);
  fw::InstallCore();
  fw::SetHookArguments("ActuatorI2CError", {"ak7377"});
  EXPECT_EQ(Actuator(0x18), 0x66);
  EXPECT_THAT(test::NotifiedHooks(), IsEmpty());
  EXPECT_EQ(hal::CallCount("ActuatorData"), 2);
}

// Registration never reaches the HAL but leaves through the frame; the OIS
// I2C address toggles after the HAL on every call; lens formatting yields 1.
TEST_F(ActuatorOISTest, OISProxiesTakeTheirFixedResultsAndToggles) {
  auto* registerProvider = Proxy<CamxResult(void*, void*, const CamX::NCSProviderCap*)>("OISRegisterProviderHook");
  EXPECT_EQ(registerProvider(nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(registerProvider(nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(hal::CallCount("OISRegisterProvider"), 0);
  EXPECT_EQ(sim::PoppedAddresses().size(), 2u);

  auto* i2c = Proxy<CamxResult(void*, CSLOISI2CInfo*, int)>("OISCreateI2CInfoCmdHook");
  hal::ScriptResults("OISCreateI2CInfoCmd", {-7, 0, 3});
  hal::OISI2CInfoObject info(0x18), other(0x20);
  EXPECT_EQ(i2c(nullptr, info.get(), 2), -7);
  EXPECT_EQ(hal::LastOISSlaveAddressSeen(), 0x18u);
  EXPECT_EQ(info.slaveAddress(), 0x66u);
  EXPECT_EQ(i2c(nullptr, info.get(), 2), 0);
  EXPECT_EQ(info.slaveAddress(), 0x18u);
  EXPECT_EQ(i2c(nullptr, other.get(), 0), 3);
  EXPECT_EQ(other.slaveAddress(), 0x18u);

  auto* format =
      Proxy<CamxResult(void*, CamX::OISLensPositionData*, unsigned char*, unsigned long)>("FormatLensPositionDataHook");
  hal::ScriptResults("FormatLensPositionData", {0, 9});
  EXPECT_EQ(format(nullptr, nullptr, nullptr, 0), 1);
  EXPECT_EQ(format(nullptr, nullptr, nullptr, 0), 1);
  EXPECT_EQ(hal::CallCount("FormatLensPositionData"), 2);
  EXPECT_THAT(test::HookMessages(), ElementsAre("change result to: 1", "change result to: 1", "slaveAddr:0x66",
                                                "slaveAddr:0x18", "slaveAddr:0x18"));
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("OISRegisterProviderHook", "OISCreateI2CInfoCmdHook"));
}

// A delay is reported before the HAL and keeps its result; a replacement is
// reported after it and replaces the result. Non-numbers, no arguments and no
// core pass the HAL's result through.
TEST_F(ActuatorOISTest, LensPositionReadIsDelayedOrReplaced) {
  hal::SetDefaultResult("ReadLensPositionData", 3);
  EXPECT_EQ(ReadLens({"2000", "0"}, 2000), 3);
  EXPECT_EQ(ReadLens({"0", "5"}), 5);
  EXPECT_EQ(ReadLens({"1000", "-2", "ignored"}, 1000), -2);
  std::vector<std::string> order;
  for (const sim::Event& event : sim::Journal()) {
    if (event.source == "hal" || event.text.rfind("NotifyHookMessage", 0) == 0) order.push_back(event.text);
  }
  const std::string notify = "NotifyHookMessage(ReadLensPositionDataHook, 1)";
  EXPECT_THAT(order, ElementsAre(notify, "ReadLensPositionData -> 3", "ReadLensPositionData -> 3", notify,
                                 "ReadLensPositionData -> 3"));
  EXPECT_EQ(ReadLens({"slow", "five"}), 3);
  EXPECT_EQ(ReadLens({}), 3);
  fw::RemoveCore();
  library_ = phone_.RestartCameraService();
  EXPECT_EQ(ReadLens({"0", "5"}), 3);
  EXPECT_THAT(test::HookMessages(), IsEmpty());
}

}  // namespace
