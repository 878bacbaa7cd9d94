#include "scenario.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

namespace sim::scenario {
namespace {

// Thrown inside the reader only; LoadScenario turns it into a LoadError.
struct Failure {
  std::string path;
  std::string message;
};

std::string Kind(const Json& value) {
  switch (value.type()) {
    case Json::value_t::null:
      return "null";
    case Json::value_t::boolean:
      return "a boolean";
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
      return "an integer";
    case Json::value_t::number_float:
      return "a number with a fraction";
    case Json::value_t::string:
      return "a string";
    case Json::value_t::array:
      return "an array";
    case Json::value_t::object:
      return "an object";
    default:
      return "something else";
  }
}

std::string Shown(const Json& value) {
  std::string text = value.dump();
  if (text.size() > 40) text = text.substr(0, 37) + "...";
  return Kind(value) + " (" + text + ")";
}

std::string Join(const std::vector<std::string>& items, const std::string& separator) {
  std::string text;
  for (size_t i = 0; i < items.size(); ++i) text += (i ? separator : "") + items[i];
  return text;
}

// A value inside the scenario with its JSON path, for errors that say where.
class Node {
 public:
  Node(const Json& value, std::string path) : m_value(&value), m_path(std::move(path)) {}

  const Json& value() const { return *m_value; }
  const std::string& path() const { return m_path; }
  [[noreturn]] void Fail(const std::string& message) const { throw Failure{m_path, message}; }
  [[noreturn]] void Expected(const std::string& what) const { Fail("expected " + what + ", got " + Shown(*m_value)); }

  bool IsNull() const { return m_value->is_null(); }
  bool Has(const std::string& key) const { return m_value->is_object() && m_value->contains(key); }
  Node At(const std::string& key) const { return Node(m_value->at(key), m_path.empty() ? key : m_path + "." + key); }
  Node operator[](size_t index) const { return Node((*m_value)[index], m_path + "[" + std::to_string(index) + "]"); }

  void RequireObject(const std::string& what) const {
    if (!m_value->is_object()) Expected(what);
  }
  std::vector<Node> Items(const std::string& what) const {
    if (!m_value->is_array()) Expected(what);
    std::vector<Node> items;
    for (size_t i = 0; i < m_value->size(); ++i) items.push_back((*this)[i]);
    return items;
  }
  std::vector<std::pair<std::string, Node>> Members(const std::string& what) const {
    RequireObject(what);
    std::vector<std::pair<std::string, Node>> members;
    for (auto it = m_value->begin(); it != m_value->end(); ++it) {
      members.emplace_back(it.key(), Node(it.value(), m_path + "." + it.key()));
    }
    return members;
  }
  // Rejects keys outside `known`, naming the ones that are allowed.
  void OnlyKeys(const std::vector<std::string>& known, const std::string& what) const {
    RequireObject(what);
    for (auto it = m_value->begin(); it != m_value->end(); ++it) {
      if (std::find(known.begin(), known.end(), it.key()) == known.end()) {
        Fail("unknown key \"" + it.key() + "\" in " + what + "; known keys: " + Join(known, ", "));
      }
    }
  }

  std::string String(const std::string& what = "a string") const {
    if (!m_value->is_string()) Expected(what);
    return m_value->get<std::string>();
  }
  bool Bool() const {
    if (!m_value->is_boolean()) Expected("true or false");
    return m_value->get<bool>();
  }
  // An integer in [low, high]; a string holding a decimal or "0x" number is
  // accepted too, since addresses and codes read better in hexadecimal.
  int64_t Integer(int64_t low, int64_t high, const std::string& what) const {
    int64_t number = 0;
    if (m_value->is_number_integer()) {
      if (m_value->is_number_unsigned() && m_value->get<uint64_t>() > static_cast<uint64_t>(INT64_MAX)) {
        Fail("expected " + what + " from " + std::to_string(low) + " to " + std::to_string(high) + ", got " +
             m_value->dump());
      }
      number = m_value->get<int64_t>();
    } else if (m_value->is_string()) {
      const std::string text = m_value->get<std::string>();
      char* end = nullptr;
      errno = 0;
      number = std::strtoll(text.c_str(), &end, 0);
      if (text.empty() || end == nullptr || *end != '\0' || errno == ERANGE) Expected(what);
    } else {
      Expected(what);
    }
    if (number < low || number > high) {
      Fail("expected " + what + " from " + std::to_string(low) + " to " + std::to_string(high) + ", got " +
           std::to_string(number));
    }
    return number;
  }
  uint64_t Unsigned64(const std::string& what) const {
    if (m_value->is_number_unsigned()) return m_value->get<uint64_t>();
    return static_cast<uint64_t>(Integer(0, INT64_MAX, what));
  }
  std::vector<std::string> Strings(const std::string& what) const {
    std::vector<std::string> strings;
    for (const Node& item : Items(what)) strings.push_back(item.String(what));
    return strings;
  }

