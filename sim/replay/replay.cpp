#include "sim/replay/replay.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <set>

#include "client/interface/remediumcore.h"
#include "client/interface/remediumlog.h"
#include "core/model/monitor/interface/imagesensorstate.h"
#include "hook/src/corearguments.h"
#include "hook/src/kernelchannel.h"
#include "sim/records/records.h"
#include "sim/replay/logcalls.h"

namespace sim::replay {
namespace {

namespace coreargument = CamX::coreargument;

constexpr int64_t kGyroShiftNs = 55258907;  // how far the library moves a gyro sample back
constexpr size_t kKernelOffset = 32;        // the kernel's probe result of camera N sits at N + 32

bool IsCameraName(std::string_view name) {
  if (name.empty()) return false;
  for (const char* word : {"macro", "ultra", "wide", "tele", "depth", "front"}) {
    if (name.find(word) == std::string_view::npos) return true;
  }
  return false;
}

bool Names(const std::vector<std::string>& arguments, const std::string& name) {
  return std::ranges::any_of(arguments, [&name](const std::string& argument) {
    return IsCameraName(argument) && name.find(argument) != std::string::npos;
  });
}

// What the phone must be like before a call, as keys: "core.present", "core.switch",
// "core.args.NAME", "mc.present", "mc.send", "mc.type.SENSOR", "mc.most.TYPE", "settings",
// "kernel". A key asked for the first time goes into the setup; a later change is a "set" step.
struct Phone {
  std::map<std::string, Json> setup, now;
  Json changes = Json::object();
  // The kernel parameter read during a sensor probe: its text but for the camera's own entry,
  // which the kernel writes during the probe.
  void NeedKernelRead(const std::string& text, size_t mask) {
    std::vector<int64_t> table = sim::records::ParseNumberList(text, 64);
    const auto it = now.find("kernel");
    if (it != now.end() && it->second.is_string() && mask < table.size()) {
      std::vector<int64_t> known = sim::records::ParseNumberList(it->second.get<std::string>(), 64);
      if (known.size() == table.size()) {
        table[mask] = known[mask];
        if (known == table) return;
      }
    }
    if (mask < table.size() && table.size() == CamX::kProbeResultTableSize) table[mask] = 0;
    std::string masked;
    for (int64_t value : table) masked += (masked.empty() ? "" : ",") + std::to_string(value);
    Need("kernel", table.size() == CamX::kProbeResultTableSize ? masked : text);
  }
  void Need(const std::string& key, const Json& value) {
    const auto it = now.find(key);
    if (it == now.end() && setup.count(key) == 0) {
      setup[key] = now[key] = value;
      return;
    }
    if (it != now.end() && it->second == value) return;
    now[key] = value;
    Change(key, value);
  }
  void Change(const std::string& key, const Json& value) { Put(changes, key, value); }
  // A key's value where a scenario (its setup, or a "set" step) has it.
  static void Put(Json& into, const std::string& key, const Json& value) {
    if (key == "core.present") into["core"]["present"] = value;
    if (key == "core.switch") into["core"]["switches"][std::to_string(kSensorBypassSwitch)] = value;
    if (key.starts_with("core.args.")) into["core"]["hookArguments"][key.substr(10)] = value;
    if (key == "mc.present") into["messageCenter"]["present"] = value;
    if (key == "mc.send") into["messageCenter"]["send"] = value;
    if (key.starts_with("mc.type.")) into["messageCenter"]["sensorTypes"][key.substr(8)] = value;
    if (key.starts_with("mc.most.")) into["messageCenter"]["mostProbed"][key.substr(8)] = MostProbed(value);
    if (key.starts_with("prop.")) into["properties"][key.substr(5)] = value;
    if (key == "settings") into["overrideSettings"] = Settings(value);
    if (key == "kernel") into["kernelParameter"] = value;
  }
  static Json MostProbed(const Json& value) { return {{"sensor", value[0]}, {"recordCount", value[1]}}; }
  static Json Settings(const Json& value) {
    if (value.is_null()) return nullptr;
    return Json::array({"SensorModuleRetryTimes=" + std::to_string(value[0].get<int64_t>()),
                        "sensorModuleNumber=" + std::to_string(value[1].get<int64_t>())});
  }
};

class Builder {
 public:
  explicit Builder(const LogCalls& calls) : m_calls(calls) {
    for (const auto& [id, text] : calls.gaps) m_gaps[id].push_back("the log: " + text);
  }

