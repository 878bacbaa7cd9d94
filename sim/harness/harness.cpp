#include "harness.h"

#include <dlfcn.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "simdevice.h"
#include "simframework.h"
#include "simhal.h"
#include "simsensorhal.h"
#include "simlenspipelinehal.h"
#include "simlog.h"
#include "simproperties.h"
#include "simshadowhook.h"

namespace sim {

const std::vector<CatalogueEntry>& Catalogue() {
  static const std::vector<CatalogueEntry> kCatalogue = {
      {"GetStaticCapsHook",
       "_ZN4CamX17GetStaticCapsHookEPvPNS_22SensorModuleStaticCapsEP19CSLSensorCapabilityPNS_17TuningDataManagerEj",
       "CamX::GetStaticCapsHook(void*, CamX::SensorModuleStaticCaps*, CSLSensorCapability*, "
       "CamX::TuningDataManager*, unsigned int)",
       reinterpret_cast<void*>(&hal::GetStaticCaps)},
      {"SensorProbeHook", "_ZN4CamX15SensorProbeHookEPvPiS1_",
       "CamX::SensorProbeHook(void*, int*, int*)", reinterpret_cast<void*>(&hal::SensorProbe)},
      {"InitializeSensorDeviceHook", "_ZN4CamX26InitializeSensorDeviceHookEPv",
       "CamX::InitializeSensorDeviceHook(void*)", reinterpret_cast<void*>(&hal::InitializeSensorDevice)},
      {"LoadSensorInitConfigCmdHook", "_ZN4CamX27LoadSensorInitConfigCmdHookEPv",
       "CamX::LoadSensorInitConfigCmdHook(void*)", reinterpret_cast<void*>(&hal::LoadSensorInitConfigCmd)},
      {"LoadSensorConfigCmdsHook", "_ZN4CamX24LoadSensorConfigCmdsHookEPv",
       "CamX::LoadSensorConfigCmdsHook(void*)", reinterpret_cast<void*>(&hal::LoadSensorConfigCmds)},
      {"SensorCreateAndSubmitCommandHook",
       "_ZN4CamX32SensorCreateAndSubmitCommandHookEPvjNS_17I2CRegSettingTypeE22CSLPacketOpcodesSensorjjPKv",
       "CamX::SensorCreateAndSubmitCommandHook(void*, unsigned int, CamX::I2CRegSettingType, "
       "CSLPacketOpcodesSensor, unsigned int, unsigned int, void const*)",
       reinterpret_cast<void*>(&hal::SensorCreateAndSubmitCommand)},
      {"CreateI2CInfoCmdHook", "_ZN4CamX20CreateI2CInfoCmdHookEPvP16CSLSensorI2CInfot",
       "CamX::CreateI2CInfoCmdHook(void*, CSLSensorI2CInfo*, unsigned short)", reinterpret_cast<void*>(&hal::CreateI2CInfoCmd)},
      {"EEPROMDataProbeHook", "_ZN4CamX19EEPROMDataProbeHookEPv", "CamX::EEPROMDataProbeHook(void*)",
       reinterpret_cast<void*>(&hal::EEPROMDataProbe)},
      {"ProbeEEPROMHook", "_ZN4CamX15ProbeEEPROMHookEPvPNS_12HwSensorInfoEPKNS_16HwDeviceTypeInfoE",
       "CamX::ProbeEEPROMHook(void*, CamX::HwSensorInfo*, CamX::HwDeviceTypeInfo const*)", reinterpret_cast<void*>(&hal::ProbeEEPROM)},
      {"ReadEEPROMDeviceHook", "_ZN4CamX20ReadEEPROMDeviceHookEPv", "CamX::ReadEEPROMDeviceHook(void*)",
       reinterpret_cast<void*>(&hal::ReadEEPROMDevice)},
      {"EEPROMVerifyChecksumHook", "_ZN4CamX24EEPROMVerifyChecksumHookEPvPhi",
       "CamX::EEPROMVerifyChecksumHook(void*, unsigned char*, int)", reinterpret_cast<void*>(&hal::EEPROMVerifyChecksum)},
      {"ActuatorDataHook", "_ZN4CamX16ActuatorDataHookEPvPNS_18ActuatorDriverDataE",
       "CamX::ActuatorDataHook(void*, CamX::ActuatorDriverData*)", reinterpret_cast<void*>(&hal::ActuatorData)},
      {"OISRegisterProviderHook", "_ZN4CamX23OISRegisterProviderHookEPvS0_PKNS_14NCSProviderCapE",
       "CamX::OISRegisterProviderHook(void*, void*, CamX::NCSProviderCap const*)",
       reinterpret_cast<void*>(&hal::OISRegisterProvider)},
      {"OISCreateI2CInfoCmdHook", "_ZN4CamX23OISCreateI2CInfoCmdHookEPvP13CSLOISI2CInfoi",
       "CamX::OISCreateI2CInfoCmdHook(void*, CSLOISI2CInfo*, int)", reinterpret_cast<void*>(&hal::OISCreateI2CInfoCmd)},
      {"ReadLensPositionDataHook", "_ZN4CamX24ReadLensPositionDataHookEPv",
       "CamX::ReadLensPositionDataHook(void*)", reinterpret_cast<void*>(&hal::ReadLensPositionData)},
      {"FormatLensPositionDataHook", "_ZN4CamX26FormatLensPositionDataHookEPvPNS_19OISLensPositionDataEPhm",
       "CamX::FormatLensPositionDataHook(void*, CamX::OISLensPositionData*, unsigned char*, unsigned long)",
       reinterpret_cast<void*>(&hal::FormatLensPositionData)},
      {"PostGyroDataHook",
       "_ZN4CamX16PostGyroDataHookEPvNS_13NCSSensorTypeERNSt3__16vectorIP15sensors_event_tNS2_9allocatorIS5_EEEE",
       "CamX::PostGyroDataHook(void*, CamX::NCSSensorType, std::__1::vector<sensors_event_t*, "
       "std::__1::allocator<sensors_event_t*>>&)",
       reinterpret_cast<void*>(&hal::PostGyroData)},
      {"CSLMessageHandlerHook", "_ZN4CamX21CSLMessageHandlerHookEPvP10CSLMessage",
       "CamX::CSLMessageHandlerHook(void*, CSLMessage*)", reinterpret_cast<void*>(&hal::CSLMessageHandler)},
      {"ProcessCaptureRequestHook", "_ZN4CamX25ProcessCaptureRequestHookEPvPNS_21Camera3CaptureRequestE",
       "CamX::ProcessCaptureRequestHook(void*, CamX::Camera3CaptureRequest*)",
       reinterpret_cast<void*>(&hal::ProcessCaptureRequest)},
      {"SetErrorFrameworkId", "_ZN4CamX19SetErrorFrameworkIdEji", "CamX::SetErrorFrameworkId(unsigned int, int)",
       nullptr},
  };
  return kCatalogue;
}

const CatalogueEntry* FindCatalogueEntry(const std::string& name) {
  for (const CatalogueEntry& entry : Catalogue()) {
    if (name == entry.name) return &entry;
  }
  return nullptr;
}

std::string BuildOutputDir() { return framework::LibraryDir(); }

std::string HookLibraryPath() { return BuildOutputDir() + "/" REMEDIUM_HOOK_LIBRARY; }

std::unique_ptr<HookLibrary> HookLibrary::Load(const std::string& path, std::string* error) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    if (error != nullptr) {
      const char* why = dlerror();
      *error = "cannot load the hook library " + path + ": " + (why != nullptr ? why : "unknown error");
    }
    return nullptr;
  }
  return std::unique_ptr<HookLibrary>(new HookLibrary(handle, path));
}

