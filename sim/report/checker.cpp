#include <algorithm>
#include <memory>
#include <sstream>

#include "sim/records/records.h"
#include "sim/report/report.h"

namespace sim::report {

using namespace sim::scenario;

namespace {

using report::ToJson;

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string List(const std::vector<std::string>& items) {
  std::string text = items.empty() ? "(none)" : "";
  for (const std::string& item : items) text += "\n      " + item;
  return text;
}

std::string List(const Spool& items) { return items.size() ? items.Text() : "(none)"; }

std::string Wanted(const std::string& text) { return text; }
std::string Wanted(const Json& record) { return record.dump(); }

template <typename T>
const std::vector<T> kNone{};  // no records: an expectation not given follows none

std::string Shown(const Value* value, FieldKind kind) {
  if (value == nullptr) return "(nothing)";
  const Json json = ToJson(*value);
  return kind == FieldKind::kAddress ? Hex(json.get<uint64_t>()) + " (" + json.dump() + ")" : json.dump();
}

Json ToJson(const KernelExpect& expect) {
  Json values = Json::object();
  for (const auto& [index, value] : expect.values) values[std::to_string(index)] = value;
  return expect.text ? Json(*expect.text) : values;
}

// Whether `record` has each member of `given` with its value; a member that
// is an object (a request's data) must be equal as a whole, in any order.
bool Matches(const Json& given, const Json& record) {
  for (const auto& [key, value] : given.items()) {
    if (!record.contains(key)) return false;
    const Json& got = record[key];
    if (value.is_object() ? !got.is_object() || got.size() != value.size() || !Matches(value, got) : value != got) {
      return false;
    }
  }
  return true;
}

}  // namespace

// What the expectations of effects need of the records, followed slice by
// slice: lists compared item by item as they come (each item's text spooled
// for a mismatch's message), the "log" texts found so far, the first line
// holding each "noLog" text, the "logCount" counts, the first kernel writes.
struct Tally {
  struct List {
    bool same = true;
    Spool shown;
  };

  explicit Tally(const Expectations& e)
      : noLogHits(e.noLog ? e.noLog->size() : 0), logCounts(e.logCount ? e.logCount->size() : 0) {}

  void Add(const Expectations& e, const Slice& slice) {
    if (e.kernelWrites || e.kernelWriteCount) {
      for (const sim::SysfsWrite& write : slice.kernelWrites) {
        writes.shown.Add("\n      " + records::DescribeKernelText(KernelText(write)));
        if (firstWrites.size() < (e.kernelWrites ? e.kernelWrites->size() : 0)) firstWrites.push_back(write);
      }
    }
    const auto text = [](const std::string& want, const std::string& got) { return want == got; };
    const auto record = [](const Json& want, const auto& got) { return Matches(want, ToJson(got)); };
    for (const auto& n : e.notifications ? slice.notifications : kNone<sim::framework::CoreNotification>) {
      const std::string name = n.value == 1 ? n.hookName : n.hookName + " (value " + std::to_string(n.value) + ")";
      Next(&notifications, *e.notifications, name, name, text);
    }
    for (const auto& callback : e.callbacks ? slice.callbacks : kNone<sim::framework::CoreCallback>) {
      Next(&callbacks, *e.callbacks, callback, sim::framework::Describe(callback), record);
    }
    for (const auto& r : e.probeRecords ? slice.probeRecords : kNone<sim::framework::CoreProbeRecord>) {
      const std::string shown = r.name + (r.result ? " failed" : " probed");
      Next(&probeRecords, *e.probeRecords, shown, shown, text);
    }
    for (int32_t kind : e.switchQueries ? slice.switchQueries : kNone<int32_t>) {
      Next(&switchQueries, *e.switchQueries, std::to_string(kind), std::to_string(kind), text);
    }
    for (const std::string& name : e.argumentQueries ? slice.argumentQueries : kNone<std::string>) {
      Next(&argumentQueries, *e.argumentQueries, name, name, text);
    }
    for (const auto& request : e.requests ? slice.requests : kNone<sim::framework::MessageCenterRequest>) {
      Next(&requests, *e.requests, request, sim::framework::Describe(request, true), record);
    }
    if (!e.log && !e.noLog && !e.logCount) return;
    for (const sim::LogLine& line : slice.log) {
      const std::string logged = LogText(line);
      if (e.log && logFound < e.log->size() && (*e.log)[logFound].Matches(logged)) ++logFound;
      if (e.log) lines.Add("\n      " + logged);
      for (size_t i = 0; i < noLogHits.size(); ++i) {
        if (!noLogHits[i] && (*e.noLog)[i].Matches(logged)) noLogHits[i] = logged;
      }
      for (size_t i = 0; i < logCounts.size(); ++i) logCounts[i] += (*e.logCount)[i].first.Matches(logged) ? 1 : 0;
    }
  }

  // One more record of a list expected in full, told against the item expected at its place.
  template <typename Want, typename Got, typename Same>
  static void Next(List* list, const std::vector<Want>& want, const Got& got, const std::string& shown, Same same) {
    list->same = list->same && list->shown.size() < want.size() && same(want[list->shown.size()], got);
    list->shown.Add("\n      " + shown);
  }