 private:
  const Json* m_value;
  std::string m_path;
};

constexpr int64_t kInt32Min = INT32_MIN;
constexpr int64_t kInt32Max = INT32_MAX;
constexpr int64_t kUint32Max = UINT32_MAX;
constexpr char kHalResult[] = "a HAL result (0 success, non-zero failure)";

const std::vector<std::string> kCallFunctions = {
    "GetStaticCaps",           "SensorProbe",          "InitializeSensorDevice",
    "LoadSensorInitConfigCmd", "LoadSensorConfigCmds", "SensorCreateAndSubmitCommand",
    "CreateI2CInfoCmd",        "EEPROMDataProbe",      "ProbeEEPROM",
    "ReadEEPROMDevice",        "EEPROMVerifyChecksum", "ActuatorData",
    "OISRegisterProvider",     "OISCreateI2CInfoCmd",  "ReadLensPositionData",
    "FormatLensPositionData",  "PostGyroData",         "CSLMessageHandler",
    "ProcessCaptureRequest",
};

bool ReturnsNothing(const std::string& function) {
  return function == "ActuatorData" || function == "CSLMessageHandler";
}

// Call-specific expectation keys beyond "result" and "halCalls".
std::vector<std::string> CallExpectKeys(const std::string& function) {
  if (function == "InitializeSensorDevice") return {"initState"};
  if (function == "CreateI2CInfoCmd") return {"slaveAddress"};
  if (function == "OISCreateI2CInfoCmd" || function == "ActuatorData") return {"slaveAddress", "halSawSlaveAddress"};
  if (function == "EEPROMDataProbe") return {"eepromFlag"};
  if (function == "EEPROMVerifyChecksum") return {"changedOffsets", "changedBytes", "halSawData"};
  if (function == "PostGyroData") return {"timestamps", "shiftedSamples"};
  if (function == "CSLMessageHandler") return {"message"};
  if (function == "ProcessCaptureRequest") return {"aborted"};
  if (function == "ReadLensPositionData") return {"durationAtLeastUs"};
  return {};
}

const std::vector<std::string> kGenericExpectKeys = {
    "properties",    "kernelParameter", "kernelWrites",          "notifications", "callbacks", "probeRecords",
    "switchQueries", "argumentQueries", "messageCenterRequests", "log",           "noLog",     "logCount",
};

class Parser {
 public:
  explicit Parser(Scenario* scenario) : m_scenario(scenario) {}

  void Parse(const Node& root) {
    root.OnlyKeys({"name", "description", "device", "overrideSettings", "properties", "kernelParameter", "core",
                   "messageCenter", "steps", "expect"},
                  "the scenario");
    if (!root.Has("name")) root.Fail("a scenario needs a \"name\" (a short title)");
    m_scenario->name = root.At("name").String();
    if (root.Has("description")) m_scenario->description = Text(root.At("description"));
    if (!root.Has("device")) root.Fail("a scenario needs a \"device\" with its \"cameras\"");
    ParseDevice(root.At("device"));
    if (root.Has("overrideSettings")) m_scenario->overrideSettings = OverrideSettings(root.At("overrideSettings"));
    if (root.Has("properties")) {
      for (const auto& [key, value] : Properties(root.At("properties"))) {
        if (!value) root.At("properties").At(key).Expected("a property value (a string)");
        m_scenario->properties[key] = *value;
      }
    }
    m_scenario->kernelParameter.text = ZeroTable();
    if (root.Has("kernelParameter")) m_scenario->kernelParameter = Kernel(root.At("kernelParameter"));
    if (root.Has("core")) m_scenario->core = Core(root.At("core"));
    if (root.Has("messageCenter")) m_scenario->messageCenter = MessageCenter(root.At("messageCenter"));
    if (!root.Has("steps")) root.Fail("a scenario needs \"steps\" (the HAL calls to play)");
    for (const Node& step : root.At("steps").Items("an array of steps")) m_scenario->steps.push_back(ParseStep(step));
    if (root.Has("expect")) m_scenario->expect = Expect(root.At("expect"), nullptr);
  }

 private:
  static std::string Text(const Node& node) {
    if (node.value().is_array()) return Join(node.Strings("a string or an array of lines"), "\n");
    return node.String("a string or an array of lines");
  }