  Replayed Build(const std::vector<std::string>& files) {
    bool first = true;
    for (size_t b = 0; b < m_calls.boots.size(); ++b) {
      const LogBoot& boot = m_calls.boots[b];
      bool bootStarted = false;
      int lastPid = -1;
      for (const LogProcess& process : boot.processes) {
        if (!first) {
          if (!bootStarted) {
            Step({{"reboot", true}},
                 {"a new boot: played as a reboot (only persist. properties stay; the kernel parameter returns to "
                  "its boot value)"},
                 "");
            if (m_phone.setup.count("kernel") != 0) m_phone.now["kernel"] = m_phone.setup["kernel"];
            std::erase_if(m_phone.now, [](const auto& entry) { return entry.first.starts_with("prop.vendor."); });
          } else {
            Step({{"restart", true}},
                 {"camera process " + std::to_string(lastPid) + " ended" +
                  (m_endings.empty() ? "" : " (" + m_endings + ")") +
                  ": played as a restart of the camera service (a crash, the capture request's abort or a reboot "
                  "the log does not mark writes no line of the library)"},
                 "");
          }
        }
        LogLevel(process);
        m_endings = process.ending;
        first = false;
        bootStarted = true;
        lastPid = process.pid;
        m_readSettings.clear();
        for (const LogCall& call : process.calls) Call(call);
      }
    }
    return Finish(files);
  }

 private:
  // A camera for a call: its own, its sensor's, its thread's, else the first known.
  int CameraFor(const LogCall& call, std::vector<std::string>* notes) {
    if (call.camera >= 0) return call.camera;
    if (const auto it = m_calls.cameraOfSensor.find(call.sensor);
        !call.sensor.empty() && it != m_calls.cameraOfSensor.end()) {
      return it->second;
    }
    if (call.contextCamera >= 0) return call.contextCamera;
    const int camera = m_calls.slotOfCamera.empty() ? 0 : m_calls.slotOfCamera.begin()->first;
    notes->push_back("the log names no camera for this call: camera " + std::to_string(camera) + " assumed");
    return camera;
  }
  void Camera(int id, const std::string& sensor = "") {
    auto& [slot, sensors] = m_cameras[id];
    if (const auto it = m_calls.slotOfCamera.find(id); it != m_calls.slotOfCamera.end()) {
      slot = it->second;
    } else {
      slot = id;
    }
    if (!sensor.empty() && std::ranges::find(sensors, sensor) == sensors.end()) sensors.push_back(sensor);
  }

  // A step's "camera" (as CameraFor finds it, and known to the device) and "sensor"; the camera.
  int StepCamera(const LogCall& call, Json& step, std::vector<std::string>& notes) {
    const int camera = CameraFor(call, &notes);
    Camera(camera, call.sensor);
    step["camera"] = camera;
    step["sensor"] = call.sensor;
    return camera;
  }

  // The log level, read at a camera process's first line: its lowest lines show it at most that;
  // above 4 when a notice's hook wrote no INFO line and no line of the process is INFO or below.
  void LogLevel(const LogProcess& process) {
    const std::string key = "prop.persist.vendor.camera.remedium.loglevel";
    const int level = std::min(process.lowestLevel, kLogError);
    const bool dropped = std::ranges::any_of(
        process.calls, [](const LogCall& call) { return call.lone && call.name == "OISRegisterProvider"; });
    if (level == kLogInfo && m_phone.now.count(key) == 0) m_phone.now[key] = "4";  // the default, in force
    if (level > kLogInfo && !dropped) return;
    m_phone.Need(key, std::to_string(level));
    if (level != kLogInfo) {
      m_assumed.push_back("camera process " + std::to_string(process.pid) + ": the library's lowest lines show its " +
                          "log level " + (level < kLogInfo ? "at most " : "above 4, ") + std::to_string(level) +
                          " assumed" + (level > kLogInfo ? " (a guess)" : ""));
    }
  }