  List writes, notifications, callbacks, probeRecords, switchQueries, argumentQueries, requests;
  std::vector<sim::SysfsWrite> firstWrites;  // as many as the writes expected
  size_t logFound = 0;                       // "log" texts found, in order
  Spool lines;                               // every log line, for a "log" mismatch
  std::vector<std::optional<std::string>> noLogHits;
  std::vector<int64_t> logCounts;
};

namespace {

class Checker {
 public:
  Checker(CheckResult* result, std::string where) : m_result(result), m_where(std::move(where)) {}

  void Call(const Expectations& e, const Observed& observed, const std::string& path) {
    if (e.result) Field(path + "result", {"result", FieldKind::kNumber}, *e.result, observed.Find("result"));
    for (const auto& [field, expected] : e.fields) {
      const Value* got = observed.Find(field.key);
      if (field.kind == FieldKind::kAtLeastUs) {
        const int64_t us = got != nullptr ? std::get<int64_t>(*got) : 0;
        Compare(us >= std::get<int64_t>(expected), path + field.key, "at least " + ToJson(expected).dump() + " us",
                std::to_string(us) + " us");
      } else if (field.kind == FieldKind::kMessage && got != nullptr) {  // the members given
        Compare(Matches(ToJson(expected), ToJson(*got)), path + field.key, Shown(&expected, field.kind),
                Shown(got, field.kind));
      } else {
        Field(path + field.key, field, expected, got);
      }
    }
    if (e.halCalls) Field(path + "halCalls", {"halCalls", FieldKind::kNumber}, *e.halCalls, observed.Find("halCalls"));
  }

  void End(const Expectations& e, const RunResult& run) {
    for (const auto& [function, count] : e.functionCalls.value_or(Counts{})) {
      const auto found = run.halCalls.find(function);
      const int got = found == run.halCalls.end() ? 0 : found->second;
      Compare(got == count, "expect.halCalls." + function, std::to_string(count), std::to_string(got));
    }
    if (e.aborts)
      Compare(run.aborts == *e.aborts, "expect.aborts", std::to_string(*e.aborts), std::to_string(run.aborts));
  }

  // The expectations of effects, from what `tally` followed and the state the phone was left in.
  void Effects(const Expectations& e, const Tally& tally, const Slice& state, const std::string& path) {
    for (const auto& [name, value] : e.properties.value_or(std::map<std::string, std::optional<std::string>>{})) {
      const auto found = state.properties.find(name);
      const std::string got = found == state.properties.end() ? "(unset)" : Quoted(found->second);
      Compare(got == (value ? Quoted(*value) : "(unset)"), path + "properties." + name,
              value ? Quoted(*value) : "(unset)", got);
    }
    if (e.kernelParameter) Kernel(*e.kernelParameter, state.kernelParameter, path + "kernelParameter");
    KernelWrites(e, tally, path + "kernelWrites");
    Texts(e.notifications, tally.notifications, path + "notifications");
    Texts(e.callbacks, tally.callbacks, path + "callbacks");
    Texts(e.probeRecords, tally.probeRecords, path + "probeRecords");
    Texts(e.switchQueries, tally.switchQueries, path + "switchQueries");
    Texts(e.argumentQueries, tally.argumentQueries, path + "argumentQueries");
    Texts(e.requests, tally.requests, path + "messageCenterRequests");
    if (e.log) Log(*e.log, tally, path + "log");
    for (size_t i = 0; i < tally.noLogHits.size(); ++i) {
      const std::optional<std::string>& hit = tally.noLogHits[i];
      Compare(!hit, path + "noLog", "no log line containing " + Quoted((*e.noLog)[i].text), hit ? Quoted(*hit) : "");
    }
    for (size_t i = 0; i < tally.logCounts.size(); ++i) {
      const auto& [pattern, count] = (*e.logCount)[i];
      const int64_t lines = tally.logCounts[i];
      Compare(lines == count, path + "logCount." + pattern.text,
              std::to_string(count) + " lines containing " + Quoted(pattern.text), std::to_string(lines) + " lines");
    }
  }

 private:
  void Compare(bool same, const std::string& path, const std::string& expected, const std::string& got) {
    ++m_result->checked;
    if (!same) m_result->Add({m_where, path, expected, got});
  }

  void Mismatch(const std::string& path, const std::string& expected, const std::string& got) {
    m_result->Add({m_where, path, expected, got});
  }

  void Field(const std::string& path, const FieldSpec& field, const Value& expected, const Value* got) {
    Compare(got != nullptr && ToJson(*got) == ToJson(expected), path, Shown(&expected, field.kind),
            Shown(got, field.kind));
  }

