// The sensor probe as the HAL drives it through the loaded library: retries of
// a multi-sourced slot, the bypass of the slot's usual module, the kernel's
// re-probe of the last module, the protection fault, and the neutral paths.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simshadowhook.h"
#include "support/sensor_phone.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
namespace fw = sim::framework;
namespace hal = sim::hal;

using SensorProbeFlowTest = test::SensorPhoneTest;

std::vector<std::string> RecordedProbes() {
  std::vector<std::string> records;
  for (const auto& record : fw::CoreProbeRecords()) records.push_back(record.name + (record.result ? ":F" : ":S"));
  return records;
}

std::vector<std::string> Callbacks() {
  std::vector<std::string> callbacks;
  for (const auto& c : fw::CoreCallbacks()) {
    char code[16];
    std::snprintf(code, sizeof(code), "%#llx", static_cast<unsigned long long>(c.errorCode));
    callbacks.push_back(std::to_string(c.arg0) + "," + std::to_string(c.arg1) + "," + code + "," + c.name + "," +
                        c.messageType);
  }
  return callbacks;
}

std::vector<int64_t> Table(std::initializer_list<std::pair<size_t, int64_t>> entries) {
  std::vector<int64_t> table(64, 0);
  for (const auto& [index, value] : entries) table[index] = value;
  return table;
}

TEST_F(SensorProbeFlowTest, MultiSourcedSlotKeepsItsUsualModuleOnTheLastRetry) {
  Override("SensorModuleRetryTimes=3\nsensorModuleNumber=2\nnumPCRsBeforeStreamOn=3\n");
  fw::SetSensorType("ov50d_wide", "wide");
  fw::SetSensorType("imx582_wide", "wide");
  fw::SetMostProbedSensor("wide", "imx582_wide", 12);
  fw::SetSwitch(2, true);
  sim::PresetProperty(test::kErrorIdProperty, "3,1");
  hal::SetDefaultResult("EEPROMDataProbe", 5);
  hal::ScriptResults("SensorProbe", {{1, -19}, {1, -19}, {1, -19}, {1, -19}, {1, -19}, {1, -19}, {1, -19}, {0, 0}});

  // The slot's first module is not fitted and is not the slot's usual one:
  // it fails every time and is never a bypass candidate. The fitted module
  // fails its EEPROM and sensor probes three times.
  std::vector<CamxResult> stranger, eeprom, sensor;
  std::vector<uint32_t> flags(4);
  for (int i = 0; i < 4; ++i) stranger.push_back(Probe("ov50d_wide", 2));
  for (int i = 0; i < 4; ++i) {
    eeprom.push_back(EepromDataProbe(2, "imx582_wide", &flags[i]));
    sensor.push_back(Probe("imx582_wide", 2));
  }
  EXPECT_THAT(stranger, ElementsAre(1, 1, 1, 1));
  EXPECT_THAT(eeprom, ElementsAre(5, 5, 5, 0));
  EXPECT_THAT(flags, ElementsAre(0, 0, 0, 1));
  EXPECT_THAT(sensor, ElementsAre(1, 1, 1, 0));
  EXPECT_EQ(hal::CallCount("SensorProbe"), 8);
  EXPECT_THAT(fw::CoreSwitchQueries(), ElementsAre(2));
  EXPECT_THAT(Callbacks(), ElementsAre("2,2,0x2201000,imx582_wide,CallbackMessageType::Protection"));
  EXPECT_THAT(RecordedProbes(), ElementsAre("ov50d_wide:F", "ov50d_wide:F", "ov50d_wide:F", "ov50d_wide:F",
                                            "imx582_wide:F", "imx582_wide:F", "imx582_wide:F"));
  EXPECT_EQ(SensorState(2), States("S", "S", "S"));
  EXPECT_EQ(ErrorIds(), "1");
  EXPECT_EQ(sim::GetProperty("vendor.debug.camera.numPCRsBeforeStreamOn"), "3");
  // Each failed probe cleared its kernel result; the bypass left the table alone.
  EXPECT_EQ(KernelWrites(), std::vector<std::vector<int64_t>>(7, Table({})));

  // The EEPROM probe asks its second question on the first request, the
  // sensor probe on a fresh one.
  const std::vector<fw::MessageCenterRequest> requests = fw::MessageCenterRequests();
  ASSERT_EQ(requests.size(), 24u);
  EXPECT_EQ(requests[9].name, "GET_MOST_PROBE_SENSOR_NAME");
  EXPECT_EQ(requests[9].data.size(), 3u);
  EXPECT_EQ(requests[9].data.at("sensor_name").text, "imx582_wide");
  EXPECT_EQ(requests[9].data.at("record_count").int64Value, 100);
  EXPECT_EQ(requests[11].data.size(), 2u);
  EXPECT_EQ(requests[11].data.at("sensor_type").text, "wide");

  const std::vector<std::string> messages = test::HookMessages();
  EXPECT_THAT(messages, Contains("camera id: 2, probe time: 3, sensor name: imx582_wide,  sensor type: wide, "
                                 "frequentlyUsedSensor: 1, neverBeenSuccessfullyProbed: 0 output sensor name: "
                                 "imx582_wide, record count: 12"));
  EXPECT_THAT(messages, Contains("Camera name: imx582_wide, rerty times: 3, probeFailCount: 3, last retry times: 1"));
  EXPECT_EQ(std::count(messages.begin(), messages.end(),
                       "probe sensor: imx582_wide, slot id: 2 kmd result: -19, umd result: 1"),
            3);
}

