#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "sim/hal/simsensorhal.h"
#include "sim/harness/harness.h"
#include "sim/platform/simproperties.h"
#include "sim/platform/simshadowhook.h"
#include "sim/scenario/scenario.h"

namespace sim::scenario {
namespace {

namespace fw = sim::framework;

// What happened since the last take: the simulated platform's records are
// drained, so memory holds one step's. The state afterwards is read only
// when asked for.
Slice Take(bool state = true) {
  Slice slice;
  slice.events = sim::TakeJournal();
  slice.log = sim::TakeLogLines();
  slice.kernelWrites = sim::TakeSysfsWrites();
  fw::CoreRecords core = fw::TakeCoreRecords();
  slice.notifications = std::move(core.notifications);
  slice.callbacks = std::move(core.callbacks);
  slice.probeRecords = std::move(core.probeRecords);
  slice.switchQueries = std::move(core.switchQueries);
  slice.argumentQueries = std::move(core.argumentQueries);
  slice.requests = fw::TakeMessageCenterRequests();
  slice.halCalls = hal::TakeCallResults();
  slice.hookStack = sim::HookStackCalls();
  sim::ClearHookStackCalls();
  if (!state) return slice;
  slice.properties = sim::AllProperties();
  if (FILE* file = std::fopen(sim::HostPath(hal::kProbeResultParameter).c_str(), "rb")) {
    std::fclose(file);
    slice.kernelParameter = sim::ReadDeviceFile(hal::kProbeResultParameter);
  }
  return slice;
}

void Note(const std::string& text) { sim::Record("scenario", text); }

void ApplyDeviceFile(const char* path, const std::optional<std::string>& text) {
  text ? sim::WriteDeviceFile(path, *text) : sim::RemoveDeviceFile(path);
}

void ApplyKernelParameter(const KernelParameter& parameter) {
  ApplyDeviceFile(hal::kProbeResultParameter, parameter.present ? std::optional(parameter.text) : std::nullopt);
}

// A "set" step, and the scenario's setup before the camera process starts.
void ApplyChanges(const Changes& changes) {
  if (const auto& core = changes.core) {
    core->present ? fw::InstallCore() : fw::RemoveCore();
    for (const auto& [kind, open] : core->switches) fw::SetSwitch(kind, open);
    for (const auto& [hook, arguments] : core->hookArguments) fw::SetHookArguments(hook, arguments);
    Note(std::string("framework core ") + (core->present ? "installed" : "removed"));
  }
  if (const auto& centre = changes.messageCenter) {
    !centre->present   ? fw::RemoveMessageCenter()
    : centre->withSend ? fw::InstallMessageCenter()
                       : fw::InstallMessageCenterWithoutSend();
    for (const auto& [sensor, type] : centre->sensorTypes) fw::SetSensorType(sensor, type);
    for (const auto& [type, answer] : centre->mostProbed) {
      fw::SetMostProbedSensor(type, answer.sensor, answer.recordCount);
    }
    Note(std::string("message centre ") + (centre->present ? "installed" : "removed"));
  }
  for (const auto& [key, value] : changes.properties) {
    value ? sim::PresetProperty(key, *value) : sim::RemoveProperty(key);
    Note("property " + key + (value ? "=" + *value : " removed"));
  }
  if (changes.kernelParameter) {
    ApplyKernelParameter(*changes.kernelParameter);
    Note(changes.kernelParameter->present ? "kernel parameter set to " + changes.kernelParameter->text
                                          : std::string("kernel parameter file removed"));
  }
  if (changes.overrideSettings) {
    ApplyDeviceFile(kOverrideSettingsDevicePath, *changes.overrideSettings);
    Note(*changes.overrideSettings ? "override settings file rewritten" : "override settings file removed");
  }
  if (changes.bootTime) {
    sim::PinBootTime(*changes.bootTime);
    Note("clock: " + std::to_string(*changes.bootTime) + " s since boot");
  }
}

class Runner {
 public:
  Runner(const Scenario& scenario, const PlayOptions& options) : m_scenario(scenario), m_options(options) {}

  RunResult Run() {
    const auto started = std::chrono::steady_clock::now();
    sim::Phone phone;
    m_phone = &phone;
    ApplyChanges(m_scenario.setup);
    for (Observer* observer : m_options.observers) observer->RunStarts(m_scenario);
    Take(false);  // the setup's records are not the run's
    m_result.libraryPath = sim::HookLibraryPath();
    if (StartProcess([&] { return phone.StartCameraProcess(&m_startError); })) {
      for (size_t index = 0; index < m_scenario.steps.size() && m_result.error.empty(); ++index) PlayStep(index);
    }
    m_result.end = Take();
    ProcessEnds();
    m_result.durationUs =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started).count();
    phone.StopCameraProcess();
    m_phone = nullptr;
    return std::move(m_result);
  }

 private:
  void ProcessEnds() {
    if (m_library == nullptr) return;
    for (Observer* observer : m_options.observers) observer->ProcessEnds();
  }

  // Starts a camera process; a fresh process starts with rand() unseeded.
  bool StartProcess(const std::function<sim::HookLibrary*()>& start) {
    std::srand(1);
    if ((m_library = start()) == nullptr) {
      m_result.error = m_startError.empty() ? "cannot load the hook library " + sim::HookLibraryPath() : m_startError;
    }
    return m_library != nullptr;
  }

