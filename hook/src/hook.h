// The exported proxies. Each has exactly the parameter list of the HAL function
// it replaces, so that its C++ name is the one the framework core looks up.
// exports.map pins this set; nothing else leaves the library.
#pragma once

#include "hook/src/camxhal.h"

#define CAMX_HOOK_EXPORT __attribute__((visibility("default")))

namespace CamX {

// Records the slot id of each camera id in cameraSlotIds.
CAMX_HOOK_EXPORT CamxResult GetStaticCapsHook(void* pThis, SensorModuleStaticCaps* pStaticCaps,
                                              CSLSensorCapability* pSensorCapability,
                                              TuningDataManager* pTuningManager,
                                              unsigned int cameraId) noexcept;

}  // namespace CamX
