#include "sim/scenario/scenario.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "sim/scenario/arguments.h"

namespace sim::scenario {
namespace {

constexpr int64_t kInt32Min = INT32_MIN, kInt32Max = INT32_MAX, kUint32Max = UINT32_MAX;
constexpr char kHalResult[] = "a HAL result (0 success, non-zero failure)";
constexpr char kStrings[] = "an array of strings";
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
    if (FindCoreArgument(key) == nullptr) {
      std::vector<std::string> known;
      for (const CoreArgument* argument : CoreArguments()) known.push_back(argument->name);
      value.Fail("the library asks the core for no argument \"" + key + "\"; it asks for " + Join(known));
    }
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
      const std::string function = node.At("call").String("the name of a hooked HAL function");
      if ((step.hook = FindCall(function)) == nullptr) {
        std::vector<std::string> known;
        for (const CatalogueEntry& entry : Catalogue()) known.push_back(entry.call);
        node.At("call").Fail("\"" + function + "\" is not a hooked HAL function; known: " + Join(known));
      }
      CallReading reading{*m_scenario, node, step, nullptr, std::nullopt};
      ReadCall(reading);
      m_scenario->callCount += static_cast<size_t>(step.repeat);
    }
    if (node.Has("expect")) step.expect = Expect(node.At("expect"), &step);
    if ((m_played += static_cast<size_t>(step.repeat)) > kMaxSteps) {
      node.Fail("the scenario plays more than " + std::to_string(kMaxSteps) +
                " steps (repetitions counted), the most a scenario may play");
    }
    return step;
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

LogPattern::LogPattern(std::string pattern) : text(std::move(pattern)) {
  for (size_t begin = 0; begin <= text.size();) {
    const size_t star = std::min(text.find('*', begin), text.size());
    if (star > begin) pieces.push_back(text.substr(begin, star - begin));
    begin = star + 1;
  }
}

bool LogPattern::Matches(const std::string& line) const {
  size_t at = 0;
  for (const std::string& piece : pieces) {
    if ((at = line.find(piece, at)) == std::string::npos) return false;
    at += piece.size();
  }
  return true;
}

std::vector<LogPattern> LogPatterns(const std::vector<std::string>& texts) { return {texts.begin(), texts.end()}; }

std::string LoadError::ToString() const { return file + ": " + (path.empty() ? "" : "at " + path + ": ") + message; }

std::string ZeroTable(size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) text += i ? ",0" : "0";
  return text;
}

namespace {

// The keys a scenario's top level and a "set" step share, written as ReadChanges reads them.
void WriteChanges(const Changes& changes, Json* json) {
  Json& j = *json;
  if (changes.overrideSettings)
    j["overrideSettings"] = changes.overrideSettings->has_value() ? Json(**changes.overrideSettings) : Json(nullptr);
  if (!changes.properties.empty()) {
    j["properties"] = Json::object();
    for (const auto& [key, value] : changes.properties) j["properties"][key] = value ? Json(*value) : Json(nullptr);
  }
  if (changes.kernelParameter) {
    j["kernelParameter"] = changes.kernelParameter->present ? Json(changes.kernelParameter->text) : Json(nullptr);
  }
  if (const auto& core = changes.core) {
    j["core"] = {{"present", core->present}};
    for (const auto& [kind, open] : core->switches) j["core"]["switches"][std::to_string(kind)] = open;
    for (const auto& [name, arguments] : core->hookArguments) j["core"]["hookArguments"][name] = arguments;
  }
  if (const auto& centre = changes.messageCenter) {
    j["messageCenter"] = {{"present", centre->present}, {"send", centre->withSend}};
    for (const auto& [sensor, type] : centre->sensorTypes) j["messageCenter"]["sensorTypes"][sensor] = type;
    for (const auto& [type, answer] : centre->mostProbed) {
      j["messageCenter"]["mostProbed"][type] = {{"sensor", answer.sensor}, {"recordCount", answer.recordCount}};
    }
  }
}

}  // namespace

Json ScenarioJson(const Scenario& scenario) {
  Json root = {{"name", scenario.name}};
  if (!scenario.description.empty()) root["description"] = scenario.description;
  Json cameras = Json::array();
  for (const Camera& camera : scenario.cameras) {
    Json& item = cameras.emplace_back(Json{{"id", camera.id}, {"slot", camera.slot}});
    if (!camera.role.empty()) item["role"] = camera.role;
    if (!camera.sensors.empty()) item["sensors"] = camera.sensors;
    if (!camera.eeproms.empty()) item["eeproms"] = camera.eeproms;
    if (!camera.actuators.empty()) item["actuators"] = camera.actuators;
  }
  root["device"] = {{"bootTime", scenario.setup.bootTime.value_or(100)}, {"cameras", cameras}};
  Changes setup = scenario.setup;
  setup.bootTime.reset();
  WriteChanges(setup, &root);
  Json& steps = root["steps"] = Json::array();
  for (const Step& step : scenario.steps) {
    Json json;
    if (step.kind == Step::Kind::kCall) json = WriteCall(step);
    if (step.kind == Step::Kind::kRestart) json["restart"] = true;
    if (step.kind == Step::Kind::kReboot) json["reboot"] = true;
    if (step.kind == Step::Kind::kSet) WriteChanges(step.changes, &(json["set"] = Json::object()));
    if (step.kind == Step::Kind::kSet && step.changes.bootTime) json["set"]["bootTime"] = *step.changes.bootTime;
    if (!step.note.empty()) json["note"] = step.note;
    steps.push_back(std::move(json));
  }
  return root;
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