  void ParseDevice(const Node& device) {
    device.OnlyKeys({"bootTime", "cameras"}, "\"device\"");
    if (device.Has("bootTime"))
      m_scenario->bootTime = device.At("bootTime").Integer(0, INT32_MAX, "seconds since boot");
    if (!device.Has("cameras")) device.Fail("the device needs \"cameras\" (each with \"id\" and \"slot\")");
    for (const Node& item : device.At("cameras").Items("an array of cameras")) {
      item.OnlyKeys({"id", "slot", "role", "sensors", "eeproms", "actuators"}, "a camera");
      if (!item.Has("id")) item.Fail("a camera needs an \"id\" (the HAL's camera id)");
      Camera camera;
      camera.id = static_cast<uint32_t>(item.At("id").Integer(0, UINT16_MAX, "a camera id"));
      if (m_scenario->FindCamera(camera.id) != nullptr) {
        item.At("id").Fail("camera " + std::to_string(camera.id) + " is listed twice");
      }
      if (item.Has("slot")) camera.slot = static_cast<uint32_t>(item.At("slot").Integer(0, kUint32Max, "a slot id"));
      if (item.Has("role")) camera.role = item.At("role").String();
      if (item.Has("sensors")) camera.sensors = item.At("sensors").Strings("an array of sensor names");
      if (item.Has("eeproms")) camera.eeproms = item.At("eeproms").Strings("an array of EEPROM names");
      if (item.Has("actuators")) camera.actuators = item.At("actuators").Strings("an array of actuator names");
      m_scenario->cameras.push_back(camera);
    }
  }

  static std::optional<std::string> OverrideSettings(const Node& node) {
    if (node.IsNull()) return std::nullopt;
    if (node.value().is_array()) {
      std::string text;
      for (const std::string& line : node.Strings("an array of lines (strings)")) text += line + "\n";
      return text;
    }
    return node.String("the settings text, an array of lines, or null (no file)");
  }

  static std::map<std::string, std::optional<std::string>> Properties(const Node& node) {
    std::map<std::string, std::optional<std::string>> properties;
    for (const auto& [key, value] : node.Members("an object of property names and values")) {
      if (key.empty()) value.Fail("a property name cannot be empty");
      if (value.IsNull()) {
        properties[key] = std::nullopt;
      } else if (value.value().is_number_integer()) {
        properties[key] = value.value().dump();
      } else {
        properties[key] = value.String("a property value (a string)");
      }
    }
    return properties;
  }

  static KernelParameter Kernel(const Node& node) {
    if (node.IsNull()) return {false, ""};
    if (node.value().is_object()) {
      // {"count": 64, "32": -110}: a table of zeros with a few entries set.
      size_t count = 64;
      if (node.Has("count")) count = static_cast<size_t>(node.At("count").Integer(0, 1000, "a number of values"));
      std::vector<int64_t> values(count, 0);
      for (const auto& [key, value] : node.Members("")) {
        if (key == "count") continue;
        char* end = nullptr;
        const long index = std::strtol(key.c_str(), &end, 10);
        if (key.empty() || *end != '\0' || index < 0 || static_cast<size_t>(index) >= count) {
          value.Fail("an index from \"0\" to \"" + std::to_string(count - 1) + "\" (or \"count\"), got \"" + key +
                     "\"");
        }
        values[static_cast<size_t>(index)] = value.Integer(INT64_MIN, INT64_MAX, "a number");
      }
      std::string text;
      for (size_t i = 0; i < values.size(); ++i) text += (i ? "," : "") + std::to_string(values[i]);
      return {true, text};
    }
    if (node.value().is_array()) {
      std::string text;
      size_t index = 0;
      for (const Node& item : node.Items("an array of numbers")) {
        text += (index++ ? "," : "") + std::to_string(item.Integer(INT64_MIN, INT64_MAX, "a number"));
      }
      return {true, text};
    }
    return {
        true,
        node.String(
            "the parameter text (\"0,0,...\"), an array of numbers, an object of index and value, or null (no file)")};
  }

  static CoreSetup Core(const Node& node) {
    node.OnlyKeys({"present", "switches", "hookArguments"}, "\"core\"");
    CoreSetup core;
    if (node.Has("present")) core.present = node.At("present").Bool();
    if (node.Has("switches")) {
      for (const auto& [key, value] : node.At("switches").Members("an object of switch kinds and true/false")) {
        char* end = nullptr;
        const long kind = std::strtol(key.c_str(), &end, 10);
        if (key.empty() || *end != '\0' || kind < INT32_MIN || kind > INT32_MAX) {
          value.Fail("a switch kind is a number such as \"2\", got \"" + key + "\"");
        }
        core.switches[static_cast<int32_t>(kind)] = value.Bool();
      }
    }
    if (node.Has("hookArguments")) {
      for (const auto& [key, value] : node.At("hookArguments").Members("an object of hook names and argument lists")) {
        core.hookArguments[key] = value.Strings("an array of argument strings");
      }
    }
    return core;
  }

