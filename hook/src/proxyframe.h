// The frame every proxy follows. A proxy opens it first thing with
// CAMX_PROXY_FRAME, calls the function it replaced through CallPrevious (the
// previous function is fetched anew at every call), and leaves through the
// frame's destructor, which pops the hook stack in shared mode. Declared
// first, the frame is destroyed last: the pop is the very last action on every
// path, after the result is built and every other local is gone.
#pragma once

#include <utility>

#include <shadowhook.h>

namespace CamX {

class ProxyFrame {
 public:
  // `returnAddress` is the proxy's own return address, with any
  // pointer-authentication bits stripped (clang strips them in
  // __builtin_return_address on arm64).
  explicit ProxyFrame(void* returnAddress) noexcept : m_pReturnAddress(returnAddress) {}
  ~ProxyFrame() {
    if (shadowhook_get_mode() == SHADOWHOOK_MODE_SHARED) shadowhook_pop_stack(m_pReturnAddress);
  }

  ProxyFrame(const ProxyFrame&) = delete;
  ProxyFrame& operator=(const ProxyFrame&) = delete;

  // Calls the function that `proxy` replaced with exactly these arguments.
  template <typename Result, typename... Params, typename... Args>
  Result CallPrevious(Result (*proxy)(Params...), Args&&... args) const {
    auto* previous = reinterpret_cast<Result (*)(Params...)>(shadowhook_get_prev_func(reinterpret_cast<void*>(proxy)));
    return previous(std::forward<Args>(args)...);
  }

 private:
  void* m_pReturnAddress;
};

}  // namespace CamX

// Must be expanded in the proxy itself, so that the return address is the
// proxy's.
#define CAMX_PROXY_FRAME(frame) ::CamX::ProxyFrame frame(__builtin_return_address(0))
