#include "sim/framework/simframework.h"

#include <dlfcn.h>

#include <cstdio>
#include <filesystem>
#include <mutex>
#include <utility>

#include "client/interface/message.h"
#include "sim/platform/simdevice.h"

namespace sim::framework {
namespace {

constexpr char kCorePath[] = "/vendor/lib64/com.velora.remedium.core.so";

struct CoreState {
  std::mutex mutex;
  std::map<int32_t, bool> switches;
  std::map<std::string, std::vector<std::string>> arguments;
  bool nullInstance = false;
  int instanceRequests = 0;
  std::vector<CoreNotification> notifications;
  std::vector<CoreCallback> callbacks;
  std::vector<CoreProbeRecord> probeRecords;
  std::vector<int32_t> switchQueries;
  std::vector<std::string> argumentQueries;
};

CoreState& Core() {
  static auto* state = new CoreState;
  return *state;
}

template <typename T>
std::vector<T> Copy(const std::vector<T>& values, size_t from) {
  std::lock_guard<std::mutex> lock(Core().mutex);
  return sim::Tail(values, from);
}

}  // namespace

void ResetCore() {
  std::lock_guard<std::mutex> lock(Core().mutex);
  Core().switches.clear();
  Core().arguments.clear();
  Core().nullInstance = false;
  Core().instanceRequests = 0;
  Core().notifications.clear();
  Core().callbacks.clear();
  Core().probeRecords.clear();
  Core().switchQueries.clear();
  Core().argumentQueries.clear();
}

void SetSwitch(int32_t kind, bool open) {
  std::lock_guard<std::mutex> lock(Core().mutex);
  Core().switches[kind] = open;
}

void SetHookArguments(const std::string& hookName, std::vector<std::string> arguments) {
  std::lock_guard<std::mutex> lock(Core().mutex);
  Core().arguments[hookName] = std::move(arguments);
}

void SetCoreInstanceNull(bool null) {
  std::lock_guard<std::mutex> lock(Core().mutex);
  Core().nullInstance = null;
}

std::vector<CoreNotification> CoreNotifications(size_t from) { return Copy(Core().notifications, from); }
std::vector<CoreCallback> CoreCallbacks(size_t from) { return Copy(Core().callbacks, from); }
std::vector<CoreProbeRecord> CoreProbeRecords(size_t from) { return Copy(Core().probeRecords, from); }
std::vector<int32_t> CoreSwitchQueries(size_t from) { return Copy(Core().switchQueries, from); }
std::vector<std::string> CoreArgumentQueries(size_t from) { return Copy(Core().argumentQueries, from); }

CoreRecords TakeCoreRecords() {
  std::lock_guard<std::mutex> lock(Core().mutex);
  CoreState& core = Core();
  return {std::exchange(core.notifications, {}), std::exchange(core.callbacks, {}),
          std::exchange(core.probeRecords, {}), std::exchange(core.switchQueries, {}),
          std::exchange(core.argumentQueries, {})};
}

int CoreInstanceRequests() {
  std::lock_guard<std::mutex> lock(Core().mutex);
  return Core().instanceRequests;
}

std::string LibraryDir() {
  Dl_info info{};
  dladdr(reinterpret_cast<void*>(&LibraryDir), &info);
  return std::filesystem::path(info.dli_fname).parent_path().string();
}

void InstallCore() { sim::LinkDeviceFile(kCorePath, LibraryDir() + "/com.velora.remedium.core.so"); }

void InstallCoreWithoutEntry() { sim::LinkDeviceFile(kCorePath, LibraryDir() + "/simremediumcore_noentry.so"); }

void RemoveCore() { sim::RemoveDeviceFile(kCorePath); }

namespace {

constexpr char kMessageCenterPath[] = "/vendor/lib64/com.velora.messagecenter.so";

struct MessageCenterState {
  std::mutex mutex;
  std::map<std::string, std::string> sensorTypes;                     // sensor name -> type
  std::map<std::string, std::pair<std::string, int64_t>> mostProbed;  // type -> (name, count)
  std::vector<MessageCenterRequest> requests;
};

MessageCenterState& Centre() {
  static auto* state = new MessageCenterState;
  return *state;
}

}  // namespace

std::string Describe(const CoreCallback& callback) {
  char code[24];
  std::snprintf(code, sizeof(code), "0x%llx", static_cast<unsigned long long>(callback.errorCode));
  return callback.messageType + " " + callback.name + " (" + std::to_string(callback.arg0) + ", " +
         std::to_string(callback.arg1) + ", code " + code + ")";
}

std::string Describe(const MessageCenterRequest& request, bool quoted) {
  std::string text = request.name + "(";
  const char* separator = "";
  for (const auto& [key, value] : request.data) {
    text += separator + key + "=";
    if (value.type == kMessageDataString) {
      text += quoted ? "\"" + value.text + "\"" : value.text;
    } else if (value.type == kMessageDataInt64) {
      text += std::to_string(value.int64Value);
    } else {
      text += std::to_string(value.intValue);
    }
    separator = ", ";
  }
  return text + ")";
}

void ResetMessageCenter() {
  std::lock_guard<std::mutex> lock(Centre().mutex);
  Centre().sensorTypes.clear();
  Centre().mostProbed.clear();
  Centre().requests.clear();
}

void SetSensorType(const std::string& sensorName, const std::string& type) {
  std::lock_guard<std::mutex> lock(Centre().mutex);
  Centre().sensorTypes[sensorName] = type;
}

void SetMostProbedSensor(const std::string& type, const std::string& sensorName, int64_t recordCount) {
  std::lock_guard<std::mutex> lock(Centre().mutex);
  Centre().mostProbed[type] = {sensorName, recordCount};
}

std::vector<MessageCenterRequest> MessageCenterRequests(size_t from) {
  std::lock_guard<std::mutex> lock(Centre().mutex);
  return sim::Tail(Centre().requests, from);
}

std::vector<MessageCenterRequest> TakeMessageCenterRequests() {
  std::lock_guard<std::mutex> lock(Centre().mutex);
  return std::exchange(Centre().requests, {});
}

void InstallMessageCenter() { sim::LinkDeviceFile(kMessageCenterPath, LibraryDir() + "/com.velora.messagecenter.so"); }

void InstallMessageCenterWithoutSend() {
  sim::LinkDeviceFile(kMessageCenterPath, LibraryDir() + "/simmessagecenter_nosend.so");
}

void RemoveMessageCenter() { sim::RemoveDeviceFile(kMessageCenterPath); }

namespace shim {

bool MessageCenterSend(const MessageCenterRequest& request, MessageCenterReply* reply) {
  bool known = true;
  {
    std::lock_guard<std::mutex> lock(Centre().mutex);
    Centre().requests.push_back(request);
    const auto entry = [&request](const std::string& key) {
      const auto it = request.data.find(key);
      return it != request.data.end() ? it->second.text : std::string();
    };
    if (request.name == "GET_SENSOR_TYPE") {
      const auto it = Centre().sensorTypes.find(entry("sensor_name"));
      if (it != Centre().sensorTypes.end()) reply->strings["sensor_type"] = it->second;
    } else if (request.name == "GET_MOST_PROBE_SENSOR_NAME") {
      const auto it = Centre().mostProbed.find(entry("sensor_type"));
      if (it != Centre().mostProbed.end()) {
        reply->strings["sensor_name"] = it->second.first;
        reply->int64s["record_count"] = it->second.second;
      }
    } else {
      known = false;
    }
  }
  std::string answer;
  for (const auto& [key, text] : reply->strings) answer += " " + key + "=" + text;
  for (const auto& [key, number] : reply->int64s) answer += " " + key + "=" + std::to_string(number);
  sim::Record("messagecenter",
              "SendMessage " + Describe(request, false) + " ->" + (answer.empty() ? " (none)" : answer));
  return known;
}

bool IsSwitchOpened(int32_t kind) {
  bool open = false;
  {
    std::lock_guard<std::mutex> lock(Core().mutex);
    Core().switchQueries.push_back(kind);
    auto it = Core().switches.find(kind);
    open = it != Core().switches.end() && it->second;
  }
  sim::Record("core", "IsSwitchOpened(" + std::to_string(kind) + ") -> " + (open ? "true" : "false"));
  return open;
}

void ProtectionCallback(const CoreCallback& callback) {
  {
    std::lock_guard<std::mutex> lock(Core().mutex);
    Core().callbacks.push_back(callback);
  }
  sim::Record("core", "ProtectionCallback(" + callback.name + ", " + callback.messageType + ")");
}

std::vector<std::string> GetHookArguments(const std::string& hookName) {
  std::vector<std::string> arguments;
  {
    std::lock_guard<std::mutex> lock(Core().mutex);
    Core().argumentQueries.push_back(hookName);
    auto it = Core().arguments.find(hookName);
    if (it != Core().arguments.end()) arguments = it->second;
  }
  sim::Record("core", "GetHookArguments(" + hookName + ") -> " + std::to_string(arguments.size()));
  return arguments;
}

void NotifyHookMessage(const CoreNotification& notification) {
  {
    std::lock_guard<std::mutex> lock(Core().mutex);
    Core().notifications.push_back(notification);
  }
  sim::Record("core", "NotifyHookMessage(" + notification.hookName + ", " + std::to_string(notification.value) + ")");
}

void RecordProbeMessage(const std::string& name, bool result) {
  {
    std::lock_guard<std::mutex> lock(Core().mutex);
    Core().probeRecords.push_back({name, result});
  }
  sim::Record("core", "RecordProbeMessage(" + name + ", " + (result ? "true" : "false") + ")");
}

bool InstanceRequested() {
  std::lock_guard<std::mutex> lock(Core().mutex);
  ++Core().instanceRequests;
  return !Core().nullInstance;
}

}  // namespace shim
}  // namespace sim::framework