  static MessageCenterSetup MessageCenter(const Node& node) {
    node.OnlyKeys({"present", "send", "sensorTypes", "mostProbed"}, "\"messageCenter\"");
    MessageCenterSetup centre;
    if (node.Has("present")) centre.present = node.At("present").Bool();
    if (node.Has("send")) centre.withSend = node.At("send").Bool();
    if (node.Has("sensorTypes")) {
      for (const auto& [key, value] : node.At("sensorTypes").Members("an object of sensor names and types")) {
        centre.sensorTypes[key] = value.String("a sensor type");
      }
    }
    if (node.Has("mostProbed")) {
      for (const auto& [key, value] : node.At("mostProbed").Members("an object of sensor types and answers")) {
        value.OnlyKeys({"sensor", "recordCount"}, "a most-probed answer");
        MostProbed answer;
        if (value.Has("sensor")) answer.sensor = value.At("sensor").String("a sensor name");
        if (value.Has("recordCount")) {
          answer.recordCount = value.At("recordCount").Integer(INT64_MIN, INT64_MAX, "a record count");
        }
        centre.mostProbed[key] = answer;
      }
    }
    return centre;
  }

  Step ParseStep(const Node& node) {
    node.RequireObject("a step (an object with \"call\", \"restart\", \"reboot\" or \"set\")");
    Step step;
    step.path = node.path();
    const int kinds = node.Has("call") + node.Has("restart") + node.Has("reboot") + node.Has("set");
    if (kinds != 1) {
      node.Fail("a step has exactly one of \"call\" (a HAL function), \"restart\", \"reboot\" or \"set\"");
    }
    if (node.Has("note")) step.note = node.At("note").String();
    if (node.Has("restart") || node.Has("reboot")) {
      const bool restart = node.Has("restart");
      const std::string key = restart ? "restart" : "reboot";
      node.OnlyKeys({key, "note", "expect"}, "a " + key + " step");
      if (!node.At(key).Bool()) node.At(key).Fail("write \"" + key + "\": true, or leave the step out");
      step.kind = restart ? Step::Kind::kRestart : Step::Kind::kReboot;
    } else if (node.Has("set")) {
      node.OnlyKeys({"set", "note", "expect"}, "a set step");
      step.kind = Step::Kind::kSet;
      step.changes = ParseChanges(node.At("set"));
    } else {
      step.kind = Step::Kind::kCall;
      ParseCall(node, &step);
    }
    if (node.Has("expect")) step.expect = Expect(node.At("expect"), &step);
    return step;
  }

  Changes ParseChanges(const Node& node) {
    node.OnlyKeys({"core", "messageCenter", "properties", "kernelParameter", "overrideSettings", "bootTime"},
                  "\"set\"");
    Changes changes;
    if (node.Has("core")) changes.core = Core(node.At("core"));
    if (node.Has("messageCenter")) changes.messageCenter = MessageCenter(node.At("messageCenter"));
    if (node.Has("properties")) changes.properties = Properties(node.At("properties"));
    if (node.Has("kernelParameter")) changes.kernelParameter = Kernel(node.At("kernelParameter"));
    if (node.Has("overrideSettings")) changes.overrideSettings = OverrideSettings(node.At("overrideSettings"));
    if (node.Has("bootTime")) changes.bootTime = node.At("bootTime").Integer(0, INT32_MAX, "seconds since boot");
    return changes;
  }

  const Camera& StepCamera(const Node& node, uint32_t limit, const std::string& why) {
    const Node camera = node.At("camera");
    const uint32_t id = static_cast<uint32_t>(camera.Integer(0, UINT16_MAX, "a camera id"));
    const Camera* found = m_scenario->FindCamera(id);
    if (found == nullptr) {
      std::vector<std::string> ids;
      for (const Camera& known : m_scenario->cameras) ids.push_back(std::to_string(known.id));
      camera.Fail("camera " + std::to_string(id) + " is not on the device (device.cameras has " +
                  (ids.empty() ? std::string("none") : Join(ids, ", ")) + ")");
    }
    if (id >= limit) camera.Fail("camera " + std::to_string(id) + " is outside the 16-entry slot table; " + why);
    return *found;
  }

  static std::string Named(const Node& node, const std::string& key, const std::vector<std::string>& known,
                           const std::string& what, const Camera* camera) {
    if (node.Has(key)) {
      const std::string name = node.At(key).String("a " + what + " name");
      if (camera != nullptr && !known.empty() && std::find(known.begin(), known.end(), name) == known.end()) {
        node.At(key).Fail("\"" + name + "\" is not a " + what + " of camera " + std::to_string(camera->id) +
                          " (device lists " + Join(known, ", ") + ")");
      }
      return name;
    }
    if (camera != nullptr && !known.empty()) return known.front();
    node.Fail("this call needs \"" + key + "\" (or a camera whose device entry lists " + what + "s)");
  }

