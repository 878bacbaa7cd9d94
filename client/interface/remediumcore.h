// The framework core's polymorphic interface, as far as this library calls it,
// and the records passed to it. The core library owns the object; the vtable
// slot of each operation is part of the binary contract with the core.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Passed to NotifyHookMessage when a proxy reports its first call.
struct HookNotification {
  std::string hookName;  // the proxy's name without namespace
  int32_t value;         // the proxies pass 1
};

// Passed to ProtectionCallback.
struct CallbackMessage {
  uint32_t arg0;
  uint32_t arg1;
  uint64_t errorCode;
  std::string name;
  std::string messageType;  // "CallbackMessageType::Error" or "CallbackMessageType::Protection"
};

inline constexpr char kCallbackMessageTypeError[] = "CallbackMessageType::Error";
inline constexpr char kCallbackMessageTypeProtection[] = "CallbackMessageType::Protection";

// Contract values of the framework core. The switch the sensor probe asks
// before it bypasses a failing most-used sensor.
inline constexpr int32_t kSensorBypassSwitch = 2;
// The protection report of a bypassed sensor probe: both words 2, and the
// event code with the camera id in bits 24 and up.
inline constexpr uint32_t kSensorBypassArg0 = 2;
inline constexpr uint32_t kSensorBypassArg1 = 2;
inline constexpr uint64_t kSensorBypassEventCode = 0x201000;
// The error report of a skipped sensor initialisation whose slot had an
// EEPROM probed: words 1 and 2, and the event code with the low four bits of
// the slot id in bits 24 to 27.
inline constexpr uint32_t kInitSkipArg0 = 1;
inline constexpr uint32_t kInitSkipArg1 = 2;
inline constexpr uint32_t kInitSkipEventCode = 0x201008;
inline constexpr int kEventCodeIdShift = 24;

// Slot order matters; the operations marked "core's own" belong to the core
// and are never called from here.
class RemediumCore {
 public:
  virtual void CoreOwnSlot0() = 0;                                                     // slot 0
  virtual void CoreOwnSlot1() = 0;                                                     // slot 1
  virtual bool IsSwitchOpened(int32_t kind) = 0;                                       // slot 2
  virtual void ProtectionCallback(const CallbackMessage& message) = 0;                 // slot 3
  virtual void CoreOwnSlot4() = 0;                                                     // slot 4
  virtual std::vector<std::string> GetHookArguments(const std::string& hookName) = 0;  // slot 5
  virtual void CoreOwnSlot6() = 0;                                                     // slot 6
  virtual void NotifyHookMessage(const HookNotification& notification) = 0;            // slot 7
  virtual void CoreOwnSlot8() = 0;                                                     // slot 8
  virtual void CoreOwnSlot9() = 0;                                                     // slot 9
  virtual void CoreOwnSlot10() = 0;                                                    // slot 10
  virtual void RecordProbeMessage(const std::string& name, bool result) = 0;           // slot 11

 protected:
  ~RemediumCore() = default;  // OK: the core owns and destroys its object
};

// Signature of the core library's "RemediumGetInstance".
using RemediumGetInstanceFunc = RemediumCore* (*)();
