#include <algorithm>
#include <sstream>

#include "sim/records/records.h"
#include "sim/scenario/report.h"

namespace sim::scenario {
namespace {

using scenario::ToJson;

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

// True when `line` holds the pieces of `pattern` between its "*" in order.
bool LogMatches(const std::string& line, const std::string& pattern) {
  size_t at = 0;
  for (size_t begin = 0;;) {
    const size_t star = pattern.find('*', begin);
    const size_t found = line.find(pattern.substr(begin, star == std::string::npos ? star : star - begin), at);
    if (found == std::string::npos) return false;
    if (star == std::string::npos) return true;
    at = found + star - begin;
    begin = star + 1;
  }
}

std::string List(const std::vector<std::string>& items) {
  std::string text = items.empty() ? "(none)" : "";
  for (const std::string& item : items) text += "\n      " + item;
  return text;
}

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

  void Effects(const Expectations& e, const Slice& slice, const std::string& path) {
    for (const auto& [name, value] : e.properties.value_or(std::map<std::string, std::optional<std::string>>{})) {
      const auto found = slice.properties.find(name);
      const std::string got = found == slice.properties.end() ? "(unset)" : Quoted(found->second);
      Compare(got == (value ? Quoted(*value) : "(unset)"), path + "properties." + name,
              value ? Quoted(*value) : "(unset)", got);
    }
    if (e.kernelParameter) Kernel(*e.kernelParameter, slice.kernelParameter, path + "kernelParameter");
    KernelWrites(e, slice, path + "kernelWrites");
    std::vector<std::string> notifications, records, kinds;
    for (const auto& n : slice.notifications) {
      notifications.push_back(n.value == 1 ? n.hookName : n.hookName + " (value " + std::to_string(n.value) + ")");
    }
    for (const auto& record : slice.probeRecords)
      records.push_back(record.name + (record.result ? " failed" : " probed"));
    for (int32_t kind : slice.switchQueries) kinds.push_back(std::to_string(kind));
    Texts(e.notifications, notifications, path + "notifications");
    Records(e.callbacks, slice.callbacks, Describe, path + "callbacks");
    Texts(e.probeRecords, records, path + "probeRecords");
    Texts(e.switchQueries, kinds, path + "switchQueries");
    Texts(e.argumentQueries, slice.argumentQueries, path + "argumentQueries");
    Records(
        e.requests, slice.requests, [](const auto& r) { return sim::framework::Describe(r, true); },
        path + "messageCenterRequests");
    if (e.log) Log(*e.log, slice, path + "log");
    for (const std::string& text : e.noLog.value_or(std::vector<std::string>{})) {
      const auto hit = std::find_if(slice.log.begin(), slice.log.end(),
                                    [&text](const sim::LogLine& line) { return LogMatches(LogText(line), text); });
      Compare(hit == slice.log.end(), path + "noLog", "no log line containing " + Quoted(text),
              hit == slice.log.end() ? "" : Quoted(LogText(*hit)));
    }
    for (const auto& [text, count] : e.logCount.value_or(Counts{})) {
      const auto lines = std::count_if(slice.log.begin(), slice.log.end(),
                                       [&text](const sim::LogLine& line) { return LogMatches(LogText(line), text); });
      Compare(lines == count, path + "logCount." + text, std::to_string(count) + " lines containing " + Quoted(text),
              std::to_string(lines) + " lines");
    }
  }

 private:
  void Compare(bool same, const std::string& path, const std::string& expected, const std::string& got) {
    ++m_result->checked;
    if (!same) m_result->mismatches.push_back({m_where, path, expected, got});
  }

  void Mismatch(const std::string& path, const std::string& expected, const std::string& got) {
    m_result->mismatches.push_back({m_where, path, expected, got});
  }

  void Field(const std::string& path, const FieldSpec& field, const Value& expected, const Value* got) {
    Compare(got != nullptr && ToJson(*got) == ToJson(expected), path, Shown(&expected, field.kind),
            Shown(got, field.kind));
  }