  void ParseCall(const Node& node, Step* step) {
    const std::string function = node.At("call").String("the name of a hooked HAL function");
    if (std::find(kCallFunctions.begin(), kCallFunctions.end(), function) == kCallFunctions.end()) {
      node.At("call").Fail("\"" + function + "\" is not a hooked HAL function; known: " + Join(kCallFunctions, ", "));
    }
    step->function = function;
    std::vector<std::string> keys = {"call", "note", "expect", "repeat", "hal"};
    CallArgs& args = step->args;
    constexpr char kTrap[] =
        "the library stops the camera process there (bounds trap), which the simulator does not play";
    if (function == "GetStaticCaps") {
      keys.insert(keys.end(), {"camera", "slot"});
      node.OnlyKeys(keys, "a GetStaticCaps call");
      const Camera& camera = StepCamera(node, UINT16_MAX + 1u, "");
      args.camera = camera.id;
      args.slot =
          node.Has("slot") ? static_cast<uint32_t>(node.At("slot").Integer(0, kUint32Max, "a slot id")) : camera.slot;
    } else if (function == "SensorProbe") {
      keys.insert(keys.end(), {"camera", "sensor", "kernel"});
      node.OnlyKeys(keys, "a SensorProbe call");
      if (!node.Has("camera"))
        node.Fail("a SensorProbe call needs a \"camera\" (null: the HAL object has no camera id)");
      const Camera* camera = nullptr;
      if (node.At("camera").IsNull()) {
        args.cameraAbsent = true;
      } else {
        camera = &StepCamera(node, UINT16_MAX + 1u, "");
        args.camera = camera->id;
      }
      args.sensor = Named(node, "sensor", camera ? camera->sensors : std::vector<std::string>{}, "sensor", camera);
      if (node.Has("kernel")) ParseKernelResults(node.At("kernel"), step);
    } else if (function == "InitializeSensorDevice" || function == "LoadSensorInitConfigCmd" ||
               function == "LoadSensorConfigCmds" || function == "SensorCreateAndSubmitCommand") {
      keys.push_back("camera");
      if (function == "SensorCreateAndSubmitCommand") keys.push_back("opcode");
      node.OnlyKeys(keys, "a " + function + " call");
      if (!node.Has("camera")) node.Fail("a " + function + " call needs a \"camera\"");
      if (function == "SensorCreateAndSubmitCommand") {
        if (!node.Has("opcode"))
          node.Fail("a SensorCreateAndSubmitCommand call needs an \"opcode\" (2 init, 4 config)");
        args.opcode = static_cast<uint32_t>(node.At("opcode").Integer(0, kUint32Max, "a packet opcode"));
      }
      const bool traps = function != "SensorCreateAndSubmitCommand" || args.opcode == 2 || args.opcode == 4;
      args.camera = StepCamera(node, traps ? 16 : UINT16_MAX + 1u, kTrap).id;
    } else if (function == "CreateI2CInfoCmd" || function == "OISCreateI2CInfoCmd") {
      keys.push_back("slaveAddress");
      node.OnlyKeys(keys, "a " + function + " call");
      if (!node.Has("slaveAddress")) node.Fail("a " + function + " call needs a \"slaveAddress\" (such as \"0x18\")");
      args.slaveAddress = static_cast<uint32_t>(node.At("slaveAddress").Integer(0, kUint32Max, "an I2C slave address"));
    } else if (function == "EEPROMDataProbe" || function == "ReadEEPROMDevice") {
      keys.insert(keys.end(), {"camera", "sensor"});
      node.OnlyKeys(keys, "a " + function + " call");
      if (!node.Has("camera")) node.Fail("a " + function + " call needs a \"camera\"");
      const Camera& camera = StepCamera(node, UINT16_MAX + 1u, "");
      args.camera = camera.id;
      args.sensor = Named(node, "sensor", camera.sensors, "sensor", &camera);
    } else if (function == "ProbeEEPROM") {
      keys.insert(keys.end(), {"camera", "eeprom"});
      node.OnlyKeys(keys, "a ProbeEEPROM call");
      const Camera* camera = node.Has("camera") ? &StepCamera(node, UINT16_MAX + 1u, "") : nullptr;
      args.eeprom = Named(node, "eeprom", camera ? camera->eeproms : std::vector<std::string>{}, "EEPROM", camera);
    } else if (function == "EEPROMVerifyChecksum") {
      keys.insert(keys.end(), {"data", "size"});
      node.OnlyKeys(keys, "an EEPROMVerifyChecksum call");
      if (node.Has("data")) {
        const Node data = node.At("data");
        if (data.IsNull()) {
          args.dataNull = true;
        } else {
          data.OnlyKeys({"length", "fill"}, "\"data\" (the EEPROM bytes handed over)");
          if (data.Has("length"))
            args.dataLength = static_cast<uint32_t>(
                data.At("length").Integer(1024, 65536, "a length in bytes (the HAL reads at least 1024)"));
          if (data.Has("fill")) args.fill = static_cast<uint8_t>(data.At("fill").Integer(0, 255, "a byte value"));
        }
      }
      args.size = node.Has("size") ? static_cast<int32_t>(node.At("size").Integer(kInt32Min, kInt32Max, "a size"))
                                   : static_cast<int32_t>(args.dataLength);
    } else if (function == "ActuatorData") {
      keys.insert(keys.end(), {"camera", "actuator", "slaveAddress"});
      node.OnlyKeys(keys, "an ActuatorData call");
      const Camera* camera = node.Has("camera") ? &StepCamera(node, UINT16_MAX + 1u, "") : nullptr;
      if (node.Has("actuator") && node.At("actuator").IsNull()) {
        args.actuator.reset();
      } else {
        args.actuator =
            Named(node, "actuator", camera ? camera->actuators : std::vector<std::string>{}, "actuator", camera);
      }
      if (!node.Has("slaveAddress")) node.Fail("an ActuatorData call needs a \"slaveAddress\" (such as \"0x18\")");
      args.slaveAddress =
          static_cast<uint32_t>(node.At("slaveAddress").Integer(0, UINT16_MAX, "a 16-bit slave address"));
    } else if (function == "PostGyroData") {
      keys.insert(keys.end(), {"timestamps", "sensorType"});
      node.OnlyKeys(keys, "a PostGyroData call");
      if (!node.Has("timestamps")) node.Fail("a PostGyroData call needs \"timestamps\" (nanoseconds, one per sample)");
      for (const Node& item : node.At("timestamps").Items("an array of timestamps in nanoseconds")) {
        args.timestamps.push_back(item.Integer(INT64_MIN, INT64_MAX, "a timestamp in nanoseconds"));
      }
      if (args.timestamps.size() > 4096) node.At("timestamps").Fail("at most 4096 samples per batch");
      if (node.Has("sensorType"))
        args.sensorType = static_cast<int32_t>(node.At("sensorType").Integer(kInt32Min, kInt32Max, "an NCSSensorType"));
    } else if (function == "CSLMessageHandler") {
      keys.insert(keys.end(), {"message", "userData"});
      node.OnlyKeys(keys, "a CSLMessageHandler call");
      if (!node.Has("message"))
        node.Fail("a CSLMessageHandler call needs a \"message\" ({\"type\", \"value\"} or null)");
      const Node message = node.At("message");
      if (message.IsNull()) {
        args.messageNull = true;
      } else {
        message.OnlyKeys({"type", "value"}, "\"message\"");
        if (message.Has("type"))
          args.messageType = static_cast<uint32_t>(message.At("type").Integer(0, kUint32Max, "a message kind"));
        if (message.Has("value")) args.messageValue = message.At("value").Unsigned64("a 64-bit value");
      }
      if (node.Has("userData")) args.userDataNull = !node.At("userData").Bool();
    } else if (function == "ProcessCaptureRequest") {
      keys.insert(keys.end(), {"recordControl", "tagRegistered", "tagZero"});
      node.OnlyKeys(keys, "a ProcessCaptureRequest call");
      if (node.Has("recordControl") && !node.At("recordControl").IsNull()) {
        args.recordControl = static_cast<uint8_t>(node.At("recordControl").Integer(0, 255, "a byte value"));
      }
      if (node.Has("tagRegistered")) args.tagRegistered = node.At("tagRegistered").Bool();
      if (node.Has("tagZero")) args.tagZero = static_cast<uint8_t>(node.At("tagZero").Integer(0, 255, "a byte value"));
    } else {
      node.OnlyKeys(keys, "a " + function + " call");
    }

    if (node.Has("hal")) {
      if (ReturnsNothing(function)) node.At("hal").Fail(function + " returns nothing; leave \"hal\" out");
      const Node hal = node.At("hal");
      if (hal.value().is_array()) {
        for (const Node& item : hal.Items(""))
          step->hal.push_back(static_cast<int32_t>(item.Integer(kInt32Min, kInt32Max, kHalResult)));
        if (step->hal.empty()) hal.Fail("expected at least one HAL result");
      } else {
        step->hal = {static_cast<int32_t>(hal.Integer(kInt32Min, kInt32Max, kHalResult))};
        step->halRepeats = true;
      }
    }
    if (node.Has("repeat")) step->repeat = static_cast<int>(node.At("repeat").Integer(1, 100000, "a repeat count"));
  }

