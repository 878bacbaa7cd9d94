// The fake framework core library ("com.velora.remedium.core.so" in the
// simulated device). Its object is declared here independently of the hook
// library's view of the core, slot by slot, so that a slot-order mistake in
// the library shows up as a wrong call in the tests.
#include <cstdint>
#include <string>
#include <vector>

#include "sim/framework/simframework.h"

namespace {

// The core's records, as the core declares them.
struct HookNotificationRecord {
  std::string hookName;
  int32_t value;
};

struct CallbackMessageRecord {
  uint32_t arg0;
  uint32_t arg1;
  uint64_t errorCode;
  std::string name;
  std::string messageType;
};

namespace shim = sim::framework::shim;

}  // namespace

// The core's own class; the entry's type names it, as the core declares it.
class RemediumCore {
 public:
  virtual ~RemediumCore() = default;                                                // slots 0, 1
  virtual bool IsSwitchOpened(int32_t kind) { return shim::IsSwitchOpened(kind); }  // slot 2
  virtual void ProtectionCallback(const CallbackMessageRecord& m) {                 // slot 3
    shim::ProtectionCallback({m.arg0, m.arg1, m.errorCode, m.name, m.messageType});
  }
  virtual void Slot4() { __builtin_trap(); }                                    // slot 4
  virtual std::vector<std::string> GetHookArguments(const std::string& hook) {  // slot 5
    return shim::GetHookArguments(hook);
  }
  virtual void Slot6() { __builtin_trap(); }                         // slot 6
  virtual void NotifyHookMessage(const HookNotificationRecord& n) {  // slot 7
    shim::NotifyHookMessage({n.hookName, n.value});
  }
  virtual void Slot8() { __builtin_trap(); }                               // slot 8
  virtual void Slot9() { __builtin_trap(); }                               // slot 9
  virtual void Slot10() { __builtin_trap(); }                              // slot 10
  virtual void RecordProbeMessage(const std::string& name, bool result) {  // slot 11
    shim::RecordProbeMessage(name, result);
  }
};

extern "C" __attribute__((visibility("default"))) RemediumCore* RemediumGetInstance() {
  static RemediumCore s_core;
  return shim::InstanceRequested() ? &s_core : nullptr;
}
