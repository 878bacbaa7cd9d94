#include "sim/replay/logcalls.h"

#include <algorithm>
#include <cstdlib>

#include "client/interface/messagecenterclient.h"
#include "client/interface/remediumlog.h"
#include "core/model/monitor/interface/imagesensorstate.h"
#include "explain/logline.h"
#include "explain/sites.h"

namespace sim::replay {
namespace {

int64_t Number(std::string_view text) {
  constexpr long long kLimit = 1LL << 62;
  const bool hex = text.substr(0, 2) == "0x";
  return std::clamp(std::strtoll(std::string(text).c_str(), nullptr, hex ? 16 : 10), -kLimit, kLimit);
}

int CameraOf(std::string_view text) { return static_cast<int>(std::clamp<int64_t>(Number(text), -1, 1 << 20)); }

// What one camera process's thread is in the middle of.
struct Thread {
  LogCall* open = nullptr;
  int lastCamera = -1;
  bool pendingCoreMissing = false, pendingSettingsMissing = false;
  int pendingArguments = 0;  // the core's arguments asked for with the core missing, by no call yet
  int notices = 0;           // notices to the missing core outside any call
  std::string argumentsWhere;
  std::vector<std::tuple<bool, std::string, std::string>> pendingStates;  // before the process's first call
  std::string stateKey;                                                   // of the update being written
  std::string lastTag, lastMessage;  // its last library line, for logd's "identical N lines"
  char lastLevel = 'I';
};

// Reads the library's lines into calls; every record also goes to the story.
class CallSink final : public explain::InputSink {
 public:
  CallSink(explain::StorySink& story, LogCalls& calls) : m_story(story), m_calls(calls) {}

  void BeginInput(std::string_view source, InputKind kind) override {
    m_story.BeginInput(source, kind);
    if (kind == InputKind::kBugreport || m_calls.boots.empty()) NewBoot();
  }
  void EndInput(std::string_view source) override { m_story.EndInput(source); }
  void Property(std::string_view source, std::string_view key, std::string_view value) override {
    m_story.Property(source, key, value);
    if (m_calls.properties.size() < 4096) m_calls.properties[std::string(key)] = std::string(value);
  }
  void KernelText(std::string_view source, std::string_view text) override {
    m_story.KernelText(source, text);
    m_calls.kernelText = std::string(text);
  }
  void Tombstone(std::string_view source, uint64_t number, std::string_view text) override {
    m_story.Tombstone(source, number, text);
  }
  void Notice(std::string_view where, std::string_view text) override { m_story.Notice(where, text); }
  void ReportTime(std::string_view source, std::string_view time) override { m_story.ReportTime(source, time); }
  void PreviousBoot(bool begins) override {
    m_story.PreviousBoot(begins);
    if (begins == m_inPrevious) return;
    m_inPrevious = begins;
    EndThreads();
    if (begins) {
      if (m_calls.boots.empty()) NewBoot();
      m_saved = m_boot;
      m_calls.boots.insert(m_calls.boots.begin() + static_cast<std::ptrdiff_t>(m_boot), LogBoot{true, {}});
      ++m_saved;
    } else {
      m_boot = m_saved;
    }
  }

  void Log(const explain::LogLine& line) override {
    m_story.Log(line);
    const bool marker = explain::IsBootMarker(line);
    bool back = false;
    if (line.time.clock == explain::LogTime::Clock::kMonotonic) {
      const int64_t now = explain::TimeMicros(line.time, 2000);
      back = m_lastMonotonic >= 0 && now + 10'000'000 < m_lastMonotonic;
      m_lastMonotonic = now;
    }
    if ((marker || back) && !m_inPrevious && !Boot().processes.empty()) NewBoot();
    if (marker) return;
    if ((line.tag == "chatty" || line.tag == "logd") && line.message.starts_with("uid=")) return Chatty(line);
    Library(line, line.tag, line.message, line.level);
  }

  void Finish() {
    EndThreads();
    if (!m_inPrevious) return;
    m_boot = m_saved;
  }

  // The call a story event at `where` belongs to.
  size_t CallAt(const std::string& where) const {
    const auto it = m_callAt.find(where);
    return it == m_callAt.end() ? SIZE_MAX : it->second;
  }