  static void ParseKernelResults(const Node& node, Step* step) {
    const auto one = [](const Node& item) -> std::optional<int64_t> {
      if (item.IsNull()) return std::nullopt;
      return item.Integer(INT64_MIN, INT64_MAX, "a kernel probe result (kmd; 0 success) or null (none)");
    };
    if (node.value().is_array()) {
      for (const Node& item : node.Items("")) step->kernel.push_back(one(item));
      if (step->kernel.empty()) node.Fail("expected at least one kernel result");
    } else {
      step->kernel = {one(node)};
      step->kernelRepeats = true;
    }
  }

  // Validates an "expect" object and returns it with hexadecimal strings
  // turned into numbers; `step` is null for the scenario's final expectations.
  Json Expect(const Node& node, const Step* step) {
    std::vector<std::string> keys = kGenericExpectKeys;
    const bool call = step != nullptr && step->kind == Step::Kind::kCall;
    if (call) {
      keys.push_back("halCalls");
      if (!ReturnsNothing(step->function)) keys.push_back("result");
      for (const std::string& key : CallExpectKeys(step->function)) keys.push_back(key);
    } else if (step == nullptr) {
      keys.insert(keys.end(), {"halCalls", "aborts"});
    }
    node.OnlyKeys(keys, call ? "the expectations of a " + step->function + " call" : "\"expect\"");
    Json out = Json::object();
    for (const auto& [key, value] : node.Members("")) {
      if (key == "result") {
        out[key] = value.Integer(kInt32Min, kInt32Max, kHalResult);
      } else if (key == "halCalls" && step != nullptr) {
        out[key] = value.Integer(0, 1000, "a number of HAL calls");
      } else if (key == "halCalls") {
        for (const auto& [name, count] : value.Members("an object of HAL function names and call counts")) {
          if (std::find(kCallFunctions.begin(), kCallFunctions.end(), name) == kCallFunctions.end()) {
            count.Fail("\"" + name + "\" is not a hooked HAL function");
          }
          out[key][name] = count.Integer(0, INT32_MAX, "a number of HAL calls");
        }
        if (!out.contains(key)) out[key] = Json::object();
      } else if (key == "initState" || key == "eepromFlag" || key == "slaveAddress" || key == "halSawSlaveAddress" ||
                 key == "changedBytes" || key == "shiftedSamples" || key == "durationAtLeastUs" || key == "aborts") {
        out[key] = value.Integer(0, kUint32Max, "a number");
      } else if (key == "aborted" || key == "halSawData") {
        out[key] = value.Bool();
      } else if (key == "changedOffsets" || key == "timestamps" || key == "switchQueries") {
        Json list = Json::array();
        for (const Node& item : value.Items("an array of numbers"))
          list.push_back(item.Integer(INT64_MIN, INT64_MAX, "a number"));
        out[key] = list;
      } else if (key == "message") {
        value.OnlyKeys({"type", "errorCode", "errorWord"}, "\"message\"");
        Json message = Json::object();
        for (const auto& [field, number] : value.Members(""))
          message[field] = number.Integer(0, kUint32Max, "a number");
        out[key] = message;
      } else if (key == "properties") {
        Json properties = Json::object();
        for (const auto& [name, text] : Properties(value)) properties[name] = text ? Json(*text) : Json();
        out[key] = properties;
      } else if (key == "kernelParameter") {
        out[key] = KernelExpectation(value);
      } else if (key == "kernelWrites") {
        out[key] = KernelWritesExpectation(value);
      } else if (key == "notifications" || key == "argumentQueries" || key == "log" || key == "noLog") {
        out[key] = value.Strings("an array of strings");
      } else if (key == "logCount") {
        Json counts = Json::object();
        for (const auto& [text, count] : value.Members("an object of texts and line counts")) {
          counts[text] = count.Integer(0, INT32_MAX, "a number of lines");
        }
        out[key] = counts;
      } else if (key == "callbacks") {
        Json list = Json::array();
        for (const Node& item : value.Items("an array of protection callbacks")) {
          item.OnlyKeys({"arg0", "arg1", "errorCode", "name", "messageType"}, "a callback");
          Json callback = Json::object();
          for (const auto& [field, v] : item.Members("")) {
            if (field == "name" || field == "messageType") {
              callback[field] = v.String();
            } else if (field == "errorCode") {
              callback[field] = v.Unsigned64("a 64-bit code");
            } else {
              callback[field] = v.Integer(0, kUint32Max, "a 32-bit word");
            }
          }
          list.push_back(callback);
        }
        out[key] = list;
      } else if (key == "probeRecords") {
        Json list = Json::array();
        for (const Node& item : value.Items("an array of probe records")) {
          item.OnlyKeys({"name", "failed"}, "a probe record");
          if (!item.Has("name") || !item.Has("failed")) item.Fail("a probe record has a \"name\" and \"failed\"");
          list.push_back({{"name", item.At("name").String()}, {"failed", item.At("failed").Bool()}});
        }
        out[key] = list;
      } else if (key == "messageCenterRequests") {
        Json list = Json::array();
        for (const Node& item : value.Items("an array of message-centre requests")) {
          item.OnlyKeys({"name", "data"}, "a message-centre request");
          if (!item.Has("name")) item.Fail("a request needs its \"name\"");
          Json request = {{"name", item.At("name").String()}};
          if (item.Has("data")) {
            Json data = Json::object();
            for (const auto& [field, v] : item.At("data").Members("an object of data entries")) {
              if (v.value().is_string()) {
                data[field] = v.String();
              } else {
                data[field] = v.Integer(INT64_MIN, INT64_MAX, "a string or a number");
              }
            }
            request["data"] = data;
          }
          list.push_back(request);
        }
        out[key] = list;
      }
    }
    return out;
  }

