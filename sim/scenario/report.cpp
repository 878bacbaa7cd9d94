#include "sim/scenario/report.h"

#include <map>
#include <sstream>

#include "hook/src/errorframeworkid.h"
#include "sim/records/records.h"

namespace sim::scenario {
namespace {

constexpr char kKernelPrefix[] = "write /sys/module/camera/parameters/sensor_apply_settings_control: ";

// One journal event as a timeline line; empty to leave it out.
std::string EventLine(const sim::Event& event, const TimelineOptions& options) {
  static const std::map<std::string, std::string> kLabels = {{"kernel", "kernel   "},        {"sysfs", "sysfs    "},
                                                             {"prop", "property "},          {"core", "core     "},
                                                             {"messagecenter", "message  "}, {"scenario", "phone    "}};
  const std::string& s = event.source;
  const std::string& t = event.text;
  if (s == "shadowhook" || s == "hal") return "";  // the HAL's results are in the step's result line
  if (s == "log") {                                // with --logcat, printed from the log lines themselves
    const bool loud = t.size() > 1 && (t[0] == 'W' || t[0] == 'E' || t[0] == 'F');
    return !options.logcat && (options.allLog || loud) ? "log      " + t : "";
  }
  if (s == "sysfs" && t.rfind(kKernelPrefix, 0) == 0) {
    return "kernel   parameter written: " + records::DescribeKernelText(t.substr(sizeof(kKernelPrefix) - 1));
  }
  const auto label = kLabels.find(s);
  return label != kLabels.end() ? label->second + t : s + " " + t;
}

// A numeric field of a call's results, when it has one.
std::optional<int64_t> Number(const Observed& observed, const std::string& key) {
  const Value* value = observed.Find(key);
  return value != nullptr ? std::optional(std::get<int64_t>(*value)) : std::nullopt;
}

std::string ResultLine(const StepOutcome& outcome) {
  const Observed& o = *outcome.observed;
  std::string text = outcome.halResults.empty() ? "HAL not called" : "HAL returned";
  for (size_t i = 0; i < outcome.halResults.size(); ++i)
    text += (i ? ", " : " ") + std::to_string(outcome.halResults[i]);
  if (const auto result = Number(o, "result")) {
    text += "  ->  library returned " + std::to_string(*result);
    if (!outcome.halResults.empty() && outcome.halResults.back() != *result) text += "  (changed)";
  }
  if (const auto state = Number(o, "initState")) text += ", init state " + std::to_string(*state);
  if (const auto address = Number(o, "slaveAddress")) text += ", slave address now " + Hex(*address);
  if (Number(o, "eepromFlag").value_or(0) != 0) text += ", last-retry flag raised for the HAL";
  if (const auto bytes = Number(o, "changedBytes")) text += ", " + std::to_string(*bytes) + " data bytes zeroed";
  if (const auto moved = Number(o, "shiftedSamples")) text += ", " + std::to_string(*moved) + " timestamp(s) moved";
  if (const Value* message = o.Find("message")) {
    const Fields& fields = std::get<Fields>(*message);
    text += ", HAL got kind " + std::to_string(fields[0].second) + " word " + std::to_string(fields[1].second) +
            " word@44 " + std::to_string(fields[2].second);
  }
  if (outcome.aborted) text += "; SIGABRT raised before the HAL call: camera process aborted";
  return text;
}

// `value` with every string valid UTF-8 (see EscapeUtf8).
Json ValidUtf8(Json value) {
  if (value.is_string()) {
    const std::string& text = value.get_ref<const std::string&>();
    return records::IsUtf8(text) ? value : Json(records::EscapeUtf8(text));
  }
  if (value.is_array()) {
    for (Json& item : value) item = ValidUtf8(std::move(item));
  } else if (value.is_object()) {
    Json object = Json::object();
    for (auto& [key, item] : value.items())
      object[records::IsUtf8(key) ? key : records::EscapeUtf8(key)] = ValidUtf8(std::move(item));
    return object;
  }
  return value;
}

template <typename T, typename Convert>
Json Each(const std::vector<T>& items, Convert convert) {
  Json array = Json::array();
  for (const T& item : items) array.push_back(convert(item));
  return array;
}

}  // namespace

std::string KernelText(const sim::SysfsWrite& write) { return write.bytes.substr(0, write.bytes.find('\0')); }

std::string Describe(const sim::framework::CoreCallback& callback) {
  return callback.messageType + " " + callback.name + " (" + std::to_string(callback.arg0) + ", " +
         std::to_string(callback.arg1) + ", code " + Hex(callback.errorCode) + ")";
}

Json ToJson(const sim::framework::CoreCallback& c) {
  return {
      {"arg0", c.arg0}, {"arg1", c.arg1}, {"errorCode", c.errorCode}, {"name", c.name}, {"messageType", c.messageType}};
}

Json ToJson(const sim::framework::MessageCenterRequest& request) {
  Json data = Json::object();
  for (const auto& [key, value] : request.data) {
    data[key] = value.type == 3   ? Json(value.text)
                : value.type == 1 ? Json(value.int64Value)
                : value.type == 0 ? Json(value.intValue)
                                  : Json();
  }
  return {{"name", request.name}, {"data", data}};
}

std::string FormatHeader(const Scenario& scenario) {
  std::ostringstream out;
  out << "== " << scenario.name << " (" << scenario.file << ")\n";
  std::istringstream lines(scenario.description);
  for (std::string line; std::getline(lines, line);) out << "   " << line << "\n";
  out << "   device:";
  for (const Camera& camera : scenario.cameras) {
    out << " camera " << camera.id << " -> slot " << camera.slot
        << (camera.role.empty() ? "" : " (" + camera.role + ")") << (&camera != &scenario.cameras.back() ? ";" : "");
  }
  out << "\n";
  return out.str();
}

std::string FormatStep(const Scenario& scenario, const StepOutcome& outcome, const TimelineOptions& options) {
  const Step& step = scenario.steps[outcome.step];
  std::ostringstream out;
  out << "[" << outcome.step + 1;
  if (step.repeat > 1) out << "." << outcome.repetition + 1;
  out << "] " << outcome.title;
  if (!step.note.empty() && outcome.repetition == 0 && !outcome.restart) out << "  -- " << step.note;
  out << "\n";
  if (outcome.observed) out << "      " << ResultLine(outcome) << "\n";
  // A property written several times in one step shows once, with its last value.
  std::map<std::string, std::pair<size_t, size_t>> writes;  // name -> last event, count
  const std::vector<sim::Event>& events = outcome.slice.events;
  const auto key = [](const sim::Event& event) { return event.text.substr(0, event.text.find('=')); };
  for (size_t i = 0; i < events.size(); ++i) {
    if (events[i].source == "prop") writes[key(events[i])] = {i, writes[key(events[i])].second + 1};
  }
  for (size_t i = 0; i < events.size(); ++i) {
    std::string line = EventLine(events[i], options);
    if (events[i].source == "prop") {
      const auto [last, count] = writes[key(events[i])];
      if (last != i) continue;
      if (count > 1) line += "  (written " + std::to_string(count) + " times)";
    }
    if (!line.empty()) out << "      " << line << "\n";
  }
  for (const sim::LogLine& line : options.logcat ? outcome.slice.log : std::vector<sim::LogLine>{}) {
    out << sim::FormatLogcat(line) << "\n";
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
    perFunction += (perFunction.empty() ? ": " : ", ") + function + " " + std::to_string(count);
  }
  size_t changed = 0;
  for (const StepOutcome& outcome : run.outcomes) {
    const auto result = outcome.observed ? Number(*outcome.observed, "result") : std::nullopt;
    changed += result && !outcome.halResults.empty() && outcome.halResults.back() != *result;
  }
  size_t errors = 0;
  for (const sim::LogLine& line : total.log) errors += line.priority >= 6 ? 1 : 0;
  out << "-- summary: " << scenario.name << "\n"
      << "   HAL calls played: " << scenario.callCount << " (" << calls << " reached the HAL" << perFunction << ")\n"
      << "   results changed by the library: " << changed << "\n"
      << "   camera process: " << run.restarts << " restart(s), " << run.reboots << " reboot(s), " << run.aborts
      << " abort(s)\n"
      << "   framework core: " << total.notifications.size() << " first-call notification(s), "
      << total.callbacks.size() << " protection callback(s), " << total.probeRecords.size() << " probe record(s)\n";
  for (const auto& callback : total.callbacks) out << "      " << Describe(callback) << "\n";
  out << "   message centre: " << total.requests.size() << " request(s)\n"
      << "   kernel parameter: " << total.kernelWrites.size() << " write(s); now "
      << (total.kernelParameter ? records::DescribeKernelText(*total.kernelParameter) : std::string("absent")) << "\n"
      << "   log: " << total.log.size() << " line(s), " << errors << " at ERROR\n";
  bool any = false;
  for (const auto& [key, value] : total.properties) {
    if (key.rfind("vendor.debug.camera.imagesensorstate.", 0) != 0 && key != CamX::kErrorFrameworkIdProperty) {
      continue;
    }
    out << (any ? "" : "   state left on the phone:\n") << "      " << key << " = " << value << "\n";
    any = true;
    for (const std::string& line : records::Explain(key + "=" + value).lines) out << "         " << line << "\n";
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
  Json report = {{"file", scenario.file}, {"name", scenario.name}, {"library", run.libraryPath}};
  if (!run.error.empty()) report["error"] = run.error;
  report["steps"] = Each(run.outcomes, [&scenario](const StepOutcome& outcome) {
    const Step& step = scenario.steps[outcome.step];
    Json item = {{"step", outcome.step + 1}, {"path", step.path}};
    if (step.kind == Step::Kind::kCall) {
      item["call"] = step.hook->call;
      item["repetition"] = outcome.repetition + 1;
    } else {
      item["action"] = outcome.title;
    }
    item["title"] = outcome.title;
    Json& observed = item["observed"] = outcome.restart ? Json{{"restart", true}} : Json();
    for (const auto& [key, value] : outcome.observed ? outcome.observed->fields : Observed{}.fields) {
      observed[key] = ToJson(value);
    }
    item["halResults"] = outcome.halResults;
    Json& events = item["events"] = Json::array();
    for (const sim::Event& event : outcome.slice.events) {
      if (event.source != "shadowhook") events.push_back({{"source", event.source}, {"text", event.text}});
    }
    return item;
  });
  const Slice& total = run.total;
  Json& final = report["final"] = {{"properties", total.properties}};
  final["kernelParameter"] = total.kernelParameter ? Json(*total.kernelParameter) : Json();
  final["kernelWrites"] = Each(total.kernelWrites, [](const sim::SysfsWrite& write) {
    return Json{{"text", KernelText(write)}, {"bytes", write.bytes.size()}, {"result", write.result}};
  });
  final["notifications"] = Each(total.notifications, [](const auto& notification) {
    return Json{{"hookName", notification.hookName}, {"value", notification.value}};
  });
  final["callbacks"] = Each(total.callbacks, [](const auto& callback) { return ToJson(callback); });
  final["probeRecords"] =
      Each(total.probeRecords, [](const auto& r) { return Json{{"name", r.name}, {"failed", r.result}}; });
  final["switchQueries"] = total.switchQueries;
  final["argumentQueries"] = total.argumentQueries;
  final["messageCenterRequests"] =
      Each(total.requests, [](const auto& request) { return sim::framework::Describe(request, true); });
  final["log"] = Each(total.log, [](const sim::LogLine& line) {
    return Json{{"priority", line.priority}, {"tag", line.tag}, {"text", line.text}};
  });
  final["halCalls"] = run.halCalls;
  final["restarts"] = run.restarts;
  final["reboots"] = run.reboots;
  final["aborts"] = run.aborts;
  report["check"] = {{"checked", check.checked}, {"ok", check.ok() && run.error.empty()}};
  report["check"]["mismatches"] = Each(check.mismatches, [](const Mismatch& m) {
    return Json{{"where", m.where}, {"path", m.path}, {"expected", m.expected}, {"got", m.got}};
  });
  report["durationUs"] = run.durationUs;
  return ValidUtf8(std::move(report));
}

}  // namespace sim::scenario
