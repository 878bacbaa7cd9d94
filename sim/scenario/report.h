// What remedium-sim prints: a readable timeline of each step, a summary of a
// run, and a machine-readable report.
#pragma once

#include <string>

#include "checker.h"
#include "player.h"
#include "scenario.h"

namespace sim::scenario {

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

// The report of one scenario as JSON.
Json ReportJson(const Scenario& scenario, const RunResult& run, const CheckResult& check);

}  // namespace sim::scenario
