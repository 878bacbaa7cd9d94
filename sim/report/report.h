// What remedium-sim shows of a played scenario: the comparison with its
// expectations, a readable timeline of each step, a summary, a
// machine-readable report, and short texts of the simulated phone's records
// (callbacks, requests, kernel writes). The library's own records in words
// are sim/records.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/scenario/scenario.h"
#include "sim/text/spool.h"

namespace sim::report {

using scenario::Json;
using scenario::RunResult;
using scenario::Scenario;
using scenario::StepOutcome;
using text::Spool;

// One expectation that was not met: where (a step, or the end of the
// scenario), which expectation (its JSON path), what was expected and what
// the library did.
struct Mismatch {
  std::string where;
  std::string path;
  std::string expected;
  std::string got;
};

struct Tally;  // the whole run's records as its expectations need them

// The mismatches a check keeps in memory; every one is also spooled as text
// and as a JSON report item, so that a long run's failures do not fill memory.
inline constexpr size_t kKeptMismatches = 100;

struct CheckResult {
  size_t checked = 0;                // expectations compared
  size_t failed = 0;                 // expectations not met
  std::vector<Mismatch> mismatches;  // the first kKeptMismatches of them
  Spool text;                        // each as FormatMismatches writes it
  Spool json;                        // each as an item of the report's "mismatches"
  std::string lastWhere;             // the heading of the text's last paragraph
  std::shared_ptr<Tally> tally;      // followed by CheckStep for CheckEnd
  void Add(Mismatch mismatch);
  bool ok() const { return failed == 0; }
};

CheckResult Check(const Scenario& scenario, const RunResult& run);
// The same, step by step while the scenario plays (each step also followed
// for the whole run's expectations), then at its end.
void CheckStep(const Scenario& scenario, const StepOutcome& outcome, CheckResult* result);
void CheckEnd(const Scenario& scenario, const RunResult& run, CheckResult* result);

// A readable difference, one mismatch per paragraph, under a heading for
// each step (or the end of the scenario) where they happened.
std::string FormatMismatches(const CheckResult& result);

// An observed value as JSON (a report's "observed" and the checker's texts).
Json ToJson(const Value& value);

struct TimelineOptions {
  bool allLog = false;  // every log line, not only warnings and errors
  bool logcat = false;  // log lines in logcat's format
};

// The header of a scenario's timeline.
std::string FormatHeader(const Scenario& scenario);
// One step: its header line and what the library and the platform did.
std::string FormatStep(const Scenario& scenario, const StepOutcome& outcome, const TimelineOptions& options);
// Totals of a run, the state left on the phone explained, and the check.
std::string FormatSummary(const Scenario& scenario, const RunResult& run, const CheckResult& check);

// The report of one scenario as JSON (from every step's outcome).
Json ReportJson(const Scenario& scenario, const RunResult& run, const CheckResult& check);

// The same report, written as the scenario plays: each step's item and the
// run's records are spooled as they come, and Write puts them in place, as
// an item of the document's "scenarios" (two levels deep) that dump(2) writes.
class JsonReport {
 public:
  void Add(const Scenario& scenario, const StepOutcome& outcome);
  void Write(const Scenario& scenario, const RunResult& run, const CheckResult& check, std::ostream& out) const;

 private:
  Spool m_steps;
  Spool m_records[8];  // the run's "final" lists, in their order
};

// The text of a kernel parameter write, without its NUL padding.
std::string KernelText(const sim::SysfsWrite& write);

// As JSON: a callback's five fields (the report's records, which expectations match);
// a request's "name" and "data".
Json ToJson(const sim::framework::CoreCallback& callback);
Json ToJson(const sim::framework::MessageCenterRequest& request);

}  // namespace sim::report
