#include "player.h"

#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <memory>

#include "harness.h"
#include "simhal.h"
#include "simlenspipelinehal.h"
#include "simproperties.h"
#include "simsensorhal.h"

namespace sim::scenario {
namespace {

namespace fw = sim::framework;
namespace hal = sim::hal;

constexpr char kOverrideSettingsDevicePath[] = "/odm/etc/camera/camxoverridesettings.txt";

// SIGABRT raised by the library while a capture request is handed over: the
// handler counts it and returns, so the simulator outlives the camera process.
volatile sig_atomic_t g_aborts = 0;

class AbortCatcher {
 public:
  AbortCatcher() {
    struct sigaction action = {};
    action.sa_handler = [](int) { g_aborts = g_aborts + 1; };
    sigemptyset(&action.sa_mask);
    sigaction(SIGABRT, &action, &m_previous);
  }
  ~AbortCatcher() { sigaction(SIGABRT, &m_previous, nullptr); }
  AbortCatcher(const AbortCatcher&) = delete;
  AbortCatcher& operator=(const AbortCatcher&) = delete;

 private:
  struct sigaction m_previous = {};
};

// Positions in the simulated platform's cumulative records.
struct Marks {
  size_t events, log, writes, notifications, callbacks, probeRecords, switchQueries, argumentQueries, requests;
};

Marks Mark() {
  return {sim::Journal().size(),          sim::LogLines().size(),           sim::SysfsWrites().size(),
          fw::CoreNotifications().size(), fw::CoreCallbacks().size(),       fw::CoreProbeRecords().size(),
          fw::CoreSwitchQueries().size(), fw::CoreArgumentQueries().size(), fw::MessageCenterRequests().size()};
}

template <typename T>
std::vector<T> From(const std::vector<T>& all, size_t mark) {
  return mark <= all.size() ? std::vector<T>(all.begin() + static_cast<std::ptrdiff_t>(mark), all.end())
                            : std::vector<T>();
}

std::optional<std::string> KernelParameterNow() {
  const std::string host = sim::HostPath(hal::kProbeResultParameter);
  if (FILE* file = std::fopen(host.c_str(), "rb")) {
    std::fclose(file);
    return sim::ReadDeviceFile(hal::kProbeResultParameter);
  }
  return std::nullopt;
}

Slice SliceSince(const Marks& marks) {
  Slice slice;
  slice.events = From(sim::Journal(), marks.events);
  slice.log = From(sim::LogLines(), marks.log);
  slice.kernelWrites = From(sim::SysfsWrites(), marks.writes);
  slice.notifications = From(fw::CoreNotifications(), marks.notifications);
  slice.callbacks = From(fw::CoreCallbacks(), marks.callbacks);
  slice.probeRecords = From(fw::CoreProbeRecords(), marks.probeRecords);
  slice.switchQueries = From(fw::CoreSwitchQueries(), marks.switchQueries);
  slice.argumentQueries = From(fw::CoreArgumentQueries(), marks.argumentQueries);
  slice.requests = From(fw::MessageCenterRequests(), marks.requests);
  slice.properties = sim::AllProperties();
  slice.kernelParameter = KernelParameterNow();
  return slice;
}

void Note(const std::string& text) { sim::Record("scenario", text); }

void ApplyCore(const CoreSetup& core) {
  if (core.present) {
    fw::InstallCore();
  } else {
    fw::RemoveCore();
  }
  for (const auto& [kind, open] : core.switches) fw::SetSwitch(kind, open);
  for (const auto& [hook, arguments] : core.hookArguments) fw::SetHookArguments(hook, arguments);
}

void ApplyMessageCenter(const MessageCenterSetup& centre) {
  if (!centre.present) {
    fw::RemoveMessageCenter();
  } else if (centre.withSend) {
    fw::InstallMessageCenter();
  } else {
    fw::InstallMessageCenterWithoutSend();
  }
  for (const auto& [sensor, type] : centre.sensorTypes) fw::SetSensorType(sensor, type);
  for (const auto& [type, answer] : centre.mostProbed) fw::SetMostProbedSensor(type, answer.sensor, answer.recordCount);
}

void ApplyKernelParameter(const KernelParameter& parameter) {
  if (parameter.present) {
    sim::WriteDeviceFile(hal::kProbeResultParameter, parameter.text);
  } else {
    sim::RemoveDeviceFile(hal::kProbeResultParameter);
  }
}

void ApplyOverrideSettings(const std::optional<std::string>& text) {
  if (text) {
    sim::WriteDeviceFile(kOverrideSettingsDevicePath, *text);
  } else {
    sim::RemoveDeviceFile(kOverrideSettingsDevicePath);
  }
}

void RemoveProperty(const std::string& key) {
  std::map<std::string, std::string> kept = sim::AllProperties();
  kept.erase(key);
  sim::ResetProperties();
  for (const auto& [name, value] : kept) sim::PresetProperty(name, value);
}

void ApplyChanges(const Changes& changes) {
  if (changes.core) {
    ApplyCore(*changes.core);
    Note(std::string("framework core ") + (changes.core->present ? "installed" : "removed"));
  }
  if (changes.messageCenter) {
    ApplyMessageCenter(*changes.messageCenter);
    Note(std::string("message centre ") + (changes.messageCenter->present ? "installed" : "removed"));
  }
  for (const auto& [key, value] : changes.properties) {
    if (value) {
      sim::PresetProperty(key, *value);
      Note("property " + key + "=" + *value);
    } else {
      RemoveProperty(key);
      Note("property " + key + " removed");
    }
  }
  if (changes.kernelParameter) {
    ApplyKernelParameter(*changes.kernelParameter);
    Note(changes.kernelParameter->present ? "kernel parameter set to " + changes.kernelParameter->text
                                          : std::string("kernel parameter file removed"));
  }
  if (changes.overrideSettings) {
    ApplyOverrideSettings(*changes.overrideSettings);
    Note(*changes.overrideSettings ? "override settings file rewritten" : "override settings file removed");
  }
  if (changes.bootTime) {
    sim::PinBootTime(*changes.bootTime);
    Note("clock: " + std::to_string(*changes.bootTime) + " s since boot");
  }
}

std::string Title(const Step& step) {
  const CallArgs& a = step.args;
  std::string inside;
  const auto add = [&inside](const std::string& part) { inside += (inside.empty() ? "" : ", ") + part; };
  const auto hex = [](uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(value));
    return std::string(text);
  };
  if (a.camera) add("camera " + std::to_string(*a.camera));
  if (a.cameraAbsent) add("no camera id");
  const std::string& f = step.function;
  if (f == "GetStaticCaps") add("slot " + std::to_string(a.slot.value_or(0)));
  if (f == "SensorProbe" || f == "EEPROMDataProbe" || f == "ReadEEPROMDevice") add(a.sensor);
  if (f == "ProbeEEPROM") add(a.eeprom);
  if (f == "SensorCreateAndSubmitCommand") add("opcode " + std::to_string(a.opcode));
  if (f == "CreateI2CInfoCmd" || f == "OISCreateI2CInfoCmd") add("slave " + hex(a.slaveAddress));
  if (f == "ActuatorData") {
    add(a.actuator ? *a.actuator : "no name");
    add("slave " + hex(a.slaveAddress));
  }
  if (f == "EEPROMVerifyChecksum") add(a.dataNull ? "no data" : std::to_string(a.dataLength) + " bytes");
  if (f == "PostGyroData") {
    add(std::to_string(a.timestamps.size()) + (a.timestamps.size() == 1 ? " sample" : " samples") + ", type " +
        std::to_string(a.sensorType));
  }
  if (f == "CSLMessageHandler") {
    add(a.messageNull ? "no message"
                      : "kind " + std::to_string(a.messageType) + ", value " + std::to_string(a.messageValue));
    if (a.userDataNull) add("no user data");
  }
  if (f == "ProcessCaptureRequest") {
    add(a.recordControl ? "recordControl " + std::to_string(*a.recordControl) : "no recordControl");
    if (!a.tagRegistered) add("tag not registered");
    if (a.tagZero) add("tag 0 = " + std::to_string(*a.tagZero));
  }
  return f + "(" + inside + ")";
}

// Scripts the HAL function's results (and, for the probe, the kernel's) for
// one repetition of a step; returns the probe outcomes scripted.
std::vector<hal::ProbeOutcome> ScriptHal(const Step& step) {
  if (step.function == "SensorProbe" && (!step.hal.empty() || !step.kernel.empty())) {
    size_t count = 2;  // a probe step calls the HAL at most twice
    if (!step.halRepeats && !step.hal.empty()) count = std::max(count, step.hal.size());
    if (!step.kernelRepeats && !step.kernel.empty()) count = std::max(count, step.kernel.size());
    std::vector<hal::ProbeOutcome> outcomes;
    for (size_t i = 0; i < count; ++i) {
      hal::ProbeOutcome outcome{0, std::nullopt};
      if (!step.hal.empty())
        outcome.umdResult = step.halRepeats ? step.hal[0] : (i < step.hal.size() ? step.hal[i] : 0);
      if (!step.kernel.empty()) {
        outcome.kmdResult =
            step.kernelRepeats ? step.kernel[0] : (i < step.kernel.size() ? step.kernel[i] : std::nullopt);
      }
      outcomes.push_back(outcome);
    }
    hal::ScriptProbes(outcomes);
    return outcomes;
  }
  if (step.hal.empty()) return {};
  if (step.halRepeats) {
    hal::SetDefaultResult(step.function, step.hal[0]);
  } else {
    hal::ScriptResults(step.function, step.hal);
  }
  return {};
}

void UnscriptHal(const Step& step) {
  hal::SetDefaultResult(step.function, 0);
  hal::ScriptResults(step.function, {});
  if (step.function == "SensorProbe") hal::ScriptProbes({});
}

// The HAL results of `function` in the journal events ("Name -> result").
std::vector<int32_t> HalResults(const std::vector<sim::Event>& events, const std::string& function) {
  std::vector<int32_t> results;
  const std::string prefix = function + " -> ";
  for (const sim::Event& event : events) {
    if (event.source == "hal" && event.text.rfind(prefix, 0) == 0) {
      results.push_back(static_cast<int32_t>(std::atoi(event.text.c_str() + prefix.size())));
    }
  }
  return results;
}

class Runner {
 public:
  Runner(const Scenario& scenario, const PlayOptions& options) : m_scenario(scenario), m_options(options) {}

