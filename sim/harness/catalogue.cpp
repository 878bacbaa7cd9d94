#include "sim/harness/catalogue.h"

#include <cxxabi.h>
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "hook/src/corearguments.h"
#include "sim/hal/simhal.h"
#include "sim/hal/simlenspipelinehal.h"
#include "sim/hal/simsensorhal.h"

namespace sim {
namespace {

namespace hal = sim::hal;
namespace arg = CamX::coreargument;
using enum Arg;

template <typename Fn>
Fn* As(void* proxy) {
  return reinterpret_cast<Fn*>(proxy);
}

int64_t Number(uint64_t value) { return static_cast<int64_t>(value); }

// SIGABRT raised by the library while a capture request is handed over: the
// handler counts it and returns, so the simulator outlives the camera process.
volatile sig_atomic_t g_aborts = 0;

bool AbortsDuring(const std::function<void()>& call) {
  struct sigaction action = {};
  struct sigaction previous = {};
  action.sa_handler = [](int) { g_aborts = g_aborts + 1; };
  sigemptyset(&action.sa_mask);
  sigaction(SIGABRT, &action, &previous);
  const sig_atomic_t before = g_aborts;
  call();
  sigaction(SIGABRT, &previous, nullptr);
  return g_aborts != before;
}

Observed Result(CamxResult result) {
  Observed observed;
  observed.Set("result", static_cast<int64_t>(result));
  return observed;
}

// The init and config hooks share a type, as do the EEPROM data hooks; the
// second parameter says whether the call shows its HAL-side field.
template <typename Fn, bool kInitState>
Observed OnSensorNode(void* proxy, const CallArgs& a) {
  hal::SensorNodeObject node(*a.camera);
  Observed observed = Result(As<Fn>(proxy)(node.get()));
  if (kInitState) observed.Set("initState", Number(node.initState()));
  return observed;
}

template <typename Fn, bool kFlag>
Observed OnEepromData(void* proxy, const CallArgs& a) {
  hal::EepromDataObject object(static_cast<uint16_t>(*a.camera), a.sensor);
  Observed observed = Result(As<Fn>(proxy)(object.get()));
  if (kFlag) observed.Set("eepromFlag", Number(hal::LastEepromFlagSeen()));
  return observed;
}

#define SIM_ENTRY(name, mangled) #name "Hook", mangled, reinterpret_cast<void*>(&hal::name), #name

const std::vector<CatalogueEntry> kCatalogue = {
    {SIM_ENTRY(GetStaticCaps,
               "_ZN4CamX17GetStaticCapsHookEPvPNS_22SensorModuleStaticCapsEP19CSLSensorCapabilityPNS_"
               "17TuningDataManagerEj"),
     false,
     {kCamera, kSlot},
     {},
     [](void* proxy, const CallArgs& a) {
       hal::Object caps = hal::MakeStaticCaps(a.slot.value_or(0));
       return Result(As<SIM_PROXY_TYPE(GetStaticCaps)>(proxy)(
           nullptr, static_cast<CamX::SensorModuleStaticCaps*>(caps.get()), nullptr, nullptr, a.camera.value_or(0)));
     }},
    {SIM_ENTRY(SensorProbe, "_ZN4CamX15SensorProbeHookEPvPiS1_"),
     false,
     {kCameraOrNull, kSensor, kKernel},
     {},
     [](void* proxy, const CallArgs& a) {
       hal::SensorProbeObject object(
           a.sensor, a.cameraAbsent ? std::nullopt : std::optional<uint16_t>(static_cast<uint16_t>(*a.camera)));
       int first = 0;
       int second = 0;
       return Result(As<SIM_PROXY_TYPE(SensorProbe)>(proxy)(object.get(), &first, &second));
     },
     {{arg::kSensorProbeI2CError, {{"s5kgm2"}}, true},
      {arg::kSensorProbeProtection,
       {{"", "s5kgm2", "rear", "front", "imx582_rear", "macro_ultra_wide_tele_depth_front", "x"}},
       true}}},
    {SIM_ENTRY(InitializeSensorDevice, "_ZN4CamX26InitializeSensorDeviceHookEPv"),
     false,
     {kBringUpCamera},
     {{"initState", FieldKind::kNumber}},
     &OnSensorNode<SIM_PROXY_TYPE(InitializeSensorDevice), true>},
    {SIM_ENTRY(LoadSensorInitConfigCmd, "_ZN4CamX27LoadSensorInitConfigCmdHookEPv"),
     false,
     {kBringUpCamera},
     {},
     &OnSensorNode<SIM_PROXY_TYPE(LoadSensorInitConfigCmd), false>},
    {SIM_ENTRY(LoadSensorConfigCmds, "_ZN4CamX24LoadSensorConfigCmdsHookEPv"),
     false,
     {kBringUpCamera},
     {},
     &OnSensorNode<SIM_PROXY_TYPE(LoadSensorConfigCmds), false>},
    {SIM_ENTRY(SensorCreateAndSubmitCommand,
               "_ZN4CamX32SensorCreateAndSubmitCommandHookEPvjNS_17I2CRegSettingTypeE22CSLPacketOpcodesSensorjjPKv"),
     false,
     {kOpcode, kSubmitCamera},
     {},
     [](void* proxy, const CallArgs& a) {
       hal::SensorNodeObject node(*a.camera);
       return Result(As<SIM_PROXY_TYPE(SensorCreateAndSubmitCommand)>(proxy)(
           node.get(), 0, CamX::I2CRegSettingType{}, static_cast<CSLPacketOpcodesSensor>(a.opcode), 0, 0, nullptr));
     }},
    {SIM_ENTRY(CreateI2CInfoCmd, "_ZN4CamX20CreateI2CInfoCmdHookEPvP16CSLSensorI2CInfot"),
     false,
     {kSlaveAddress},
     {{"slaveAddress", FieldKind::kAddress}},
     [](void* proxy, const CallArgs& a) {
       hal::SensorI2CInfoObject info(a.slaveAddress);
       Observed observed = Result(As<SIM_PROXY_TYPE(CreateI2CInfoCmd)>(proxy)(nullptr, info.get(), 0));
       observed.Set("slaveAddress", Number(info.slaveAddress()));
       return observed;
     },
     {{arg::kEEPROMI2C, {{"0", "24", "102", "32", "0x18", "-1", "abc"}}, true}}},
    {SIM_ENTRY(EEPROMDataProbe, "_ZN4CamX19EEPROMDataProbeHookEPv"),
     false,
     {kCamera, kSensor},
     {{"eepromFlag", FieldKind::kNumber}},
     &OnEepromData<SIM_PROXY_TYPE(EEPROMDataProbe), true>,
     {{arg::kProbeEEPROMProtection, {{"s5kgm2"}}, true}}},
    {SIM_ENTRY(ProbeEEPROM, "_ZN4CamX15ProbeEEPROMHookEPvPNS_12HwSensorInfoEPKNS_16HwDeviceTypeInfoE"),
     false,
     {kModuleCamera, kEeprom},
     {},
     [](void* proxy, const CallArgs& a) {
       hal::HwSensorInfoObject info(a.eeprom);
       return Result(As<SIM_PROXY_TYPE(ProbeEEPROM)>(proxy)(nullptr, info.get(), nullptr));
     },
     {{arg::kProbeEEPROM,
       {{"", "s5kgm2", "gt24p64", "otp", "imx582_rear", "rear", "macro_ultra_wide_tele_depth_front"}},
       true}}},
    {SIM_ENTRY(ReadEEPROMDevice, "_ZN4CamX20ReadEEPROMDeviceHookEPv"),
     false,
     {kCamera, kSensor},
     {},
     &OnEepromData<SIM_PROXY_TYPE(ReadEEPROMDevice), false>,
     {{arg::kReadEEPROMDeviceFail, {{"", "s5kgm2", "rear", "imx582", "macro_ultra_wide_tele_depth_front"}}, true}}},
    {SIM_ENTRY(EEPROMVerifyChecksum, "_ZN4CamX24EEPROMVerifyChecksumHookEPvPhi"),
     false,
     {kData, kSize},
     {{"changedOffsets", FieldKind::kNumbers}, {"changedBytes", FieldKind::kNumber}, {"halSawData", FieldKind::kFlag}},
     [](void* proxy, const CallArgs& a) {
       std::vector<uint8_t> data(a.dataLength, a.fill);
       Observed observed = Result(As<SIM_PROXY_TYPE(EEPROMVerifyChecksum)>(proxy)(
           nullptr, a.dataNull ? nullptr : data.data(), a.size.value_or(static_cast<int32_t>(a.dataLength))));
       std::vector<int64_t> changed;
       for (size_t i = 0; i < data.size() && !a.dataNull; ++i) {
         if (data[i] != a.fill) changed.push_back(static_cast<int64_t>(i));
       }
       observed.Set("changedBytes", Number(changed.size()));
       observed.Set("changedOffsets", changed);
       observed.Set("halSawData", !hal::LastChecksumData().empty());
       return observed;
     }},
    {SIM_ENTRY(ActuatorData, "_ZN4CamX16ActuatorDataHookEPvPNS_18ActuatorDriverDataE"),
     true,
     {kModuleCamera, kActuator, kSlaveAddress16},
     {{"slaveAddress", FieldKind::kAddress}, {"halSawSlaveAddress", FieldKind::kAddress}},
     [](void* proxy, const CallArgs& a) {
       hal::ActuatorDriverDataObject object(a.actuator, static_cast<uint16_t>(a.slaveAddress));
       As<SIM_PROXY_TYPE(ActuatorData)>(proxy)(nullptr, object.get());
       Observed observed;
       observed.Set("slaveAddress", Number(object.slaveAddress()));
       observed.Set("halSawSlaveAddress", Number(hal::LastActuatorSlaveAddressSeen()));
       return observed;
     },
     {{arg::kActuatorI2CError,
       {{"", "ak7377", "s5kgm2", "dw9800", "rear", "macro_ultra_wide_tele_depth_front"}},
       true}}},
    {SIM_ENTRY(OISRegisterProvider, "_ZN4CamX23OISRegisterProviderHookEPvS0_PKNS_14NCSProviderCapE"),
     false,
     {},
     {},
     [](void* proxy, const CallArgs&) {
       return Result(As<SIM_PROXY_TYPE(OISRegisterProvider)>(proxy)(nullptr, nullptr, nullptr));
     }},
    {SIM_ENTRY(OISCreateI2CInfoCmd, "_ZN4CamX23OISCreateI2CInfoCmdHookEPvP13CSLOISI2CInfoi"),
     false,
     {kSlaveAddress},
     {{"slaveAddress", FieldKind::kAddress}, {"halSawSlaveAddress", FieldKind::kAddress}},
     [](void* proxy, const CallArgs& a) {
       hal::OISI2CInfoObject info(a.slaveAddress);
       Observed observed = Result(As<SIM_PROXY_TYPE(OISCreateI2CInfoCmd)>(proxy)(nullptr, info.get(), 0));
       observed.Set("slaveAddress", Number(info.slaveAddress()));
       observed.Set("halSawSlaveAddress", Number(hal::LastOISSlaveAddressSeen()));
       return observed;
     }},
    {SIM_ENTRY(ReadLensPositionData, "_ZN4CamX24ReadLensPositionDataHookEPv"),
     false,
     {},
     {{"durationAtLeastUs", FieldKind::kAtLeastUs}},
     [](void* proxy, const CallArgs&) {
       const auto started = std::chrono::steady_clock::now();
       Observed observed = Result(As<SIM_PROXY_TYPE(ReadLensPositionData)>(proxy)(nullptr));
       observed.Set("durationAtLeastUs", static_cast<int64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                                                  std::chrono::steady_clock::now() - started)
                                                                  .count()));
       return observed;
     },
     {{arg::kReadLensPositionData, {{"0", "1", "150", "slow"}, {"0", "5", "-1", "1", "x"}}, false}}},
    {SIM_ENTRY(FormatLensPositionData, "_ZN4CamX26FormatLensPositionDataHookEPvPNS_19OISLensPositionDataEPhm"),
     false,
     {},
     {},
     [](void* proxy, const CallArgs&) {
       unsigned char buffer[64] = {};
       return Result(As<SIM_PROXY_TYPE(FormatLensPositionData)>(proxy)(nullptr, nullptr, buffer, sizeof(buffer)));
     }},
    {SIM_ENTRY(PostGyroData,
               "_ZN4CamX16PostGyroDataHookEPvNS_13NCSSensorTypeERNSt3__16vectorIP15sensors_event_tNS2_"
               "9allocatorIS5_EEEE"),
     false,
     {kTimestamps, kSensorType},
     {{"timestamps", FieldKind::kNumbers}, {"shiftedSamples", FieldKind::kNumber}},
     [](void* proxy, const CallArgs& a) {
       hal::SensorEventBatch batch(a.timestamps);
       Observed observed = Result(As<SIM_PROXY_TYPE(PostGyroData)>(proxy)(
           nullptr, static_cast<CamX::NCSSensorType>(a.sensorType), batch.samples()));
       const std::vector<int64_t> seen = hal::LastGyroBatchSeen().timestamps;
       int64_t shifted = 0;
       for (size_t i = 0; i < seen.size() && i < a.timestamps.size(); ++i) shifted += seen[i] != a.timestamps[i];
       observed.Set("timestamps", seen);
       observed.Set("shiftedSamples", shifted);
       return observed;
     }},
    {SIM_ENTRY(CSLMessageHandler, "_ZN4CamX21CSLMessageHandlerHookEPvP10CSLMessage"),
     true,
     {kMessage, kUserData},
     {{"message", FieldKind::kMessage}},
     [](void* proxy, const CallArgs& a) {
       hal::CSLMessageObject message(a.messageType, a.messageValue);
       int session = 0;
       As<SIM_PROXY_TYPE(CSLMessageHandler)>(proxy)(a.userDataNull ? nullptr : &session,
                                                    a.messageNull ? nullptr : message.get());
       const hal::CSLMessageSeen seen = hal::LastCSLMessageSeen();
       Observed observed;
       observed.Set("message",
                    Fields{{"type", seen.type}, {"errorCode", seen.errorCode}, {"errorWord", seen.errorWord}});
       return observed;
     },
     {{arg::kCSLMessageHandler, {{"0", "1", "42", "4294967338", "frame42"}}, true}}},
    {SIM_ENTRY(ProcessCaptureRequest, "_ZN4CamX25ProcessCaptureRequestHookEPvPNS_21Camera3CaptureRequestE"),
     false,
     {kRecordControl, kTagRegistered, kTagZero},
     {{"aborted", FieldKind::kFlag}},
     [](void* proxy, const CallArgs& a) {
       if (a.tagRegistered) {
         hal::RegisterRecordControlTag();
       } else {
         hal::ClearVendorTags();  // a HAL without the vendor tag
       }
       hal::CaptureRequestObject request;
       if (a.recordControl) request.SetRecordControl(*a.recordControl);
       if (a.tagZero) request.SetBytes(0, {*a.tagZero});
       CamxResult result = 0;
       const bool aborted =
           AbortsDuring([&] { result = As<SIM_PROXY_TYPE(ProcessCaptureRequest)>(proxy)(nullptr, request.get()); });
       Observed observed = Result(result);
       observed.Set("aborted", aborted);
       return observed;
     }},
    // Called by the framework, installed over nothing.
    {"SetErrorFrameworkId",
     "_ZN4CamX19SetErrorFrameworkIdEji",
     nullptr,
     "SetErrorFrameworkId",
     true,
     {kCamera, kIsError},
     {},
     [](void* proxy, const CallArgs& a) {
       As<decltype(CamX::SetErrorFrameworkId)>(proxy)(a.camera.value_or(0), a.isError);
       return Observed{};
     }},
};