  static Json KernelExpectation(const Node& value) {
    if (value.IsNull()) return Json();  // no file
    if (value.value().is_string()) return value.String();
    Json values = Json::object();
    for (const auto& [index, number] : value.Members("the parameter text, an object of index and value, or null")) {
      char* end = nullptr;
      const long at = std::strtol(index.c_str(), &end, 10);
      if (index.empty() || *end != '\0' || at < 0 || at > 63)
        number.Fail("an index is from \"0\" to \"63\", got \"" + index + "\"");
      values[std::to_string(at)] = number.Integer(INT64_MIN, INT64_MAX, "a number");
    }
    return values;
  }

  static Json KernelWritesExpectation(const Node& value) {
    if (value.value().is_number_integer()) return value.Integer(0, INT32_MAX, "a number of writes");
    Json list = Json::array();
    for (const Node& item : value.Items("a number of writes or an array of writes")) {
      item.OnlyKeys({"text", "values", "bytes"}, "a kernel write");
      Json write = Json::object();
      if (item.Has("text")) write["text"] = item.At("text").String();
      if (item.Has("bytes")) write["bytes"] = item.At("bytes").Integer(0, 65536, "a byte count");
      if (item.Has("values")) write["values"] = KernelExpectation(item.At("values"));
      list.push_back(write);
    }
    return list;
  }