  RunResult Run() {
    const auto started = std::chrono::steady_clock::now();
    sim::Phone phone;
    m_phone = &phone;
    SetUpPhone();
    const Marks start = Mark();
    m_result.libraryPath = sim::HookLibraryPath();
    if (StartProcess([&] { return phone.StartCameraProcess(&m_startError); }) && m_result.error.empty()) {
      for (size_t index = 0; index < m_scenario.steps.size() && m_result.error.empty(); ++index) {
        PlayStep(index);
      }
    }
    m_result.total = SliceSince(start);
    m_result.durationUs =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started).count();
    phone.StopCameraProcess();
    m_phone = nullptr;
    return std::move(m_result);
  }

 private:
  void SetUpPhone() {
    for (const auto& [key, value] : m_scenario.properties) sim::PresetProperty(key, value);
    ApplyOverrideSettings(m_scenario.overrideSettings);
    ApplyKernelParameter(m_scenario.kernelParameter);
    ApplyCore(m_scenario.core);
    ApplyMessageCenter(m_scenario.messageCenter);
    sim::PinBootTime(m_scenario.bootTime);
  }

  // Starts a camera process; a fresh process starts with rand() unseeded.
  template <typename Start>
  bool StartProcess(Start start) {
    std::srand(1);
    m_library = start();
    if (m_library == nullptr) {
      m_result.error = m_startError.empty() ? "cannot load the hook library " + sim::HookLibraryPath() : m_startError;
      return false;
    }
    return true;
  }