// Three modules. A failing module that the message centre never saw probed
// is re-probed with the kernel's help when exactly two other names last
// probed fine: once per process, and never for a front sensor.
TEST_F(SensorProbeFlowTest, LastModuleKernelRetryIsArmedOncePerProcessAndNeverForFront) {
  Override("SensorModuleRetryTimes=2\nsensorModuleNumber=3\n");
  hal::ScriptResults("SensorProbe", {{0, 0}, {0, 0}, {0, 0}, {1, -2}, {1, -2}, {1, -2}, {1, -2}, {1, -2}, {1, -2}, {1, -2}, {7, -2},
                     {7, -2}, {3, 0}});
  std::vector<CamxResult> results;
  const auto probe = [&](const char* name, uint16_t cameraId, int times) {
    for (int i = 0; i < times; ++i) results.push_back(Probe(name, cameraId));
  };
  probe("imx766_wide", 0, 1);
  probe("ov13b_ultra", 1, 1);
  probe("gc02m1_macro", 4, 1);
  probe("s5k3l6_tele", 2, 3);   // a candidate at the third, but three names probed fine
  probe("gc02m1_macro", 4, 1);  // now two
  probe("gc5035_front", 3, 3);  // a candidate at the third, but a front sensor
  probe("s5k3l6_tele", 2, 2);   // arms the channel, then finds it armed
  probe("imx766_wide", 0, 1);   // once armed, an ordinary probe is neither recorded nor cleared

  EXPECT_THAT(results, ElementsAre(0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 0, 0, 3));
  EXPECT_EQ(hal::CallCount("SensorProbe"), 13);
  EXPECT_THAT(fw::CoreSwitchQueries(), ElementsAre(2, 2, 2, 2));
  EXPECT_THAT(RecordedProbes(),
              ElementsAre("imx766_wide:S", "ov13b_ultra:S", "gc02m1_macro:S", "s5k3l6_tele:F", "s5k3l6_tele:F",
                          "s5k3l6_tele:F", "gc02m1_macro:F", "gc5035_front:F", "gc5035_front:F", "gc5035_front:F"));
  std::vector<std::vector<int64_t>> writes(10, Table({}));
  writes.insert(writes.end(), {Table({{2, 1}, {18, 3}}), Table({}), Table({})});
  EXPECT_EQ(KernelWrites(), writes);
  EXPECT_THAT(test::HookMessages(), Contains("probe sensor: s5k3l6_tele, slot id: 2 kmd result: -2, umd result: 7"));
  EXPECT_THAT(HookLines(), Contains(HasSubstr("ProbeCameraNumber() Probe result: gc5035_front, -2")));

  EXPECT_EQ(SensorState(2), States("F", "S", "S"));
  EXPECT_EQ(SensorState(3), States("S", "S", "S"));
  EXPECT_EQ(ErrorIds(), "3");
  for (const char* feature : {"persist.vendor.camera.enableEarlyPipelineActivate",
                              "persist.vendor.camera.isSatFollowFingersOpt",
                              "persist.vendor.camera.enableSATWideAlwaysOn",
                              "persist.vendor.camera.isEarlysettingsEnable"}) {
    EXPECT_EQ(sim::GetProperty(feature), "FALSE") << feature;
  }
  EXPECT_EQ(sim::GetProperty("vendor.debug.camera.numPCRsBeforeStreamOn"), "0");
}

