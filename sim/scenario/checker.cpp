#include "checker.h"

#include <sstream>

#include "text.h"

namespace sim::scenario {
namespace {

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

// True when `line` holds the pieces of `pattern` between its "*" in order.
bool LogMatches(const std::string& line, const std::string& pattern) {
  size_t at = 0;
  size_t begin = 0;
  while (true) {
    const size_t star = pattern.find('*', begin);
    const std::string piece = pattern.substr(begin, star == std::string::npos ? std::string::npos : star - begin);
    const size_t found = line.find(piece, at);
    if (found == std::string::npos) return false;
    at = found + piece.size();
    if (star == std::string::npos) return true;
    begin = star + 1;
  }
}

std::string List(const std::vector<std::string>& items) {
  if (items.empty()) return "(none)";
  std::string text;
  for (const std::string& item : items) text += "\n      " + item;
  return text;
}

std::string Shown(const Json& value, const std::string& key) {
  if (value.is_null()) return "(nothing)";
  if ((key == "slaveAddress" || key == "halSawSlaveAddress" || key == "errorCode") && value.is_number_integer()) {
    return Hex(value.get<uint64_t>()) + " (" + value.dump() + ")";
  }
  return value.dump();
}

class Checker {
 public:
  explicit Checker(CheckResult* result) : m_result(result) {}

  void Outcome(const Step& step, const StepOutcome& outcome, const std::string& where) {
    for (auto it = step.expect.begin(); it != step.expect.end(); ++it) {
      const std::string& key = it.key();
      const std::string path = step.path + ".expect." + key;
      const Json& expected = it.value();
      if (key == "durationAtLeastUs") {
        ++m_result->checked;
        const int64_t got = outcome.observed.value(key, int64_t{0});
        if (got < expected.get<int64_t>()) {
          Add(where, path, "at least " + expected.dump() + " us", std::to_string(got) + " us");
        }
      } else if (outcome.observed.contains(key) || IsCallKey(key)) {
        ++m_result->checked;
        const Json got = outcome.observed.contains(key) ? outcome.observed[key] : Json();
        if (got != expected) Add(where, path, Shown(expected, key), Shown(got, key));
      } else {
        Generic(key, expected, outcome.slice, where, path);
      }
    }
  }

  void End(const Scenario& scenario, const RunResult& run) {
    const std::string where = "at the end of the scenario";
    for (auto it = scenario.expect.begin(); it != scenario.expect.end(); ++it) {
      const std::string& key = it.key();
      const std::string path = "expect." + key;
      if (key == "halCalls") {
        for (auto call = it.value().begin(); call != it.value().end(); ++call) {
          ++m_result->checked;
          const auto found = run.halCalls.find(call.key());
          const int got = found == run.halCalls.end() ? 0 : found->second;
          if (got != call.value().get<int>())
            Add(where, path + "." + call.key(), call.value().dump(), std::to_string(got));
        }
      } else if (key == "aborts") {
        ++m_result->checked;
        if (run.aborts != it.value().get<int>()) Add(where, path, it.value().dump(), std::to_string(run.aborts));
      } else {
        Generic(key, it.value(), run.total, where, path);
      }
    }
  }

 private:
  static bool IsCallKey(const std::string& key) {
    static const std::vector<std::string> kKeys = {
        "result",         "halCalls",       "initState",    "slaveAddress", "halSawSlaveAddress",
        "eepromFlag",     "changedOffsets", "changedBytes", "halSawData",   "timestamps",
        "shiftedSamples", "message",        "aborted"};
    return std::find(kKeys.begin(), kKeys.end(), key) != kKeys.end();
  }

  void Add(const std::string& where, const std::string& path, const std::string& expected, const std::string& got) {
    m_result->mismatches.push_back({where, path, expected, got});
  }

  // Compares one list of texts, in order.
  void Texts(const std::vector<std::string>& expected, const std::vector<std::string>& got, const std::string& where,
             const std::string& path) {
    ++m_result->checked;
    if (expected != got) Add(where, path, List(expected), List(got));
  }