 private:
  LogBoot& Boot() {
    if (m_calls.boots.empty()) NewBoot();
    return m_calls.boots[m_boot];
  }
  void NewBoot() {
    EndThreads();
    m_calls.boots.push_back({});
    m_boot = m_calls.boots.size() - 1;
  }
  // Uses of the missing core no line of a hook followed become calls: an ask for the core's
  // arguments, of a hook that writes nothing else then (the EEPROM read, the CSL message handler,
  // the lens position read); a notice at a thread's end, of a hook whose INFO line was dropped or
  // is past the log's end (the OIS provider registration's only line is INFO).
  void EndThreads() {
    for (auto& [key, thread] : m_threads) {
      Lone(thread, 0);
      for (; thread.notices > 0; --thread.notices) LoneCall("OISRegisterProvider", m_where);
    }
    m_threads.clear();
  }
  void Lone(Thread& thread, int used) {
    for (; thread.pendingArguments > used; --thread.pendingArguments) {
      LoneCall("ReadLensPositionData", thread.argumentsWhere);
    }
    thread.pendingArguments = 0;
  }
  void LoneCall(const char* name, const std::string& where) {
    LogCall& call = Boot().processes.back().calls.emplace_back();
    call.id = m_nextId++;
    call.name = name;
    call.where = where;
    call.coreMissing = call.lone = true;
  }
  LogProcess& Process(int pid) {
    LogBoot& boot = Boot();
    if (boot.processes.empty() || boot.processes.back().pid != pid) {
      if (!boot.processes.empty()) EndThreads();
      boot.processes.push_back({pid, {}, {}, 8});
    }
    return boot.processes.back();
  }

  void Chatty(const explain::LogLine& line) {
    const std::string_view message = line.message;
    if (const size_t at = message.rfind(" identical "); at != std::string_view::npos) {
      const auto it = m_threads.find({line.pid, line.tid});
      if (it == m_threads.end() || it->second.lastMessage.empty()) return;
      const std::string tag = it->second.lastTag, text = it->second.lastMessage;
      const char level = it->second.lastLevel;
      const int64_t count = std::min<int64_t>(Number(message.substr(at + 11)), 100000);
      for (int64_t i = 0; i < count; ++i) Library(line, tag, text, level);
      return;
    }
    if (message.find(" expire ") == std::string_view::npos && message.find("dropped=") == std::string_view::npos)
      return;
    // Pruned lines: nothing is carried across the gap; the story's gap note goes to the next call.
    m_pendingWhere.push_back(Where(line));
    for (auto& [key, thread] : m_threads) {
      if (key.first != line.pid) continue;
      thread.open = nullptr;
      thread.lastCamera = -1;
      thread.lastMessage.clear();
    }
  }

  static std::string Where(const explain::LogLine& line) {
    return std::string(line.source) + ":" + std::to_string(line.lineNumber);
  }

  void Library(const explain::LogLine& line, std::string_view tag, std::string_view message, char level) {
    const bool centre =
        tag == kMessageCenterLogTag ||
        (tag.empty() && line.format == explain::LogFormat::kThread &&
         (message == "m_pMessageCenterSendMessageFuncPtr is NULL" || message == "m_pRemediumCore is NULL"));
    explain::SiteMatch match;
    if (!centre) {
      const bool untagged = tag.empty() && line.format == explain::LogFormat::kThread;
      if (tag != "[REMEDIUM]" && !untagged) return;
      if (!explain::MatchSite(message, &match)) return;
    }
    ++m_calls.libraryLines;
    Process(line.pid);
    Thread& thread = m_threads[{line.pid, line.tid}];
    thread.lastTag.assign(tag);
    thread.lastMessage.assign(message);
    thread.lastLevel = level;
    if (!centre) {
      const size_t priority = std::string_view("..VDIWEF").find(level);
      int& lowest = Boot().processes.back().lowestLevel;
      lowest = std::min(lowest, priority == std::string_view::npos ? kLogInfo : static_cast<int>(priority));
    }
    m_where = Where(line);
    if (centre) {
      if (thread.open != nullptr) {
        (message == "m_pRemediumCore is NULL" ? thread.open->mcMissing : thread.open->mcNoSend) = true;
      }
    } else {
      Site(thread, match);
    }
    if (thread.open != nullptr) m_callAt[m_where] = thread.open->id;
  }

