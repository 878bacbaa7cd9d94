// Plays a scenario on a fresh simulated phone: loads the built hook library
// the way the framework core does, makes each HAL call through the proxy that
// is installed over it, and records what the library did at every step.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "scenario.h"
#include "simdevice.h"
#include "simframework.h"
#include "simlog.h"

namespace sim::scenario {

// What happened during a stretch of the run (one step, or the whole run),
// and the state the phone was left in.
struct Slice {
  std::vector<sim::Event> events;  // the simulated platform's journal
  std::vector<sim::LogLine> log;
  std::vector<sim::SysfsWrite> kernelWrites;
  std::vector<sim::framework::CoreNotification> notifications;
  std::vector<sim::framework::CoreCallback> callbacks;
  std::vector<sim::framework::CoreProbeRecord> probeRecords;
  std::vector<int32_t> switchQueries;
  std::vector<std::string> argumentQueries;
  std::vector<sim::framework::MessageCenterRequest> requests;
  std::vector<hal::CallResult> halCalls;
  // State afterwards.
  std::map<std::string, std::string> properties;
  std::optional<std::string> kernelParameter;  // none: no file
};

struct StepOutcome {
  size_t step = 0;                   // index into Scenario::steps
  int repetition = 0;                // 0-based
  std::string title;                 // "SensorProbe(camera 0, s5kgm2_rear)"
  bool restart = false;              // the camera service's restart after an abort
  std::optional<Observed> observed;  // a call's results, "halCalls" last
  std::vector<int32_t> halResults;   // what the HAL function returned, per call
  bool aborted = false;
  Slice slice;
};

struct RunResult {
  std::string error;  // set when the run could not go on (missing library or proxy)
  std::string libraryPath;
  std::vector<StepOutcome> outcomes;
  Slice total;
  std::map<std::string, int> halCalls;
  int restarts = 0;
  int reboots = 0;
  int aborts = 0;
  int64_t durationUs = 0;
};

struct PlayOptions {
  // Called after every HAL call with the calls done and the calls in all.
  std::function<void(size_t done, size_t total)> progress;
  // Called after every step outcome (for output while a long run goes on).
  std::function<void(const Scenario&, const StepOutcome&)> stepDone;
};

// Plays `scenario` on a new simulated phone. Never throws; a run that cannot
// go on returns with `error` set and the outcomes so far.
RunResult Play(const Scenario& scenario, const PlayOptions& options = {});

// The line a log expectation is matched against: "I [REMEDIUM]: hook.cpp:12 Fn() text".
std::string LogText(const sim::LogLine& line);

}  // namespace sim::scenario