HookLibrary::~HookLibrary() {
  // Runs the library's exit-time destructors, as the end of a process would.
  dlclose(m_handle);
}

bool HookLibrary::Unloaded() const {
  void* again = dlopen(m_path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (again == nullptr) return true;
  dlclose(again);
  return false;
}

void* HookLibrary::Symbol(const std::string& mangled) const { return dlsym(m_handle, mangled.c_str()); }

std::vector<std::string> HookLibrary::InstallAll() const {
  std::vector<std::string> installed;
  for (const CatalogueEntry& entry : Catalogue()) {
    void* proxy = Symbol(entry.mangled);
    if (proxy == nullptr || entry.halFunction == nullptr) continue;
    RegisterHook(proxy, entry.halFunction);
    installed.push_back(entry.name);
  }
  return installed;
}

namespace {

void ResetRecords() {
  ClearLog();
  ClearJournal();
  ClearSysfsWrites();
  ClearHookStackCalls();
  hal::Reset();
  framework::ResetCore();
  framework::ResetMessageCenter();
}

// Device roots of test processes that ended without their destructors (a
// death test's child, a crash) are removed by the next phone.
void RemoveOrphanedRoots() {
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator("/tmp", ec)) {
    const std::string name = entry.path().filename().string();
    if (name.rfind("remedium-phone-", 0) != 0) continue;
    const long pid = std::strtol(name.c_str() + 15, nullptr, 10);
    if (pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) {
      std::filesystem::remove_all(entry.path(), ec);
    }
  }
}

}  // namespace

Phone::Phone() {
  RemoveOrphanedRoots();
  std::string pattern = "/tmp/remedium-phone-" + std::to_string(getpid()) + "-XXXXXX";
  const char* made = mkdtemp(pattern.data());
  m_root = made != nullptr ? made : "/tmp/remedium-phone";
  SetDeviceRoot(m_root);
  ResetProperties();
  ResetRecords();
  ClearHooks();
  SetHookMode(0);
  SetSysfsDriver(nullptr);
  PinBootTime(-1);
}

Phone::~Phone() {
  StopCameraProcess();
  SetSysfsDriver(nullptr);
  ClearHooks();
  SetDeviceRoot("");
  std::error_code ec;
  std::filesystem::remove_all(m_root, ec);
}

HookLibrary* Phone::StartCameraProcess(std::string* error) {
  StopCameraProcess();
  std::string why;
  m_library = HookLibrary::Load(HookLibraryPath(), &why);
  if (!m_library) {
    if (error != nullptr) *error = why;
    return nullptr;
  }
  m_library->InstallAll();
  return m_library.get();
}

void Phone::StopCameraProcess() {
  m_library.reset();
  ClearHooks();
}

HookLibrary* Phone::RestartCameraService() {
  StopCameraProcess();
  return StartCameraProcess();
}

HookLibrary* Phone::Reboot() {
  StopCameraProcess();
  RebootProperties();
  return StartCameraProcess();
}

}  // namespace sim