  // A list expected in full: texts, or records as JSON compared on the members given.
  template <typename T>
  void Texts(const std::optional<std::vector<T>>& expected, const Tally::List& got, const std::string& path) {
    if (!expected) return;
    ++m_result->checked;
    if (got.same && got.shown.size() == expected->size()) return;
    std::vector<std::string> want;
    for (const T& item : *expected) want.push_back(Wanted(item));
    Mismatch(path, List(want), List(got.shown));
  }

  void KernelWrites(const Expectations& e, const Tally& tally, const std::string& path) {
    const size_t count = e.kernelWrites ? e.kernelWrites->size() : static_cast<size_t>(e.kernelWriteCount.value_or(0));
    const size_t written = tally.writes.shown.size();
    if (!e.kernelWrites && !e.kernelWriteCount) return;
    ++m_result->checked;
    if (written != count) {
      Mismatch(path, std::to_string(count) + " writes",
               std::to_string(written) + " writes" + tally.writes.shown.Text());
    }
    for (size_t i = 0; written == count && i < (e.kernelWrites ? count : 0); ++i) {
      const KernelWriteExpect& want = (*e.kernelWrites)[i];
      const std::string text = KernelText(tally.firstWrites[i]);
      const std::string at = path + "[" + std::to_string(i) + "]";
      const size_t bytes = tally.firstWrites[i].bytes.size();
      if (want.bytes && bytes != static_cast<size_t>(*want.bytes)) {
        Mismatch(at + ".bytes", std::to_string(*want.bytes), std::to_string(bytes));
      }
      if (want.text && text != *want.text) Mismatch(at + ".text", Quoted(*want.text), Quoted(text));
      if (want.values) Kernel(*want.values, text, at + ".values");
    }
  }

  void Kernel(const KernelExpect& expected, const std::optional<std::string>& actual, const std::string& path) {
    ++m_result->checked;
    if (expected.present != actual.has_value()) {
      Mismatch(path, actual ? "no kernel parameter file" : ToJson(expected).dump(),
               actual ? Quoted(*actual) : "no kernel parameter file");
    } else if (actual && expected.text && *actual != *expected.text) {
      Mismatch(path, Quoted(*expected.text), Quoted(*actual));
    } else if (actual && !expected.text) {
      const std::vector<int64_t> values = records::ParseNumberList(*actual, 64);
      for (const auto& [index, value] : expected.values) {
        const std::string got = index < values.size() ? std::to_string(values[index]) : "(no value)";
        const std::string at = "[" + std::to_string(index) + "] = ";
        if (got != std::to_string(value))
          Mismatch(path + "." + std::to_string(index), at + std::to_string(value), at + got);
      }
    }
  }

  void Log(const std::vector<LogPattern>& wanted, const Tally& tally, const std::string& path) {
    ++m_result->checked;
    const size_t i = tally.logFound;
    if (i == wanted.size()) return;
    const std::string lines = tally.lines.size() ? "; the lines were:" + tally.lines.Text() : " (no log lines)";
    Mismatch(path + "[" + std::to_string(i) + "]",
             "a log line containing " + Quoted(wanted[i].text) +
                 (i ? " after the line with " + Quoted(wanted[i - 1].text) : ""),
             "none" + lines);
  }

  CheckResult* m_result;
  std::string m_where;
};

}  // namespace

Json ToJson(const Value& value) {
  if (const auto* fields = std::get_if<Fields>(&value)) {
    Json json = Json::object();
    for (const auto& [key, number] : *fields) json[key] = number;
    return json;
  }
  return std::visit([](const auto& v) { return Json(v); }, value);
}

void CheckStep(const Scenario& scenario, const StepOutcome& outcome, CheckResult* result) {
  const Step& step = scenario.steps[outcome.step];
  if (!result->tally) result->tally = std::make_shared<Tally>(scenario.expect);
  result->tally->Add(scenario.expect, outcome.slice);  // the whole run's, for CheckEnd
  if (outcome.restart) return;                         // the restart after an abort
  std::string where = step.path + " " + outcome.title;
  if (step.repeat > 1) {
    where += ", repetition " + std::to_string(outcome.repetition + 1) + " of " + std::to_string(step.repeat);
  }
  Checker checker(result, where);
  if (outcome.observed) checker.Call(step.expect, *outcome.observed, step.path + ".expect.");
  Tally tally(step.expect);
  tally.Add(step.expect, outcome.slice);
  checker.Effects(step.expect, tally, outcome.slice, step.path + ".expect.");
}

void CheckEnd(const Scenario& scenario, const RunResult& run, CheckResult* result) {
  if (!run.error.empty()) return;
  Checker checker(result, "at the end of the scenario");
  checker.End(scenario.expect, run);
  Tally none(scenario.expect);  // no step played
  checker.Effects(scenario.expect, result->tally ? *result->tally : none, run.end, "expect.");
}

CheckResult Check(const Scenario& scenario, const RunResult& run) {
  CheckResult result;
  for (const StepOutcome& outcome : run.outcomes) CheckStep(scenario, outcome, &result);
  CheckEnd(scenario, run, &result);
  return result;
}

std::string FormatMismatches(const CheckResult& result) { return result.text.Text(); }

}  // namespace sim::report
