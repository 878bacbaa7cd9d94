#include "sim/scenario/scenario.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace sim::scenario {
namespace {

// Thrown inside the reader only; ParseScenario turns it into a LoadError.
struct Failure {
  std::string path;
  std::string message;
};

constexpr int64_t kInt32Min = INT32_MIN, kInt32Max = INT32_MAX, kUint32Max = UINT32_MAX;
constexpr char kHalResult[] = "a HAL result (0 success, non-zero failure)";
constexpr char kStrings[] = "an array of strings";

std::string Join(const std::vector<std::string>& items, const std::string& separator = ", ") {
  std::string text;
  for (size_t i = 0; i < items.size(); ++i) text += (i ? separator : "") + items[i];
  return text;
}

// A value for an error message: its kind and the start of its text (values
// are at most kMaxDepth deep, so the text is bounded work).
std::string Shown(const Json& value) {
  static const char* const kKinds[] = {"null",      "an object",  "an array",   "a string",
                                       "a boolean", "an integer", "an integer", "a number with a fraction"};
  const auto kind = static_cast<size_t>(value.type());
  std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
  if (text.size() > 40) text = text.substr(0, 37) + "...";
  return std::string(kind < std::size(kKinds) ? kKinds[kind] : "something else") + " (" + text + ")";
}

std::string Article(const std::string& word) {
  return std::string("AEIOU").find(word[0]) == std::string::npos ? "a " : "an ";
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
  // The members of `key`; none when it is not given.
  std::vector<std::pair<std::string, Node>> MembersOf(const std::string& key, const std::string& what) const {
    return Has(key) ? At(key).Members(what) : std::vector<std::pair<std::string, Node>>{};
  }

  std::vector<Node> Items(const std::string& what) const {
    if (!m_value->is_array()) Expected(what);
    std::vector<Node> items;
    for (size_t i = 0; i < m_value->size(); ++i)
      items.emplace_back((*m_value)[i], m_path + "[" + std::to_string(i) + "]");
    return items;
  }
  std::vector<std::pair<std::string, Node>> Members(const std::string& what) const {
    if (!m_value->is_object()) Expected(what);
    std::vector<std::pair<std::string, Node>> members;
    for (auto it = m_value->begin(); it != m_value->end(); ++it) members.emplace_back(it.key(), At(it.key()));
    return members;
  }
  // Rejects keys outside `known`, naming the ones that are allowed.
  void OnlyKeys(const std::vector<std::string>& known, const std::string& what) const {
    for (const auto& [key, value] : Members(what)) {
      if (std::find(known.begin(), known.end(), key) == known.end()) {
        Fail("unknown key \"" + key + "\" in " + what + "; known keys: " + Join(known));
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
    const std::string range = " from " + std::to_string(low) + " to " + std::to_string(high);
    int64_t number = 0;
    if (m_value->is_number_unsigned() && m_value->get<uint64_t>() > static_cast<uint64_t>(INT64_MAX)) {
      Fail("expected " + what + range + ", got " + m_value->dump());
    } else if (m_value->is_number_integer()) {
      number = m_value->get<int64_t>();
    } else if (m_value->is_string()) {
      const std::string text = m_value->get<std::string>();
      char* end = nullptr;
      errno = 0;
      number = std::strtoll(text.c_str(), &end, 0);
      if (text.empty() || *end != '\0' || errno == ERANGE) Expected(what);
    } else {
      Expected(what);
    }
    if (number < low || number > high) Fail("expected " + what + range + ", got " + std::to_string(number));
    return number;
  }
  int64_t Any64(const std::string& what) const { return Integer(INT64_MIN, INT64_MAX, what); }
  uint64_t Unsigned64(const std::string& what) const {
    return m_value->is_number_unsigned() ? m_value->get<uint64_t>()
                                         : static_cast<uint64_t>(Integer(0, INT64_MAX, what));
  }
  std::vector<std::string> Strings(const std::string& what) const {
    std::vector<std::string> strings;
    for (const Node& item : Items(what)) strings.push_back(item.String(what));
    return strings;
  }
  std::vector<int64_t> Numbers(const std::string& what, const std::string& each = "a number") const {
    std::vector<int64_t> numbers;
    for (const Node& item : Items(what)) numbers.push_back(item.Any64(each));
    return numbers;
  }

 private:
  const Json* m_value;
  std::string m_path;
};

// A number in a key ("32" of {"32": -110}) from `low` to `high`.
int64_t Index(const std::string& key, int64_t low, int64_t high, const Node& value, const std::string& message) {
  char* end = nullptr;
  errno = 0;
  const long long index = std::strtoll(key.c_str(), &end, 10);
  if (key.empty() || *end != '\0' || errno == ERANGE || index < low || index > high) value.Fail(message);
  return index;
}

// An object of optional fields as JSON, each read by its reader, in the
// order the readers are listed; any other key is an error.
using Reader = std::function<Json(const Node&)>;
Json Record(const Node& node, const std::vector<std::pair<std::string, Reader>>& fields, const std::string& what) {
  std::vector<std::string> keys;
  for (const auto& field : fields) keys.push_back(field.first);
  node.OnlyKeys(keys, what);
  Json record = Json::object();
  for (const auto& [key, read] : fields) {
    if (node.Has(key)) record[key] = read(node.At(key));
  }
  return record;
}
const Reader kText = [](const Node& value) { return Json(value.String()); };

std::optional<std::string> OverrideSettings(const Node& node) {
  if (node.IsNull()) return std::nullopt;
  if (!node.value().is_array()) return node.String("the settings text, an array of lines, or null (no file)");
  std::string text;
  for (const std::string& line : node.Strings("an array of lines (strings)")) text += line + "\n";
  return text;
}

std::map<std::string, std::optional<std::string>> Properties(const Node& node) {
  std::map<std::string, std::optional<std::string>> properties;
  for (const auto& [key, value] : node.Members("an object of property names and values")) {
    if (key.empty()) value.Fail("a property name cannot be empty");
    properties[key] = value.IsNull()                      ? std::nullopt
                      : value.value().is_number_integer() ? std::optional(value.value().dump())
                                                          : std::optional(value.String("a property value (a string)"));
  }
  return properties;
}

KernelParameter Kernel(const Node& node) {
  if (node.IsNull()) return {false, ""};
  std::vector<int64_t> values;
  if (node.value().is_object()) {  // {"count": 64, "32": -110}: a table of zeros with a few entries set
    values.resize(node.Has("count") ? static_cast<size_t>(node.At("count").Integer(0, 1000, "a number of values"))
                                    : 64);
    for (const auto& [key, value] : node.Members("")) {
      if (key == "count") continue;
      values[static_cast<size_t>(Index(key, 0, static_cast<int64_t>(values.size()) - 1, value,
                                       "an index from \"0\" to \"" + std::to_string(values.size() - 1) +
                                           "\" (or \"count\"), got \"" + key + "\""))] = value.Any64("a number");
    }
  } else if (node.value().is_array()) {
    values = node.Numbers("an array of numbers");
  } else {
    return {true, node.String("the parameter text (\"0,0,...\"), an array of numbers, an object of index and value, "
                              "or null (no file)")};
  }
  std::string text;
  for (size_t i = 0; i < values.size(); ++i) text += (i ? "," : "") + std::to_string(values[i]);
  return {true, text};
}

CoreSetup Core(const Node& node) {
  node.OnlyKeys({"present", "switches", "hookArguments"}, "\"core\"");
  CoreSetup core;
  if (node.Has("present")) core.present = node.At("present").Bool();
  for (const auto& [key, value] : node.MembersOf("switches", "an object of switch kinds and true/false")) {
    core.switches[static_cast<int32_t>(
        Index(key, kInt32Min, kInt32Max, value, "a switch kind is a number such as \"2\", got \"" + key + "\""))] =
        value.Bool();
  }
  for (const auto& [key, value] : node.MembersOf("hookArguments", "an object of hook names and argument lists")) {
    core.hookArguments[key] = value.Strings("an array of argument strings");
  }
  return core;
}

MessageCenterSetup MessageCenter(const Node& node) {
  node.OnlyKeys({"present", "send", "sensorTypes", "mostProbed"}, "\"messageCenter\"");
  MessageCenterSetup centre;
  if (node.Has("present")) centre.present = node.At("present").Bool();
  if (node.Has("send")) centre.withSend = node.At("send").Bool();
  for (const auto& [key, value] : node.MembersOf("sensorTypes", "an object of sensor names and types")) {
    centre.sensorTypes[key] = value.String("a sensor type");
  }
  for (const auto& [key, value] : node.MembersOf("mostProbed", "an object of sensor types and answers")) {
    value.OnlyKeys({"sensor", "recordCount"}, "a most-probed answer");
    MostProbed& answer = centre.mostProbed[key];
    if (value.Has("sensor")) answer.sensor = value.At("sensor").String("a sensor name");
    if (value.Has("recordCount")) answer.recordCount = value.At("recordCount").Any64("a record count");
  }
  return centre;
}

// The keys a scenario's top level and a "set" step share, read alike.
void ReadChanges(const Node& node, Changes* changes) {
  if (node.Has("overrideSettings")) changes->overrideSettings = OverrideSettings(node.At("overrideSettings"));
  if (node.Has("properties")) changes->properties = Properties(node.At("properties"));
  if (node.Has("kernelParameter")) changes->kernelParameter = Kernel(node.At("kernelParameter"));
  if (node.Has("core")) changes->core = Core(node.At("core"));
  if (node.Has("messageCenter")) changes->messageCenter = MessageCenter(node.At("messageCenter"));
  if (node.Has("bootTime")) changes->bootTime = node.At("bootTime").Integer(0, INT32_MAX, "seconds since boot");
}

KernelExpect KernelExpectation(const Node& value) {
  if (value.IsNull()) return {false, std::nullopt, {}};  // no file
  if (value.value().is_string()) return {true, value.String(), {}};
  KernelExpect expect;
  for (const auto& [index, number] : value.Members("the parameter text, an object of index and value, or null")) {
    expect.values[static_cast<size_t>(Index(
        index, 0, 63, number, "an index is from \"0\" to \"63\", got \"" + index + "\""))] = number.Any64("a number");
  }
  return expect;
}

Value FieldValue(const Node& value, FieldKind kind) {
  if (kind == FieldKind::kFlag) return value.Bool();
  if (kind == FieldKind::kNumbers) return value.Numbers("an array of numbers");
  if (kind != FieldKind::kMessage) return value.Integer(0, kUint32Max, "a number");
  value.OnlyKeys({"type", "errorCode", "errorWord"}, "\"message\"");
  Fields fields;
  for (const auto& [field, number] : value.Members(""))
    fields.emplace_back(field, number.Integer(0, kUint32Max, "a number"));
  return fields;
}

// A message-centre request's data: an object of strings and numbers.
Json RequestData(const Node& node) {
  Json data = Json::object();
  for (const auto& [field, value] : node.Members("an object of data entries")) {
    data[field] = value.value().is_string() ? Json(value.String()) : Json(value.Any64("a string or a number"));
  }
  return data;
}

// Validates an "expect" object; `step` is null for the scenario's final expectations.
Expectations Expect(const Node& node, const Step* step) {
  std::vector<std::string> keys = {
      "properties",    "kernelParameter", "kernelWrites",          "notifications", "callbacks", "probeRecords",
      "switchQueries", "argumentQueries", "messageCenterRequests", "log",           "noLog",     "logCount"};
  const CatalogueEntry* hook = step != nullptr ? step->hook : nullptr;
  if (hook != nullptr) {
    keys.push_back("halCalls");
    if (!hook->returnsNothing) keys.push_back("result");
    for (const FieldSpec& field : hook->fields) keys.push_back(field.key);
  } else if (step == nullptr) {
    keys.insert(keys.end(), {"halCalls", "aborts"});
  }
  node.OnlyKeys(keys,
                hook != nullptr ? "the expectations of " + Article(hook->call) + hook->call + " call" : "\"expect\"");
  const Reader word = [](const Node& v) { return Json(v.Integer(0, kUint32Max, "a 32-bit word")); };
  const Reader code = [](const Node& v) { return Json(v.Unsigned64("a 64-bit code")); };
  Expectations e;
  for (const auto& [key, value] : node.Members("")) {
    if (key == "result") e.result = value.Integer(kInt32Min, kInt32Max, kHalResult);
    if (key == "halCalls" && step != nullptr) e.halCalls = value.Integer(0, 1000, "a number of HAL calls");
    if (key == "aborts") e.aborts = value.Integer(0, kUint32Max, "a number");
    if (key == "properties") e.properties = Properties(value);
    if (key == "kernelParameter") e.kernelParameter = KernelExpectation(value);
    if (key == "notifications") e.notifications = value.Strings(kStrings);
    if (key == "argumentQueries") e.argumentQueries = value.Strings(kStrings);
    if (key == "log") e.log = LogPatterns(value.Strings(kStrings));
    if (key == "noLog") e.noLog = LogPatterns(value.Strings(kStrings));
    for (const FieldSpec& field : hook != nullptr ? hook->fields : std::vector<FieldSpec>{}) {
      if (key == field.key) e.fields.emplace_back(field, FieldValue(value, field.kind));
    }
    if (key == "halCalls" && step == nullptr) {
      e.functionCalls.emplace();
      for (const auto& [name, count] : value.Members("an object of HAL function names and call counts")) {
        if (FindCall(name) == nullptr) count.Fail("\"" + name + "\" is not a hooked HAL function");
        e.functionCalls->emplace_back(name, count.Integer(0, INT32_MAX, "a number of HAL calls"));
      }
    }
    if (key == "kernelWrites" && value.value().is_number_integer()) {
      e.kernelWriteCount = value.Integer(0, INT32_MAX, "a number of writes");
    } else if (key == "kernelWrites") {
      auto& writes = e.kernelWrites.emplace();
      for (const Node& item : value.Items("a number of writes or an array of writes")) {
        item.OnlyKeys({"text", "values", "bytes"}, "a kernel write");
        KernelWriteExpect& write = writes.emplace_back();
        if (item.Has("text")) write.text = item.At("text").String();
        if (item.Has("bytes")) write.bytes = item.At("bytes").Integer(0, 65536, "a byte count");
        if (item.Has("values")) write.values = KernelExpectation(item.At("values"));
      }
    }
    if (key == "switchQueries") {
      auto& kinds = e.switchQueries.emplace();
      for (int64_t kind : value.Numbers("an array of numbers")) kinds.push_back(std::to_string(kind));
    }
    if (key == "probeRecords") {
      auto& records = e.probeRecords.emplace();
      for (const Node& item : value.Items("an array of probe records")) {
        item.OnlyKeys({"name", "failed"}, "a probe record");
        if (!item.Has("name") || !item.Has("failed")) item.Fail("a probe record has a \"name\" and \"failed\"");
        records.push_back(item.At("name").String() + (item.At("failed").Bool() ? " failed" : " probed"));
      }
    }
    if (key == "logCount") {
      auto& counts = e.logCount.emplace();
      for (const auto& [text, count] : value.Members("an object of texts and line counts")) {
        counts.emplace_back(text, count.Integer(0, INT32_MAX, "a number of lines"));
      }
    }
    if (key == "callbacks") {
      auto& callbacks = e.callbacks.emplace();
      for (const Node& item : value.Items("an array of protection callbacks")) {
        callbacks.push_back(
            Record(item, {{"arg0", word}, {"arg1", word}, {"errorCode", code}, {"name", kText}, {"messageType", kText}},
                   "a callback"));
      }
    }
    if (key == "messageCenterRequests") {
      auto& requests = e.requests.emplace();
      for (const Node& item : value.Items("an array of message-centre requests")) {
        requests.push_back(Record(item, {{"name", kText}, {"data", RequestData}}, "a message-centre request"));
        if (!item.Has("name")) item.Fail("a request needs its \"name\"");
      }
    }
  }
  return e;
}

class Parser {
 public:
  explicit Parser(Scenario* scenario) : m_scenario(scenario) {}

  void Parse(const Node& root) {
    root.OnlyKeys({"name", "description", "device", "overrideSettings", "properties", "kernelParameter", "core",
                   "messageCenter", "steps", "expect"},
                  "the scenario");
    if (!root.Has("name")) root.Fail("a scenario needs a \"name\" (a short title)");
    m_scenario->name = root.At("name").String();
    if (root.Has("description")) {
      const Node description = root.At("description");
      m_scenario->description = description.value().is_array()
                                    ? Join(description.Strings("a string or an array of lines"), "\n")
                                    : description.String("a string or an array of lines");
    }
    if (!root.Has("device")) root.Fail("a scenario needs a \"device\" with its \"cameras\"");
    ParseDevice(root.At("device"));
    // The phone's setup: a "set" before the first step, with every member given.
    Changes& setup = m_scenario->setup;
    ReadChanges(root, &setup);
    for (const auto& [key, value] : setup.properties) {
      if (!value) root.At("properties").At(key).Expected("a property value (a string)");
    }
    if (!setup.overrideSettings) setup.overrideSettings.emplace();  // no file
    if (!setup.kernelParameter) setup.kernelParameter = KernelParameter{true, ZeroTable()};
    if (!setup.core) setup.core.emplace();
    if (!setup.messageCenter) setup.messageCenter.emplace();
    if (!root.Has("steps")) root.Fail("a scenario needs \"steps\" (the HAL calls to play)");
    for (const Node& step : root.At("steps").Items("an array of steps")) m_scenario->steps.push_back(ParseStep(step));
    if (root.Has("expect")) m_scenario->expect = Expect(root.At("expect"), nullptr);
  }

 private:
  void ParseDevice(const Node& device) {
    device.OnlyKeys({"bootTime", "cameras"}, "\"device\"");
    m_scenario->setup.bootTime =
        device.Has("bootTime") ? device.At("bootTime").Integer(0, INT32_MAX, "seconds since boot") : 100;
    if (!device.Has("cameras")) device.Fail("the device needs \"cameras\" (each with \"id\" and \"slot\")");
    for (const Node& item : device.At("cameras").Items("an array of cameras")) {
      item.OnlyKeys({"id", "slot", "role", "sensors", "eeproms", "actuators"}, "a camera");
      if (!item.Has("id")) item.Fail("a camera needs an \"id\" (the HAL's camera id)");
      Camera& camera = m_scenario->cameras.emplace_back();
      camera.id = static_cast<uint32_t>(item.At("id").Integer(0, UINT16_MAX, "a camera id"));
      if (FindCamera(camera.id) != &camera)
        item.At("id").Fail("camera " + std::to_string(camera.id) + " is listed twice");
      if (item.Has("slot")) camera.slot = static_cast<uint32_t>(item.At("slot").Integer(0, kUint32Max, "a slot id"));
      if (item.Has("role")) camera.role = item.At("role").String();
      if (item.Has("sensors")) camera.sensors = item.At("sensors").Strings("an array of sensor names");
      if (item.Has("eeproms")) camera.eeproms = item.At("eeproms").Strings("an array of EEPROM names");
      if (item.Has("actuators")) camera.actuators = item.At("actuators").Strings("an array of actuator names");
    }
  }

  const Camera* FindCamera(uint32_t id) const {
    for (const Camera& camera : m_scenario->cameras) {
      if (camera.id == id) return &camera;
    }
    return nullptr;
  }

  Step ParseStep(const Node& node) {
    if (!node.value().is_object())
      node.Expected("a step (an object with \"call\", \"restart\", \"reboot\" or \"set\")");
    Step step;
    step.path = node.path();
    if (node.Has("call") + node.Has("restart") + node.Has("reboot") + node.Has("set") != 1) {
      node.Fail("a step has exactly one of \"call\" (a HAL function), \"restart\", \"reboot\" or \"set\"");
    }
    if (node.Has("note")) step.note = node.At("note").String();
    if (node.Has("restart") || node.Has("reboot")) {
      const std::string key = node.Has("restart") ? "restart" : "reboot";
      node.OnlyKeys({key, "note", "expect"}, "a " + key + " step");
      if (!node.At(key).Bool()) node.At(key).Fail("write \"" + key + "\": true, or leave the step out");
      step.kind = key == "restart" ? Step::Kind::kRestart : Step::Kind::kReboot;
    } else if (node.Has("set")) {
      node.OnlyKeys({"set", "note", "expect"}, "a set step");
      step.kind = Step::Kind::kSet;
      node.At("set").OnlyKeys(
          {"core", "messageCenter", "properties", "kernelParameter", "overrideSettings", "bootTime"}, "\"set\"");
      ReadChanges(node.At("set"), &step.changes);
    } else {
      ParseCall(node, &step);
    }
    if (node.Has("expect")) step.expect = Expect(node.At("expect"), &step);
    if ((m_played += static_cast<size_t>(step.repeat)) > kMaxSteps) {
      node.Fail("the scenario plays more than " + std::to_string(kMaxSteps) +
                " steps (repetitions counted), the most a scenario may play");
    }
    return step;
  }

  const Camera& StepCamera(const Node& camera, uint32_t limit) const {
    const uint32_t id = static_cast<uint32_t>(camera.Integer(0, UINT16_MAX, "a camera id"));
    const Camera* found = FindCamera(id);
    if (found == nullptr) {
      std::vector<std::string> ids;
      for (const Camera& known : m_scenario->cameras) ids.push_back(std::to_string(known.id));
      camera.Fail("camera " + std::to_string(id) + " is not on the device (device.cameras has " +
                  (ids.empty() ? std::string("none") : Join(ids)) + ")");
    }
    if (id >= limit) {
      camera.Fail("camera " + std::to_string(id) +
                  " is outside the 16-entry slot table; the library stops the camera process there (bounds trap), "
                  "which the simulator does not play");
    }
    return *found;
  }

  // A module name: given (and, with a camera, one of the device's), or the camera's first.
  static std::string Named(const Node& node, const std::string& key, const Camera* camera,
                           std::vector<std::string> Camera::* list, const std::string& what) {
    const std::vector<std::string> known = camera != nullptr ? camera->*list : std::vector<std::string>{};
    if (node.Has(key)) {
      const std::string name = node.At(key).String("a " + what + " name");
      if (!known.empty() && std::find(known.begin(), known.end(), name) == known.end()) {
        node.At(key).Fail("\"" + name + "\" is not a " + what + " of camera " + std::to_string(camera->id) +
                          " (device lists " + Join(known) + ")");
      }
      return name;
    }
    if (!known.empty()) return known.front();
    node.Fail("this call needs \"" + key + "\" (or a camera whose device entry lists " + what + "s)");
  }

  // "hal" or "kernel": an array gives one value per call (none beyond it), a single value every call.
  template <typename T, typename Read>
  static std::optional<std::vector<T>> PerCall(const Node& node, T* every, const std::string& what, Read read) {
    if (!node.value().is_array()) {
      *every = read(node);
      return std::nullopt;
    }
    std::vector<T> values;
    for (const Node& item : node.Items("")) values.push_back(read(item));
    if (values.empty()) node.Fail("expected at least one " + what);
    return values;
  }

  void ParseCall(const Node& node, Step* step) {
    const std::string function = node.At("call").String("the name of a hooked HAL function");
    if ((step->hook = FindCall(function)) == nullptr) {
      std::vector<std::string> known;
      for (const CatalogueEntry& entry : Catalogue()) {
        if (entry.call != nullptr) known.push_back(entry.call);
      }
      node.At("call").Fail("\"" + function + "\" is not a hooked HAL function; known: " + Join(known));
    }
    const std::string call = Article(function) + function + " call";
    std::vector<std::string> keys = {"call", "note", "expect", "repeat", "hal"};
    for (Arg arg : step->hook->args) keys.push_back(Argument(arg).key);
    node.OnlyKeys(keys, call);
    CallArgs& a = step->args;
    hal::Outcome& after = step->hal.after;
    std::optional<std::vector<CamxResult>> results;
    std::optional<std::vector<std::optional<int64_t>>> kernels;
    const Camera* camera = nullptr;
    const auto u32 = [](const Node& value, const char* what) {
      return static_cast<uint32_t>(value.Integer(0, kUint32Max, what));
    };
    const auto byte = [](const Node& value) { return static_cast<uint8_t>(value.Integer(0, 255, "a byte value")); };
    for (Arg arg : step->hook->args) {
      const std::string key = Argument(arg).key;
      const bool has = node.Has(key);
      const Node value = has ? node.At(key) : node;
      if (!has && Argument(arg).required != nullptr) node.Fail(call + " needs " + Argument(arg).required);
      if (arg == Arg::kCamera || arg == Arg::kBringUpCamera || arg == Arg::kSubmitCamera ||
          (arg == Arg::kCameraOrNull && !(a.cameraAbsent = value.IsNull()))) {
        const bool traps =
            arg == Arg::kBringUpCamera || (arg == Arg::kSubmitCamera && (a.opcode == 2 || a.opcode == 4));
        a.camera = (camera = &StepCamera(value, traps ? 16 : UINT16_MAX + 1u))->id;
      }
      if (arg == Arg::kModuleCamera && has) camera = &StepCamera(value, UINT16_MAX + 1u);
      if (arg == Arg::kSlot) a.slot = has ? u32(value, "a slot id") : camera->slot;
      if (arg == Arg::kSensor) a.sensor = Named(node, key, camera, &Camera::sensors, "sensor");
      if (arg == Arg::kEeprom) a.eeprom = Named(node, key, camera, &Camera::eeproms, "EEPROM");
      if (arg == Arg::kActuator && (!has || !value.IsNull())) {
        a.actuator = Named(node, key, camera, &Camera::actuators, "actuator");
      }
      if (arg == Arg::kOpcode) a.opcode = u32(value, "a packet opcode");
      if (arg == Arg::kSlaveAddress) a.slaveAddress = u32(value, "an I2C slave address");
      if (arg == Arg::kSlaveAddress16)
        a.slaveAddress = static_cast<uint32_t>(value.Integer(0, UINT16_MAX, "a 16-bit slave address"));
      if (arg == Arg::kData && has && !(a.dataNull = value.IsNull())) {
        value.OnlyKeys({"length", "fill"}, "\"data\" (the EEPROM bytes handed over)");
        if (value.Has("length")) {
          a.dataLength = static_cast<uint32_t>(
              value.At("length").Integer(1024, 65536, "a length in bytes (the HAL reads at least 1024)"));
        }
        if (value.Has("fill")) a.fill = byte(value.At("fill"));
      }
      if (arg == Arg::kSize && has) a.size = static_cast<int32_t>(value.Integer(kInt32Min, kInt32Max, "a size"));
      if (arg == Arg::kTimestamps) {
        a.timestamps = value.Numbers("an array of timestamps in nanoseconds", "a timestamp in nanoseconds");
        if (a.timestamps.size() > 4096) value.Fail("at most 4096 samples per batch");
      }
      if (arg == Arg::kSensorType && has) {
        a.sensorType = static_cast<int32_t>(value.Integer(kInt32Min, kInt32Max, "an NCSSensorType"));
      }
      if (arg == Arg::kMessage && !(a.messageNull = value.IsNull())) {
        value.OnlyKeys({"type", "value"}, "\"message\"");
        if (value.Has("type")) a.messageType = u32(value.At("type"), "a message kind");
        if (value.Has("value")) a.messageValue = value.At("value").Unsigned64("a 64-bit value");
      }
      if (arg == Arg::kUserData) a.userDataNull = has && !value.Bool();
      if (arg == Arg::kRecordControl && has && !value.IsNull()) a.recordControl = byte(value);
      if (arg == Arg::kTagRegistered) a.tagRegistered = !has || value.Bool();
      if (arg == Arg::kTagZero && has) a.tagZero = byte(value);
      if (arg == Arg::kKernel && has) {
        kernels = PerCall(value, &after.kernel, "kernel result", [](const Node& item) -> std::optional<int64_t> {
          if (item.IsNull()) return std::nullopt;
          return item.Any64("a kernel probe result (kmd; 0 success) or null (none)");
        });
      }
    }
    if (node.Has("hal")) {
      if (step->hook->returnsNothing) node.At("hal").Fail(function + " returns nothing; leave \"hal\" out");
      results = PerCall(node.At("hal"), &after.result, "HAL result", [](const Node& item) {
        return static_cast<CamxResult>(item.Integer(kInt32Min, kInt32Max, kHalResult));
      });
    }
    for (size_t i = 0; i < std::max(results ? results->size() : 0, kernels ? kernels->size() : 0); ++i) {
      step->hal.calls.emplace_back(results ? (i < results->size() ? (*results)[i] : 0) : after.result,
                                   kernels ? (i < kernels->size() ? (*kernels)[i] : std::nullopt) : after.kernel);
    }
    if (node.Has("repeat")) step->repeat = static_cast<int>(node.At("repeat").Integer(1, kMaxRepeat, "a repeat count"));
    m_scenario->callCount += static_cast<size_t>(step->repeat);
  }

  Scenario* m_scenario;
  size_t m_played = 0;
};

// Refuses nesting deeper than kMaxDepth while the text is parsed, knowing the
// JSON path of the place; no structure deeper than that is ever built.
class DepthGuard {
 public:
  bool operator()(int, Json::parse_event_t event, Json& parsed) {
    using Event = Json::parse_event_t;
    const bool starts = event == Event::object_start || event == Event::array_start;
    if (!m_open.empty() && m_open.back().array && (starts || event == Event::value)) ++m_open.back().items;
    if (event == Event::key) m_open.back().key = parsed.get<std::string>();
    if (event == Event::object_end || event == Event::array_end) m_open.pop_back();
    if (starts && m_open.size() == static_cast<size_t>(kMaxDepth)) {
      std::string path;
      for (const Open& open : m_open) {
        path += open.array ? "[" + std::to_string(open.items - 1) + "]" : (path.empty() ? "" : ".") + open.key;
      }
      throw Failure{path, "nested deeper than " + std::to_string(kMaxDepth) +
                              " arrays and objects, the most a scenario may nest"};
    }
    if (starts) m_open.push_back({event == Event::array_start, 0, ""});
    return true;
  }

 private:
  struct Open {
    bool array;
    size_t items;
    std::string key;
  };
  std::vector<Open> m_open;
};

// Line and column of a byte offset, for syntax errors.
std::string Position(const std::string& text, size_t byte) {
  const size_t end = std::min(byte, text.size());
  const size_t line =
      static_cast<size_t>(std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), '\n'));
  const size_t start = line == 0 ? 0 : text.rfind('\n', end - 1) + 1;
  return "line " + std::to_string(line + 1) + ", column " + std::to_string(end - start + 1);
}

}  // namespace

