// A camera process on a phone with a sensor stack: message centre installed,
// image-sensor state recording on, the boot clock pinned, and the kernel's
// probe-result parameter present. Typed access to the probe, EEPROM and
// bring-up proxies, and the records a HAL engineer reads afterwards.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hook/src/errorframeworkid.h"
#include "sim/hal/simsensorhal.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simproperties.h"
#include "sim/records/records.h"
#include "tests/support/camera_process.h"
#include "tests/support/log_matchers.h"

namespace test {

// The proxies' types, from the hook catalogue (hook.h's declarations).
using SensorProbeFn = SIM_PROXY_TYPE(SensorProbe);
using ObjectHookFn = SIM_PROXY_TYPE(EEPROMDataProbe);  // also ReadEEPROMDevice, the init and config hooks
using ProbeEEPROMFn = SIM_PROXY_TYPE(ProbeEEPROM);
using ChecksumFn = SIM_PROXY_TYPE(EEPROMVerifyChecksum);
using SubmitFn = SIM_PROXY_TYPE(SensorCreateAndSubmitCommand);
using I2CInfoFn = SIM_PROXY_TYPE(CreateI2CInfoCmd);
using GetStaticCapsFn = SIM_PROXY_TYPE(GetStaticCaps);
static_assert(std::is_same_v<ObjectHookFn, SIM_PROXY_TYPE(ReadEEPROMDevice)> &&
              std::is_same_v<ObjectHookFn, SIM_PROXY_TYPE(InitializeSensorDevice)> &&
              std::is_same_v<ObjectHookFn, SIM_PROXY_TYPE(LoadSensorInitConfigCmd)> &&
              std::is_same_v<ObjectHookFn, SIM_PROXY_TYPE(LoadSensorConfigCmds)>);

inline constexpr char kOverrideFile[] = "/odm/etc/camera/camxoverridesettings.txt";
inline constexpr const char* kErrorIdProperty = CamX::kErrorFrameworkIdProperty;
inline constexpr int64_t kBootSeconds = 100;

class SensorPhoneTest : public CameraProcessTest {
 protected:
  void SetUp() override {
    CameraProcessTest::SetUp();
    sim::framework::InstallMessageCenter();
    sim::PresetProperty("persist.vendor.camera.cloud.remedium.modswitch", "127");
    sim::PinBootTime(kBootSeconds);
    sim::hal::WriteKernelTable(std::vector<int64_t>(64, 0));
  }

  static void Override(const std::string& text) { sim::WriteDeviceFile(kOverrideFile, text); }

  CamxResult Probe(const std::string& name, std::optional<uint16_t> cameraId) {
    sim::hal::SensorProbeObject object(name, cameraId);
    return Proxy<SensorProbeFn>("SensorProbeHook")(object.get(), nullptr, nullptr);
  }
  CamxResult EepromDataProbe(uint16_t cameraId, const std::string& name, uint32_t* flagSeen = nullptr) {
    sim::hal::EepromDataObject object(cameraId, name);
    const CamxResult result = Proxy<ObjectHookFn>("EEPROMDataProbeHook")(object.get());
    if (flagSeen != nullptr) *flagSeen = sim::hal::LastEepromFlagSeen();
    return result;
  }
  // The HAL learns that camera `cameraId` sits in `slotId`.
  void MapCameraToSlot(unsigned int cameraId, uint32_t slotId) {
    sim::hal::Object caps = sim::hal::MakeStaticCaps(slotId);
    Proxy<GetStaticCapsFn>("GetStaticCapsHook")(nullptr, static_cast<CamX::SensorModuleStaticCaps*>(caps.get()),
                                                nullptr, nullptr, cameraId);
  }
  CamxResult RunNodeHook(const char* hook, sim::hal::SensorNodeObject& node) {
    return Proxy<ObjectHookFn>(hook)(node.get());
  }

  static std::string SensorState(uint32_t slot) {
    return sim::GetProperty("vendor.debug.camera.imagesensorstate." + std::to_string(slot)).value_or("(unset)");
  }
  static std::string States(const char* p, const char* i, const char* c) {
    const auto group = [](const char* stage, const char* result) {
      return std::string("<") + stage + ":" + result + ":" + (std::string(result) == "-" ? "0" : "100") + ">";
    };
    return group("P", p) + group("I", i) + group("C", c);
  }
  static std::string ErrorIds() { return sim::GetProperty(kErrorIdProperty).value_or("(unset)"); }

  // Whole log lines of the hooks ("hook.cpp:<line> <func>() <message>").
  static std::vector<std::string> HookLines() {
    std::vector<std::string> lines;
    for (const std::string& text : LogTexts()) {
      if (text.rfind("hook.cpp:", 0) == 0) lines.push_back(text);
    }
    return lines;
  }

  // The kernel tables written to the probe-result parameter, NUL padding
  // checked and stripped.
  static std::vector<std::vector<int64_t>> KernelWrites() {
    std::vector<std::vector<int64_t>> tables;
    for (const sim::SysfsWrite& write : sim::SysfsWrites()) {
      if (write.devicePath != sim::hal::kProbeResultParameter) continue;
      EXPECT_EQ(write.bytes.size(), 1024u);
      tables.push_back(sim::records::ParseNumberList(write.bytes, SIZE_MAX));
    }
    return tables;
  }
};

}  // namespace test