// The slot's usual module fails its EEPROM retries, so its first sensor probe
// is a bypass attempt; it passes in the HAL but not in the kernel, and the
// kernel re-probes it in the same call. Recorded as failed, its slot is then
// neither initialised nor configured, and the core hears of its EEPROM.
TEST_F(SensorProbeFlowTest, FailedBypassFallsBackToTheKernelAndTheSlotSkipsBringUp) {
  Override("SensorModuleRetryTimes=2\nsensorModuleNumber=2\n");
  fw::SetSensorType("s5k3l6_tele", "tele");
  fw::SetMostProbedSensor("tele", "s5k3l6_tele", 4);
  fw::SetSwitch(2, true);
  hal::SetDefaultResult("EEPROMDataProbe", 5);
  for (const CamxResult expected : {5, 5, 0}) EXPECT_EQ(EepromDataProbe(2, "s5k3l6_tele"), expected);
  // A module never seen probed is a candidate too, but gets no bypass attempt.
  for (const CamxResult expected : {5, 5, 0}) EXPECT_EQ(EepromDataProbe(4, "hi846_macro"), expected);
  hal::ScriptResults("SensorProbe", {{1, -2}, {0, 0}, {0, -2}, {1, -2}});
  EXPECT_EQ(Probe("hi846_macro", 4), 1);
  EXPECT_EQ(Probe("imx766_wide", 0), 0);
  sim::ClearHookStackCalls();
  EXPECT_EQ(Probe("s5k3l6_tele", 2), 0);
  int fetches = 0;
  for (const sim::HookStackCall& call : sim::HookStackCalls()) fetches += call.kind == sim::HookStackCall::kGetPrevFunc;
  EXPECT_EQ(fetches, 2);
  EXPECT_EQ(hal::CallCount("SensorProbe"), 4);
  EXPECT_THAT(fw::CoreSwitchQueries(), ElementsAre(2, 2));
  EXPECT_THAT(KernelWrites(), ElementsAre(Table({}), Table({}), Table({{2, 1}, {18, 3}, {34, -2}}), Table({})));
  ASSERT_EQ(SensorState(2), States("F", "-", "-"));

  MapCameraToSlot(1, 2);
  hal::SensorNodeObject failed(1), healthy(0);
  sim::ClearLog();
  EXPECT_EQ(RunNodeHook("InitializeSensorDeviceHook", failed), 0);
  EXPECT_EQ(RunNodeHook("LoadSensorConfigCmdsHook", failed), 0);
  EXPECT_EQ(failed.initState(), 2u);
  EXPECT_EQ(hal::CallCount("InitializeSensorDevice") + hal::CallCount("LoadSensorConfigCmds"), 0);
  EXPECT_EQ(SensorState(2), States("F", "F", "F"));
  EXPECT_EQ(ErrorIds(), "3");
  EXPECT_THAT(Callbacks(), ElementsAre("1,2,0x2201008,s5k3l6_tele,CallbackMessageType::Error"));
  EXPECT_THAT(HookLines(),
              ElementsAre("hook.cpp:1576 InitializeSensorDeviceHook() Skip InitializeSensorDeviceHook, camera id: 1",
                          "hook.cpp:1599 InitializeSensorDeviceHook() hook InitializeSensorDeviceHook, camera id: 1, "
                          "change result:1 to: 0, set init state: 2",
                          "hook.cpp:1507 LoadSensorConfigCmdsHook() Skip LoadSensorConfigCmdsHook, camera id: 1",
                          "hook.cpp:1528 LoadSensorConfigCmdsHook() hook LoadSensorInitConfigCmd, camera id: 1, "
                          "change result:1 to: 0"));
  // Camera 0 still sits in slot 0, whose module probed fine.
  EXPECT_EQ(RunNodeHook("InitializeSensorDeviceHook", healthy), 0);
  EXPECT_EQ(healthy.initState(), 1u);
  EXPECT_EQ(hal::CallCount("InitializeSensorDevice"), 1);
}