  void PlayStep(size_t index) {
    const Step& step = m_scenario.steps[index];
    for (int repetition = 0; repetition < step.repeat && m_result.error.empty(); ++repetition) {
      StepOutcome outcome;
      outcome.step = index;
      outcome.repetition = repetition;
      for (Observer* observer : m_options.observers) observer->BeforeStep(step);
      switch (step.kind) {
        case Step::Kind::kRestart:
          outcome.title = "restart the camera service";
          Restart("camera service restarted: a fresh camera process, properties kept");
          break;
        case Step::Kind::kReboot:
          outcome.title = "reboot the phone";
          ++m_result.reboots;
          ProcessEnds();
          StartProcess([&] {
            sim::HookLibrary* library = m_phone->Reboot();
            ApplyKernelParameter(*m_scenario.setup.kernelParameter);
            sim::PinBootTime(*m_scenario.setup.bootTime);
            return library;
          });
          Note("phone rebooted: only persist. properties kept, kernel parameter back to its boot value");
          break;
        case Step::Kind::kSet:
          outcome.title = "set";
          ApplyChanges(step.changes);
          break;
        case Step::Kind::kCall:
          outcome.title = Title(step);
          Call(step, &outcome);
          break;
      }
      outcome.slice = Take(step.expect.properties || step.expect.kernelParameter);
      if (step.kind == Step::Kind::kCall) {
        for (const hal::CallResult& call : outcome.slice.halCalls) {
          if (call.function == step.hook->call) outcome.halResults.push_back(call.result);
        }
        outcome.observed->Set("halCalls", static_cast<int64_t>(outcome.halResults.size()));
        m_result.halCalls[step.hook->call] += static_cast<int>(outcome.halResults.size());
        if (m_options.progress) m_options.progress(++m_callsDone, m_scenario.callCount);
      }
      for (Observer* observer : m_options.observers) {
        if (m_library != nullptr && m_result.error.empty()) observer->AfterStep(step, outcome, *m_library);
      }
      const bool aborted = outcome.aborted;
      Done(std::move(outcome));
      if (!aborted || !m_result.error.empty()) continue;
      // The camera process died of its SIGABRT; Android's init starts the camera service again.
      StepOutcome restart;
      restart.step = index;
      restart.repetition = repetition;
      restart.title = "camera process aborted: the camera service restarts";
      restart.restart = true;
      Restart("camera process aborted (SIGABRT); camera service restarted, properties kept");
      restart.slice = Take(false);
      Done(std::move(restart));
    }
  }

  // A fresh camera process with every property kept, as a restart of the camera service gives.
  void Restart(const char* note) {
    ProcessEnds();
    Note(note);
    ++m_result.restarts;
    StartProcess([&] { return m_phone->RestartCameraService(); });
  }

  void Done(StepOutcome outcome) {
    m_result.totals.Add(outcome);
    if (m_options.stepDone) m_options.stepDone(m_scenario, outcome);
    if (m_options.keepOutcomes) m_result.outcomes.push_back(std::move(outcome));
  }

  void Call(const Step& step, StepOutcome* outcome) {
    const std::string name = step.hook->name;
    void* proxy = m_library->Symbol(step.hook->mangled);
    outcome->observed.emplace();
    if (proxy == nullptr) {
      m_result.error = "the hook library " + sim::HookLibraryPath() + " does not export CamX::" + name + " (symbol " +
                       step.hook->mangled + ")";
      return;
    }
    hal::ScriptResults(step.hook->call, step.hal.calls);
    hal::SetDefaultResult(step.hook->call, step.hal.after);
    *outcome->observed = step.hook->invoke(proxy, step.args);
    hal::Unscript(step.hook->call);
    const Value* aborted = outcome->observed->Find("aborted");
    outcome->aborted = aborted != nullptr && std::get<bool>(*aborted);
    if (outcome->aborted) {
      ++m_result.aborts;
      Note("camera process aborted (SIGABRT raised by the library)");
    }
  }

  const Scenario& m_scenario;
  const PlayOptions& m_options;
  sim::Phone* m_phone = nullptr;
  sim::HookLibrary* m_library = nullptr;
  std::string m_startError;
  RunResult m_result;
  size_t m_callsDone = 0;
};

}  // namespace

void Totals::Add(const StepOutcome& outcome) {
  const Slice& slice = outcome.slice;
  log += slice.log.size();
  for (const sim::LogLine& line : slice.log) errors += line.priority >= 6 ? 1 : 0;
  kernelWrites += slice.kernelWrites.size();
  notifications += slice.notifications.size();
  probeRecords += slice.probeRecords.size();
  requests += slice.requests.size();
  for (const auto& callback : slice.callbacks) callbacks.Add("      " + fw::Describe(callback) + "\n");
  const Value* result = outcome.observed ? outcome.observed->Find("result") : nullptr;
  changed +=
      result != nullptr && !outcome.halResults.empty() && outcome.halResults.back() != std::get<int64_t>(*result);
}

std::string LogText(const sim::LogLine& line) {
  return std::string(1, sim::PriorityLetter(line.priority)) + " " + line.tag + ": " + line.text;
}

RunResult Play(const Scenario& scenario, const PlayOptions& options) {
  try {
    return Runner(scenario, options).Run();
  } catch (const std::exception& e) {
    RunResult result;
    result.error = std::string("the simulator failed: ") + e.what();
    return result;
  }
}

}  // namespace sim::scenario
