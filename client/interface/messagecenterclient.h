// Process-wide client of the maker's message centre, a separate library with
// one plain C entry point per operation. The library is loaded on first use
// and the load is retried before every send until it succeeds; a library that
// opened counts as loaded even when an entry point is missing, and is never
// looked up again.
//
// Only the synchronous send is used here; the other four entry points are
// looked up (the message centre's contract lists all five) and never called.
#pragma once

#include <atomic>
#include <cstdint>

#include <android/log.h>

#include "client/interface/message.h"

inline constexpr char kMessageCenterLibrary[] = "/vendor/lib64/com.velora.messagecenter.so";
inline constexpr char kMessageCenterLogTag[] = "[MESSAGECENTER]";

// Entry points, in the order they are looked up.
inline constexpr char kMessageCenterSubscribeSymbol[] = "MessageCenterSubscribe";
inline constexpr char kMessageCenterModifySubscribeSymbol[] = "MessageCenterModifySubscribe";
inline constexpr char kMessageCenterUnsubscribeSymbol[] = "MessageCenterUnsubscribe";
inline constexpr char kMessageCenterSendMessageSymbol[] = "MessageCenterSendMessage";
inline constexpr char kMessageCenterSendMessageAsyncSymbol[] = "MessageCenterSendMessageAsync";

// "MessageCenterSendMessage": a synchronous request. The centre takes the
// request by value (the caller builds the copy and destroys it after the call)
// and fills `reply`, the caller's answer record, before it returns. The result
// is the centre's status (0 when it answered); this library does not use it.
using MessageCenterSendMessageFunc = int (*)(Message message, Message* reply);
// The subscription and asynchronous entry points are never called here; their
// parameter lists belong to the message centre, so they are kept opaque.
using MessageCenterSubscribeFunc = void (*)();
using MessageCenterModifySubscribeFunc = void (*)();
using MessageCenterUnsubscribeFunc = void (*)();
using MessageCenterSendMessageAsyncFunc = void (*)();

class MessageCenterClient {
 public:
  // The instance; the first call builds it and tries the first load.
  static MessageCenterClient& GetInstance();

  // Opens the message-centre library and looks up its entry points, unless
  // already done. A failed open logs one ERROR line and is retried next time.
  void LoadMessageCenter();

  // Sends a copy of `message` synchronously; the message centre writes its
  // answer into `reply`. Without a send entry point nothing is sent, `reply`
  // is left as it was and one ERROR line is logged.
  static void SendMessage(const Message& message, Message* reply) {
    MessageCenterClient& client = GetInstance();
    client.LoadMessageCenter();
    const MessageCenterSendMessageFunc send = client.m_pMessageCenterSendMessageFuncPtr.load(std::memory_order_acquire);
    if (send == nullptr) {
      __android_log_print(ANDROID_LOG_ERROR, kMessageCenterLogTag, "m_pMessageCenterSendMessageFuncPtr is NULL");
      return;
    }
    send(message, reply);  // the by-value parameter takes its own copy
  }

  MessageCenterClient(const MessageCenterClient&) = delete;
  MessageCenterClient& operator=(const MessageCenterClient&) = delete;

 private:
  MessageCenterClient();
  ~MessageCenterClient();

  // Written under the load lock; the send pointer is read by senders without
  // it, so it is atomic (the others are never read outside the lock).
  std::atomic<int32_t> m_loaded{0};
  void* m_pLibHandle = nullptr;
  MessageCenterSubscribeFunc m_pMessageCenterSubscribeFuncPtr = nullptr;
  MessageCenterModifySubscribeFunc m_pMessageCenterModifySubscribeFuncPtr = nullptr;
  MessageCenterUnsubscribeFunc m_pMessageCenterUnsubscribeFuncPtr = nullptr;
  std::atomic<MessageCenterSendMessageFunc> m_pMessageCenterSendMessageFuncPtr{nullptr};
  MessageCenterSendMessageAsyncFunc m_pMessageCenterSendMessageAsyncFuncPtr = nullptr;
};

static_assert(std::atomic<int32_t>::is_always_lock_free && sizeof(std::atomic<int32_t>) == 4);
static_assert(std::atomic<MessageCenterSendMessageFunc>::is_always_lock_free &&
              sizeof(std::atomic<MessageCenterSendMessageFunc>) == sizeof(void*));