  Scenario* m_scenario;
};

// Line and column of a byte offset, for syntax errors.
std::string Position(const std::string& text, size_t byte) {
  size_t line = 1;
  size_t column = 1;
  for (size_t i = 0; i < byte && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

}  // namespace

const Camera* Scenario::FindCamera(uint32_t id) const {
  for (const Camera& camera : cameras) {
    if (camera.id == id) return &camera;
  }
  return nullptr;
}

size_t Scenario::CallCount() const {
  size_t count = 0;
  for (const Step& step : steps) count += step.kind == Step::Kind::kCall ? static_cast<size_t>(step.repeat) : 0;
  return count;
}

std::string LoadError::ToString() const {
  if (path.empty()) return file + ": " + message;
  return file + ": at " + path + ": " + message;
}

const std::vector<std::string>& CallableFunctions() { return kCallFunctions; }

std::string ZeroTable(size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) text += i ? ",0" : "0";
  return text;
}

std::optional<Scenario> ParseScenario(const std::string& text, const std::string& file, LoadError* error) {
  *error = LoadError{file, "", ""};
  Json root;
  try {
    root = Json::parse(text);
  } catch (const Json::parse_error& e) {
    // The library's text repeats the position after its own prefix; keep the reason.
    std::string reason = e.what();
    const size_t column = reason.find("column ");
    const size_t colon = column == std::string::npos ? std::string::npos : reason.find(": ", column);
    if (colon != std::string::npos) reason = reason.substr(colon + 2);
    error->message = "not valid JSON at " + Position(text, e.byte > 0 ? e.byte - 1 : 0) + ": " + reason;
    return std::nullopt;
  } catch (const std::exception& e) {
    error->message = std::string("not valid JSON: ") + e.what();
    return std::nullopt;
  }
  Scenario scenario;
  scenario.file = file;
  try {
    if (!root.is_object())
      throw Failure{"", "expected an object at the top (with \"name\", \"device\", \"steps\"), got " + Shown(root)};
    Parser(&scenario).Parse(Node(root, ""));
  } catch (const Failure& failure) {
    error->path = failure.path;
    error->message = failure.message;
    return std::nullopt;
  } catch (const std::exception& e) {
    error->message = std::string("cannot read the scenario: ") + e.what();
    return std::nullopt;
  }
  return scenario;
}

std::optional<Scenario> LoadScenarioFile(const std::string& file, LoadError* error) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    *error = LoadError{file, "", "cannot open the file: " + std::string(std::strerror(errno))};
    return std::nullopt;
  }
  std::ostringstream text;
  text << in.rdbuf();
  return ParseScenario(text.str(), file, error);
}

}  // namespace sim::scenario
