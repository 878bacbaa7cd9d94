// The hook catalogue: every function the hook library exports, with what the
// simulator and the tests need to know of it, in one table. Each proxy's type
// is taken from hook/src/hook.h, so a changed parameter list fails to compile
// here; the exported names are checked against the built library and against
// hook/exports.map by the exports test.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "hook/src/hook.h"

namespace sim {

// The exported type of the proxy of HAL function `name`, as hook.h declares
// it: SIM_PROXY_TYPE(SensorProbe) is the type of CamX::SensorProbeHook.
#define SIM_PROXY_TYPE(name) std::remove_pointer_t<decltype(&CamX::name##Hook)>

// The arguments of one simulated HAL call; a call uses those its entry lists.
struct CallArgs {
  std::optional<uint32_t> camera;  // unset with cameraAbsent: no camera id
  bool cameraAbsent = false;
  std::optional<uint32_t> slot;
  std::string sensor;
  std::string eeprom;
  std::optional<std::string> actuator;  // unset: a null name pointer
  uint32_t opcode = 0;
  uint32_t slaveAddress = 0;
  std::vector<int64_t> timestamps;
  int32_t sensorType = 1;
  bool dataNull = false;  // EEPROMVerifyChecksum: `dataLength` bytes of `fill`, or none
  uint32_t dataLength = 1024;
  uint8_t fill = 0xFF;
  std::optional<int32_t> size;  // unset: the data length
  uint32_t messageType = 0;     // CSLMessageHandler
  uint64_t messageValue = 0;
  bool messageNull = false;
  bool userDataNull = false;
  std::optional<uint8_t> recordControl;  // ProcessCaptureRequest
  bool tagRegistered = true;
  std::optional<uint8_t> tagZero;
  int32_t isError = 0;  // SetErrorFrameworkId
};

// What a scenario may give a call, by kind: sim/scenario/arguments.cpp
// describes each (key, JSON, bytes, title); sim/scenarios/README.md lists
// them per function.
enum class Arg {
  kCamera,          // "camera": a camera of the device
  kCameraOrNull,    // "camera": a camera, or null for a HAL object without one
  kBringUpCamera,   // "camera": a camera below 16 (the library traps beyond its slot table)
  kSubmitCamera,    // "camera": as kBringUpCamera for opcodes 2 and 4, else any camera
  kModuleCamera,    // optional "camera": names the default module only, not passed on
  kSlot,            // "slot": default the camera's
  kSensor,          // "sensor": default the camera's first
  kEeprom,          // "eeprom": default the camera's first
  kActuator,        // "actuator": default the camera's first; null: no name
  kOpcode,          // "opcode": required
  kSlaveAddress,    // "slaveAddress": required, 32-bit
  kSlaveAddress16,  // "slaveAddress": required, 16-bit
  kData,            // "data": {"length", "fill"} or null
  kSize,            // "size": default the data length
  kTimestamps,      // "timestamps": required, at most 4096
  kSensorType,      // "sensorType": default 1
  kMessage,         // "message": required, {"type", "value"} or null
  kUserData,        // "userData": false for null
  kRecordControl,   // "recordControl": a byte; absent or null: no settings
  kTagRegistered,   // "tagRegistered": default true
  kTagZero,         // "tagZero": a byte at tag 0
  kKernel,          // "kernel": SensorProbe's kernel result per call
  kIsError,         // "isError": SetErrorFrameworkId's second parameter
};

// A name the proxy asks the framework core's GetHookArguments for
// (hook/src/corearguments.h), and the values each position of the answer
// takes that reach the proxy's branches: the fuzzer draws from them, and
// from any text where `anyText` allows (not for a delay, which could stall
// the camera process for an hour).
struct CoreArgument {
  const char* name;
  std::vector<std::vector<std::string>> positions;  // the last serves every position after it
  bool anyText;
};

// A value the HAL side showed after a call.
using Fields = std::vector<std::pair<std::string, int64_t>>;
using Value = std::variant<int64_t, bool, std::vector<int64_t>, Fields>;

// How a scenario writes and the checker compares one observed field.
enum class FieldKind {
  kNumber,     // equal
  kAddress,    // equal; shown in hexadecimal
  kFlag,       // true or false
  kNumbers,    // an equal list
  kMessage,    // the given members equal
  kAtLeastUs,  // at least this many microseconds
};
struct FieldSpec {
  const char* key;
  FieldKind kind;
};

// What a call returned and what the HAL side showed, in the order a report
// lists them ("result" first when the function returns something).
struct Observed {
  std::vector<std::pair<std::string, Value>> fields;
  void Set(const std::string& key, Value value);
  const Value* Find(const std::string& key) const;
};

struct CatalogueEntry {
  const char* name;     // "GetStaticCapsHook"
  const char* mangled;  // the exported symbol
  void* halFunction;    // the simulated HAL function it is installed over; null: none
  // For scenarios: the HAL function's name (for CamX::SetErrorFrameworkId
  // its own), which a step's "call" gives, the arguments, the HAL-side
  // fields beyond "result" and "halCalls", and the call itself through the
  // proxy.
  const char* call;
  bool returnsNothing;
  std::vector<Arg> args;
  std::vector<FieldSpec> fields;
  Observed (*invoke)(void* proxy, const CallArgs& args);
  std::vector<CoreArgument> coreArguments = {};  // the core arguments the proxy reads
};

const std::vector<CatalogueEntry>& Catalogue();
// By proxy name ("SensorProbeHook") or by call name ("SensorProbe"); null when unknown.
const CatalogueEntry* FindCatalogueEntry(const std::string& name);
const CatalogueEntry* FindCall(const std::string& call);
// Every core argument some proxy reads, once each, in catalogue order; null when unknown.
std::vector<const CoreArgument*> CoreArguments();
const CoreArgument* FindCoreArgument(const std::string& name);
// The demangled C++ name of the exported symbol.
std::string Signature(const CatalogueEntry& entry);
// "0x1a".
std::string Hex(uint64_t value);

}  // namespace sim