  void Generic(const std::string& key, const Json& expected, const Slice& slice, const std::string& where,
               const std::string& path) {
    if (key == "properties") {
      for (auto it = expected.begin(); it != expected.end(); ++it) {
        ++m_result->checked;
        const auto found = slice.properties.find(it.key());
        const std::string got = found == slice.properties.end() ? "(unset)" : Quoted(found->second);
        const std::string want = it.value().is_null() ? "(unset)" : Quoted(it.value().get<std::string>());
        if (got != want) Add(where, path + "." + it.key(), want, got);
      }
    } else if (key == "kernelParameter") {
      KernelText(expected, slice.kernelParameter, where, path);
    } else if (key == "kernelWrites") {
      ++m_result->checked;
      if (expected.is_number()) {
        if (slice.kernelWrites.size() != expected.get<size_t>()) {
          Add(where, path, expected.dump() + " writes",
              std::to_string(slice.kernelWrites.size()) + " writes" + Writes(slice));
        }
        return;
      }
      if (slice.kernelWrites.size() != expected.size()) {
        Add(where, path, std::to_string(expected.size()) + " writes",
            std::to_string(slice.kernelWrites.size()) + " writes" + Writes(slice));
        return;
      }
      for (size_t i = 0; i < expected.size(); ++i) {
        const Json& want = expected[i];
        const sim::SysfsWrite& write = slice.kernelWrites[i];
        const std::string text = write.bytes.substr(0, write.bytes.find('\0'));
        const std::string at = path + "[" + std::to_string(i) + "]";
        if (want.contains("bytes") && write.bytes.size() != want["bytes"].get<size_t>()) {
          Add(where, at + ".bytes", want["bytes"].dump(), std::to_string(write.bytes.size()));
        }
        if (want.contains("text") && text != want["text"].get<std::string>()) {
          Add(where, at + ".text", Quoted(want["text"].get<std::string>()), Quoted(text));
        }
        if (want.contains("values")) KernelText(want["values"], text, where, at + ".values");
      }
    } else if (key == "notifications") {
      std::vector<std::string> got;
      for (const auto& notification : slice.notifications) {
        got.push_back(notification.value == 1
                          ? notification.hookName
                          : notification.hookName + " (value " + std::to_string(notification.value) + ")");
      }
      Texts(expected.get<std::vector<std::string>>(), got, where, path);
    } else if (key == "callbacks") {
      ++m_result->checked;
      std::vector<std::string> want;
      std::vector<std::string> got;
      bool same = expected.size() == slice.callbacks.size();
      for (size_t i = 0; i < std::max(expected.size(), slice.callbacks.size()); ++i) {
        if (i < slice.callbacks.size()) got.push_back(Describe(slice.callbacks[i]));
        if (i >= expected.size()) continue;
        want.push_back(expected[i].dump());
        if (i >= slice.callbacks.size()) continue;
        const auto& callback = slice.callbacks[i];
        const Json& e = expected[i];
        if ((e.contains("arg0") && e["arg0"] != callback.arg0) || (e.contains("arg1") && e["arg1"] != callback.arg1) ||
            (e.contains("errorCode") && e["errorCode"] != callback.errorCode) ||
            (e.contains("name") && e["name"] != callback.name) ||
            (e.contains("messageType") && e["messageType"] != callback.messageType)) {
          same = false;
        }
      }
      if (!same) Add(where, path, List(want), List(got));
    } else if (key == "probeRecords") {
      std::vector<std::string> want;
      std::vector<std::string> got;
      for (const Json& record : expected) {
        want.push_back(record["name"].get<std::string>() + (record["failed"].get<bool>() ? " failed" : " probed"));
      }
      for (const auto& record : slice.probeRecords)
        got.push_back(record.name + (record.result ? " failed" : " probed"));
      Texts(want, got, where, path);
    } else if (key == "switchQueries") {
      std::vector<std::string> want;
      std::vector<std::string> got;
      for (const Json& kind : expected) want.push_back(kind.dump());
      for (int32_t kind : slice.switchQueries) got.push_back(std::to_string(kind));
      Texts(want, got, where, path);
    } else if (key == "argumentQueries") {
      Texts(expected.get<std::vector<std::string>>(), slice.argumentQueries, where, path);
    } else if (key == "messageCenterRequests") {
      ++m_result->checked;
      std::vector<std::string> want;
      std::vector<std::string> got;
      bool same = expected.size() == slice.requests.size();
      for (size_t i = 0; i < slice.requests.size(); ++i) got.push_back(DescribeRequest(slice.requests[i]));
      for (size_t i = 0; i < expected.size(); ++i) {
        want.push_back(expected[i].dump());
        if (i >= slice.requests.size()) continue;
        const auto& request = slice.requests[i];
        if (expected[i]["name"] != request.name) same = false;
        if (expected[i].contains("data") && !SameData(expected[i]["data"], request)) same = false;
      }
      if (!same) Add(where, path, List(want), List(got));
    } else if (key == "log") {
      ++m_result->checked;
      size_t line = 0;
      const std::vector<std::string> wanted = expected.get<std::vector<std::string>>();
      for (size_t i = 0; i < wanted.size(); ++i) {
        while (line < slice.log.size() && !LogMatches(LogText(slice.log[line]), wanted[i])) ++line;
        if (line == slice.log.size()) {
          Add(where, path + "[" + std::to_string(i) + "]",
              "a log line containing " + Quoted(wanted[i]) + (i ? " after the line with " + Quoted(wanted[i - 1]) : ""),
              "none" + LogLines(slice));
          break;
        }
        ++line;
      }
    } else if (key == "noLog") {
      for (const std::string& text : expected.get<std::vector<std::string>>()) {
        ++m_result->checked;
        for (const sim::LogLine& line : slice.log) {
          if (LogMatches(LogText(line), text)) {
            Add(where, path, "no log line containing " + Quoted(text), Quoted(LogText(line)));
            break;
          }
        }
      }
    } else if (key == "logCount") {
      for (auto it = expected.begin(); it != expected.end(); ++it) {
        ++m_result->checked;
        size_t count = 0;
        for (const sim::LogLine& line : slice.log) count += LogMatches(LogText(line), it.key()) ? 1 : 0;
        if (count != it.value().get<size_t>()) {
          Add(where, path + "." + it.key(), it.value().dump() + " lines containing " + Quoted(it.key()),
              std::to_string(count) + " lines");
        }
      }
    }
  }

