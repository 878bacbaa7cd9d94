// The exported proxies. Each has exactly the parameter list of the HAL function
// it replaces, so that its C++ name is the one the framework core looks up.
// exports.map pins this set; nothing else leaves the library.
#pragma once

#include "hook/src/camxhal.h"

#define CAMX_HOOK_EXPORT __attribute__((visibility("default")))

namespace CamX {

// Records the slot id of each camera id in cameraSlotIds.
CAMX_HOOK_EXPORT CamxResult GetStaticCapsHook(void* pThis, SensorModuleStaticCaps* pStaticCaps,
                                              CSLSensorCapability* pSensorCapability, TuningDataManager* pTuningManager,
                                              unsigned int cameraId) noexcept;

// Sensor probe with protection fault injection, the bypass of the slot's
// most-used sensor on its last retry, and the kernel-assisted re-probe of a
// multi-sourced slot's last module; keeps the probe records.
CAMX_HOOK_EXPORT CamxResult SensorProbeHook(void* pThis, int* pArg1, int* pArg2) noexcept;

// Bring-up after the probe: failures are recorded, never returned (always 0).
CAMX_HOOK_EXPORT CamxResult InitializeSensorDeviceHook(void* pThis) noexcept;
CAMX_HOOK_EXPORT CamxResult LoadSensorInitConfigCmdHook(void* pThis) noexcept;
CAMX_HOOK_EXPORT CamxResult LoadSensorConfigCmdsHook(void* pThis) noexcept;
// Records initial-configuration (opcode 2) and configuration (opcode 4)
// packets and returns 0 for them; other opcodes pass through.
CAMX_HOOK_EXPORT CamxResult SensorCreateAndSubmitCommandHook(void* pThis, unsigned int arg1,
                                                             I2CRegSettingType settingType,
                                                             CSLPacketOpcodesSensor opcode, unsigned int arg4,
                                                             unsigned int arg5, const void* pData) noexcept;
// On the core's "EEPROMI2C" argument, moves a device to the other I2C address.
CAMX_HOOK_EXPORT CamxResult CreateI2CInfoCmdHook(void* pThis, CSLSensorI2CInfo* pI2CInfo, unsigned short arg) noexcept;

// EEPROM: the data probe passes a qualifying module on its last retry; the
// probe and read fail modules the core names; the checksum data is disturbed.
CAMX_HOOK_EXPORT CamxResult EEPROMDataProbeHook(void* pThis) noexcept;
CAMX_HOOK_EXPORT CamxResult ProbeEEPROMHook(void* pThis, HwSensorInfo* pSensorInfo,
                                            const HwDeviceTypeInfo* pDeviceInfo) noexcept;
CAMX_HOOK_EXPORT CamxResult ReadEEPROMDeviceHook(void* pThis) noexcept;
CAMX_HOOK_EXPORT CamxResult EEPROMVerifyChecksumHook(void* pThis, unsigned char* pData, int size) noexcept;

// Lens and OIS. On the core's "ActuatorI2CError" arguments, moves a named
// actuator to the other I2C slave address before the HAL uses its data.
CAMX_HOOK_EXPORT void ActuatorDataHook(void* pThis, ActuatorDriverData* pActuatorDriverData) noexcept;
// Never registers the OIS provider; always 1.
CAMX_HOOK_EXPORT CamxResult OISRegisterProviderHook(void* pThis, void* pUnusedArg,
                                                    const NCSProviderCap* pProviderCap) noexcept;
// Moves the OIS I2C slave address the HAL built to the other address.
CAMX_HOOK_EXPORT CamxResult OISCreateI2CInfoCmdHook(void* pThis, CSLOISI2CInfo* pI2CInfo, int parameter) noexcept;
// On the core's "ReadLensPositionData" arguments, delays the read and/or
// replaces its result.
CAMX_HOOK_EXPORT CamxResult ReadLensPositionDataHook(void* pThis) noexcept;
// Formats as the HAL does; always 1.
CAMX_HOOK_EXPORT CamxResult FormatLensPositionDataHook(void* pThis, OISLensPositionData* pLensPositionData,
                                                       unsigned char* pBuffer, unsigned long bufferSize) noexcept;

// Gyro. Moves the timestamp of one randomly chosen sample of each batch back.
CAMX_HOOK_EXPORT CamxResult PostGyroDataHook(void* pThis, NCSSensorType type,
                                             std::vector<sensors_event_t*>& samples) noexcept;

// Pipeline. Turns the frame message the core names ("CSLMessageHandler")
// into an error message before the HAL handles it. Runs for every kernel
// message: allocates nothing while the core names no frame.
CAMX_HOOK_EXPORT void CSLMessageHandlerHook(void* pUserData, CSLMessage* pMessage) noexcept;
// Aborts the camera process on a request whose "velora.video"/"recordControl"
// tag is 1, before the HAL sees it. Runs for every capture request: no
// allocation, no file or property access.
CAMX_HOOK_EXPORT CamxResult ProcessCaptureRequestHook(void* pThis, Camera3CaptureRequest* pRequest) noexcept;

// Adds (isError non-zero) or removes the framework identifier of camera `id`
// in the list of cameras in error, "persist.vendor.camera.errorFrameworkId".
// A plain function for the library's own hooks, exported by name.
CAMX_HOOK_EXPORT void SetErrorFrameworkId(unsigned int id, int isError) noexcept;

}  // namespace CamX
