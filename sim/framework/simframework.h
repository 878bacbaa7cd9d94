// Scriptable fakes of the framework: the Remedium core (and, later, the
// message centre). The scripting state and the records live here, in a
// library the test program links; the core library that the hook library
// dlopens is a thin shim over it, installed into the device root on request.
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

std::vector<CoreNotification> CoreNotifications();
std::vector<CoreCallback> CoreCallbacks();
std::vector<CoreProbeRecord> CoreProbeRecords();
// Every switch kind and hook name the core was asked about, in order.
std::vector<int32_t> CoreSwitchQueries();
std::vector<std::string> CoreArgumentQueries();
// How often the core library's entry was called (once per successful load).
int CoreInstanceRequests();

// Installs the fake core at "/vendor/lib64/com.velora.remedium.core.so" of the
// device root (a link to the library built next to this one), or a core
// library without the "RemediumGetInstance" entry, or removes it.
void InstallCore();
void InstallCoreWithoutEntry();
void RemoveCore();

// Used by the core shim.
namespace shim {
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
