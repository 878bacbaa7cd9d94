// The message centre for the benchmarks, installed where the library loads
// it from. It answers the two requests of the sensor probe from a fixed
// table, as a phone where the probed sensor is the slot's most-used one:
// sensor "s5kjn1" is of type "type0", and type "type0"'s most probed sensor
// is "s5kjn1" with 100 records. Nothing is recorded, so a run of millions of
// calls keeps its memory flat. Its heap allocations (the reply's entries) are
// counted apart from the library's, through the benchmark program's
// stand-in brackets.
#include <string>

#include "client/interface/message.h"

#define MESSAGE_CENTER_EXPORT extern "C" __attribute__((visibility("default")))

// Provided by the benchmark program; absent elsewhere.
extern "C" void BenchStandInEnter() __attribute__((weak));
extern "C" void BenchStandInLeave() __attribute__((weak));

namespace {

constexpr char kSensorName[] = "s5kjn1";
constexpr char kSensorType[] = "type0";
constexpr int64_t kRecordCount = 100;

struct StandIn {
  StandIn() {
    if (BenchStandInEnter != nullptr) BenchStandInEnter();
  }
  ~StandIn() {
    if (BenchStandInLeave != nullptr) BenchStandInLeave();
  }
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;
};

// The request's text entry `key`, or empty.
std::string Entry(const Message& message, const char* key) {
  const auto it = message.m_data.find(key);
  return it == message.m_data.end() ? std::string() : it->second.GetString();
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
  const StandIn standIn;
  Message scratch;
  Message& answer = reply != nullptr ? *reply : scratch;
  answer.m_name = message.m_name;
  answer.m_data.clear();
  if (message.m_name == "GET_SENSOR_TYPE") {
    if (Entry(message, "sensor_name") == kSensorName) answer.m_data["sensor_type"].SetString(kSensorType);
    return 0;
  }
  if (message.m_name == "GET_MOST_PROBE_SENSOR_NAME") {
    if (Entry(message, "sensor_type") == kSensorType) {
      answer.m_data["sensor_name"].SetString(kSensorName);
      answer.m_data["record_count"].SetInt64(kRecordCount);
    }
    return 0;
  }
  return -1;
}