  void NeedCore(const LogCall& call, const char* argument, const std::vector<std::string>& arguments) {
    m_phone.Need("core.present", !call.coreMissing);
    if (!call.coreMissing && argument != nullptr) m_phone.Need(std::string("core.args.") + argument, arguments);
  }
  void NeedCentre(const LogCall& call) {
    if (call.mcMissing) return m_phone.Need("mc.present", false);
    m_phone.Need("mc.present", true);
    m_phone.Need("mc.send", !call.mcNoSend);
    if (call.mcNoSend || !call.usage) return;
    if (!call.type.empty() || m_phone.now.count("mc.type." + call.sensor) != 0)
      m_phone.Need("mc.type." + call.sensor, call.type);
    if (!call.mostName.empty() || m_phone.now.count("mc.most." + call.type) != 0)
      m_phone.Need("mc.most." + call.type, Json::array({call.mostName, call.mostCount}));
  }
  // The override settings are read once per camera process by each of the two probes.
  void NeedSettings(const LogCall& call) {
    if (!m_readSettings.insert(call.name).second) return;
    if (call.settingsFileMissing) return m_phone.Need("settings", nullptr);
    if (call.settings) m_phone.Need("settings", Json::array({call.settings->first, call.settings->second}));
  }

  void Call(const LogCall& call) {
    States(call, 0, call.statesBefore);
    Json step = {{"call", call.name}};
    std::vector<std::string> notes;
    if (call.startsInside)
      notes.push_back("the log starts (or resumes) inside this call: its first lines are not in it");
    const std::string& name = call.name;
    if (name == "GetStaticCaps") {
      Camera(call.camera);
      step["camera"] = call.camera;
      step["slot"] = call.slot;
    } else if (name == "SensorProbe") {
      SensorProbe(call, step, notes);
    } else if (name == "EEPROMDataProbe") {
      StepCamera(call, step, notes);
      NeedCore(call, nullptr, {});
      NeedSettings(call);
      if (call.usage) NeedCentre(call);
      const bool forced = !call.eepromVerdicts.empty() && call.eepromVerdicts.back() && (call.frequent || call.never);
      if (forced) {
        step["hal"] = 1;
        notes.push_back(
            "the EEPROM's last retry was reported passed: the HAL's own result is not logged, 1 (failing) "
            "assumed");
      } else {
        step["hal"] = call.result;
      }
    } else if (name == "ProbeEEPROM") {
      step["eeprom"] = call.sensor;
      NeedCore(call, coreargument::kProbeEEPROM, call.arguments);
      if (Names(call.arguments, call.sensor)) {
        notes.push_back(
            "the core's argument made the EEPROM probe fail: the HAL's own result is not logged, 0 assumed");
      } else {
        step["hal"] = call.result;
      }
    } else if (name == "ReadEEPROMDevice") {
      StepCamera(call, step, notes);
      NeedCore(call, coreargument::kReadEEPROMDeviceFail, call.arguments);
      notes.push_back("the EEPROM read's own result is not logged: 0 assumed");
    } else if (call.lone) {
      NeedCore(call, nullptr, {});
      notes.push_back(name == "OISRegisterProvider"
                          ? "a notice to the missing core that no line of a hook follows: played as the OIS "
                            "provider registration"
                          : "a use of the missing core that no line of a hook follows (the EEPROM read, the CSL "
                            "message handler or the lens position read): played as a lens position read");
    } else if (name == "InitializeSensorDevice" || name == "LoadSensorConfigCmds" ||
               name == "LoadSensorInitConfigCmd") {
      const int camera = CameraFor(call, &notes);
      Camera(camera);
      step["camera"] = camera;
      if (!call.skipped) step["hal"] = call.result;
      if (call.initRead) m_phone.Need("kernel", *call.initRead);
      if (name == "LoadSensorInitConfigCmd" && !call.initRead && !call.kernelMissing && !call.startsInside) {
        // Read but not logged: the text was empty or too long to use.
        m_phone.Need("kernel", "");
        notes.push_back("the kernel parameter's text was not used (empty, or 1023 bytes or more): empty assumed");
      }
      if (call.kernelMissing) m_phone.Need("kernel", nullptr);
    } else if (name == "SensorCreateAndSubmitCommand") {
      const int camera = CameraFor(call, &notes);
      Camera(camera);
      step["camera"] = camera;
      step["opcode"] = call.opcode;
      step["hal"] = call.result;
    } else if (name == "CreateI2CInfoCmd") {
      step["slaveAddress"] = call.address;
      NeedCore(call, coreargument::kEEPROMI2C, {});
      notes.push_back(
          "the address the HAL built and the core's EEPROMI2C argument are not logged: the address the log "
          "shows, no argument");
    } else if (name == "ActuatorData") {
      step["actuator"] = call.actuator ? Json(*call.actuator) : Json(nullptr);
      int64_t address = call.address < 0 ? 0x18 : call.address;
      if (!call.toggles.empty()) address = call.toggles.front() == 0x66 ? 0x18 : 0x66;
      if (!call.toggles.empty() && call.toggles.front() == 0x18)
        notes.push_back("the actuator's address before the switch is not logged: 0x66 assumed");
      step["slaveAddress"] = address;
      NeedCore(call, coreargument::kActuatorI2CError, call.arguments);
    } else if (name == "OISCreateI2CInfoCmd") {
      step["slaveAddress"] = call.address == 0x66 ? 0x18 : 0x66;
      if (call.address != 0x66) notes.push_back("the OIS address the HAL built is not logged: 0x66 assumed");
    } else if (name == "PostGyroData") {
      // The chosen sample is logged after the library moved it back, unless it was too small to
      // move: a logged timestamp above 0 and not above the shift could be either.
      std::vector<int64_t> timestamps = call.samples;
      if (call.chosen >= 0 && static_cast<size_t>(call.chosen) < timestamps.size()) {
        int64_t& chosen = timestamps[static_cast<size_t>(call.chosen)];
        if (chosen > 0 && chosen <= kGyroShiftNs) {
          notes.push_back("the moved sample's timestamp " + std::to_string(chosen) +
                          " may be one too small to move or one moved back: moved assumed (a guess)");
        }
        if (chosen > 0) chosen += kGyroShiftNs;
      }
      step["timestamps"] = timestamps;
      if (timestamps.size() > 1) notes.push_back("the sample the library moves is its own random choice");
    }
    if (step.contains("sensor") && step["sensor"] == "") {
      step.erase("sensor");
      notes.push_back("the log names no module for this call: the camera's first assumed");
    }
    if (const auto it = m_gaps.find(call.id); it != m_gaps.end()) {
      notes.insert(notes.begin(), it->second.begin(), it->second.end());
    }
    if (!m_phone.changes.empty()) {
      Step({{"set", std::exchange(m_phone.changes, Json::object())}}, {}, "");
      m_steps.back()["note"] = "the phone as the next call's lines show it";
    }
    Step(std::move(step), notes, call.where);
    if (call.kernelAfter) m_phone.now["kernel"] = *call.kernelAfter;
    States(call, call.statesBefore, call.states.size());
  }

