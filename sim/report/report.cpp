#include "sim/report/report.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

#include "hook/src/errorframeworkid.h"
#include "sim/records/records.h"
#include "sim/text/text.h"

namespace sim::report {

using namespace sim::scenario;

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
    return text::IsUtf8(text) ? value : Json(text::EscapeUtf8(text));
  }
  if (value.is_array()) {
    for (Json& item : value) item = ValidUtf8(std::move(item));
  } else if (value.is_object()) {
    Json object = Json::object();
    for (auto& [key, item] : value.items())
      object[text::IsUtf8(key) ? key : text::EscapeUtf8(key)] = ValidUtf8(std::move(item));
    return object;
  }
  return value;
}

// `value` as the whole report's dump(2) writes it `depth` levels deep.
std::string Dumped(const Json& value, int depth) {
  const std::string text = ValidUtf8(value).dump(2), indent = "\n" + std::string(2 * depth, ' ');
  std::string out;
  for (size_t at = 0, next = 0; at <= text.size(); at = next + 1) {
    next = std::min(text.find('\n', at), text.size());
    out.append(text, at, next - at);
    if (next < text.size()) out += indent;
  }
  return out;
}

// An item of an array `depth` levels deep.
void Item(Spool* items, const Json& value, int depth) {
  items->Add((items->size() ? ",\n" : "\n") + std::string(2 * depth, ' ') + Dumped(value, depth));
}

}  // namespace

void CheckResult::Add(Mismatch mismatch) {
  ++failed;
  if (mismatch.where != lastWhere) text.Add("  " + (lastWhere = mismatch.where) + ":\n");
  text.Add("    " + mismatch.path + "\n      expected: " + mismatch.expected + "\n      got:      " + mismatch.got +
           "\n");
  Item(&json,
       {{"where", mismatch.where}, {"path", mismatch.path}, {"expected", mismatch.expected}, {"got", mismatch.got}}, 5);
  if (mismatches.size() < kKeptMismatches) mismatches.push_back(std::move(mismatch));
}

std::string KernelText(const sim::SysfsWrite& write) { return write.bytes.substr(0, write.bytes.find('\0')); }

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
  const Totals& total = run.totals;
  size_t calls = 0;
  std::string perFunction;
  for (const auto& [function, count] : run.halCalls) {
    calls += static_cast<size_t>(count);
    perFunction += (perFunction.empty() ? ": " : ", ") + function + " " + std::to_string(count);
  }
  out << "-- summary: " << scenario.name << "\n"
      << "   HAL calls played: " << scenario.callCount << " (" << calls << " reached the HAL" << perFunction << ")\n"
      << "   results changed by the library: " << total.changed << "\n"
      << "   camera process: " << run.restarts << " restart(s), " << run.reboots << " reboot(s), " << run.aborts
      << " abort(s)\n"
      << "   framework core: " << total.notifications << " first-call notification(s), " << total.callbacks.size()
      << " protection callback(s), " << total.probeRecords << " probe record(s)\n";
  total.callbacks.CopyTo(out);
  out << "   message centre: " << total.requests << " request(s)\n"
      << "   kernel parameter: " << total.kernelWrites << " write(s); now "
      << (run.end.kernelParameter ? records::DescribeKernelText(*run.end.kernelParameter) : std::string("absent"))
      << "\n"
      << "   log: " << total.log << " line(s), " << total.errors << " at ERROR\n";
  bool any = false;
  for (const auto& [key, value] : run.end.properties) {
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
    out << "   expectations: " << check.failed << " of " << check.checked << " not met (remedium-sim check "
        << scenario.file << " shows them)\n";
  }
  return out.str();
}

void JsonReport::Add(const Scenario& scenario, const StepOutcome& outcome) {
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
  Item(&m_steps, item, 4);
  const Slice& slice = outcome.slice;
  for (const auto& write : slice.kernelWrites) {
    Item(&m_records[0], {{"text", KernelText(write)}, {"bytes", write.bytes.size()}, {"result", write.result}}, 5);
  }
  for (const auto& n : slice.notifications) Item(&m_records[1], {{"hookName", n.hookName}, {"value", n.value}}, 5);
  for (const auto& callback : slice.callbacks) Item(&m_records[2], ToJson(callback), 5);
  for (const auto& r : slice.probeRecords) Item(&m_records[3], {{"name", r.name}, {"failed", r.result}}, 5);
  for (int32_t kind : slice.switchQueries) Item(&m_records[4], kind, 5);
  for (const std::string& name : slice.argumentQueries) Item(&m_records[5], name, 5);
  for (const auto& request : slice.requests) Item(&m_records[6], sim::framework::Describe(request, true), 5);
  for (const sim::LogLine& line : slice.log) {
    Item(&m_records[7], {{"priority", line.priority}, {"tag", line.tag}, {"text", line.text}}, 5);
  }
}

void JsonReport::Write(const Scenario& scenario, const RunResult& run, const CheckResult& check,
                       std::ostream& out) const {
  const auto key = [&out](int depth, const char* name, bool first = false) -> std::ostream& {
    return out << (first ? "{\n" : ",\n") << std::string(2 * depth, ' ') << '"' << name << "\": ";
  };
  const auto array = [&out](const Spool& items, int depth) {
    if (items.size() == 0) out << "[]";
    if (items.size() == 0) return;
    items.CopyTo(out << "[");
    out << "\n" << std::string(2 * depth, ' ') << "]";
  };
  key(3, "file", true) << Dumped(scenario.file, 3);
  key(3, "name") << Dumped(scenario.name, 3);
  key(3, "library") << Dumped(run.libraryPath, 3);
  if (!run.error.empty()) key(3, "error") << Dumped(run.error, 3);
  key(3, "steps");
  array(m_steps, 3);
  key(3, "final");
  key(4, "properties", true) << Dumped(run.end.properties, 4);
  key(4, "kernelParameter") << Dumped(run.end.kernelParameter ? Json(*run.end.kernelParameter) : Json(), 4);
  const char* const lists[] = {"kernelWrites",    "notifications",         "callbacks", "probeRecords", "switchQueries",
                               "argumentQueries", "messageCenterRequests", "log"};
  for (size_t i = 0; i < std::size(lists); ++i) {
    key(4, lists[i]);
    array(m_records[i], 4);
  }
  key(4, "halCalls") << Dumped(run.halCalls, 4);
  key(4, "restarts") << run.restarts;
  key(4, "reboots") << run.reboots;
  key(4, "aborts") << run.aborts;
  out << "\n      }";
  key(3, "check");
  key(4, "checked", true) << check.checked;
  key(4, "ok") << (check.ok() && run.error.empty() ? "true" : "false");
  key(4, "mismatches");
  array(check.json, 4);
  out << "\n      }";
  key(3, "durationUs") << run.durationUs;
  out << "\n    }";
}

Json ReportJson(const Scenario& scenario, const RunResult& run, const CheckResult& check) {
  JsonReport report;
  for (const StepOutcome& outcome : run.outcomes) report.Add(scenario, outcome);
  std::ostringstream out;
  report.Write(scenario, run, check, out);
  return Json::parse(out.str());
}

}  // namespace sim::report
