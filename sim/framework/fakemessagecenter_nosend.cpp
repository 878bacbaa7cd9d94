// A message centre library that lacks the "MessageCenterSendMessage" entry.
#define MESSAGE_CENTER_EXPORT extern "C" __attribute__((visibility("default")))

MESSAGE_CENTER_EXPORT void MessageCenterSubscribe() { __builtin_trap(); }
MESSAGE_CENTER_EXPORT void MessageCenterModifySubscribe() { __builtin_trap(); }
MESSAGE_CENTER_EXPORT void MessageCenterUnsubscribe() { __builtin_trap(); }
MESSAGE_CENTER_EXPORT void MessageCenterSendMessageAsync() { __builtin_trap(); }
