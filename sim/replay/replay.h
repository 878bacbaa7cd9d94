// From a phone's log to a scenario the simulator plays, and the questions
// asked of it: the same run under other settings (overrides applied to a
// loaded scenario) and where two runs' decisions part (compare).
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "sim/scenario/scenario.h"

namespace CLI {
class App;
}

namespace sim::replay {

using Json = nlohmann::ordered_json;

// A scenario rebuilt from what a phone recorded: the setup and the HAL calls
// with the results the log shows, in the log's order, restarts and reboots
// between its camera processes and boots. What the log could not show and
// the replay had to assume is in the steps' "note" and in `assumed`, one
// line each ("steps[4]: ...", "setup: ...").
struct Replayed {
  Json scenario;
  std::vector<std::string> assumed;
};

// Reads the inputs as `remedium-sim explain` does (any log format, bug
// reports, getprop dumps, kernel parameter texts, in the order of their first
// log time). False with one line in `error` for an input that cannot be read
// or a log without one line of the library.
bool ReplayInputs(const std::vector<std::string>& files, Replayed* replayed, std::string* error);

// `remedium-sim explain --scenario OUT FILE...`: writes the scenario to `out`
// and lists each assumption on `err` as "assumed: ...". 0 written, 2 bad input.
int RunReplay(const std::vector<std::string>& files, const std::string& out, std::ostream& err);

// Changes to a loaded scenario before it plays, as given on the command line.
struct Overrides {
  std::vector<std::string> properties;     // "NAME=VALUE": a property preset before the first step
  std::vector<std::string> settingsFiles;  // the override-settings file's text is this file's
  std::vector<std::string> coreArguments;  // "NAME=VALUE,VALUE": the core's hook arguments (empty: none)
  std::vector<std::string> modules;        // "SLOT=NAME,NAME": the module names of the camera at that slot
  bool Empty() const { return properties.empty() && settingsFiles.empty() && coreArguments.empty() && modules.empty(); }
};

// Applies `overrides` to the scenario's setup and cameras. A module list
// renames the camera's modules by position, in its steps too. False, with one
// line in `error`, for a property the library neither reads nor writes, a
// core argument no hook asks for, a slot no camera has, a malformed override
// or an unreadable settings file.
bool ApplyOverrides(const Overrides& overrides, sim::scenario::Scenario* scenario, std::string* error);

// `remedium-sim compare A.json B.json`: plays both, tells each run's log as
// explain does and prints per camera where the decisions part. 0 the same
// decisions, 1 they differ, 2 bad input.
int RunCompare(const std::string& a, const std::string& b, const Overrides& overrides, bool json, std::ostream& out,
               std::ostream& err);

// The overrides as options of a command (run, check, compare).
void AddOverrides(CLI::App& command, Overrides* overrides);
// Adds `compare`, and `--scenario` to `explain`; the result runs whichever
// was given, or is nullopt.
std::function<std::optional<int>()> AddCommands(CLI::App& app, CLI::App& explain);

}  // namespace sim::replay