  LogCall& Start(Thread& thread, const char* name) {
    const std::string_view asking[] = {"EEPROMDataProbe", "ProbeEEPROM", "ReadEEPROMDevice", "CreateI2CInfoCmd",
                                       "ActuatorData"};
    Lone(thread, name == std::string_view("SensorProbe") ? 2 : std::ranges::count(asking, name) != 0 ? 1 : 0);
    thread.notices = 0;  // its hook's
    LogProcess& process = Boot().processes.back();
    LogCall& call = process.calls.emplace_back();
    call.id = m_nextId++;
    call.name = name;
    call.where = m_where;
    call.contextCamera = thread.lastCamera;
    call.coreMissing = std::exchange(thread.pendingCoreMissing, false);
    call.settingsFileMissing = std::exchange(thread.pendingSettingsMissing, false);
    call.states = std::exchange(thread.pendingStates, {});
    call.statesBefore = call.states.size();
    for (const std::string& where : m_pendingWhere) m_callAt[where] = call.id;
    m_pendingWhere.clear();
    thread.open = &call;
    return call;
  }
  // The thread's open call of this name, or a new one the log starts inside.
  LogCall& Continue(Thread& thread, const char* name) {
    if (thread.open != nullptr && thread.open->name == name) return *thread.open;
    LogCall& call = Start(thread, name);
    call.startsInside = true;
    return call;
  }
  void Named(Thread& thread, LogCall& call, int camera) {
    call.camera = camera;
    thread.lastCamera = camera;
    if (!call.sensor.empty() && camera >= 0) m_calls.cameraOfSensor[call.sensor] = camera;
  }

  void Site(Thread& thread, const explain::SiteMatch& match);