  // The image sensor states the library read and wrote. Without its verbose lines the library's
  // own writes are not in the log, so a read that shows a failed probe, or differs from what is
  // known, is played as the phone's state at that point (the setup before the first call).
  void States(const LogCall& call, size_t from, size_t to) {
    for (size_t i = from; i < to; ++i) {
      const auto& [write, key, value] = call.states[i];
      const std::string name = "prop." + key;
      const auto it = m_phone.now.find(name);
      if (write || (it != m_phone.now.end() ? it->second == value : value.find("<P:F:") == std::string::npos)) {
        if (write) m_phone.now[name] = value;
      } else if (m_steps.empty()) {
        m_phone.Need(name, value);
      } else {
        m_phone.now[name] = value;
        m_phone.Change(name, value);
      }
    }
  }

  void SensorProbe(const LogCall& call, Json& step, std::vector<std::string>& notes) {
    if (!call.settings && !call.arguments.empty()) {
      // The core's protection path: its lines are the arguments and the name, nothing else.
      StepCamera(call, step, notes);
      NeedCore(call, coreargument::kSensorProbeProtection, call.arguments);
      notes.push_back("CamX's result is not logged on the core's protection path: 0 assumed");
      return;
    }
    NeedCore(call, coreargument::kSensorProbeProtection, {});
    NeedSettings(call);
    if (call.settingsMissing) {
      const bool noCamera = call.settings && call.settings->first != 0 && call.settings->second != 0;
      if (noCamera) {
        step["camera"] = nullptr;
        step["sensor"] = "unknown";
        notes.push_back("the settings are there, so the HAL object had no camera id; its module is not logged");
      } else {
        const int camera = CameraFor(call, &notes);
        Camera(camera, call.sensor);
        step["camera"] = camera;
      }
      if (!call.sensor.empty()) step["sensor"] = call.sensor;
      notes.push_back("a probe without the override settings logs no result: CamX 0 assumed");
      return;
    }
    if (call.usage) NeedCentre(call);
    if (call.usage && !call.count && !call.startsInside) {
      // Ids beyond the kernel table are reported probed without probing.
      Camera(16, call.sensor);
      step["camera"] = 16;
      step["sensor"] = call.sensor;
      notes.push_back("a camera id of 16 or more is not logged: 16 assumed");
      return;
    }
    const int camera = StepCamera(call, step, notes);
    // The bypass check: with the switch open and the module the slot's most-used, the bypass
    // decision is asked once more.
    const bool lastRetry = call.lastRetry.value_or(false);
    const size_t asked = lastRetry ? 0 : 1;
    const bool qualifies =
        (call.frequent || call.never) && (lastRetry || (!call.bypassVerdicts.empty() && call.bypassVerdicts.front()));
    if (qualifies && call.frequent && !call.switchNull && !call.coreMissing && call.lastRetry) {
      m_phone.Need("core.switch", call.bypassVerdicts.size() > asked);
    }
    const size_t index = static_cast<size_t>(camera) + kKernelOffset;
    if (call.kernelMissing) m_phone.Need("kernel", nullptr);
    if (!call.reads.empty() && !call.kernelMissing) m_phone.NeedKernelRead(call.reads.front(), index);
    const auto kernelOf = [index](const std::string& text) -> int64_t {
      const std::vector<int64_t> table = sim::records::ParseNumberList(text, 64);
      return index < table.size() ? table[index] : 0;
    };
    const bool fullTable = !call.reads.empty() &&
                           sim::records::ParseNumberList(call.reads.back(), 64).size() == CamX::kProbeResultTableSize;
    if (call.outcome && call.reads.size() >= 2) {
      step["hal"] = Json::array({1, call.result});
      step["kernel"] = Json::array({kernelOf(call.reads.front()), call.kernelResult});
      notes.push_back("CamX's result of the failed bypass attempt is not logged: 1 assumed");
    } else if (call.outcome) {
      step["hal"] = Json::array({call.result});
      step["kernel"] = Json::array({call.kernelResult});
    } else if (call.reads.size() == 1 && fullTable && kernelOf(call.reads.front()) == 0) {
      step["hal"] = Json::array({0});  // the bypass: a clean probe kept, no outcome line
      step["kernel"] = Json::array({0});
    } else if (!call.reads.empty() && !fullTable) {
      notes.push_back("a kernel table too short for the library's bookkeeping: CamX's result is not logged, 0 assumed");
    } else if (call.kernelMissing) {
      notes.push_back("the kernel parameter could not be opened: CamX's result is not logged, 0 assumed");
    } else {
      notes.push_back("the log holds no outcome of this probe: CamX 0 and kernel 0 assumed");
    }
  }

