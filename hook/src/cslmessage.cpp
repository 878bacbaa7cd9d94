// CSLMessageHandlerHook: on the core's order, turns the frame message of one
// chosen frame into an error message before the HAL handles it, so that the
// HAL's error path runs for that frame.
//
// Runs for every message from the camera kernel. While the core names no
// frame the only work is the core query: its name fits a short string and an
// empty argument list holds no storage, so nothing is allocated, and no file
// or property is touched.
#include <cstdlib>
#include <string>
#include <vector>

#include "client/interface/remediumclient.h"
#include "hook/src/camxlayout.h"
#include "hook/src/corearguments.h"
#include "hook/src/globals.h"
#include "hook/src/hook.h"
#include "hook/src/proxyframe.h"

namespace CamX {

namespace {

constexpr uint32_t kCSLMessageTypeFrame = 0;
constexpr uint32_t kCSLMessageTypeError = 1;
// The error the converted message carries, as the HAL's error path reads it.
constexpr uint32_t kInjectedErrorCode = 5;
constexpr uint32_t kInjectedErrorWord = 0x2000;
static_assert(kInjectedErrorWord == 8192);

// The once-per-process notification names the proxy.
constexpr char kNotificationName[] = "CSLMessageHandlerHook";
#ifdef _LIBCPP_VERSION
// libc++ keeps up to sizeof(std::string) - 2 characters inside the string.
static_assert(sizeof(coreargument::kCSLMessageHandler) <= sizeof(std::string) - 1, "the query name must not allocate");
#endif

}  // namespace

void CSLMessageHandlerHook(void* pUserData, CSLMessage* pMessage) noexcept {
  CAMX_PROXY_FRAME(frame);
  // Built once: the core is asked for every kernel message.
  static const std::string s_argumentsName(coreargument::kCSLMessageHandler);
  const std::vector<std::string> arguments = RemediumClient::GetHookArguments(s_argumentsName);
  if (!arguments.empty()) {
    // A non-number reads as 0, which turns the conversion off.
    const auto frameValue = static_cast<uint64_t>(atoll(arguments[0].c_str()));
    if (pUserData != nullptr && pMessage != nullptr && frameValue != 0 &&
        Layout::Read(pMessage, Layout::kCSLMessageType) == kCSLMessageTypeFrame &&
        Layout::Read(pMessage, Layout::kCSLMessageFrameValue) == frameValue) {
      // Every matching message is converted; only the first is reported.
      Layout::Write(pMessage, Layout::kCSLMessageType, kCSLMessageTypeError);
      Layout::Write(pMessage, Layout::kCSLMessageErrorCode, kInjectedErrorCode);
      Layout::Write(pMessage, Layout::kCSLMessageErrorWord, kInjectedErrorWord);
      NotifyHookOnce(hookNotified.cslMessageHandler, kNotificationName);
    }
  }
  frame.CallPrevious(&CSLMessageHandlerHook, pUserData, pMessage);
}

}  // namespace CamX