  explain::StorySink& m_story;
  LogCalls& m_calls;
  size_t m_boot = 0, m_saved = 0;
  bool m_inPrevious = false;
  int64_t m_lastMonotonic = -1;
  std::map<std::pair<int, int>, Thread> m_threads;
  std::map<std::string, size_t> m_callAt;
  std::vector<std::string> m_pendingWhere;
  std::string m_where;
  size_t m_nextId = 0;
};

void CallSink::Site(Thread& thread, const explain::SiteMatch& match) {
  const auto text = [&match](size_t i) {
    return i < match.fields.size() ? std::string(match.fields[i]) : std::string();
  };
  const auto number = [&match](size_t i) { return i < match.fields.size() ? Number(match.fields[i]) : 0; };
  LogCall* open = thread.open;
  const auto isOpen = [open](const char* name) { return open != nullptr && open->name == name; };
  switch (match.id) {
    case LogSiteId::kGetHookArgumentsNullCore:
      if (thread.pendingArguments++ == 0) thread.argumentsWhere = m_where;
      [[fallthrough]];
    case LogSiteId::kLoadRemediumNullCore:
      thread.pendingCoreMissing = true;
      return;
    case LogSiteId::kIsSwitchOpenedNullCore:
      if (open != nullptr) open->switchNull = true;
      [[fallthrough]];
    case LogSiteId::kNotifyHookMessageNullCore:
      if (open == nullptr) ++thread.notices;
      [[fallthrough]];
    case LogSiteId::kProtectionCallbackNullCore:
    case LogSiteId::kRecordProbeMessageNullCore:
      if (open != nullptr) open->coreMissing = true;
      return;
    case LogSiteId::kSettingsOpenFailure:
      thread.pendingSettingsMissing = true;
      return;
    case LogSiteId::kStaticCapsSlot: {
      LogCall& call = Start(thread, "GetStaticCaps");
      Named(thread, call, CameraOf(text(0)));
      call.slot = CameraOf(text(1));
      if (call.camera >= 0 && call.slot >= 0) m_calls.slotOfCamera.emplace(call.camera, call.slot);
      thread.open = nullptr;
      return;
    }
    case LogSiteId::kStateGetValue:
    case LogSiteId::kStateUpdateRead:
    case LogSiteId::kStateUpdateWrite: {
      m_calls.stateRecorded = true;
      if (match.id == LogSiteId::kStateUpdateRead) thread.stateKey = kImageSensorStatePropertyPrefix + text(0);
      const bool write = match.id == LogSiteId::kStateUpdateWrite;
      std::deque<LogCall>& calls = Boot().processes.back().calls;
      LogCall* call = open != nullptr ? open : calls.empty() ? nullptr : &calls.back();
      (call != nullptr ? call->states : thread.pendingStates)
          .emplace_back(write, match.id == LogSiteId::kStateGetValue ? text(0) : thread.stateKey,
                        text(match.id == LogSiteId::kStateUpdateRead ? 3
                             : write                                 ? 0
                                                                     : 1));
      return;
    }
    case LogSiteId::kStateGetMatch:
      m_calls.stateRecorded = true;
      return;
    case LogSiteId::kProbeLastResult:
    case LogSiteId::kSetProbeResultReadText:
    case LogSiteId::kEepromBypassProbeCount:
      return;

    // The sensor probe.
    case LogSiteId::kProbeProtectionArgument: {
      // One "arg:" and "sensor name:" pair per argument of the core: the first argument again
      // begins the next probe.
      const bool continues = isOpen("SensorProbe") && !open->settings && !open->pairOpen && !open->arguments.empty() &&
                             open->arguments.front() != text(0);
      LogCall& call = continues ? *open : Start(thread, "SensorProbe");
      call.arguments.push_back(text(0));
      call.pairOpen = true;
      return;
    }
    case LogSiteId::kProbeProtectionSensorName: {
      LogCall* call = isOpen("SensorProbe") && open->pairOpen ? open : nullptr;
      if (call != nullptr && !call->sensor.empty() && call->sensor != text(0)) {
        const std::string argument = call->arguments.back();
        call->arguments.pop_back();
        call = &Start(thread, "SensorProbe");
        call->arguments.push_back(argument);
      }
      if (call == nullptr) {
        call = &Start(thread, "SensorProbe");
        call->startsInside = true;
      }
      call->pairOpen = false;
      call->sensor = text(0);
      return;
    }
    case LogSiteId::kProbeSettings: {
      LogCall& call = Start(thread, "SensorProbe");
      call.settings = {number(0), number(1)};
      return;
    }
    case LogSiteId::kProbeSettingsMissing:
      Continue(thread, "SensorProbe").settingsMissing = true;
      return;
    case LogSiteId::kProbeSensorUsage: {
      LogCall& call = Continue(thread, "SensorProbe");
      call.usage = true;
      call.sensor = text(0);
      call.type = text(1);
      call.frequent = number(2) != 0;
      call.never = number(3) != 0;
      return;
    }
    case LogSiteId::kProbeMostProbed: {
      LogCall& call = Continue(thread, "SensorProbe");
      call.mostName = text(0);
      call.mostCount = number(1);
      return;
    }
    case LogSiteId::kProbeCount: {
      LogCall& call = Continue(thread, "SensorProbe");
      call.count = true;
      if (call.sensor.empty()) call.sensor = text(0);
      return;
    }
    case LogSiteId::kLastRetryVerdict: {
      LogCall& call = Continue(thread, "SensorProbe");
      if (!call.probing && !call.lastRetry) call.lastRetry = number(3) != 0;
      return;
    }
    case LogSiteId::kEepromBypassVerdict: {
      LogCall& call = Continue(thread, "SensorProbe");
      if (!call.probing) call.bypassVerdicts.push_back(number(4) != 0);
      return;
    }
    case LogSiteId::kReadProbeResultReadText: {
      LogCall& call = Continue(thread, "SensorProbe");
      call.probing = true;
      if (!call.outcome) call.reads.push_back(text(0));
      call.kernelAfter = text(0);
      return;
    }
    case LogSiteId::kSetProbeResultWrite:
    case LogSiteId::kResetProbeResultWrite: {
      LogCall& call = Continue(thread, "SensorProbe");
      call.probing = true;
      call.kernelAfter = text(0);
      return;
    }
    case LogSiteId::kResetProbeResultReadText:
      Continue(thread, "SensorProbe").kernelAfter = text(0);
      return;
    case LogSiteId::kReadProbeResultOpenFailure:
    case LogSiteId::kSetProbeResultOpenFailure:
    case LogSiteId::kResetProbeResultOpenFailure: {
      LogCall& call = Continue(thread, "SensorProbe");
      call.probing = true;
      call.kernelMissing = true;
      return;
    }
    case LogSiteId::kProbeOutcome: {
      LogCall& call = isOpen("SensorProbe") && !open->outcome ? *open : Continue(thread, "SensorProbe");
      call.probing = true;
      call.outcome = true;
      call.sensor = text(0);
      Named(thread, call, CameraOf(text(1)));
      call.kernelResult = number(2);
      call.result = number(3);
      return;
    }

    // EEPROM.
    case LogSiteId::kEepromDataSettings: {
      LogCall& call = Start(thread, "EEPROMDataProbe");
      call.settings = {number(0), number(1)};
      Named(thread, call, CameraOf(text(2)));
      return;
    }
    case LogSiteId::kEepromDataSensorUsage: {
      LogCall& call = Continue(thread, "EEPROMDataProbe");
      call.usage = true;
      call.sensor = text(2);
      Named(thread, call, CameraOf(text(0)));
      call.type = text(3);
      call.frequent = number(4) != 0;
      call.never = number(5) != 0;
      call.mostName = text(6);
      call.mostCount = number(7);
      return;
    }
    case LogSiteId::kEepromLastRetryVerdict:
      Continue(thread, "EEPROMDataProbe").eepromVerdicts.push_back(number(3) != 0);
      return;
    case LogSiteId::kEepromDataOutcome: {
      LogCall& call = Continue(thread, "EEPROMDataProbe");
      call.outcome = true;
      call.sensor = text(1);
      Named(thread, call, CameraOf(text(0)));
      call.result = number(2);
      return;
    }
    case LogSiteId::kEepromProbeRecorded:
      Continue(thread, "EEPROMDataProbe");
      thread.open = nullptr;
      return;
    case LogSiteId::kProbeEepromArgument:
      (isOpen("ProbeEEPROM") ? *open : Start(thread, "ProbeEEPROM")).arguments.push_back(text(0));
      return;
    case LogSiteId::kProbeEepromOutcome: {
      LogCall& call = isOpen("ProbeEEPROM") ? *open : Start(thread, "ProbeEEPROM");
      call.outcome = true;
      call.sensor = text(0);
      call.result = number(1);
      thread.open = nullptr;
      return;
    }
    case LogSiteId::kReadEepromArgument: {
      const bool next = isOpen("ReadEEPROMDevice") && !open->pairOpen && open->arguments.front() == text(0);
      LogCall& call =
          isOpen("ReadEEPROMDevice") && !open->pairOpen && !next ? *open : Start(thread, "ReadEEPROMDevice");
      call.arguments.push_back(text(0));
      call.pairOpen = true;
      return;
    }
    case LogSiteId::kReadEepromSensorName: {
      LogCall& call = isOpen("ReadEEPROMDevice") && open->pairOpen ? *open : Continue(thread, "ReadEEPROMDevice");
      call.pairOpen = false;
      call.sensor = text(0);
      return;
    }

    // Bring-up.
    case LogSiteId::kInitDeviceSkip: {
      LogCall& call = Start(thread, "InitializeSensorDevice");
      call.skipped = true;
      Named(thread, call, CameraOf(text(0)));
      return;
    }
    case LogSiteId::kInitDeviceChanged: {
      LogCall& call =
          isOpen("InitializeSensorDevice") && !open->changed ? *open : Start(thread, "InitializeSensorDevice");
      call.changed = true;
      Named(thread, call, CameraOf(text(0)));
      call.result = number(1);
      thread.open = nullptr;
      return;
    }
    case LogSiteId::kInitResultReadText:
    case LogSiteId::kInitResultOpenFailure: {
      LogCall& call = Start(thread, "LoadSensorInitConfigCmd");
      if (match.id == LogSiteId::kInitResultReadText) call.initRead = text(0);
      call.kernelMissing = match.id == LogSiteId::kInitResultOpenFailure;
      return;
    }
    case LogSiteId::kInitConfigChanged: {
      LogCall& call =
          isOpen("LoadSensorInitConfigCmd") && !open->changed ? *open : Start(thread, "LoadSensorInitConfigCmd");
      call.changed = true;
      Named(thread, call, CameraOf(text(0)));
      call.result = number(1);
      call.kernelResult = number(2);
      thread.open = nullptr;
      return;
    }
    case LogSiteId::kConfigCmdsSkip: {
      LogCall& call = Start(thread, "LoadSensorConfigCmds");
      call.skipped = true;
      Named(thread, call, CameraOf(text(0)));
      return;
    }
    case LogSiteId::kConfigCmdsChanged: {
      LogCall& call = isOpen("LoadSensorConfigCmds") && !open->changed ? *open : Start(thread, "LoadSensorConfigCmds");
      call.changed = true;
      Named(thread, call, CameraOf(text(0)));
      call.result = number(1);
      thread.open = nullptr;
      return;
    }
    case LogSiteId::kSubmitInitialConfigCode:
    case LogSiteId::kSubmitConfigCode:
      Start(thread, "SensorCreateAndSubmitCommand").opcode = number(0);
      return;
    case LogSiteId::kSubmitInitialConfigChanged:
    case LogSiteId::kSubmitConfigChanged: {
      LogCall& call = Continue(thread, "SensorCreateAndSubmitCommand");
      if (call.opcode == 0) call.opcode = match.id == LogSiteId::kSubmitConfigChanged ? 4 : 2;
      call.changed = true;
      call.result = number(0);
      thread.open = nullptr;
      return;
    }
    case LogSiteId::kSensorI2CSlaveAddress:
      Start(thread, "CreateI2CInfoCmd").address = Number("0x" + text(0));
      thread.open = nullptr;
      return;

    // Lens, OIS and gyro.
    case LogSiteId::kActuatorNames: {
      LogCall& call = isOpen("ActuatorData") && open->address < 0 ? *open : Start(thread, "ActuatorData");
      call.arguments.push_back(text(0));
      if (text(1) != "(null)") call.actuator = text(1);
      return;
    }
    case LogSiteId::kActuatorAddressChanged:
      Continue(thread, "ActuatorData").toggles.push_back(Number("0x" + text(0)));
      return;
    case LogSiteId::kActuatorAddress: {
      LogCall& call = isOpen("ActuatorData") && open->address < 0 ? *open : Start(thread, "ActuatorData");
      call.address = Number("0x" + text(0));
      thread.open = nullptr;
      return;
    }
    case LogSiteId::kOisProviderResult:
      Start(thread, "OISRegisterProvider");
      thread.open = nullptr;
      return;
    case LogSiteId::kOisI2CSlaveAddress:
      Start(thread, "OISCreateI2CInfoCmd").address = Number("0x" + text(0));
      thread.open = nullptr;
      return;
    case LogSiteId::kGyroTimestampModified: {
      LogCall& call = isOpen("PostGyroData") && open->chosen < 0 ? *open : Start(thread, "PostGyroData");
      call.chosen = static_cast<int>(call.samples.size());
      return;
    }
    case LogSiteId::kGyroSampleTimestamp: {
      const int64_t index = number(0);
      const bool continues = isOpen("PostGyroData") && index == static_cast<int64_t>(open->samples.size()) &&
                             (index != 0 || open->chosen == 0);
      LogCall& call = continues ? *open : Start(thread, "PostGyroData");
      if (index != static_cast<int64_t>(call.samples.size())) call.startsInside = true;
      call.samples.push_back(number(1));
      return;
    }
  }
}

}  // namespace

bool ReadLogCalls(const std::vector<std::string>& files, LogCalls* calls, explain::Story* story, std::string* error) {
  explain::StorySink storySink;
  CallSink sink(storySink, *calls);
  for (const std::string& file : explain::InTimeOrder(files)) {
    if (!explain::ReadInput(file, sink, error)) return false;
  }
  sink.Finish();
  *story = storySink.Finish();
  calls->readingNotes = story->readingNotes;
  for (const explain::BootStory& boot : story->boots) {
    for (size_t p = 0; p < boot.processes.size(); ++p) {
      for (const auto& [id, camera] : boot.processes[p].cameras) {
        for (const explain::Event& event : camera.events) {
          if (event.kind == "gap" || event.kind == "undetermined" || event.kind == "log-ends") {
            calls->gaps.emplace_back(sink.CallAt(event.where), event.text);
          }
        }
      }
    }
  }
  // How each camera process ended, where the log or a tombstone says.
  for (LogBoot& boot : calls->boots) {
    for (LogProcess& process : boot.processes) {
      for (const explain::BootStory& told : story->boots) {
        for (const explain::ProcessStory& other : told.processes) {
          if (other.pid == process.pid && !other.ending.empty()) process.ending = other.ending;
        }
      }
    }
  }
  return true;
}

}  // namespace sim::replay