TEST_F(SensorProbeFlowTest, ProtectionFailsTheNamedSensorAfterProbingAndNotifiesOnce) {
  Override("SensorModuleRetryTimes=3\nsensorModuleNumber=2\n");
  const std::string roles = "macro_ultra_wide_tele_depth_front";  // not a camera name
  fw::SetHookArguments("SensorProbeProtection", {roles, "imx766"});
  EXPECT_EQ(Probe("imx766_wide", 0), 1);
  EXPECT_EQ(Probe("imx766_wide", 0), 1);
  EXPECT_EQ(Probe("x_" + roles, 1), 0);
  EXPECT_EQ(hal::CallCount("SensorProbe"), 3);
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("SensorProbeHook"));
  // Nothing else of the probe logic runs on this path.
  EXPECT_THAT(fw::MessageCenterRequests(), IsEmpty());
  EXPECT_THAT(fw::CoreProbeRecords(), IsEmpty());
  const std::vector<std::string> messages = test::HookMessages();
  ASSERT_EQ(messages.size(), 12u);
  EXPECT_THAT(std::vector<std::string>(messages.begin(), messages.begin() + 4),
              ElementsAre("arg: " + roles, "sensor name: imx766_wide", "arg: imx766", "sensor name: imx766_wide"));
}

// Missing settings, message centre, camera id or kernel table each take the
// neutral path: the probe's own result stands and nothing is bypassed.
TEST_F(SensorProbeFlowTest, BadInputTakesTheNeutralPath) {
  hal::ScriptResults("SensorProbe", {{4, std::nullopt}, {6, std::nullopt}});
  EXPECT_EQ(Probe("imx766_wide", 0), 4);  // no override file
  library_ = phone_.RestartCameraService();
  Override("SensorModuleRetryTimes=3\n");
  EXPECT_EQ(Probe("imx766_wide", 0), 6);
  const std::string failed = "Failed to get cameraid or error retry times: sensorModuleRetryTimes: ";
  EXPECT_THAT(HookLines(), Contains(HasSubstr(failed + "0, sensorModuleNumber: 0")));
  EXPECT_THAT(HookLines(), Contains(HasSubstr(failed + "3, sensorModuleNumber: 0")));
  EXPECT_THAT(fw::MessageCenterRequests(), IsEmpty());

  library_ = phone_.RestartCameraService();
  Override("SensorModuleRetryTimes=2\nsensorModuleNumber=2\n");
  hal::SetDefaultResult("SensorProbe", 1);
  EXPECT_EQ(Probe("imx766_wide", 16), 0);  // beyond the table: reported probed, not probed
  EXPECT_EQ(hal::CallCount("SensorProbe"), 2);
  EXPECT_EQ(fw::MessageCenterRequests().size(), 2u);  // asked before the id is checked
  EXPECT_EQ(Probe("imx766_wide", std::nullopt), 1);
  EXPECT_THAT(HookLines(), Contains(HasSubstr(failed + "2, sensorModuleNumber: 2")));

  // No message centre and a short kernel table: an unknown sensor that keeps
  // failing gains no history, so it never becomes a candidate.
  library_ = phone_.RestartCameraService();
  fw::RemoveMessageCenter();
  hal::WriteKernelTable(std::vector<int64_t>(63, 0));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(Probe("unknown_sensor", 0), 1);
  EXPECT_THAT(fw::CoreSwitchQueries(), IsEmpty());
  EXPECT_THAT(fw::CoreProbeRecords(), IsEmpty());
  EXPECT_THAT(KernelWrites(), IsEmpty());
  EXPECT_EQ(SensorState(0), "(unset)");
  EXPECT_THAT(test::HookMessages(), Contains("sensor name: unknown_sensor,  sensor type: , frequentlyUsedSensor: 0, "
                                             "neverBeenSuccessfullyProbed: 1"));
  EXPECT_THAT(test::LogTexts("[MESSAGECENTER]"), Contains("m_pMessageCenterSendMessageFuncPtr is NULL"));
  EXPECT_THAT(test::HookMessages(), Not(Contains(HasSubstr("probe sensor:"))));
}