std::string LoadError::ToString() const { return file + ": " + (path.empty() ? "" : "at " + path + ": ") + message; }

std::string ZeroTable(size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) text += i ? ",0" : "0";
  return text;
}

std::optional<Scenario> ParseScenario(const std::string& text, const std::string& file, LoadError* error) {
  *error = LoadError{file, "", ""};
  Scenario scenario;
  scenario.file = file;
  try {
    if (text.size() > kMaxFileBytes) {
      throw Failure{"", "larger than " + std::to_string(kMaxFileBytes) + " bytes, the most a scenario file may hold"};
    }
    const Json root = Json::parse(text, DepthGuard());
    if (!root.is_object()) {
      throw Failure{"", "expected an object at the top (with \"name\", \"device\", \"steps\"), got " + Shown(root)};
    }
    Parser(&scenario).Parse(Node(root, ""));
  } catch (const Json::parse_error& e) {
    // The library's text repeats the position after its own prefix; keep the reason.
    std::string reason = e.what();
    const size_t column = reason.find("column ");
    const size_t colon = column == std::string::npos ? std::string::npos : reason.find(": ", column);
    if (colon != std::string::npos) reason = reason.substr(colon + 2);
    error->message = "not valid JSON at " + Position(text, e.byte > 0 ? e.byte - 1 : 0) + ": " + reason;
    return std::nullopt;
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
  *error = LoadError{file, "", ""};
  // Non-blocking, so that opening a FIFO does not wait for a writer; only a
  // regular file is read, and no more of it than a scenario may hold.
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  struct stat info = {};
  if (fd < 0 || fstat(fd, &info) != 0) {
    error->message = "cannot read: " + std::string(std::strerror(errno));
  } else if (S_ISDIR(info.st_mode)) {
    error->message = "is a directory";
  } else if (!S_ISREG(info.st_mode)) {
    error->message = "is not a regular file (a FIFO, device or socket); only files are read";
  } else if (static_cast<uint64_t>(info.st_size) > kMaxFileBytes) {
    error->message = "larger than " + std::to_string(kMaxFileBytes) + " bytes, the most a scenario file may hold";
  }
  std::string text(error->message.empty() ? kMaxFileBytes + 1 : 0, '\0');
  size_t size = 0;
  for (ssize_t got = 1; error->message.empty() && size < text.size() && got != 0;) {
    got = read(fd, text.data() + size, text.size() - size);
    if (got > 0) size += static_cast<size_t>(got);
    if (got < 0 && errno != EINTR) error->message = "cannot read: " + std::string(std::strerror(errno));
  }
  if (fd >= 0) close(fd);
  if (!error->message.empty()) return std::nullopt;
  text.resize(size);
  return ParseScenario(text, file, error);
}

}  // namespace sim::scenario