  void Texts(const std::optional<std::vector<std::string>>& expected, const std::vector<std::string>& got,
             const std::string& path) {
    if (expected) Compare(*expected == got, path, List(*expected), List(got));
  }

  void KernelWrites(const Expectations& e, const Slice& slice, const std::string& path) {
    std::string writes = std::to_string(slice.kernelWrites.size()) + " writes";
    for (const auto& write : slice.kernelWrites) writes += "\n      " + records::DescribeKernelText(KernelText(write));
    const size_t count = e.kernelWrites ? e.kernelWrites->size() : static_cast<size_t>(e.kernelWriteCount.value_or(0));
    if (!e.kernelWrites && !e.kernelWriteCount) return;
    Compare(slice.kernelWrites.size() == count, path, std::to_string(count) + " writes", writes);
    for (size_t i = 0; slice.kernelWrites.size() == count && i < (e.kernelWrites ? count : 0); ++i) {
      const KernelWriteExpect& want = (*e.kernelWrites)[i];
      const std::string text = KernelText(slice.kernelWrites[i]);
      const std::string at = path + "[" + std::to_string(i) + "]";
      const size_t bytes = slice.kernelWrites[i].bytes.size();
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

  // Records in order, each compared on the members its expectation gives.
  template <typename T, typename Describer>
  void Records(const std::optional<std::vector<Json>>& expected, const std::vector<T>& records, Describer describe,
               const std::string& path) {
    if (!expected) return;
    std::vector<std::string> want, shown;
    bool same = expected->size() == records.size();
    for (size_t i = 0; i < expected->size(); ++i) {
      want.push_back((*expected)[i].dump());
      same = same && Matches((*expected)[i], ToJson(records[i]));
    }
    for (const T& record : records) shown.push_back(describe(record));
    Compare(same, path, List(want), List(shown));
  }

  void Log(const std::vector<std::string>& wanted, const Slice& slice, const std::string& path) {
    ++m_result->checked;
    size_t line = 0;
    for (size_t i = 0; i < wanted.size(); ++line, ++i) {
      while (line < slice.log.size() && !LogMatches(LogText(slice.log[line]), wanted[i])) ++line;
      if (line < slice.log.size()) continue;
      std::string lines = slice.log.empty() ? " (no log lines)" : "; the lines were:";
      for (const sim::LogLine& logged : slice.log) lines += "\n      " + LogText(logged);
      return Mismatch(
          path + "[" + std::to_string(i) + "]",
          "a log line containing " + Quoted(wanted[i]) + (i ? " after the line with " + Quoted(wanted[i - 1]) : ""),
          "none" + lines);
    }
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
  if (outcome.restart) return;  // the restart after an abort
  std::string where = step.path + " " + outcome.title;
  if (step.repeat > 1) {
    where += ", repetition " + std::to_string(outcome.repetition + 1) + " of " + std::to_string(step.repeat);
  }
  Checker checker(result, where);
  if (outcome.observed) checker.Call(step.expect, *outcome.observed, step.path + ".expect.");
  checker.Effects(step.expect, outcome.slice, step.path + ".expect.");
}

void CheckEnd(const Scenario& scenario, const RunResult& run, CheckResult* result) {
  if (!run.error.empty()) return;
  Checker checker(result, "at the end of the scenario");
  checker.End(scenario.expect, run);
  checker.Effects(scenario.expect, run.total, "expect.");
}

CheckResult Check(const Scenario& scenario, const RunResult& run) {
  CheckResult result;
  for (const StepOutcome& outcome : run.outcomes) CheckStep(scenario, outcome, &result);
  CheckEnd(scenario, run, &result);
  return result;
}

std::string FormatMismatches(const CheckResult& result) {
  std::ostringstream out;
  std::string where;
  for (const Mismatch& mismatch : result.mismatches) {
    if (mismatch.where != where) out << "  " << (where = mismatch.where) << ":\n";
    out << "    " << mismatch.path << "\n      expected: " << mismatch.expected << "\n      got:      " << mismatch.got
        << "\n";
  }
  return out.str();
}

}  // namespace sim::scenario