#undef SIM_ENTRY

}  // namespace

std::string Hex(uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

void Observed::Set(const std::string& key, Value value) {
  for (auto& [name, held] : fields) {
    if (name == key) {
      held = std::move(value);
      return;
    }
  }
  fields.emplace_back(key, std::move(value));
}

const Value* Observed::Find(const std::string& key) const {
  for (const auto& [name, held] : fields) {
    if (name == key) return &held;
  }
  return nullptr;
}

const std::vector<CatalogueEntry>& Catalogue() { return kCatalogue; }

const CatalogueEntry* FindCatalogueEntry(const std::string& name) {
  for (const CatalogueEntry& entry : kCatalogue) {
    if (name == entry.name) return &entry;
  }
  return nullptr;
}

std::vector<const CoreArgument*> CoreArguments() {
  std::vector<const CoreArgument*> arguments;
  for (const CatalogueEntry& entry : kCatalogue) {
    for (const CoreArgument& argument : entry.coreArguments) arguments.push_back(&argument);
  }
  return arguments;
}

const CoreArgument* FindCoreArgument(const std::string& name) {
  for (const CoreArgument* argument : CoreArguments()) {
    if (name == argument->name) return argument;
  }
  return nullptr;
}

const CatalogueEntry* FindCall(const std::string& call) {
  for (const CatalogueEntry& entry : kCatalogue) {
    if (entry.call != nullptr && call == entry.call) return &entry;
  }
  return nullptr;
}

std::string Signature(const CatalogueEntry& entry) {
  int status = 0;
  char* text = abi::__cxa_demangle(entry.mangled, nullptr, nullptr, &status);
  std::string signature = status == 0 && text != nullptr ? text : entry.mangled;
  std::free(text);
  return signature;
}

}  // namespace sim
