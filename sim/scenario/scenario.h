// A scenario: the simulated phone (cameras, override settings, properties,
// kernel parameter, framework core, message centre), the HAL calls to play on
// it, and what the library is expected to do, read once into the types below;
// and playing it on a fresh simulated phone. Scenarios are JSON files; the
// format is described in sim/scenarios/README.md.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "sim/framework/simframework.h"
#include "sim/hal/simhal.h"
#include "sim/harness/catalogue.h"
#include "sim/harness/harness.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simlog.h"
#include "sim/platform/simshadowhook.h"
#include "sim/text/spool.h"

namespace sim::scenario {

using Json = nlohmann::ordered_json;

// One camera of the device: the HAL's camera id, the slot its static caps
// report, and the names of the modules that may sit behind it.
struct Camera {
  uint32_t id = 0;
  uint32_t slot = 0;
  std::string role;
  std::vector<std::string> sensors, eeproms, actuators;
};

// The framework core library ("/vendor/lib64/com.velora.remedium.core.so").
struct CoreSetup {
  bool present = true;
  std::map<int32_t, bool> switches;
  std::map<std::string, std::vector<std::string>> hookArguments;
};

// The message-centre library and its answers.
struct MostProbed {
  std::string sensor;
  int64_t recordCount = 0;
};
struct MessageCenterSetup {
  bool present = true;
  bool withSend = true;                            // false: the library lacks "MessageCenterSendMessage"
  std::map<std::string, std::string> sensorTypes;  // sensor name -> type
  std::map<std::string, MostProbed> mostProbed;    // type -> answer
};

// The kernel module parameter: absent, or the text the driver shows.
struct KernelParameter {
  bool present = true;
  std::string text;
};

// The phone before the first step (every member set) and changes between
// steps ("set", every member optional): the top level of a scenario and a
// "set" step share these keys and their reader.
struct Changes {
  std::optional<CoreSetup> core;
  std::optional<MessageCenterSetup> messageCenter;
  std::map<std::string, std::optional<std::string>> properties;  // null removes
  std::optional<KernelParameter> kernelParameter;
  std::optional<std::optional<std::string>> overrideSettings;  // inner null removes the file
  std::optional<int64_t> bootTime;
};

// The kernel parameter as expected: no file, an exact text, or some values.
struct KernelExpect {
  bool present = true;
  std::optional<std::string> text;
  std::map<size_t, int64_t> values;
};
struct KernelWriteExpect {
  std::optional<std::string> text;
  std::optional<KernelExpect> values;
  std::optional<int64_t> bytes;
};
using Counts = std::vector<std::pair<std::string, int64_t>>;

// A log expectation's text, compiled once: the pieces between its "*" (runs
// of "*" are one), which a line must hold in order. Matching takes time in
// proportion to the line, whatever the pattern.
struct LogPattern {
  LogPattern(std::string pattern);  // implicit: every text is a pattern
  bool Matches(const std::string& line) const;
  std::string text;
  std::vector<std::string> pieces;  // none empty
};
std::vector<LogPattern> LogPatterns(const std::vector<std::string>& texts);

// What a step (after each repetition) or the whole run must show; unset
// members are not checked.
struct Expectations {
  // Results of a call (step only).
  std::optional<int64_t> result, halCalls;
  std::vector<std::pair<FieldSpec, Value>> fields;  // the call's HAL-side fields
  // Effects.
  std::optional<std::map<std::string, std::optional<std::string>>> properties;
  std::optional<KernelExpect> kernelParameter;
  std::optional<int64_t> kernelWriteCount;
  std::optional<std::vector<KernelWriteExpect>> kernelWrites;
  std::optional<std::vector<std::string>> notifications, argumentQueries;
  std::optional<std::vector<LogPattern>> log, noLog;
  // As the checker describes what happened: "2", "s5kgm2_rear failed".
  std::optional<std::vector<std::string>> switchQueries, probeRecords;
  std::optional<std::vector<std::pair<LogPattern, int64_t>>> logCount;
  // Records as JSON: a callback's given fields; a request's "name" and, when given, its exact "data".
  std::optional<std::vector<Json>> callbacks, requests;
  // The whole run only.
  std::optional<Counts> functionCalls;  // "halCalls": {"Function": count}
  std::optional<int64_t> aborts;
};

// A step's scripted HAL outcomes: one per call in order, then `after` for the
// calls beyond them.
struct HalScript {
  std::vector<hal::Outcome> calls;
  hal::Outcome after;
};

struct Step {
  enum class Kind { kCall, kRestart, kReboot, kSet };
  Kind kind = Kind::kCall;
  std::string path;  // "steps[3]"
  std::string note;
  const CatalogueEntry* hook = nullptr;  // kCall
  CallArgs args;
  HalScript hal;
  int repeat = 1;
  Changes changes;  // kSet
  Expectations expect;
};

struct Scenario {
  std::string file;  // as given by the user
  std::string name;
  std::string description;
  std::vector<Camera> cameras;
  Changes setup;  // every member set; a reboot restores its kernel parameter and boot time
  std::vector<Step> steps;
  Expectations expect;
  size_t callCount = 0;  // HAL calls played, repetitions counted
};

// A problem with a scenario file that its author can fix: which file, where
// in it (a JSON path such as "steps[3].hal"), and what was expected.
struct LoadError {
  std::string file;
  std::string path;  // empty for file-level problems
  std::string message;
  std::string ToString() const;
};

// Limits on what a scenario file may hold (sim/scenarios/README.md lists them).
inline constexpr size_t kMaxFileBytes = 4 << 20;
inline constexpr int kMaxDepth = 64;           // nesting of arrays and objects
inline constexpr int64_t kMaxRepeat = 100000;  // "repeat" of one step
inline constexpr size_t kMaxSteps = 200000;    // steps a scenario plays, repetitions counted

// A scenario as its JSON file says it (without expectations): what the
// loader reads back as the same scenario.
Json ScenarioJson(const Scenario& scenario);
// A step's title: "SensorProbe(camera 0, s5kgm2_rear)"; "set" for a set step.
std::string Title(const Step& step);

// Reads and validates a scenario; on failure returns nullopt and sets `error`.
// Only a regular file is read, and at most kMaxFileBytes of it. Never throws.
std::optional<Scenario> LoadScenarioFile(const std::string& file, LoadError* error);
std::optional<Scenario> ParseScenario(const std::string& text, const std::string& file, LoadError* error);

// Where a scenario's "overrideSettings" text lies on the phone.
inline constexpr char kOverrideSettingsDevicePath[] = "/odm/etc/camera/camxoverridesettings.txt";

// The text of a kernel parameter of `count` zeros ("0,0,...").
std::string ZeroTable(size_t count = 64);

// Playing: loads the built hook library the way the framework core does,
// makes each HAL call through the proxy that is installed over it, and
// records what the library did at every step.

// What happened during one step, and the state the phone was left in.
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
  std::vector<sim::HookStackCall> hookStack;  // the proxies' calls into ShadowHook
  // State afterwards (of a step, only when its expectations need it).
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

// The whole run, counted step by step as it plays.
struct Totals {
  void Add(const StepOutcome& outcome);
  size_t log = 0, errors = 0, kernelWrites = 0, notifications = 0, probeRecords = 0, requests = 0;
  size_t changed = 0;     // results the library changed
  text::Spool callbacks;  // each protection callback, as the summary lists it
};

struct RunResult {
  std::string error;  // set when the run could not go on (missing library or proxy)
  std::string libraryPath;
  std::vector<StepOutcome> outcomes;  // with PlayOptions::keepOutcomes
  Totals totals;
  Slice end;  // the state the run left (its properties and kernel parameter)
  std::map<std::string, int> halCalls;
  int restarts = 0;
  int reboots = 0;
  int aborts = 0;
  int64_t durationUs = 0;
};

// Told of every step as the runner plays it, and of every camera process's
// end (a restart, a reboot, an abort, the end of the run).
class Observer {
 public:
  virtual ~Observer() = default;
  virtual void RunStarts(const Scenario&) {}
  virtual void BeforeStep(const Step&) {}
  virtual void AfterStep(const Step&, const StepOutcome&, const sim::HookLibrary&) {}
  virtual void ProcessEnds() {}
};

struct PlayOptions {
  // Called after every HAL call with the calls done and the calls in all.
  std::function<void(size_t done, size_t total)> progress;
  // Called after every step outcome (for output while a long run goes on).
  std::function<void(const Scenario&, const StepOutcome&)> stepDone;
  // false: each step's outcome goes to stepDone only, so a run holds one
  // step's records at a time.
  bool keepOutcomes = true;
  std::vector<Observer*> observers;
};

// Plays `scenario` on a new simulated phone. Never throws; a run that cannot
// go on returns with `error` set and the outcomes so far.
RunResult Play(const Scenario& scenario, const PlayOptions& options = {});

// The line a log expectation is matched against: "I [REMEDIUM]: hook.cpp:12 Fn() text".
std::string LogText(const sim::LogLine& line);

}  // namespace sim::scenario
