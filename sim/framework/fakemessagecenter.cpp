// The fake message centre library ("com.velora.messagecenter.so" in the
// simulated device). It reads the request record and writes the reply record
// through the same Message and MessageData declarations the hook library uses
// (their layout is the contract between the two), and leaves the answering
// and recording to libsimframework.
#include "client/interface/message.h"
#include "sim/framework/simframework.h"

#define MESSAGE_CENTER_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

namespace fw = sim::framework;

fw::MessageCenterValue Read(const MessageData& data) {
  return {data.GetType(), data.GetString(), data.GetInt(), data.GetInt64()};
}

}  // namespace

// The hook library looks these up and never calls them.
MESSAGE_CENTER_EXPORT void MessageCenterSubscribe() { __builtin_trap(); }
MESSAGE_CENTER_EXPORT void MessageCenterModifySubscribe() { __builtin_trap(); }
MESSAGE_CENTER_EXPORT void MessageCenterUnsubscribe() { __builtin_trap(); }
MESSAGE_CENTER_EXPORT void MessageCenterSendMessageAsync() { __builtin_trap(); }

// Answers synchronously: the reply record is replaced by the answer (its name
// becomes the request's, its entries only the answered ones). Returns 0 for a
// request the centre knows, -1 otherwise.
MESSAGE_CENTER_EXPORT int MessageCenterSendMessage(Message message, Message* reply) {
  fw::MessageCenterRequest request{message.m_name, {}};
  for (const auto& [key, data] : message.m_data) request.data[key] = Read(data);
  fw::MessageCenterReply answer;
  const bool known = fw::shim::MessageCenterSend(request, &answer);
  if (reply != nullptr) {
    reply->m_name = message.m_name;
    reply->m_data.clear();
    for (const auto& [key, text] : answer.strings) reply->m_data[key].SetString(text);
    for (const auto& [key, number] : answer.int64s) reply->m_data[key].SetInt64(number);
  }
  return known ? 0 : -1;
}