  void PlayStep(size_t index) {
    const Step& step = m_scenario.steps[index];
    const int repetitions = step.kind == Step::Kind::kCall ? step.repeat : 1;
    for (int repetition = 0; repetition < repetitions && m_result.error.empty(); ++repetition) {
      StepOutcome outcome;
      outcome.step = index;
      outcome.repetition = repetition;
      const Marks marks = Mark();
      switch (step.kind) {
        case Step::Kind::kRestart:
          outcome.title = "restart the camera service";
          Note("camera service restarted: a fresh camera process, properties kept");
          ++m_result.restarts;
          StartProcess([&] { return m_phone->RestartCameraService(); });
          break;
        case Step::Kind::kReboot:
          outcome.title = "reboot the phone";
          ++m_result.reboots;
          StartProcess([&] {
            sim::HookLibrary* library = m_phone->Reboot();
            ApplyKernelParameter(m_scenario.kernelParameter);
            sim::PinBootTime(m_scenario.bootTime);
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
      outcome.slice = SliceSince(marks);
      if (step.kind == Step::Kind::kCall) {
        outcome.halResults = HalResults(outcome.slice.events, step.function);
        // The probe's results come from its scripted outcomes, not the generic script.
        for (size_t i = 0; i < outcome.halResults.size() && i < m_probeOutcomes.size(); ++i) {
          outcome.halResults[i] = m_probeOutcomes[i].umdResult;
        }
        outcome.observed["halCalls"] = outcome.halResults.size();
        m_result.halCalls[step.function] += static_cast<int>(outcome.halResults.size());
        ++m_callsDone;
        if (m_options.progress) m_options.progress(m_callsDone, m_scenario.CallCount());
      }
      if (m_options.stepDone) m_options.stepDone(m_scenario, outcome);
      const bool aborted = outcome.aborted;
      m_result.outcomes.push_back(std::move(outcome));
      if (aborted && m_result.error.empty()) RestartAfterAbort(index, repetition);
    }
  }

  // The camera process died of its SIGABRT; Android's init starts the camera
  // service again, with all properties kept.
  void RestartAfterAbort(size_t index, int repetition) {
    StepOutcome outcome;
    outcome.step = index;
    outcome.repetition = repetition;
    outcome.title = "camera process aborted: the camera service restarts";
    const Marks marks = Mark();
    Note("camera process aborted (SIGABRT); camera service restarted, properties kept");
    ++m_result.restarts;
    StartProcess([&] { return m_phone->RestartCameraService(); });
    outcome.slice = SliceSince(marks);
    outcome.observed = Json::object();
    outcome.observed["restart"] = true;
    if (m_options.stepDone) m_options.stepDone(m_scenario, outcome);
    m_result.outcomes.push_back(std::move(outcome));
  }

  template <typename Fn>
  Fn* Proxy(const std::string& function) {
    const std::string name = function + "Hook";
    Fn* proxy = m_library->Proxy<Fn>(name);
    if (proxy == nullptr) {
      const sim::CatalogueEntry* entry = sim::FindCatalogueEntry(name);
      m_result.error = "the hook library " + sim::HookLibraryPath() + " does not export CamX::" + name +
                       (entry != nullptr ? std::string(" (symbol ") + entry->mangled + ")" : std::string());
    }
    return proxy;
  }

  void Call(const Step& step, StepOutcome* outcome) {
    if (!step.args.tagRegistered) hal::Reset();  // forgets the vendor tags, as a HAL without them
    m_probeOutcomes = ScriptHal(step);
    Json& observed = outcome->observed;
    observed = Json::object();
    const CallArgs& a = step.args;
    const std::string& f = step.function;
    if (f == "GetStaticCaps") {
      using Fn = CamxResult(void*, CamX::SensorModuleStaticCaps*, CSLSensorCapability*, CamX::TuningDataManager*,
                            unsigned int);
      if (auto* proxy = Proxy<Fn>(f)) {
        hal::Object caps = hal::MakeStaticCaps(a.slot.value_or(0));
        observed["result"] = proxy(nullptr, static_cast<CamX::SensorModuleStaticCaps*>(caps.get()), nullptr, nullptr,
                                   a.camera.value_or(0));
      }
    } else if (f == "SensorProbe") {
      if (auto* proxy = Proxy<CamxResult(void*, int*, int*)>(f)) {
        hal::SensorProbeObject object(
            a.sensor, a.cameraAbsent ? std::nullopt : std::optional<uint16_t>(static_cast<uint16_t>(*a.camera)));
        int first = 0;
        int second = 0;
        observed["result"] = proxy(object.get(), &first, &second);
      }
    } else if (f == "InitializeSensorDevice" || f == "LoadSensorInitConfigCmd" || f == "LoadSensorConfigCmds") {
      if (auto* proxy = Proxy<CamxResult(void*)>(f)) {
        hal::SensorNodeObject node(*a.camera);
        observed["result"] = proxy(node.get());
        if (f == "InitializeSensorDevice") observed["initState"] = node.initState();
      }
    } else if (f == "SensorCreateAndSubmitCommand") {
      using Fn = CamxResult(void*, unsigned int, CamX::I2CRegSettingType, CSLPacketOpcodesSensor, unsigned int,
                            unsigned int, const void*);
      if (auto* proxy = Proxy<Fn>(f)) {
        hal::SensorNodeObject node(*a.camera);
        observed["result"] = proxy(node.get(), 0, CamX::I2CRegSettingType{},
                                   static_cast<CSLPacketOpcodesSensor>(a.opcode), 0, 0, nullptr);
      }
    } else if (f == "CreateI2CInfoCmd") {
      if (auto* proxy = Proxy<CamxResult(void*, CSLSensorI2CInfo*, unsigned short)>(f)) {
        hal::SensorI2CInfoObject info(a.slaveAddress);
        observed["result"] = proxy(nullptr, info.get(), 0);
        observed["slaveAddress"] = info.slaveAddress();
      }
    } else if (f == "EEPROMDataProbe" || f == "ReadEEPROMDevice") {
      if (auto* proxy = Proxy<CamxResult(void*)>(f)) {
        hal::EepromDataObject object(static_cast<uint16_t>(*a.camera), a.sensor);
        observed["result"] = proxy(object.get());
        if (f == "EEPROMDataProbe") observed["eepromFlag"] = hal::LastEepromFlagSeen();
      }
    } else if (f == "ProbeEEPROM") {
      using Fn = CamxResult(void*, CamX::HwSensorInfo*, const CamX::HwDeviceTypeInfo*);
      if (auto* proxy = Proxy<Fn>(f)) {
        hal::HwSensorInfoObject info(a.eeprom);
        observed["result"] = proxy(nullptr, info.get(), nullptr);
      }
    } else if (f == "EEPROMVerifyChecksum") {
      if (auto* proxy = Proxy<CamxResult(void*, unsigned char*, int)>(f)) {
        std::vector<uint8_t> data(a.dataLength, a.fill);
        observed["result"] = proxy(nullptr, a.dataNull ? nullptr : data.data(), a.size);
        Json changed = Json::array();
        if (!a.dataNull) {
          for (size_t i = 0; i < data.size(); ++i) {
            if (data[i] != a.fill) changed.push_back(i);
          }
        }
        observed["changedBytes"] = changed.size();
        observed["changedOffsets"] = changed;
        observed["halSawData"] = !hal::LastChecksumData().empty();
      }
    } else if (f == "ActuatorData") {
      if (auto* proxy = Proxy<void(void*, CamX::ActuatorDriverData*)>(f)) {
        hal::ActuatorDriverDataObject object(a.actuator, static_cast<uint16_t>(a.slaveAddress));
        proxy(nullptr, object.get());
        observed["slaveAddress"] = object.slaveAddress();
        observed["halSawSlaveAddress"] = hal::LastActuatorSlaveAddressSeen();
      }
    } else if (f == "OISRegisterProvider") {
      if (auto* proxy = Proxy<CamxResult(void*, void*, const CamX::NCSProviderCap*)>(f)) {
        observed["result"] = proxy(nullptr, nullptr, nullptr);
      }
    } else if (f == "OISCreateI2CInfoCmd") {
      if (auto* proxy = Proxy<CamxResult(void*, CSLOISI2CInfo*, int)>(f)) {
        hal::OISI2CInfoObject info(a.slaveAddress);
        observed["result"] = proxy(nullptr, info.get(), 0);
        observed["slaveAddress"] = info.slaveAddress();
        observed["halSawSlaveAddress"] = hal::LastOISSlaveAddressSeen();
      }
    } else if (f == "ReadLensPositionData") {
      if (auto* proxy = Proxy<CamxResult(void*)>(f)) {
        const auto started = std::chrono::steady_clock::now();
        observed["result"] = proxy(nullptr);
        observed["durationAtLeastUs"] =
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started).count();
      }
    } else if (f == "FormatLensPositionData") {
      using Fn = CamxResult(void*, CamX::OISLensPositionData*, unsigned char*, unsigned long);
      if (auto* proxy = Proxy<Fn>(f)) {
        unsigned char buffer[64] = {};
        observed["result"] = proxy(nullptr, nullptr, buffer, sizeof(buffer));
      }
    } else if (f == "PostGyroData") {
      using Fn = CamxResult(void*, CamX::NCSSensorType, std::vector<sensors_event_t*>&);
      if (auto* proxy = Proxy<Fn>(f)) {
        hal::SensorEventBatch batch(a.timestamps);
        observed["result"] = proxy(nullptr, static_cast<CamX::NCSSensorType>(a.sensorType), batch.samples());
        const std::vector<int64_t> seen = hal::LastGyroBatchSeen().timestamps;
        size_t shifted = 0;
        for (size_t i = 0; i < seen.size() && i < a.timestamps.size(); ++i)
          shifted += seen[i] != a.timestamps[i] ? 1 : 0;
        observed["timestamps"] = seen;
        observed["shiftedSamples"] = shifted;
      }
    } else if (f == "CSLMessageHandler") {
      if (auto* proxy = Proxy<void(void*, CSLMessage*)>(f)) {
        hal::CSLMessageObject message(a.messageType, a.messageValue);
        int session = 0;
        proxy(a.userDataNull ? nullptr : &session, a.messageNull ? nullptr : message.get());
        const hal::CSLMessageSeen seen = hal::LastCSLMessageSeen();
        observed["message"] = {{"type", seen.type}, {"errorCode", seen.errorCode}, {"errorWord", seen.errorWord}};
      }
    } else if (f == "ProcessCaptureRequest") {
      if (auto* proxy = Proxy<CamxResult(void*, CamX::Camera3CaptureRequest*)>(f)) {
        if (a.tagRegistered) hal::RegisterRecordControlTag();
        hal::CaptureRequestObject request;
        if (a.recordControl) request.SetRecordControl(*a.recordControl);
        if (a.tagZero) request.SetBytes(0, {*a.tagZero});
        const sig_atomic_t before = g_aborts;
        {
          AbortCatcher catcher;
          observed["result"] = proxy(nullptr, request.get());
        }
        outcome->aborted = g_aborts != before;
        observed["aborted"] = outcome->aborted;
        if (outcome->aborted) {
          ++m_result.aborts;
          Note("camera process aborted (SIGABRT raised by the library)");
        }
      }
    }
    UnscriptHal(step);
  }

  const Scenario& m_scenario;
  const PlayOptions& m_options;
  sim::Phone* m_phone = nullptr;
  sim::HookLibrary* m_library = nullptr;
  std::string m_startError;
  RunResult m_result;
  size_t m_callsDone = 0;
  std::vector<hal::ProbeOutcome> m_probeOutcomes;
};

}  // namespace

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
