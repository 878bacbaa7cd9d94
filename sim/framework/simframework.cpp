#include "simframework.h"

#include <dlfcn.h>

#include <filesystem>
#include <mutex>

#include "simdevice.h"

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
std::vector<T> Copy(const std::vector<T>& values) {
  std::lock_guard<std::mutex> lock(Core().mutex);
  return values;
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

std::vector<CoreNotification> CoreNotifications() { return Copy(Core().notifications); }
std::vector<CoreCallback> CoreCallbacks() { return Copy(Core().callbacks); }
std::vector<CoreProbeRecord> CoreProbeRecords() { return Copy(Core().probeRecords); }
std::vector<int32_t> CoreSwitchQueries() { return Copy(Core().switchQueries); }
std::vector<std::string> CoreArgumentQueries() { return Copy(Core().argumentQueries); }

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

void InstallCoreWithoutEntry() {
  sim::LinkDeviceFile(kCorePath, LibraryDir() + "/simremediumcore_noentry.so");
}

void RemoveCore() { sim::RemoveDeviceFile(kCorePath); }

namespace shim {

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
  sim::Record("core", "NotifyHookMessage(" + notification.hookName + ", " +
                          std::to_string(notification.value) + ")");
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