// Without a core every hook of the probe and bring-up sequence still calls
// the HAL (except the EEPROM read, which is skipped) and returns to it.
TEST_F(SensorProbeFlowTest, EveryHookReturnsToTheHalWithoutACore) {
  fw::RemoveCore();
  Override("SensorModuleRetryTimes=2\nsensorModuleNumber=2\n");
  for (const char* function : {"EEPROMDataProbe", "ProbeEEPROM", "ReadEEPROMDevice", "LoadSensorInitConfigCmd",
                               "SensorCreateAndSubmitCommand", "CreateI2CInfoCmd"}) {
    hal::SetDefaultResult(function, 5);
  }
  hal::ScriptResults("SensorProbe", {{1, -1}, {1, -1}, {0, 0}});
  hal::EepromDataObject eeprom(0, "imx766_wide");
  hal::HwSensorInfoObject sensorInfo("imx766_eeprom");
  hal::SensorNodeObject node(0);
  hal::SensorI2CInfoObject i2c(0x18);

  EXPECT_EQ(Proxy<test::ObjectHookFn>("EEPROMDataProbeHook")(eeprom.get()), 5);
  EXPECT_EQ(Proxy<test::ProbeEEPROMFn>("ProbeEEPROMHook")(nullptr, sensorInfo.get(), nullptr), 5);
  EXPECT_EQ(Proxy<test::ObjectHookFn>("ReadEEPROMDeviceHook")(eeprom.get()), 0);
  for (const CamxResult expected : {1, 1, 0}) EXPECT_EQ(Probe("imx766_wide", 0), expected);
  for (const char* hook : {"InitializeSensorDeviceHook", "LoadSensorInitConfigCmdHook", "LoadSensorConfigCmdsHook"}) {
    EXPECT_EQ(RunNodeHook(hook, node), 0) << hook;
  }
  EXPECT_EQ(Proxy<test::SubmitFn>("SensorCreateAndSubmitCommandHook")(node.get(), 0, {}, CSLPacketOpcodesSensor{4}, 0,
                                                                     0, nullptr),
            0);
  EXPECT_EQ(Proxy<test::I2CInfoFn>("CreateI2CInfoCmdHook")(nullptr, i2c.get(), 0), 5);
  EXPECT_EQ(hal::CallCount("ReadEEPROMDevice"), 0);
  EXPECT_EQ(hal::CallCount("InitializeSensorDevice"), 1);
  const std::vector<std::string> texts = test::LogTexts();
  for (const char* line : {"remediumclient.h:131 GetHookArguments() m_pRemediumCore is NULL",
                           "remediumclient.h:191 IsSwitchOpened() m_pRemediumCore is NULL",
                           "remediumclient.h:212 RecordProbeMessage() m_pRemediumCore is NULL"}) {
    EXPECT_THAT(texts, Contains(line));
  }
}

}  // namespace
