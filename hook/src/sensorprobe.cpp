// SensorProbeHook: the sensor probe of one camera slot, with protection fault
// injection, the bypass of a failing most-used sensor on its last retry, the
// kernel-assisted re-probe of a multi-sourced slot's last module, and the
// bookkeeping every later stage reads.
#include <cstdlib>
#include <cstring>
#include <string>

#include <cutils/properties.h>

#include "client/interface/remediumclient.h"
#include "core/model/monitor/interface/imagesensorstate.h"
#include "hook/src/camxlayout.h"
#include "hook/src/corearguments.h"
#include "hook/src/eepromretry.h"
#include "hook/src/globals.h"
#include "hook/src/hook.h"
#include "hook/src/hooklogsites.h"
#include "hook/src/kernelchannel.h"
#include "hook/src/probeinfo.h"
#include "hook/src/proxyframe.h"
#include "hook/src/sensorusage.h"
#include "hook/src/settings.h"

namespace CamX {
namespace {

// Counts the names whose last recorded probe succeeded, logging each.
uint32_t ProbeCameraNumber() {
  uint32_t probed = 0;
  for (const auto& [name, last] : probeInfoMap.LastResults()) {
    REMEDIUM_LOG(ProbeLastResult, name.c_str(), static_cast<int>(last));
    probed += last == 0 ? 1 : 0;
  }
  return probed;
}

// Parsed on the first probe and kept for the life of the process.
const SettingsMap& ProbeOverrideSettings() {
  static const SettingsMap s_settings = ParseConfigFile(kOverrideSettingsPath);
  return s_settings;
}

void RecordProbeState(uint32_t cameraId, const char* result, bool allStages) {
  ImageSensorStateHelper::UpdateImageSensorStateProperty(cameraId, "P", result);
  if (!allStages) return;
  ImageSensorStateHelper::UpdateImageSensorStateProperty(cameraId, "I", "S");
  ImageSensorStateHelper::UpdateImageSensorStateProperty(cameraId, "C", "S");
}

}  // namespace

CamxResult SensorProbeHook(void* pThis, int* pArg1, int* pArg2) noexcept {
  CAMX_PROXY_FRAME(frame);
  auto probe = [&] { return frame.CallPrevious(&SensorProbeHook, pThis, pArg1, pArg2); };

  RemediumClient::GetHookArguments(coreargument::kSensorProbeI2CError);  // fetched and released, unused
  const std::vector<std::string> protection = RemediumClient::GetHookArguments(coreargument::kSensorProbeProtection);
  const std::string name = Layout::ReadSensorProbeName(pThis);

  // Fault injection: the probe runs, but a named sensor reports failure.
  if (!protection.empty()) {
    CamxResult result = probe();
    for (const std::string& argument : protection) {
      REMEDIUM_LOG(ProbeProtectionArgument, argument.c_str());
      REMEDIUM_LOG(ProbeProtectionSensorName, name.c_str());
      if (!CheckIsCameraName(argument)) continue;
      if (std::strstr(name.c_str(), argument.c_str()) != nullptr) {
        result = CamxResultEFailed;
        NotifyHookOnce(hookNotified.sensorProbeProtection, "SensorProbeHook");
      }
    }
    return result;
  }

  const SettingsMap& settings = ProbeOverrideSettings();
  const int retryTimes = SettingAsInt(settings, "SensorModuleRetryTimes");
  const int moduleNumber = SettingAsInt(settings, "sensorModuleNumber");
  REMEDIUM_LOG(ProbeSettings, retryTimes, moduleNumber);

  const uint16_t* pCameraId = Layout::ReadSensorProbeCameraIdPointer(pThis);
  if (moduleNumber == 0 || pCameraId == nullptr || retryTimes == 0) {
    REMEDIUM_LOG(ProbeSettingsMissing, retryTimes, moduleNumber);
    return probe();
  }
  const uint32_t cameraId = *pCameraId;

  const SensorUsage usage = QuerySensorUsage(name, /*carryFirstRequest=*/false);
  REMEDIUM_LOG(ProbeSensorUsage, name.c_str(), usage.sensorType.c_str(), usage.frequentlyUsedSensor,
               usage.neverBeenSuccessfullyProbed);
  REMEDIUM_LOG(ProbeMostProbed, usage.mostProbedName.c_str(), static_cast<int>(usage.recordCount));

  // OK: ids beyond the kernel table are reported probed without probing.
  if (cameraId >= kMaxCameraId) return CamxResultSuccess;

  REMEDIUM_LOG(ProbeCount, name.c_str(), probeInfoMap.ProbeCount(name));

  const bool usedOrUnknown = usage.frequentlyUsedSensor || usage.neverBeenSuccessfullyProbed;
  auto qualifies = [&] {
    if (IsLastRetryTimes(name, retryTimes, 0)) return usedOrUnknown;
    return IsLastEEPROMProbeRetryBypassSensor(name, retryTimes, 0) && usedOrUnknown;
  };

  if (qualifies()) {
    // Bypass: the slot's most-used sensor, failing on its last retry, is
    // probed once more and, on a clean kernel and CamX result, kept.
    if (RemediumClient::IsSwitchOpened(kSensorBypassSwitch) && usage.frequentlyUsedSensor &&
        IsLastEEPROMProbeRetryBypassSensor(name, retryTimes, 0)) {
      const CamxResult bypassResult = probe();
      const ProbeResultTable table = ReadSensorProbeResult(cameraId);
      if (table.size() == kProbeResultTableSize && bypassResult == 0 && KmdResult(table, cameraId) == 0) {
        SetErrorFrameworkId(cameraId, 0);
        SetProbeInfoMap(name, KmdResult(table, cameraId), cameraId);
        RecoverySettings(settings);
        RecordProbeState(cameraId, "S", true);
        RemediumClient::ProtectionCallback(
            CallbackMessage{kSensorBypassArg0, kSensorBypassArg1,
                            (static_cast<uint64_t>(cameraId) << kEventCodeIdShift) | kSensorBypassEventCode, name,
                            kCallbackMessageTypeProtection});
        return CamxResultSuccess;
      }
    }
    // Last module of a multi-sourced slot: when every other module has
    // probed, ask the kernel to re-probe this one (once per process).
    if (moduleNumber >= 2 && ProbeCameraNumber() == static_cast<uint32_t>(moduleNumber - 1) &&
        sensorProbeOnce.kernelRetryArmed.load(std::memory_order_relaxed) == 0 && !name.empty() &&
        std::strstr(name.c_str(), "front") == nullptr) {
      sensorProbeOnce.kernelRetryArmed.store(1, std::memory_order_relaxed);
      SetSensorProbeResult(cameraId, 0);
    }
  }

  CamxResult result = probe();
  const ProbeResultTable table = ReadSensorProbeResult(cameraId);
  if (table.size() < kProbeResultTableSize) return result;
  const int64_t kernelResult = KmdResult(table, cameraId);
  REMEDIUM_LOG(ProbeOutcome, name.c_str(), cameraId, static_cast<int>(kernelResult), result);

  if (sensorProbeOnce.kernelRetryArmed.load(std::memory_order_relaxed) != 0) {
    if (qualifies()) {
      // The kernel-assisted retry of the last module: report it probed and
      // switch off the features that need every module.
      ImageSensorStateHelper::UpdateImageSensorStateProperty(cameraId, "P", "F");
      property_set("persist.vendor.camera.enableEarlyPipelineActivate", "FALSE");
      property_set("persist.vendor.camera.isSatFollowFingersOpt", "FALSE");
      property_set("persist.vendor.camera.enableSATWideAlwaysOn", "FALSE");
      property_set("vendor.debug.camera.numPCRsBeforeStreamOn", "0");
      property_set("persist.vendor.camera.isEarlysettingsEnable", "FALSE");
      result = CamxResultSuccess;
      ResetSensorProbeResult(cameraId);
      SetErrorFrameworkId(cameraId, 1);
    }
  } else {
    RecordProbeState(cameraId, "S", true);
    RecoverySettings(settings);
    RemediumClient::RecordProbeMessage(name, result != 0);
    ResetSensorProbeResult(cameraId);
    SetErrorFrameworkId(cameraId, 0);
  }
  SetProbeInfoMap(name, kernelResult, cameraId);
  return result;
}

}  // namespace CamX
