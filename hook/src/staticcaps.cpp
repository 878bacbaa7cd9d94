// GetStaticCapsHook: learns which physical slot each camera id sits in.
#include "hook/src/camxlayout.h"
#include "hook/src/globals.h"
#include "hook/src/hook.h"
#include "hook/src/hooklogsites.h"
#include "hook/src/proxyframe.h"

namespace CamX {

CamxResult GetStaticCapsHook(void* pThis, SensorModuleStaticCaps* pStaticCaps, CSLSensorCapability* pSensorCapability,
                             TuningDataManager* pTuningManager, unsigned int cameraId) noexcept {
  CAMX_PROXY_FRAME(frame);
  const CamxResult result =
      frame.CallPrevious(&GetStaticCapsHook, pThis, pStaticCaps, pSensorCapability, pTuningManager, cameraId);
  const uint32_t slotId = Layout::Read(pStaticCaps, Layout::kStaticCapsSlotId);
  REMEDIUM_LOG(StaticCapsSlot, cameraId, slotId);
  // Out-of-range ids are logged above and otherwise ignored; an older entry stays.
  if (cameraId < kMaxCameraId && slotId < kMaxCameraId) {
    cameraSlotIds[cameraId].store(slotId, std::memory_order_relaxed);
  }
  return result;
}

}  // namespace CamX