  void Step(Json step, const std::vector<std::string>& notes, const std::string& where) {
    const std::string path = "steps[" + std::to_string(m_steps.size()) + "]";
    std::string note;
    for (const std::string& text : notes) {
      note += (note.empty() ? "" : "; ") + text;
      m_assumed.push_back(path + (where.empty() ? "" : " (" + where + ")") + ": " + text);
    }
    if (!note.empty()) step["note"] = note;
    m_steps.push_back(std::move(step));
  }

  Replayed Finish(const std::vector<std::string>& files) {
    Replayed replayed;
    Json& s = replayed.scenario;
    std::string inputs;
    for (const std::string& file : files) inputs += (inputs.empty() ? "" : ", ") + file;
    s["name"] = "Replay of " + inputs;
    Json description =
        Json::array({"Rebuilt by remedium-sim explain --scenario from " + inputs + ".",
                     "The HAL's results are the ones the log shows; each step's note says what had to be assumed."});
    const std::map<std::string, Json>& setup = m_phone.setup;
    if (m_cameras.empty()) {
      Camera(0);
      replayed.assumed.push_back("setup: the log names no camera: camera 0 in slot 0 assumed");
    }
    Json cameras = Json::array();
    for (const auto& [id, camera] : m_cameras) {
      Json entry = {{"id", id}, {"slot", camera.first}};
      if (!camera.second.empty()) entry["sensors"] = camera.second;
      cameras.push_back(entry);
    }
    s["description"] = description;
    s["device"] = {{"bootTime", 100}, {"cameras", cameras}};
    replayed.assumed.push_back("setup: the boot time is not in the log: 100 s assumed");
    s["core"] = {{"present", true}};
    s["messageCenter"] = {{"present", true}, {"send", true}};
    for (const auto& [key, value] : setup) {
      if (!key.starts_with("core.args.") || !value.empty()) Phone::Put(s, key, value);
    }
    if (setup.count("settings") != 0) {
      replayed.assumed.push_back(
          "setup: override settings other than SensorModuleRetryTimes and sensorModuleNumber are not in the log");
    }
    // Of the report's properties only those the library reads as configuration: the others it
    // writes itself.
    for (const char* key :
         {"persist.vendor.camera.cloud.remedium.modswitch", "persist.vendor.camera.remedium.loglevel"}) {
      if (const auto it = m_calls.properties.find(key); it != m_calls.properties.end()) {
        s["properties"][key] = it->second;
        replayed.assumed.push_back(std::string("setup: ") + key + " as the report recorded it at its end");
      }
    }
    const char* modSwitch = "persist.vendor.camera.cloud.remedium.modswitch";
    if (m_calls.stateRecorded && !s["properties"].contains(modSwitch)) {
      s["properties"][modSwitch] = "64";
      replayed.assumed.push_back(
          "setup: the module switch mask is not in the log; its image sensor state lines show that module on: 64 "
          "assumed");
    }
    if (s["properties"].empty()) s.erase("properties");
    if (setup.count("kernel") == 0 && m_calls.kernelText) {
      s["kernelParameter"] = *m_calls.kernelText;
      replayed.assumed.push_back(
          "setup: the kernel parameter's text given (recorded after the run) taken as its boot value");
    } else if (setup.count("kernel") == 0) {
      replayed.assumed.push_back("setup: the kernel parameter's boot value is not in the log: 64 zeros assumed");
    }
    s["steps"] = std::move(m_steps);
    for (const std::string& note : m_calls.readingNotes) replayed.assumed.push_back("reading: " + note);
    replayed.assumed.insert(replayed.assumed.end(), m_assumed.begin(), m_assumed.end());
    return replayed;
  }

