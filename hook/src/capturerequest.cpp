// ProcessCaptureRequestHook: a capture request whose settings carry the
// record-control vendor tag set to 1 aborts the camera process on purpose,
// before the HAL sees the request. Any other request passes unchanged.
//
// Runs once per frame: one vendor-tag query and one metadata lookup; no
// allocation, no file or property access, no log line.
#include <csignal>

#include <system/camera_metadata.h>

#include "hook/src/camxlayout.h"
#include "hook/src/hook.h"
#include "hook/src/proxyframe.h"

namespace CamX {

namespace {

constexpr char kRecordControlSection[] = "velora.video";
constexpr char kRecordControlTag[] = "recordControl";
constexpr uint8_t kRecordControlAbort = 1;

}  // namespace

CamxResult ProcessCaptureRequestHook(void* pThis, Camera3CaptureRequest* pRequest) noexcept {
  CAMX_PROXY_FRAME(frame);
  uint32_t location = 0;
  // Resolved at every request, never cached. OK: the result is not checked;
  // an unknown tag leaves location 0 and tag 0 is looked up instead.
  VendorTagManager::QueryVendorTagLocation(kRecordControlSection, kRecordControlTag, &location);
  auto* settings = pRequest != nullptr
                       ? static_cast<camera_metadata_t*>(Layout::Read(pRequest, Layout::kCaptureRequestSettings))
                       : nullptr;
  // A request without settings, a tag not present or a tag without values
  // passes unchanged. Almost every request is one without the tag: its
  // failed lookup leaves at once, before the entry is looked at.
  camera_metadata_entry_t entry;  // filled by a successful lookup only
  if (settings != nullptr && __builtin_expect(find_camera_metadata_entry(settings, location, &entry) == 0, 0)) {
    if (entry.count > 0 && entry.data.u8 != nullptr && entry.data.u8[0] == kRecordControlAbort) {
      // Does not return unless a SIGABRT handler does; the request then goes on.
      raise(SIGABRT);
    }
  }
  return frame.CallPrevious(&ProcessCaptureRequestHook, pThis, pRequest);
}

}  // namespace CamX
