#include "client/interface/messagecenterclient.h"

#include <dlfcn.h>

#include <mutex>

namespace {

template <typename Func>
Func LookUp(void* handle, const char* symbol) {
  return reinterpret_cast<Func>(dlsym(handle, symbol));
}

}  // namespace

MessageCenterClient& MessageCenterClient::GetInstance() {
  static MessageCenterClient s_instance;
  return s_instance;
}

MessageCenterClient::MessageCenterClient() { LoadMessageCenter(); }

// Runs at process exit; takes no lock and leaves the entry pointers as they are.
MessageCenterClient::~MessageCenterClient() {
  if (m_pLibHandle != nullptr) {
    dlclose(m_pLibHandle);
    m_pLibHandle = nullptr;
  }
  m_loaded.store(0, std::memory_order_relaxed);
}

void MessageCenterClient::LoadMessageCenter() {
  // Once loaded, every send answers from here without the lock: the acquire
  // pairs with the release store below, so the entry pointers are seen too.
  if (m_loaded.load(std::memory_order_acquire) > 0) return;
  static std::mutex s_messageCenterMutex;
  std::lock_guard<std::mutex> lock(s_messageCenterMutex);
  if (m_loaded.load(std::memory_order_relaxed) > 0) return;
  if (m_pLibHandle != nullptr) {
    dlclose(m_pLibHandle);
    m_pLibHandle = nullptr;
  }
  m_pLibHandle = dlopen(kMessageCenterLibrary, RTLD_NOW | RTLD_GLOBAL);
  if (m_pLibHandle == nullptr) {
    // OK: the framework's log tools know this failure by the core's text.
    __android_log_print(ANDROID_LOG_ERROR, kMessageCenterLogTag, "m_pRemediumCore is NULL");
    return;
  }
  // Each entry is kept as it comes, null included: a library lacking one
  // still counts as loaded.
  m_pMessageCenterSubscribeFuncPtr = LookUp<MessageCenterSubscribeFunc>(m_pLibHandle, kMessageCenterSubscribeSymbol);
  m_pMessageCenterModifySubscribeFuncPtr =
      LookUp<MessageCenterModifySubscribeFunc>(m_pLibHandle, kMessageCenterModifySubscribeSymbol);
  m_pMessageCenterUnsubscribeFuncPtr =
      LookUp<MessageCenterUnsubscribeFunc>(m_pLibHandle, kMessageCenterUnsubscribeSymbol);
  m_pMessageCenterSendMessageFuncPtr.store(
      LookUp<MessageCenterSendMessageFunc>(m_pLibHandle, kMessageCenterSendMessageSymbol), std::memory_order_release);
  m_pMessageCenterSendMessageAsyncFuncPtr =
      LookUp<MessageCenterSendMessageAsyncFunc>(m_pLibHandle, kMessageCenterSendMessageAsyncSymbol);
  m_loaded.store(1, std::memory_order_release);
}