  void KernelText(const Json& expected, const std::optional<std::string>& actual, const std::string& where,
                  const std::string& path) {
    ++m_result->checked;
    if (expected.is_null()) {
      if (actual) Add(where, path, "no kernel parameter file", Quoted(*actual));
      return;
    }
    if (!actual) {
      Add(where, path, expected.dump(), "no kernel parameter file");
      return;
    }
    if (expected.is_string()) {
      if (*actual != expected.get<std::string>())
        Add(where, path, Quoted(expected.get<std::string>()), Quoted(*actual));
      return;
    }
    const std::vector<int64_t> values = ParseNumberList(*actual, 64);
    for (auto it = expected.begin(); it != expected.end(); ++it) {
      const size_t index = static_cast<size_t>(std::stoul(it.key()));
      const std::string got = index < values.size() ? std::to_string(values[index]) : "(no value)";
      if (got != it.value().dump())
        Add(where, path + "." + it.key(), "[" + it.key() + "] = " + it.value().dump(), "[" + it.key() + "] = " + got);
    }
  }

  static bool SameData(const Json& expected, const sim::framework::MessageCenterRequest& request) {
    if (expected.size() != request.data.size()) return false;
    for (auto it = expected.begin(); it != expected.end(); ++it) {
      const auto found = request.data.find(it.key());
      if (found == request.data.end()) return false;
      const auto& value = found->second;
      if (it.value().is_string()) {
        if (value.type != 3 || value.text != it.value().get<std::string>()) return false;
      } else {
        const int64_t number = value.type == 1 ? value.int64Value : static_cast<int64_t>(value.intValue);
        if ((value.type != 0 && value.type != 1) || number != it.value().get<int64_t>()) return false;
      }
    }
    return true;
  }

  static std::string Writes(const Slice& slice) {
    std::string text;
    for (const auto& write : slice.kernelWrites)
      text += "\n      " + DescribeKernelText(write.bytes.substr(0, write.bytes.find('\0')));
    return text;
  }

  static std::string LogLines(const Slice& slice) {
    std::string text = slice.log.empty() ? " (no log lines)" : "; the lines were:";
    for (const sim::LogLine& line : slice.log) text += "\n      " + LogText(line);
    return text;
  }

  CheckResult* m_result;
};

}  // namespace

CheckResult Check(const Scenario& scenario, const RunResult& run) {
  CheckResult result;
  Checker checker(&result);
  for (const StepOutcome& outcome : run.outcomes) {
    if (outcome.observed.contains("restart")) continue;  // the restart after an abort
    const Step& step = scenario.steps[outcome.step];
    if (step.expect.empty()) continue;
    std::string where = step.path + " " + outcome.title;
    if (step.kind == Step::Kind::kCall && step.repeat > 1) {
      where += ", repetition " + std::to_string(outcome.repetition + 1) + " of " + std::to_string(step.repeat);
    }
    checker.Outcome(step, outcome, where);
  }
  if (run.error.empty()) checker.End(scenario, run);
  return result;
}

std::string FormatMismatches(const Scenario& scenario, const CheckResult& result) {
  std::ostringstream out;
  std::string where;
  for (const Mismatch& mismatch : result.mismatches) {
    if (mismatch.where != where) {
      where = mismatch.where;
      out << "  " << where << ":\n";
    }
    out << "    " << mismatch.path << "\n      expected: " << mismatch.expected << "\n      got:      " << mismatch.got
        << "\n";
  }
  (void)scenario;
  return out.str();
}

}  // namespace sim::scenario
