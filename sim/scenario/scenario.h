// A scenario: the simulated phone (cameras, override settings, properties,
// kernel parameter, framework core, message centre), the HAL calls to play on
// it, and what the library is expected to do. Scenarios are JSON files; the
// format is described in sim/scenarios/README.md.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace sim::scenario {

using Json = nlohmann::ordered_json;

// One camera of the device: the HAL's camera id, the slot its static caps
// report, and the names of the modules that may sit behind it.
struct Camera {
  uint32_t id = 0;
  uint32_t slot = 0;
  std::string role;
  std::vector<std::string> sensors;
  std::vector<std::string> eeproms;
  std::vector<std::string> actuators;
};

// The framework core library ("/vendor/lib64/com.velora.remedium.core.so").
struct CoreSetup {
  bool present = true;
  std::map<int32_t, bool> switches;
  std::map<std::string, std::vector<std::string>> hookArguments;
};

// The message-centre library and its answers.
struct MostProbed {
  std::string sensor;
  int64_t recordCount = 0;
};
struct MessageCenterSetup {
  bool present = true;
  bool withSend = true;                            // false: the library lacks "MessageCenterSendMessage"
  std::map<std::string, std::string> sensorTypes;  // sensor name -> type
  std::map<std::string, MostProbed> mostProbed;    // type -> answer
};

// The kernel module parameter: absent, or the text the driver shows.
struct KernelParameter {
  bool present = true;
  std::string text;
};

// Changes between steps ("set"); every member is optional.
struct Changes {
  std::optional<CoreSetup> core;                                 // replaces the core's setup
  std::optional<MessageCenterSetup> messageCenter;               // replaces the centre's setup
  std::map<std::string, std::optional<std::string>> properties;  // null removes
  std::optional<KernelParameter> kernelParameter;
  std::optional<std::optional<std::string>> overrideSettings;  // inner null removes the file
  std::optional<int64_t> bootTime;
};

// The arguments of one HAL call, as the scenario gives them; only those that
// the call's function takes are set.
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
  // EEPROMVerifyChecksum: a buffer of `dataLength` bytes of `fill`, or none.
  bool dataNull = false;
  uint32_t dataLength = 1024;
  uint8_t fill = 0xFF;
  int32_t size = 1024;
  // CSLMessageHandler.
  uint32_t messageType = 0;
  uint64_t messageValue = 0;
  bool userDataNull = false;
  bool messageNull = false;
  // ProcessCaptureRequest.
  std::optional<uint8_t> recordControl;
  bool tagRegistered = true;
  std::optional<uint8_t> tagZero;
};

struct Step {
  enum class Kind { kCall, kRestart, kReboot, kSet };
  Kind kind = Kind::kCall;
  std::string path;  // "steps[3]"
  std::string note;
  // kCall
  std::string function;
  CallArgs args;
  std::vector<int32_t> hal;                    // scripted results, in call order
  bool halRepeats = false;                     // a single value: every call of the step
  std::vector<std::optional<int64_t>> kernel;  // SensorProbe: kmd result per probe
  bool kernelRepeats = false;
  int repeat = 1;
  // kSet
  Changes changes;
  // Expectations checked after the step (after each repetition).
  Json expect;  // object, validated; empty when none
};

struct Scenario {
  std::string file;  // as given by the user
  std::string name;
  std::string description;
  int64_t bootTime = 100;
  std::vector<Camera> cameras;
  std::optional<std::string> overrideSettings;  // none: no file
  std::map<std::string, std::string> properties;
  KernelParameter kernelParameter;
  CoreSetup core;
  MessageCenterSetup messageCenter;
  std::vector<Step> steps;
  Json expect;  // object, validated; empty when none

  const Camera* FindCamera(uint32_t id) const;
  // Number of HAL calls the scenario plays (repetitions counted).
  size_t CallCount() const;
};

// A problem with a scenario file that its author can fix: which file, where
// in it (a JSON path such as "steps[3].hal"), and what was expected.
struct LoadError {
  std::string file;
  std::string path;  // empty for file-level problems
  std::string message;
  std::string ToString() const;
};

// Reads and validates a scenario; on failure returns nullopt and sets `error`.
// Never throws.
std::optional<Scenario> LoadScenarioFile(const std::string& file, LoadError* error);
std::optional<Scenario> ParseScenario(const std::string& text, const std::string& file, LoadError* error);

// The 19 hooked HAL functions a step may call, by name.
const std::vector<std::string>& CallableFunctions();

// The text of a kernel parameter of `count` zeros ("0,0,...").
std::string ZeroTable(size_t count = 64);

}  // namespace sim::scenario
