#include "report.h"

#include <map>
#include <sstream>

#include "text.h"

namespace sim::scenario {
namespace {

constexpr char kKernelPrefix[] = "write /sys/module/camera/parameters/sensor_apply_settings_control: ";

bool IsStateProperty(const std::string& key) {
  return key.rfind("vendor.debug.camera.imagesensorstate.", 0) == 0 || key == "persist.vendor.camera.errorFrameworkId";
}

// One journal event as a timeline line; empty to leave it out.
std::string EventLine(const sim::Event& event, const TimelineOptions& options) {
  const std::string& s = event.source;
  const std::string& t = event.text;
  if (s == "shadowhook") return "";
  if (s == "log") {
    if (options.logcat) return "";  // printed from the log lines themselves
    const bool loud = t.size() > 1 && (t[0] == 'W' || t[0] == 'E' || t[0] == 'F');
    return options.allLog || loud ? "log      " + t : "";
  }
  if (s == "hal") return "";  // shown in the step's result line
  if (s == "kernel") return "kernel   " + t;
  if (s == "sysfs") {
    if (t.rfind(kKernelPrefix, 0) == 0)
      return "kernel   parameter written: " + DescribeKernelText(t.substr(sizeof(kKernelPrefix) - 1));
    return "sysfs    " + t;
  }
  if (s == "prop") return "property " + t;
  if (s == "core") return "core     " + t;
  if (s == "messagecenter") return "message  " + t;
  if (s == "scenario") return "phone    " + t;
  return s + " " + t;
}

std::string ResultLine(const StepOutcome& outcome) {
  if (!outcome.observed) return "";
  std::string text;
  Json o = Json::object();
  for (const auto& [key, value] : outcome.observed->fields) o[key] = ToJson(value);
  if (outcome.halResults.empty()) {
    text += "HAL not called";
  } else {
    text += "HAL returned";
    for (size_t i = 0; i < outcome.halResults.size(); ++i)
      text += (i ? ", " : " ") + std::to_string(outcome.halResults[i]);
  }
  if (o.contains("result")) {
    const int32_t result = o["result"].get<int32_t>();
    text += "  ->  library returned " + std::to_string(result);
    if (!outcome.halResults.empty() && outcome.halResults.back() != result) text += "  (changed)";
  }
  if (o.contains("initState")) text += ", init state " + o["initState"].dump();
  if (o.contains("slaveAddress")) text += ", slave address now " + Hex(o["slaveAddress"].get<uint64_t>());
  if (o.contains("eepromFlag") && o["eepromFlag"].get<int>() != 0) text += ", last-retry flag raised for the HAL";
  if (o.contains("changedBytes")) text += ", " + o["changedBytes"].dump() + " data bytes zeroed";
  if (o.contains("shiftedSamples")) text += ", " + o["shiftedSamples"].dump() + " timestamp(s) moved";
  if (o.contains("message")) {
    text += ", HAL got kind " + o["message"]["type"].dump() + " word " + o["message"]["errorCode"].dump() +
            " word@44 " + o["message"]["errorWord"].dump();
  }
  if (outcome.aborted) text += "; SIGABRT raised before the HAL call: camera process aborted";
  return text;
}

// `value` with every string valid UTF-8: a string that is not has each byte
// outside a valid sequence written as "\xNN" and its backslashes doubled.
Json ValidUtf8(Json value) {
  if (value.is_string()) {
    const std::string& text = value.get_ref<const std::string&>();
    return IsUtf8(text) ? value : Json(EscapeUtf8(text));
  }
  if (value.is_array()) {
    for (Json& item : value) item = ValidUtf8(std::move(item));
  } else if (value.is_object()) {
    Json object = Json::object();
    for (auto& [key, item] : value.items()) object[IsUtf8(key) ? key : EscapeUtf8(key)] = ValidUtf8(std::move(item));
    return object;
  }
  return value;
}

}  // namespace

std::string FormatHeader(const Scenario& scenario) {
  std::ostringstream out;
  out << "== " << scenario.name << " (" << scenario.file << ")\n";
  if (!scenario.description.empty()) {
    std::istringstream lines(scenario.description);
    for (std::string line; std::getline(lines, line);) out << "   " << line << "\n";
  }
  out << "   device:";
  for (const Camera& camera : scenario.cameras) {
    out << " camera " << camera.id << " -> slot " << camera.slot;
    if (!camera.role.empty()) out << " (" << camera.role << ")";
    if (&camera != &scenario.cameras.back()) out << ";";
  }
  out << "\n";
  return out.str();
}

std::string FormatStep(const Scenario& scenario, const StepOutcome& outcome, const TimelineOptions& options) {
  const Step& step = scenario.steps[outcome.step];
  std::ostringstream out;
  out << "[" << outcome.step + 1;
  if (step.kind == Step::Kind::kCall && step.repeat > 1) out << "." << outcome.repetition + 1;
  out << "] " << outcome.title;
  if (!step.note.empty() && outcome.repetition == 0 && !outcome.restart) out << "  -- " << step.note;
  out << "\n";
  const std::string result = ResultLine(outcome);
  if (!result.empty()) out << "      " << result << "\n";
  // A property written several times in one step shows once, with its last value.
  std::map<std::string, size_t> lastWrite;
  std::map<std::string, size_t> writes;
  const std::vector<sim::Event>& events = outcome.slice.events;
  for (size_t i = 0; i < events.size(); ++i) {
    if (events[i].source != "prop") continue;
    const std::string key = events[i].text.substr(0, events[i].text.find('='));
    lastWrite[key] = i;
    ++writes[key];
  }
  for (size_t i = 0; i < events.size(); ++i) {
    std::string line = EventLine(events[i], options);
    if (events[i].source == "prop") {
      const std::string key = events[i].text.substr(0, events[i].text.find('='));
      if (lastWrite[key] != i) continue;
      if (writes[key] > 1) line += "  (written " + std::to_string(writes[key]) + " times)";
    }
    if (!line.empty()) out << "      " << line << "\n";
  }
  if (options.logcat) {
    for (const sim::LogLine& line : outcome.slice.log) out << sim::FormatLogcat(line) << "\n";
  }
  return out.str();
}

std::string FormatSummary(const Scenario& scenario, const RunResult& run, const CheckResult& check) {
  std::ostringstream out;
  const Slice& total = run.total;
  size_t calls = 0;
  std::string perFunction;
  for (const auto& [function, count] : run.halCalls) {
    calls += static_cast<size_t>(count);
    perFunction += (perFunction.empty() ? "" : ", ") + function + " " + std::to_string(count);
  }
  size_t changed = 0;
  for (const StepOutcome& outcome : run.outcomes) {
    const Value* result = outcome.observed ? outcome.observed->Find("result") : nullptr;
    if (result != nullptr && !outcome.halResults.empty())
      changed += outcome.halResults.back() != std::get<int64_t>(*result);
  }
  size_t errors = 0;
  for (const sim::LogLine& line : total.log) errors += line.priority >= 6 ? 1 : 0;
  out << "-- summary: " << scenario.name << "\n";
  out << "   HAL calls played: " << scenario.callCount << " (" << calls << " reached the HAL";
  if (!perFunction.empty()) out << ": " << perFunction;
  out << ")\n";
  out << "   results changed by the library: " << changed << "\n";
  out << "   camera process: " << run.restarts << " restart(s), " << run.reboots << " reboot(s), " << run.aborts
      << " abort(s)\n";
  out << "   framework core: " << total.notifications.size() << " first-call notification(s), "
      << total.callbacks.size() << " protection callback(s), " << total.probeRecords.size() << " probe record(s)\n";
  for (const auto& callback : total.callbacks) out << "      " << Describe(callback) << "\n";
  out << "   message centre: " << total.requests.size() << " request(s)\n";
  out << "   kernel parameter: " << total.kernelWrites.size() << " write(s); now "
      << (total.kernelParameter ? DescribeKernelText(*total.kernelParameter) : std::string("absent")) << "\n";
  out << "   log: " << total.log.size() << " line(s), " << errors << " at ERROR\n";
  bool any = false;
  for (const auto& [key, value] : total.properties) {
    if (!IsStateProperty(key)) continue;
    if (!any) out << "   state left on the phone:\n";
    any = true;
    out << "      " << key << " = " << value << "\n";
    const Explanation explanation = Explain(key + "=" + value);
    for (const std::string& line : explanation.lines) out << "         " << line << "\n";
  }
  if (!any) out << "   state left on the phone: no image sensor state or error list property\n";
  if (!run.error.empty()) {
    out << "   stopped: " << run.error << "\n";
  } else if (check.checked == 0) {
    out << "   expectations: none in this file\n";
  } else if (check.ok()) {
    out << "   expectations: all " << check.checked << " met\n";
  } else {
    out << "   expectations: " << check.mismatches.size() << " of " << check.checked << " not met (remedium-sim check "
        << scenario.file << " shows them)\n";
  }
  return out.str();
}

Json ReportJson(const Scenario& scenario, const RunResult& run, const CheckResult& check) {
  Json report = Json::object();
  report["file"] = scenario.file;
  report["name"] = scenario.name;
  report["library"] = run.libraryPath;
  if (!run.error.empty()) report["error"] = run.error;
  Json steps = Json::array();
  for (const StepOutcome& outcome : run.outcomes) {
    const Step& step = scenario.steps[outcome.step];
    Json item = Json::object();
    item["step"] = outcome.step + 1;
    item["path"] = step.path;
    if (step.kind == Step::Kind::kCall) {
      item["call"] = step.hook->call;
      item["repetition"] = outcome.repetition + 1;
    } else {
      item["action"] = outcome.title;
    }
    item["title"] = outcome.title;
    Json observed = outcome.restart ? Json{{"restart", true}} : Json();
    for (const auto& [key, value] : outcome.observed ? outcome.observed->fields : Observed{}.fields) {
      observed[key] = ToJson(value);
    }
    item["observed"] = observed;
    item["halResults"] = outcome.halResults;
    Json events = Json::array();
    for (const sim::Event& event : outcome.slice.events) {
      if (event.source != "shadowhook") events.push_back({{"source", event.source}, {"text", event.text}});
    }
    item["events"] = events;
    steps.push_back(item);
  }
  report["steps"] = steps;
  const Slice& total = run.total;
  Json final = Json::object();
  final["properties"] = total.properties;
  final["kernelParameter"] = total.kernelParameter ? Json(*total.kernelParameter) : Json();
  Json writes = Json::array();
  for (const auto& write : total.kernelWrites) {
    writes.push_back({{"text", write.bytes.substr(0, write.bytes.find('\0'))},
                      {"bytes", write.bytes.size()},
                      {"result", write.result}});
  }
  final["kernelWrites"] = writes;
  Json notifications = Json::array();
  for (const auto& notification : total.notifications) {
    notifications.push_back({{"hookName", notification.hookName}, {"value", notification.value}});
  }
  final["notifications"] = notifications;
  Json callbacks = Json::array();
  for (const auto& callback : total.callbacks) {
    callbacks.push_back({{"arg0", callback.arg0},
                         {"arg1", callback.arg1},
                         {"errorCode", callback.errorCode},
                         {"name", callback.name},
                         {"messageType", callback.messageType}});
  }
  final["callbacks"] = callbacks;
  Json records = Json::array();
  for (const auto& record : total.probeRecords) records.push_back({{"name", record.name}, {"failed", record.result}});
  final["probeRecords"] = records;
  final["switchQueries"] = total.switchQueries;
  final["argumentQueries"] = total.argumentQueries;
  Json requests = Json::array();
  for (const auto& request : total.requests) requests.push_back(DescribeRequest(request));
  final["messageCenterRequests"] = requests;
  Json log = Json::array();
  for (const sim::LogLine& line : total.log) {
    log.push_back({{"priority", line.priority}, {"tag", line.tag}, {"text", line.text}});
  }
  final["log"] = log;
  final["halCalls"] = run.halCalls;
  final["restarts"] = run.restarts;
  final["reboots"] = run.reboots;
  final["aborts"] = run.aborts;
  report["final"] = final;
  Json mismatches = Json::array();
  for (const Mismatch& mismatch : check.mismatches) {
    mismatches.push_back(
        {{"where", mismatch.where}, {"path", mismatch.path}, {"expected", mismatch.expected}, {"got", mismatch.got}});
  }
  report["check"] = {{"checked", check.checked}, {"ok", check.ok() && run.error.empty()}, {"mismatches", mismatches}};
  report["durationUs"] = run.durationUs;
  return ValidUtf8(std::move(report));
}

}  // namespace sim::scenario
