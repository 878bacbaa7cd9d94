// Scriptable fakes of the framework: the Remedium core and the message
// centre. The scripting state and the records live here, in a library the
// test program links; the core and message-centre libraries that the hook
// library dlopens are thin shims over it, installed into the device root on
// request.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace sim::framework {

struct CoreNotification {
  std::string hookName;
  int32_t value;
};

struct CoreCallback {
  uint32_t arg0;
  uint32_t arg1;
  uint64_t errorCode;
  std::string name;
  std::string messageType;
};

// "<messageType> <name> (<arg0>, <arg1>, code 0x<errorCode>)", as the scenario summary lists it.
std::string Describe(const CoreCallback& callback);

struct CoreProbeRecord {
  std::string name;
  bool result;
};

// Forgets switches, arguments, records and the null-instance setting.
void ResetCore();
void SetSwitch(int32_t kind, bool open);
void SetHookArguments(const std::string& hookName, std::vector<std::string> arguments);
// RemediumGetInstance returns null (a core without a usable instance).
void SetCoreInstanceNull(bool null);

// The records from the `from`-th on.
std::vector<CoreNotification> CoreNotifications(size_t from = 0);
std::vector<CoreCallback> CoreCallbacks(size_t from = 0);
std::vector<CoreProbeRecord> CoreProbeRecords(size_t from = 0);
// Every switch kind and hook name the core was asked about, in order.
std::vector<int32_t> CoreSwitchQueries(size_t from = 0);
std::vector<std::string> CoreArgumentQueries(size_t from = 0);
// The records so far, which are then forgotten.
struct CoreRecords {
  std::vector<CoreNotification> notifications;
  std::vector<CoreCallback> callbacks;
  std::vector<CoreProbeRecord> probeRecords;
  std::vector<int32_t> switchQueries;
  std::vector<std::string> argumentQueries;
};
CoreRecords TakeCoreRecords();
// How often the core library's entry was called (once per successful load).
int CoreInstanceRequests();

// Installs the fake core at "/vendor/lib64/com.velora.remedium.core.so" of the
// device root (a link to the library built next to this one), or a core
// library without the "RemediumGetInstance" entry, or removes it.
void InstallCore();
void InstallCoreWithoutEntry();
void RemoveCore();

// The fake message centre ("com.velora.messagecenter.so"). It answers
// "GET_SENSOR_TYPE" (request "sensor_name", reply "sensor_type") and
// "GET_MOST_PROBE_SENSOR_NAME" (request "sensor_type", reply "sensor_name" and
// the 64-bit "record_count") from what a test configured, and records every
// request. A reply holds only the answered entries: a sensor or type that was
// not configured gets an empty reply.

// One data entry of a request, as the message centre read it.
struct MessageCenterValue {
  uint32_t type;  // MessageDataType (client/interface/message.h)
  std::string text;
  uint32_t intValue;
  int64_t int64Value;
};

struct MessageCenterRequest {
  std::string name;
  std::map<std::string, MessageCenterValue> data;
};

// The answer written into the caller's reply record.
struct MessageCenterReply {
  std::map<std::string, std::string> strings;
  std::map<std::string, int64_t> int64s;
};

// "GET_SENSOR_TYPE(sensor_name=s5kgm2_rear)"; `quoted`: text values in quotes.
std::string Describe(const MessageCenterRequest& request, bool quoted);

// Forgets the configured answers and the recorded requests.
void ResetMessageCenter();
void SetSensorType(const std::string& sensorName, const std::string& type);
void SetMostProbedSensor(const std::string& type, const std::string& sensorName, int64_t recordCount);
std::vector<MessageCenterRequest> MessageCenterRequests(size_t from = 0);
std::vector<MessageCenterRequest> TakeMessageCenterRequests();  // the requests so far, which are then forgotten

// Installs the fake message centre at "/vendor/lib64/com.velora.messagecenter.so"
// of the device root, or one lacking "MessageCenterSendMessage", or removes it.
void InstallMessageCenter();
void InstallMessageCenterWithoutSend();
void RemoveMessageCenter();

// Used by the core shim and the message-centre shim.
namespace shim {
// Records the request and fills `reply`; false for a request it does not know.
bool MessageCenterSend(const MessageCenterRequest& request, MessageCenterReply* reply);
bool IsSwitchOpened(int32_t kind);
void ProtectionCallback(const CoreCallback& callback);
std::vector<std::string> GetHookArguments(const std::string& hookName);
void NotifyHookMessage(const CoreNotification& notification);
void RecordProbeMessage(const std::string& name, bool result);
bool InstanceRequested();  // counts the request; returns false for a null instance
}  // namespace shim

// The folder holding the simulated platform's libraries.
std::string LibraryDir();

}  // namespace sim::framework
