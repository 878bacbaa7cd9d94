// The EEPROM hooks: the data probe with its last-retry pass, fault injection
// on the EEPROM probe and read, and the checksum disturbance.
#include <cstdlib>
#include <cstring>
#include <string>

#include "client/interface/remediumclient.h"
#include "hook/src/camxlayout.h"
#include "hook/src/corearguments.h"
#include "hook/src/eepromretry.h"
#include "hook/src/globals.h"
#include "hook/src/hook.h"
#include "hook/src/hooklogsites.h"
#include "hook/src/probeinfo.h"
#include "hook/src/proxyframe.h"
#include "hook/src/sensorusage.h"
#include "hook/src/settings.h"

namespace CamX {
namespace {

// Checksum disturbance: every 30th byte from 0 up to and including 990.
constexpr size_t kChecksumDisturbStride = 30;
constexpr size_t kChecksumDisturbLastOffset = 990;

// Parsed on the first EEPROM probe and kept for the life of the process.
const SettingsMap& EepromOverrideSettings() {
  static const SettingsMap s_settings = ParseConfigFile(kOverrideSettingsPath);
  return s_settings;
}

// Records one EEPROM probe result; the camera id of an existing entry stays.
void SetProbeEEPROMInfoMap(const std::string& name, CamxResult result, uint32_t cameraId) {
  const uint32_t count = eepromProbeInfoMap.Record(name, result, cameraId);
  REMEDIUM_LOG(EepromProbeRecorded, name.c_str(), count);
}

// True when a core argument names a camera that occurs in `name`; notifies
// the core of the first such hit of the process.
bool MatchesCoreArgument(const std::string& argument, const char* name, std::atomic<uint8_t>& notified,
                         const char* hookName) {
  if (!CheckIsCameraName(argument)) return false;
  if (std::strstr(name, argument.c_str()) == nullptr) return false;
  NotifyHookOnce(notified, hookName);
  return true;
}

}  // namespace

CamxResult EEPROMDataProbeHook(void* pThis) noexcept {
  CAMX_PROXY_FRAME(frame);
  RemediumClient::GetHookArguments(coreargument::kProbeEEPROMProtection);  // fetched and released, unused
  const SettingsMap& settings = EepromOverrideSettings();
  const uint32_t cameraId = Layout::Read(pThis, Layout::kEepromDataCameraId);
  const std::string name = Layout::At(pThis, Layout::kEepromDataSensorName);
  const int retryTimes = SettingAsInt(settings, "SensorModuleRetryTimes");
  const int moduleNumber = SettingAsInt(settings, "sensorModuleNumber");
  REMEDIUM_LOG(EepromDataSettings, retryTimes, moduleNumber, cameraId);

  CamxResult result = CamxResultSuccess;
  if (cameraId >= kMaxCameraId || retryTimes == 0 || moduleNumber == 0) {
    result = frame.CallPrevious(&EEPROMDataProbeHook, pThis);
  } else {
    const SensorUsage usage = QuerySensorUsage(name, /*carryFirstRequest=*/true);
    REMEDIUM_LOG(EepromDataSensorUsage, cameraId, eepromProbeInfoMap.ProbeCount(name), name.c_str(),
                 usage.sensorType.c_str(), usage.frequentlyUsedSensor, usage.neverBeenSuccessfullyProbed,
                 usage.mostProbedName.c_str(), static_cast<int>(usage.recordCount));
    const bool usedOrUnknown = usage.frequentlyUsedSensor || usage.neverBeenSuccessfullyProbed;
    // On the last retry of a module that failed every time, the HAL is told
    // to accept the EEPROM, and the probe is reported passed.
    if (IsLastEEPROMProbeRetryTimes(name, retryTimes, 0) && usedOrUnknown) {
      Layout::Write(pThis, Layout::kEepromDataLastRetryFlag, 1u);
    }
    result = frame.CallPrevious(&EEPROMDataProbeHook, pThis);
    if (IsLastEEPROMProbeRetryTimes(name, retryTimes, 0) && usedOrUnknown) result = CamxResultSuccess;
  }
  REMEDIUM_LOG(EepromDataOutcome, cameraId, name.c_str(), result);
  SetProbeEEPROMInfoMap(name, result, cameraId);
  return result;
}

CamxResult ProbeEEPROMHook(void* pThis, HwSensorInfo* pSensorInfo, const HwDeviceTypeInfo* pDeviceInfo) noexcept {
  CAMX_PROXY_FRAME(frame);
  const std::vector<std::string> arguments = RemediumClient::GetHookArguments(coreargument::kProbeEEPROM);
  CamxResult result = frame.CallPrevious(&ProbeEEPROMHook, pThis, pSensorInfo, pDeviceInfo);
  const char* name = Layout::ReadEepromName(pSensorInfo);
  for (const std::string& argument : arguments) {
    REMEDIUM_LOG(ProbeEepromArgument, argument.c_str());
    if (MatchesCoreArgument(argument, name, hookNotified.probeEEPROM, "ProbeEEPROMHook")) {
      result = CamxResultEFailed;
    }
  }
  REMEDIUM_LOG(ProbeEepromOutcome, name, result);
  return result;
}

CamxResult ReadEEPROMDeviceHook(void* pThis) noexcept {
  CAMX_PROXY_FRAME(frame);
  const std::vector<std::string> arguments = RemediumClient::GetHookArguments(coreargument::kReadEEPROMDeviceFail);
  // OK: with no instruction from the core the read is skipped and reported done.
  if (arguments.empty()) return CamxResultSuccess;
  CamxResult result = frame.CallPrevious(&ReadEEPROMDeviceHook, pThis);
  const std::string& name = Layout::At(pThis, Layout::kEepromDataSensorName);
  for (const std::string& argument : arguments) {
    REMEDIUM_LOG(ReadEepromArgument, argument.c_str());
    REMEDIUM_LOG(ReadEepromSensorName, name.c_str());
    if (MatchesCoreArgument(argument, name.c_str(), hookNotified.readEEPROMDevice, "ReadEEPROMDeviceHook")) {
      result = CamxResultEFailed;
    }
  }
  return result;
}

CamxResult EEPROMVerifyChecksumHook(void* pThis, unsigned char* pData, int size) noexcept {
  CAMX_PROXY_FRAME(frame);
  // Disturbs the data on every call so that the HAL's checksum recovery runs;
  // the buffer is known to hold at least 991 bytes, whatever `size` says.
  if (pData != nullptr) {
    for (size_t offset = 0; offset <= kChecksumDisturbLastOffset; offset += kChecksumDisturbStride) pData[offset] = 0;
  }
  return frame.CallPrevious(&EEPROMVerifyChecksumHook, pThis, pData, size);
}

}  // namespace CamX