  const LogCalls& m_calls;
  Phone m_phone;
  std::map<size_t, std::vector<std::string>> m_gaps;
  std::map<int, std::pair<int, std::vector<std::string>>> m_cameras;  // id: slot, sensors
  std::set<std::string> m_readSettings;
  std::string m_endings;
  Json m_steps = Json::array();
  std::vector<std::string> m_assumed;
};

}  // namespace

bool ReplayInputs(const std::vector<std::string>& files, Replayed* replayed, std::string* error) {
  LogCalls calls;
  explain::Story story;
  if (!ReadLogCalls(files, &calls, &story, error)) return false;
  if (calls.libraryLines == 0) {
    std::string inputs;
    for (const std::string& file : files) inputs += (inputs.empty() ? "" : ", ") + explain::PrintableName(file);
    *error = inputs + ": no line of the library (tag [REMEDIUM]) to replay";
    return false;
  }
  *replayed = Builder(calls).Build(files);
  return true;
}

int RunReplay(const std::vector<std::string>& files, const std::string& out, std::ostream& err) {
  Replayed replayed;
  std::string error;
  if (!ReplayInputs(files, &replayed, &error)) {
    err << "remedium-sim explain: " << error << "\n";
    return 2;
  }
  std::ofstream file(out, std::ios::binary | std::ios::trunc);
  file << replayed.scenario.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
  if (!file.flush()) {
    err << "remedium-sim explain: " << explain::PrintableName(out) << ": cannot write the scenario\n";
    return 2;
  }
  for (const std::string& line : replayed.assumed) err << "assumed: " << line << "\n";
  return 0;
}

}  // namespace sim::replay
