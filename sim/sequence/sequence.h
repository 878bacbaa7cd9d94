// Call sequences: a compact model of what can happen to the simulated phone
// (HAL calls through the proxies, the framework and files changing, restarts
// and reboots), read from and written to bytes the way the call-sequence
// fuzzer reads its input, turned into a scenario file for remedium-sim, and
// played directly on a phone with the library's invariants checked after
// every operation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sim/harness/catalogue.h"

namespace sim::scenario {
struct Scenario;
}

namespace sim::sequence {

// Small pools, so that probe histories and per-name records build up.
extern const std::vector<std::string> kSensors;
extern const std::vector<std::string> kEeproms;
extern const std::vector<std::string> kActuators;
extern const std::vector<std::string> kPropertyKeys;

inline constexpr uint32_t kMaxCamera = 17;
inline constexpr size_t kMaxOps = 64;

struct Op {
  enum class Kind : uint8_t {
    kCall,              // a proxy of the catalogue (or CamX::SetErrorFrameworkId)
    kCore,              // framework core: 0 removed, 1 installed
    kSwitch,            // core switch `number` open (`flag`) or closed
    kHookArguments,     // core arguments of hook `name`: `texts`
    kMessageCenter,     // 0 removed, 1 installed, 2 without its send entry
    kSensorType,        // message centre: sensor `name` has type `text`
    kMostProbed,        // message centre: type `text` answers sensor `name`, `number` records
    kProperty,          // property `name` set to `text`, or removed (`flag` false)
    kKernelParameter,   // the kernel parameter file: `number` = 0 absent, else a text `text`
    kOverrideSettings,  // the override-settings file: `flag` false absent, else `text`
    kRestart,           // camera-service restart: a fresh process, properties kept
    kReboot,            // reboot: a fresh process, only "persist." properties kept
  };
  Kind kind = Kind::kCall;
  // kCall: the catalogue entry, its arguments and the HAL's scripted outcome.
  size_t entry = 0;
  CallArgs args;
  int32_t hal = 0;
  std::optional<int64_t> kernel;
  int32_t isError = 0;  // SetErrorFrameworkId
  // Everything else.
  std::string name, text;
  std::vector<std::string> texts;
  int64_t number = 0;
  bool flag = false;
};

// Bytes to operations (at most kMaxOps), as the fuzzer reads them with
// FuzzedDataProvider, and operations back to bytes that read as the same.
std::vector<Op> Decode(const uint8_t* data, size_t size);
std::vector<uint8_t> Encode(const std::vector<Op>& ops);
// One line per operation: "SensorProbe(camera 0, s5kgm2_rear) hal 0 kernel 0".
std::string Describe(const Op& op);

// A bundled scenario as operations (a seed input): its setup, then its steps
// with every repetition; names outside the pools map onto the pools.
std::vector<Op> FromScenario(const scenario::Scenario& scenario);
// Operations as a scenario file remedium-sim plays (JSON text).
std::string ToScenarioJson(const std::vector<Op>& ops, const std::string& name);

// What a played sequence is checked against after every operation. The
// handler gets "operation 3 (SensorProbe(camera 0, ...)): invariant ...";
// the default aborts.
struct PlayHooks {
  std::function<void(const std::string& message)> violation;
  // Called before the camera process ends (a restart, a reboot, the end).
  std::function<void()> beforeProcessEnds;
  // Test-only fault: after operation `leakAfter`, a descriptor is left open.
  std::optional<size_t> leakAfter;
};

// Plays `ops` on a fresh phone, checking the invariants after each one.
// Returns the number of operations played.
size_t Play(const std::vector<Op>& ops, const PlayHooks& hooks = {});

}  // namespace sim::sequence
