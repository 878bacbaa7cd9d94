// The bring-up hooks after a probe: device initialisation, the initial and
// configuration command sets, and command submission. A failure here never
// reaches the HAL: it is recorded (state property, error list, init state)
// and success is returned. Also the I2C slave-address switch.

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <cutils/properties.h>

#include "client/interface/remediumclient.h"
#include "core/model/monitor/interface/imagesensorstate.h"
#include "hook/src/camxlayout.h"
#include "hook/src/corearguments.h"
#include "hook/src/globals.h"
#include "hook/src/hook.h"
#include "hook/src/hooklogsites.h"
#include "hook/src/kernelchannel.h"
#include "hook/src/proxyframe.h"
#include "hook/src/settings.h"

namespace CamX {
namespace {

constexpr uint32_t kInitStateInitialised = 1;
constexpr uint32_t kInitStateFailed = 2;
constexpr uint32_t kOpcodeInitialConfig = 2;
constexpr uint32_t kOpcodeConfig = 4;
constexpr uint32_t kI2CAddress18 = 0x18;
constexpr uint32_t kI2CAddress66 = 0x66;

// Camera id of the pipeline the hooked node belongs to; an object without a
// node or pipeline gives an id beyond the table, which stops the process at
// the hook's bounds check.
uint32_t PipelineCameraId(void* pThis) {
  const Node* pNode = Layout::Read(pThis, Layout::kSensorNodeNode);
  if (pNode == nullptr) return UINT32_MAX;
  Pipeline* pPipeline = pNode->GetPipeline();
  return pPipeline == nullptr ? UINT32_MAX : pPipeline->GetCameraId();
}

// Bounds check of the slot table: a camera id of 16 or more stops the process.
uint32_t SlotIdOf(uint32_t cameraId) {
  if (cameraId >= kMaxCameraId) __builtin_trap();
  return cameraSlotIds[cameraId].load(std::memory_order_relaxed);
}

bool ProbeRecordedFailed(uint32_t slotId) {
  const ImageSensorStateSet set = ImageSensorStateHelper::GetImageSensorState(slotId);
  auto it = set.states.find("P");
  return it != set.states.end() && it->second.result == "F";
}

}  // namespace

CamxResult InitializeSensorDeviceHook(void* pThis) noexcept {
  CAMX_PROXY_FRAME(frame);
  const uint32_t cameraId = PipelineCameraId(pThis);
  const uint32_t slotId = SlotIdOf(cameraId);
  CamxResult oldResult = CamxResultEFailed;
  if (!ProbeRecordedFailed(slotId)) {
    oldResult = frame.CallPrevious(&InitializeSensorDeviceHook, pThis);
    if (oldResult == CamxResultSuccess) {
      Layout::Write(pThis, Layout::kSensorNodeInitState, kInitStateInitialised);
      ImageSensorStateHelper::UpdateImageSensorStateProperty(slotId, "I", "S");
      REMEDIUM_LOG(InitDeviceChanged, cameraId, 0, 0, kInitStateInitialised);
      return CamxResultSuccess;
    }
  } else {
    // A sensor whose probe failed is not initialised; a module whose EEPROM
    // was probed in this slot is reported to the core.
    if (const std::optional<std::string> eepromName = eepromProbeInfoMap.FirstNameOfCamera(slotId)) {
      RemediumClient::ProtectionCallback(CallbackMessage{kInitSkipArg0, kInitSkipArg1,
                                                         kInitSkipEventCode | ((slotId & 0xFu) << kEventCodeIdShift),
                                                         *eepromName, kCallbackMessageTypeError});
    }
    REMEDIUM_LOG(InitDeviceSkip, cameraId);
  }
  Layout::Write(pThis, Layout::kSensorNodeInitState, kInitStateFailed);
  ImageSensorStateHelper::UpdateImageSensorStateProperty(slotId, "I", "F");
  SetErrorFrameworkId(slotId, 1);
  REMEDIUM_LOG(InitDeviceChanged, cameraId, oldResult, 0, kInitStateFailed);
  return CamxResultSuccess;
}

CamxResult LoadSensorInitConfigCmdHook(void* pThis) noexcept {
  CAMX_PROXY_FRAME(frame);
  const uint32_t cameraId = PipelineCameraId(pThis);
  const CamxResult result = frame.CallPrevious(&LoadSensorInitConfigCmdHook, pThis);
  const uint32_t slotId = SlotIdOf(cameraId);  // after the HAL call, as the HAL sees it
  const ProbeResultTable kernel = ReadSensorInitResult(slotId);
  uint32_t kernelInitFailed = 0;
  bool failed = result != CamxResultSuccess;
  if (kernel.size() >= kProbeResultTableSize) {
    if (ClearedControl(kernel, slotId) != 0) {
      kernelInitFailed = 1;
      failed = true;
    } else {
      kernelInitFailed = KmdResult(kernel, slotId) != 0 ? 1 : 0;
      failed = failed || kernelInitFailed != 0;
    }
  }
  if (failed) {
    ImageSensorStateHelper::UpdateImageSensorStateProperty(slotId, "I", "F");
    property_set("persist.vendor.camera.enableEarlyPipelineActivate", "false");
    property_set("persist.vendor.camera.isSatFollowFingersOpt", "false");
    SetErrorFrameworkId(slotId, 1);
  } else {
    ImageSensorStateHelper::UpdateImageSensorStateProperty(slotId, "I", "S");
    kernelInitFailed = 0;
  }
  REMEDIUM_LOG(InitConfigChanged, cameraId, result, kernelInitFailed, 0);
  return CamxResultSuccess;
}

CamxResult LoadSensorConfigCmdsHook(void* pThis) noexcept {
  CAMX_PROXY_FRAME(frame);
  const uint32_t cameraId = PipelineCameraId(pThis);
  const uint32_t slotId = SlotIdOf(cameraId);
  CamxResult result = CamxResultEFailed;
  if (ProbeRecordedFailed(slotId)) {
    REMEDIUM_LOG(ConfigCmdsSkip, cameraId);
  } else {
    result = frame.CallPrevious(&LoadSensorConfigCmdsHook, pThis);
    if (result == CamxResultSuccess) {
      ImageSensorStateHelper::UpdateImageSensorStateProperty(slotId, "C", "S");
      // OK: the text names the init-settings hook; the log tools match it so.
      REMEDIUM_LOG(ConfigCmdsChanged, cameraId, 0, 0);
      return CamxResultSuccess;
    }
  }
  ImageSensorStateHelper::UpdateImageSensorStateProperty(slotId, "C", "F");
  SetErrorFrameworkId(slotId, 1);
  REMEDIUM_LOG(ConfigCmdsChanged, cameraId, result, 0);
  return CamxResultSuccess;
}

CamxResult SensorCreateAndSubmitCommandHook(void* pThis, unsigned int arg1, I2CRegSettingType settingType,
                                            CSLPacketOpcodesSensor opcode, unsigned int arg4, unsigned int arg5,
                                            const void* pData) noexcept {
  CAMX_PROXY_FRAME(frame);
  const uint32_t cameraId = PipelineCameraId(pThis);
  const CamxResult result =
      frame.CallPrevious(&SensorCreateAndSubmitCommandHook, pThis, arg1, settingType, opcode, arg4, arg5, pData);
  const auto code = static_cast<uint32_t>(opcode);
  if (code != kOpcodeInitialConfig && code != kOpcodeConfig) return result;

  const bool isConfig = code == kOpcodeConfig;
  if (isConfig) {
    REMEDIUM_LOG(SubmitConfigCode, code);
  } else {
    REMEDIUM_LOG(SubmitInitialConfigCode, code);
  }
  const uint32_t slotId = SlotIdOf(cameraId);
  ImageSensorStateHelper::UpdateImageSensorStateProperty(slotId, isConfig ? "C" : "I", result == 0 ? "S" : "F");
  if (isConfig) {
    REMEDIUM_LOG(SubmitConfigChanged, result, 0, pThis);
  } else {
    REMEDIUM_LOG(SubmitInitialConfigChanged, result, 0, pThis);
  }
  if (result != CamxResultSuccess) SetErrorFrameworkId(slotId, 1);
  return CamxResultSuccess;
}

CamxResult CreateI2CInfoCmdHook(void* pThis, CSLSensorI2CInfo* pI2CInfo, unsigned short arg) noexcept {
  CAMX_PROXY_FRAME(frame);
  const CamxResult result = frame.CallPrevious(&CreateI2CInfoCmdHook, pThis, pI2CInfo, arg);
  if (pI2CInfo == nullptr) return result;  // nothing to switch or show
  const std::vector<std::string> arguments = RemediumClient::GetHookArguments(coreargument::kEEPROMI2C);
  if (!arguments.empty()) {
    const auto address = static_cast<uint32_t>(std::atoi(arguments.front().c_str()));
    if (address != 0 && address == Layout::Read(pI2CInfo, Layout::kSensorI2CInfoSlaveAddress)) {
      Layout::Write(pI2CInfo, Layout::kSensorI2CInfoSlaveAddress,
                    address == kI2CAddress18 ? kI2CAddress66 : kI2CAddress18);
      NotifyHookOnce(hookNotified.createI2CInfoCmd, "CreateI2CInfoCmdHook");
    }
  }
  REMEDIUM_LOG(SensorI2CSlaveAddress, Layout::Read(pI2CInfo, Layout::kSensorI2CInfoSlaveAddress));
  return result;
}

}  // namespace CamX
