#include "explain/story.h"

#include <algorithm>
#include <cstdlib>
#include <set>

#include "client/interface/messagecenterclient.h"
#include "explain/logline.h"
#include "explain/sites.h"
#include "hook/src/kernelchannel.h"
#include "sim/records/records.h"
#include "sim/text/text.h"

namespace explain {

const EventKind kEventKinds[] = {
    {"sensor-probe", "a sensor probe attempt: its CamX (umd) and kernel (kmd) results"},
    {"eeprom-probe", "an EEPROM data probe attempt and the result the library returned"},
    {"eeprom-fault-injected", "the core named this EEPROM: the library reported it failed"},
    {"protection-fault", "the core named this sensor: the library reported its probe failed"},
    {"bypass-taken", "a failing most-used module was reported probed (bypass)"},
    {"bypass-refused", "the module qualified for a bypass that did not happen, and why"},
    {"kernel-retry-armed", "the camera was marked in the kernel parameter for a kernel-assisted re-probe"},
    {"kernel-retry-verdict", "after the kernel retry: probe recorded failed, CamX told success"},
    {"forced-eeprom-success", "an EEPROM failure on the last retry was reported as success"},
    {"init-failure-hidden", "a failed sensor initialisation was reported as success"},
    {"config-failure-hidden", "a failed init-settings or configuration load or submit was reported as success"},
    {"bringup-skipped", "initialisation or configuration skipped because the probe is recorded failed"},
    {"i2c-address", "an I2C slave address switched or as the library left it"},
    {"ois-provider-forced", "OIS provider registration reported 1 without the HAL's registration"},
    {"gyro-timestamp-shifted", "a gyro sample's timestamp was moved back"},
    {"core-missing", "the framework core was missing at this call"},
    {"message-centre-missing", "the message centre (or its send function) was missing"},
    {"settings-missing", "the override-settings file could not be opened"},
    {"kernel-unavailable", "the kernel parameter could not be opened or read"},
    {"gap", "the log lacks lines the library wrote (starts late, or a gap)"},
    {"undetermined", "the log cannot tell which of two decisions the library took, and says why"},
    {"log-ends", "the log ends inside this probe"},
};
const size_t kEventKindCount = std::size(kEventKinds);

namespace {

// A number of a library line, held within +-2^62 so that the story's sums and differences cannot
// overflow whatever a line claims.
long long Number(std::string_view text) {
  constexpr long long kLimit = 1LL << 62;
  return std::clamp(std::strtoll(std::string(text).c_str(), nullptr, text.substr(0, 2) == "0x" ? 16 : 10), -kLimit,
                    kLimit);
}

// A camera id of a line as the story keys it.
int CameraId(long long number) { return static_cast<int>(std::clamp<long long>(number, -1, 1 << 20)); }

std::string Plural(long long n, const std::string& word) {
  return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

// The library's sensor name filter: true unless the name is empty or holds every role word.
bool IsCameraName(std::string_view name) {
  if (name.empty()) return false;
  for (const char* word : {"macro", "ultra", "wide", "tele", "depth", "front"}) {
    if (name.find(word) == std::string_view::npos) return true;
  }
  return false;
}

// A sensor probe attempt as its lines arrive on one thread.
struct SensorAttempt {
  Event start;  // time and place of the first line
  std::string sensor;
  int camera = -1;
  long long moduleProbe = -1;  // this module's earlier probes, from the library's count
  bool partial = false;        // the log starts inside it
  bool protection = false;
  std::string protectionArgument;
  int protectionArguments = 0, protectionFaults = 0;
  bool settingsMissing = false;
  bool sawUsage = false, sawCount = false;
  bool frequent = false, never = false, lastRetry = false;
  int eepromVerdicts = 0;
  bool lastEepromVerdict = false;
  bool coreMissingForSwitch = false;
  std::vector<std::string> reads;
  bool kernelUnavailable = false;
  bool outcome = false;
  long long umd = 0, kmd = 0;
  bool resetAfterOutcome = false;
  bool armedAtOutcome = false;
  uint64_t started = 0;       // the process's line count when its first line came
  int64_t lastMicros = -1;    // the time of its last line  // the kernel retry was armed when the
                              // outcome was logged (its step 16 tests it)
  std::vector<Event> events;  // kept until the camera is known
  bool Candidate() const { return (frequent || never) && (lastRetry || lastEepromVerdict); }
};

struct EepromAttempt {
  int camera = -1;
  std::string sensor;
  bool frequent = false, never = false;
  std::vector<bool> verdicts;
};

struct Thread {
  std::optional<SensorAttempt> probe;
  std::optional<EepromAttempt> eeprom;
  int lastCamera = -1;
  std::vector<std::string> arguments;  // EEPROM hooks' "arg:" lines
  int skippedCamera = -1;              // the camera whose bring-up step this thread just skipped
  uint64_t lastLine = 0;               // the process's line count at this thread's last line
};

// A sensor probe attempt that ended, waiting to be filed in the order attempts began.
struct Closed {
  SensorAttempt attempt;
  int cameraId;
  bool atEnd;
  bool pruned = false;  // logd pruned lines of it: what it decided is not in the log
};

// The last library line of a thread, for logd's "identical N lines".
struct LastLine {
  std::string timestamp, tag, message, source;
  LogTime time;
  LogFormat format = LogFormat::kNone;
  char level = '?';
};

// What a camera process's lines carry from one to the next.
struct Context {
  std::map<std::pair<int, int>, Thread> threads;  // by (pid, tid) of the current process
  std::map<std::string, int> cameraOfSensor;
  std::map<std::string, long long> sensorProbesSeen, eepromProbesSeen;
  bool kernelRetryArmed = false;
  // The log holds the process's lines before this one: it began earlier and no gap came since,
  // so a line the library wrote just before this one (on any thread) would be in it.
  bool linesBefore = false;
  uint64_t lines = 0;           // the process's library lines so far
  std::vector<Closed> pending;  // ended attempts waiting for one begun earlier on another thread
};

// Maps keyed by what a line names are cleared past this size: a hostile log cannot grow them.
constexpr size_t kMaxKeys = 4096;
constexpr size_t kMaxLastLines = 256;
constexpr size_t kMaxField = 256;
constexpr size_t kMaxLineKept =
    2048;  // the library's lines are at most 1023 bytes           // characters of a line's field quoted in an event
constexpr size_t kMaxStoredEvents = 200000;  // events kept in the whole story; the rest are counted
constexpr size_t kMaxBoots = 256;
constexpr size_t kMaxProperties = 4096;

}  // namespace

struct StorySink::State {
  Story story;
  std::string source;
  Context ctx;
  Context saved;           // the bug report's own boot while its previous boot is read
  size_t boot = 0;         // the boot lines go to
  size_t currentBoot = 0;  // the input's own boot (PreviousBoot switches away from it)
  bool inPrevious = false;
  std::map<std::pair<int, int>, LastLine> lastLines;  // by (pid, tid), library lines only
  std::function<void(const Event&, const EventPlace&)> listener;
  // The year of wall times that carry none: 2000 (a leap year, so 02-29 is a date), one more
  // each time the month goes back (a log across New Year).
  int year = 2000;
  int lastMonth = 0;
  int reportYear = 0, reportMonth = 0;  // from the bug report's "== dumpstate:" line (0: none)
  int crashPid = -1;                    // the process a crash report (tombstone, crash buffer) is about
  std::string where, time;
  int64_t micros = -1;

  BootStory& Boot() {
    if (story.boots.empty()) {
      story.boots.push_back({source, {}, {}, {}, {}});
      boot = currentBoot = 0;
    }
    return story.boots[boot];
  }
  // A new boot: a bug report, or a reboot the log shows (`label` says how).
  void NewBoot(const std::string& label) {
    if (!story.boots.empty()) CloseAll();
    ctx = Context{};
    lastLines.clear();
    if (story.boots.size() >= kMaxBoots) {
      // Keep the first and the latest half of the boots; the ones between are only counted.
      story.boots.erase(story.boots.begin() + 1, story.boots.begin() + kMaxBoots / 2);
      story.bootsNotListed += kMaxBoots / 2 - 1;
    }
    story.boots.push_back({source, label, {}, {}, {}});
    boot = currentBoot = story.boots.size() - 1;
  }
  ProcessStory& Process() { return Boot().processes.back(); }
  CameraStory& Camera(int id) {
    std::map<int, CameraStory>& cameras = Process().cameras;
    if (cameras.size() >= kMaxCamerasPerProcess && cameras.count(id) == 0) id = -1;
    CameraStory& camera = cameras[id];
    camera.id = id;
    return camera;
  }

  Event Make(const std::string& kind, const std::string& text, int attempt = 0) const {
    return {time, where, kind, text, attempt, micros};
  }
  void Add(int cameraId, Event event) {
    CameraStory& camera = Camera(cameraId);
    if (event.kind == "undetermined") Note(camera, "the log cannot tell some decisions");
    if (event.kind == "init-failure-hidden") Note(camera, "init failure hidden");
    if (event.kind == "config-failure-hidden") Note(camera, "config failure hidden");
    if (event.kind == "protection-fault") Note(camera, "protection fault injected");
    if (event.kind == "eeprom-fault-injected") Note(camera, "EEPROM fault injected");
    if (event.kind == "forced-eeprom-success") Note(camera, "EEPROM success forced");
    if (event.kind == "kernel-retry-armed") Note(camera, "kernel retry armed");
    if (event.kind == "bringup-skipped") Note(camera, "bring-up skipped after a failed probe");
    if (event.kind == "core-missing") Note(camera, "core missing");
    if (event.kind == "message-centre-missing") Note(camera, "message centre missing");
    if (event.kind == "gap") Note(camera, "log incomplete");
    if (listener) listener(event, {Process().pid, camera.id, Boot().previous, Boot().source});
    if (camera.events.size() >= kMaxEventsPerCamera || storedEvents >= kMaxStoredEvents) {
      ++camera.omitted[event.kind];
      return;
    }
    ++storedEvents;
    camera.events.push_back(std::move(event));
  }
  // Each note once, in one order whatever order the threads' lines came in.
  static void Note(CameraStory& camera, const std::string& note) {
    static constexpr std::string_view kOrder[] = {"kernel retry armed",
                                                  "init failure hidden",
                                                  "config failure hidden",
                                                  "protection fault injected",
                                                  "EEPROM fault injected",
                                                  "EEPROM success forced",
                                                  "bring-up skipped after a failed probe",
                                                  "core missing",
                                                  "message centre missing",
                                                  "log incomplete",
                                                  "the log cannot tell some decisions"};
    if (std::find(camera.notes.begin(), camera.notes.end(), note) != camera.notes.end()) return;
    const auto rank = [](std::string_view text) {
      return std::find(std::begin(kOrder), std::end(kOrder), text) - std::begin(kOrder);
    };
    camera.notes.insert(std::find_if(camera.notes.begin(), camera.notes.end(),
                                     [&](const std::string& other) { return rank(other) > rank(note); }),
                        note);
  }

  void NewProcess(int pid) {
    CloseAll();
    ctx.threads.clear();
    ctx.cameraOfSensor.clear();
    ctx.sensorProbesSeen.clear();
    ctx.eepromProbesSeen.clear();
    ctx.kernelRetryArmed = false;
    std::vector<ProcessStory>& processes = Boot().processes;
    if (processes.size() >= kMaxProcessesPerBoot) {
      // Keep the first and the latest half: the ones between are counted where they were (half
      // at a time, so that a million restarts cost a million moves, not a billion).
      const auto from = processes.begin() + 1, to = processes.begin() + kMaxProcessesPerBoot / 2;
      uint64_t skipped = 0;
      for (auto it = from; it != to; ++it) skipped += 1 + it->skippedBefore;
      processes.erase(from, to);
      processes[1].skippedBefore += skipped;
    }
    ProcessStory process;
    process.pid = pid;
    process.firstTime = process.lastTime = time;
    process.firstMicros = micros;
    processes.push_back(std::move(process));
  }

  // A line of a crash report (the crash buffer's DEBUG lines, a tombstone): how a camera
  // process ended and its frames in the hook library.
  void Crash(std::string_view text) {
    text = sim::text::Trim(text, " \t");
    if (text.starts_with("pid: ")) {
      crashPid = CameraId(Number(text.substr(5)));
      return;
    }
    if (text.starts_with("Fatal signal ")) {  // libc's line in the crashing process
      const size_t pid = text.rfind(", pid ");
      if (pid != std::string_view::npos) Ended(CameraId(Number(text.substr(pid + 6))), text.substr(6));
      return;
    }
    if (crashPid < 0) return;
    if (text.starts_with("signal ")) {
      Ended(crashPid, text);
      return;
    }
    if (text.starts_with("#") && text.find(" pc ") != std::string_view::npos &&
        text.find(kHookLibrary) != std::string_view::npos) {
      if (ProcessStory* process = ProcessOf(crashPid); process != nullptr && process->frames.size() < 32) {
        process->frames.emplace_back(text);
      }
    }
  }
  static constexpr std::string_view kHookLibrary = "com.velora.remedium.hook.camx.so";
  ProcessStory* ProcessOf(int pid) {
    if (story.boots.empty()) return nullptr;
    for (auto it = Boot().processes.rbegin(); it != Boot().processes.rend(); ++it) {
      if (it->pid == pid) return &*it;
    }
    return nullptr;
  }
  // "signal 6 (SIGABRT), code -1 ..." as "signal 6 (SIGABRT)".
  void Ended(int pid, std::string_view text) {
    ProcessStory* process = ProcessOf(pid);
    if (process == nullptr || !process->ending.empty()) return;
    const size_t close = text.find(')');
    process->ending = std::string(text.substr(0, close == std::string_view::npos ? text.size() : close + 1));
  }

  // Closes every open attempt, in the order they began. Only the thread that wrote the
  // process's last line can have been cut short by the log's end; an attempt on another
  // thread wrote all it was going to while the others went on.
  void CloseAll() {
    std::vector<Thread*> open;
    for (auto& [key, thread] : ctx.threads) {
      if (thread.probe) open.push_back(&thread);
    }
    std::sort(open.begin(), open.end(),
              [](const Thread* a, const Thread* b) { return a->probe->started < b->probe->started; });
    for (Thread* thread : open) CloseProbe(*thread, thread->lastLine == ctx.lines);
  }

  // Ends a sensor probe attempt: its camera is what its own lines name (or its sensor's, or
  // its thread's last), then it waits until every attempt begun before it has ended, so that
  // attempts are numbered in the order they began whichever thread ends first.
  void CloseProbe(Thread& thread, bool atEnd, bool pruned = false) {
    if (!thread.probe) return;
    Closed closed{std::move(*thread.probe), -1, atEnd, pruned};
    thread.probe.reset();
    const SensorAttempt& attempt = closed.attempt;
    int cameraId = attempt.camera;
    if (cameraId < 0 && ctx.cameraOfSensor.count(attempt.sensor) != 0) cameraId = ctx.cameraOfSensor[attempt.sensor];
    if (cameraId < 0) cameraId = thread.lastCamera;
    if (cameraId >= 0) thread.lastCamera = cameraId;
    closed.cameraId = cameraId;
    // A bypass writes no outcome line: its probe counts here, before the module's next probe line.
    if (!pruned && !attempt.protection && !attempt.settingsMissing && !attempt.outcome && !attempt.reads.empty() &&
        (!atEnd || BypassReadLast(attempt, cameraId))) {
      ++ctx.sensorProbesSeen[attempt.sensor];
    }
    const auto at = std::find_if(ctx.pending.begin(), ctx.pending.end(),
                                 [&attempt](const Closed& other) { return other.attempt.started > attempt.started; });
    ctx.pending.insert(at, std::move(closed));
    uint64_t earliestOpen = UINT64_MAX;
    for (const auto& [key, other] : ctx.threads) {
      if (other.probe) earliestOpen = std::min(earliestOpen, other.probe->started);
    }
    while (!ctx.pending.empty() && ctx.pending.front().attempt.started < earliestOpen) {
      Closed first = std::move(ctx.pending.front());
      ctx.pending.erase(ctx.pending.begin());
      File(first);
    }
  }

  static constexpr char kStartsInside[] = "the log starts (or resumes) inside this sensor probe";

  // Decides what an ended attempt's lines show and files its events under its camera.
  void File(Closed& closed) {
    SensorAttempt& attempt = closed.attempt;
    const int cameraId = closed.cameraId;
    const bool atEnd = closed.atEnd;
    CameraStory& camera = Camera(cameraId);
    const int number = ++camera.sensorAttempts;
    std::vector<Event> events = std::move(attempt.events);
    for (Event& event : events) {
      if (event.kind != "gap" || event.text != kStartsInside) continue;
      event.text = "the log " + std::string(number == 1 ? "starts" : "resumes") + " during sensor probe attempt " +
                   std::to_string(number) + " of " +
                   (cameraId < 0 ? "a camera it does not name" : "camera " + std::to_string(cameraId)) +
                   (number == 1 ? " (attempts are counted from the log's start; earlier ones are not in it)" : "");
    }
    const auto add = [&](const std::string& kind, const std::string& text) {
      Event event = attempt.start;
      event.kind = kind;
      event.text = text;
      events.push_back(event);
    };
    const std::string module =
        attempt.moduleProbe >= 0 ? " (probe " + std::to_string(attempt.moduleProbe + 1) + " of this module)" : "";
    std::string outcome = "failed";
    std::string how;
    if (closed.pruned && !attempt.outcome) {
      add("gap", "sensor probe attempt " + std::to_string(number) + " of " +
                     (attempt.sensor.empty() ? "an unnamed sensor" : attempt.sensor) +
                     ": logd pruned lines of it, so what the library decided is not in the log");
      outcome = "unknown (lines pruned)";
    } else if (attempt.protection) {
      add("sensor-probe",
          "sensor probe attempt " + std::to_string(number) + ": " + attempt.sensor +
              " on the core's protection path (" + Plural(attempt.protectionArguments, "argument") + " checked): " +
              (attempt.protectionFaults > 0 ? "reported failed (1)" : "CamX's result returned (not logged)"));
      outcome = attempt.protectionFaults > 0 ? "failed" : "probed (result not logged)";
      how = attempt.protectionFaults > 0 ? "by a protection fault" : "on the protection path";
    } else if (attempt.settingsMissing) {
      add("sensor-probe", "sensor probe attempt " + std::to_string(number) +
                              ": override settings missing (retry times or module number 0, or no camera id): a "
                              "plain probe, its result not logged");
      outcome = "probed without the library's logic";
    } else if (attempt.outcome) {
      std::string text = "sensor probe attempt " + std::to_string(number) + ": " + attempt.sensor + module +
                         ", umd (CamX) " + std::to_string(attempt.umd) + ", kmd (kernel) " +
                         std::to_string(attempt.kmd);
      if (attempt.reads.size() >= 2) {
        add("bypass-refused", "bypass tried on " + attempt.sensor + ": the probe or the kernel failed (kernel table: " +
                                  sim::records::DescribeKernelText(attempt.reads.front()) + "); probed again");
      } else if (attempt.Candidate()) {
        add("bypass-refused",
            "bypass not tried for " + attempt.sensor + ": " +
                (attempt.coreMissingForSwitch ? "the core is missing, so its switch counts as closed"
                 : !attempt.frequent          ? "not the module this slot has used most (none recorded yet)"
                 : attempt.eepromVerdicts >= 2 && !attempt.lastEepromVerdict ? "the EEPROM retry decision said no"
                                                                             : "the core's bypass switch is closed"));
      }
      outcome = attempt.umd == 0 ? "kept" : "failed";
      if (attempt.resetAfterOutcome && attempt.armedAtOutcome && attempt.Candidate()) {
        add("kernel-retry-verdict", "after the kernel retry: " + attempt.sensor +
                                        " recorded failed (P=F, error id set), CamX told success (0)");
        outcome = "reported probed after the kernel retry";
        how = "";
      }
      events.insert(events.begin(),
                    Event{attempt.start.time, attempt.start.where, "sensor-probe", text, number, attempt.start.micros});
    } else if (!attempt.reads.empty() && (!atEnd || BypassReadLast(attempt, cameraId))) {
      const std::vector<int64_t> table = sim::records::ParseNumberList(attempt.reads.back(), 64);
      if (table.size() == CamX::kProbeResultTableSize) {
        add("bypass-taken", "sensor probe attempt " + std::to_string(number) + ": " + attempt.sensor + module +
                                " failing on its last retry but the slot's most-used module: reported probed "
                                "(bypass), state P/I/C=S, core told" +
                                (atEnd ? " (its last line; a bypass writes none after the kernel read)" : ""));
        outcome = "kept";
        how = "by bypass";
      } else {
        add("kernel-unavailable", "sensor probe attempt " + std::to_string(number) + ": " + attempt.sensor +
                                      ": kernel table of " + std::to_string(table.size()) +
                                      " values, no bookkeeping; CamX's result returned");
        outcome = "unknown";
      }
    } else if (attempt.kernelUnavailable) {
      add("sensor-probe", "sensor probe attempt " + std::to_string(number) + ": " + attempt.sensor +
                              ": kernel parameter unavailable, no bookkeeping; CamX's result returned");
      outcome = "unknown";
    } else if (atEnd) {
      add("log-ends", "sensor probe attempt " + std::to_string(number) + " of " +
                          (attempt.sensor.empty() ? "an unnamed sensor" : attempt.sensor) +
                          ": the log ends before its outcome");
      outcome = "unknown (log ends)";
    } else if (attempt.sawUsage && !attempt.sawCount) {
      add("sensor-probe", "sensor probe attempt " + std::to_string(number) + ": " + attempt.sensor +
                              ": camera id 16 or more, reported probed without probing");
      outcome = "kept";
      how = "without probing (camera id 16 or more)";
    } else {
      add("sensor-probe",
          "sensor probe attempt " + std::to_string(number) + ": " + attempt.sensor + ": its outcome is not in the log");
      outcome = "unknown";
    }
    for (Event& event : events) {
      event.attempt = number;
      event.endMicros = attempt.lastMicros;
      Add(cameraId, std::move(event));
    }
    if (!attempt.sensor.empty()) camera.lastSensor = attempt.sensor;
    camera.lastAttempt = number;
    camera.lastOutcome = outcome;
    camera.lastHow = how;
  }

  // A probe whose lines stop (the log or the process ends) right after the
  // kernel read of a bypass attempt: the bypass decision said yes (its second
  // EEPROM verdict), and the table shows the camera's kernel result 0. A
  // failed attempt would have gone on at once to a second probe and read.
  static bool BypassReadLast(const SensorAttempt& attempt, int cameraId) {
    if (attempt.reads.size() != 1 || attempt.eepromVerdicts < 2 || !attempt.lastEepromVerdict || !attempt.frequent ||
        cameraId < 0 || cameraId >= 16) {
      return false;
    }
    const std::vector<int64_t> table = sim::records::ParseNumberList(attempt.reads.front(), 64);
    return table.size() == CamX::kProbeResultTableSize && table[static_cast<size_t>(cameraId) + 32] == 0;
  }

  SensorAttempt& Probe(Thread& thread, bool starts) {
    if (starts) CloseProbe(thread, false);
    if (!thread.probe) {
      thread.probe.emplace();
      thread.probe->start = Make("sensor-probe", "");
      thread.probe->started = ctx.lines;
      thread.probe->partial = !starts;
      if (!starts) {
        thread.probe->events.push_back(Make("gap", kStartsInside));
      }
    }
    return *thread.probe;
  }

  // The first probe of a name in this process says how many the library had already made.
  void CheckProbeCount(std::map<std::string, long long>& seen, const std::string& name, long long count, int cameraId,
                       const std::string& what, std::vector<Event>* into) {
    const auto it = seen.find(name);
    const long long known = it == seen.end() ? 0 : it->second;
    if (count > known) {
      const std::string text =
          it == seen.end() ? "log starts after the first " + (count == 1 ? what : Plural(count, what)) + " of " + name
                           : "gap in the log: " + Plural(count - known, what) + " of " + name + " missing";
      Event event = Make("gap", text);
      if (into != nullptr) {
        into->push_back(event);
      } else {
        Add(cameraId, event);
      }
    }
    seen[name] = count;
  }

  void Library(const LogLine& line, const SiteMatch& match);
  void Line(const LogLine& line);

  // An event of the thread's current operation: its open sensor attempt, else the camera of
  // its EEPROM attempt or the last it named.
  void Here(Thread& thread, const std::string& kind, const std::string& text) {
    if (thread.probe) {
      thread.probe->events.push_back(Make(kind, text));
    } else {
      Add(thread.eeprom ? thread.eeprom->camera : thread.lastCamera, Make(kind, text));
    }
  }
  // The camera a bring-up step skipped just before on this thread (-1: none), forgotten.
  static int TakeSkipped(Thread& thread) {
    const int skipped = thread.skippedCamera;
    thread.skippedCamera = -1;
    return skipped;
  }
  int CameraOfModule(const Thread& thread, const std::string& module) const {
    const auto known = ctx.cameraOfSensor.find(module);
    return known != ctx.cameraOfSensor.end() ? known->second : thread.lastCamera;
  }
  EepromAttempt& EepromAttemptOf(Thread& thread) {
    if (!thread.eeprom) {
      thread.eeprom.emplace();
      Add(thread.lastCamera, Make("gap", "the log starts (or resumes) inside an EEPROM data probe"));
    }
    return *thread.eeprom;
  }

  // The protection path logs an "arg:" and "sensor name:" pair per argument
  // of the core, and nothing else. Pairs of one sensor continue the attempt
  // (one probe with several arguments and several probes in a row look the
  // same); a pair naming another sensor begins a new one.
  void OnProtectionArgument(Thread& thread, const std::string& argument) {
    const bool continues = thread.probe && thread.probe->protection && thread.probe->protectionArgument.empty();
    SensorAttempt& attempt = Probe(thread, !continues);
    attempt.protection = true;
    attempt.protectionArgument = argument;
  }
  void OnProtectionSensorName(Thread& thread, const std::string& sensor) {
    if (thread.probe && thread.probe->protection && !thread.probe->sensor.empty() && thread.probe->sensor != sensor) {
      const std::string argument = thread.probe->protectionArgument;
      Probe(thread, true).protection = true;
      thread.probe->protectionArgument = argument;
    }
    SensorAttempt& attempt = Probe(thread, false);
    attempt.protection = true;
    attempt.sensor = sensor;
    const std::string argument = attempt.protectionArgument;
    attempt.protectionArgument.clear();
    ++attempt.protectionArguments;
    if (IsCameraName(argument) && attempt.sensor.find(argument) != std::string::npos) {
      ++attempt.protectionFaults;
      attempt.events.push_back(Make("protection-fault", "protection fault injected: the core's argument \"" + argument +
                                                            "\" names " + attempt.sensor +
                                                            ", CamX is told the probe failed (1)"));
    }
  }

  void OnEepromDataOutcome(Thread& thread, int cameraId, const std::string& sensor, long long result) {
    EepromAttempt attempt = thread.eeprom.value_or(EepromAttempt{});
    attempt.camera = cameraId;
    attempt.sensor = sensor;
    CameraStory& camera = Camera(attempt.camera);
    const int n = static_cast<int>(++camera.eepromAttempts);
    Add(attempt.camera, Make("eeprom-probe",
                             "EEPROM data probe attempt " + std::to_string(n) + ": " + attempt.sensor + ", result " +
                                 std::to_string(result),
                             n));
    if (result == 0 && !attempt.verdicts.empty() && attempt.verdicts.back() && (attempt.frequent || attempt.never)) {
      Add(attempt.camera, Make("forced-eeprom-success",
                               "forced EEPROM success: " + attempt.sensor + " failed every retry but is " +
                                   (attempt.frequent ? "the slot's most-used module" : "of a type never probed") +
                                   ": reported 0 (and recorded as a success)"));
    }
    thread.lastCamera = attempt.camera;
    thread.eeprom = attempt;
  }

  // An EEPROM probe or read the core's argument names: reported failed.
  void OnEepromFault(const Thread& thread, const std::string& what, const std::string& module,
                     const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
      if (IsCameraName(argument) && module.find(argument) != std::string::npos) {
        Add(CameraOfModule(thread, module),
            Make("eeprom-fault-injected",
                 what + " of " + module + " reported failed (1): the core's argument \"" + argument + "\" names it"));
        return;
      }
    }
  }

  // A bring-up step's change line: a failure hidden, nothing (after its own skip), or, when the
  // log holds nothing before it, a result 1 that may be a skip whose line is not in the log.
  void OnChanged(Thread& thread, int cameraId, int skipped, const std::string& step, bool resultOne, bool changed,
                 const std::string& hidden, const char* kind, const std::string& reported) {
    thread.lastCamera = cameraId;
    if (skipped >= 0 && skipped == cameraId) return;
    if (resultOne && !ctx.linesBefore) {
      Add(cameraId, Make("undetermined", step + " " + reported +
                                             ": a hidden failure of result 1, or a skip whose line is before the log "
                                             "or lost; the log cannot tell which"));
      return;
    }
    if (changed) Add(cameraId, Make(kind, hidden));
  }
  // Where and when the events of this line happen.
  void Place(const LogLine& line) {
    where.assign(line.source);
    where += ':';
    where += std::to_string(line.lineNumber);
    time.assign(line.timestamp);
    micros = TimeMicros(line.time, year);
  }
  void Unknown(std::string_view message);
  bool Rebooted(const LogLine& line);
  void Chatty(const LogLine& line);

  int64_t lastMonotonic = -1;
  size_t storedEvents = 0;
  int lastLibraryPid = -1;
};

StorySink::StorySink() : m_state(new State) {}
StorySink::~StorySink() { delete m_state; }

void StorySink::BeginInput(std::string_view source, InputKind kind) {
  State& s = *m_state;
  s.source = std::string(source);
  s.year = 2000;
  s.lastMonth = 0;
  s.reportYear = s.reportMonth = 0;
  if (kind == InputKind::kBugreport || s.story.boots.empty()) s.NewBoot("");
}

void StorySink::EndInput(std::string_view) {}

void StorySink::PreviousBoot(bool begins) {
  State& s = *m_state;
  if (begins == s.inPrevious) return;
  s.inPrevious = begins;
  if (begins) {
    s.Boot();
    s.saved = std::move(s.ctx);
    s.ctx = Context{};
    BootStory previous{s.source, "the boot before, from the LAST LOGCAT section (pstore)", {}, {}, {}};
    previous.previous = true;
    s.story.boots.insert(s.story.boots.begin() + static_cast<std::ptrdiff_t>(s.currentBoot), std::move(previous));
    s.boot = s.currentBoot++;
  } else {
    s.CloseAll();
    s.ctx = std::move(s.saved);
    s.saved = Context{};
    s.boot = s.currentBoot;
  }
}

void StorySink::ReportTime(std::string_view, std::string_view time) {
  State& s = *m_state;
  // "YYYY-MM-DD HH:MM:SS"
  if (time.size() < 10 || time[4] != '-' || time[7] != '-') return;
  const int year = std::atoi(std::string(time.substr(0, 4)).c_str());
  const int month = std::atoi(std::string(time.substr(5, 2)).c_str());
  if (year < 1970 || year > 9999 || month < 1 || month > 12) return;
  s.reportYear = year;
  s.reportMonth = month;
  s.lastMonth = 0;
  s.Boot().reportTime = std::string(time.substr(0, 19));
}

void StorySink::Tombstone(std::string_view, uint64_t, std::string_view text) { m_state->Crash(text); }

void StorySink::Notice(std::string_view where, std::string_view text) {
  Story& story = m_state->story;
  if (story.readingNoteCount++ < kMaxListed)
    story.readingNotes.push_back(std::string(where) + ": " + std::string(text));
}

void StorySink::SetListener(std::function<void(const Event&, const EventPlace&)> listener) {
  m_state->listener = std::move(listener);
}

void StorySink::Property(std::string_view, std::string_view key, std::string_view value) {
  std::map<std::string, std::string>& properties = m_state->Boot().properties;
  if (properties.size() >= kMaxProperties && properties.count(std::string(key)) == 0) return;
  properties[std::string(key)] = std::string(value.substr(0, 4096));
}

void StorySink::KernelText(std::string_view, std::string_view text) { m_state->Boot().kernelText = std::string(text); }

void StorySink::Log(const LogLine& line) {
  State& s = *m_state;
  if (line.time.clock == LogTime::Clock::kWall && line.time.year == 0) {
    if (s.reportYear != 0 && s.lastMonth == 0) {
      // The report's year, or the one before for lines of a later month (December's lines in a
      // report written in January).
      s.year = s.reportYear - (line.time.month > s.reportMonth ? 1 : 0);
    } else if (s.lastMonth == 12 && line.time.month == 1) {
      ++s.year;  // New Year in a log without years
    }
    s.lastMonth = line.time.month;
  }
  if (s.Rebooted(line)) return;
  if ((line.tag == "chatty" || line.tag == "logd") && line.message.starts_with("uid=")) {
    s.Chatty(line);
    return;
  }
  if (line.tag == "DEBUG" || line.tag == "libc") {
    s.Crash(line.message);
    return;
  }
  s.Line(line);
}

void StorySink::State::Line(const LogLine& line) {
  bool messageCentre = line.tag == kMessageCenterLogTag;
  SiteMatch match;
  bool matched = false;
  const bool untagged = line.tag.empty() && line.format == LogFormat::kThread;
  if (untagged &&
      (line.message == "m_pMessageCenterSendMessageFuncPtr is NULL" || line.message == "m_pRemediumCore is NULL")) {
    messageCentre = true;  // the message centre's own lines carry no file and function, unlike the library's
  }
  if (line.tag != "[REMEDIUM]" && !messageCentre) {
    // logcat -v thread writes no tag: the library's lines are known by their own text.
    matched = untagged && MatchSite(line.message, &match);
    if (!matched) {
      // Another line of a thread that wrote the library's last line: no longer its line before.
      if (line.pid == lastLibraryPid && !lastLines.empty()) lastLines.erase({line.pid, line.tid});
      return;
    }
  }
  lastLibraryPid = line.pid;
  // The library's own lines are shown escaped where they are not UTF-8 (a line cut inside a character).
  std::string escaped;
  if (!sim::text::IsUtf8(line.message) || line.message.find('\0') != std::string_view::npos) {
    escaped = sim::text::EscapeUtf8(line.message);
    for (size_t at = escaped.find('\0'); at != std::string::npos; at = escaped.find('\0', at))
      escaped.replace(at, 1, "\\x00");
    LogLine clean = line;
    clean.message = escaped;
    if (matched) MatchSite(clean.message, &match);
    Line(clean);
    return;
  }
  ++story.libraryLines;
  Place(line);
  if (lastLines.size() >= kMaxLastLines) lastLines.clear();
  if (line.message.size() <= kMaxLineKept) {
    // Assigned member by member: the strings keep their storage from one line to the next.
    LastLine& last = lastLines[{line.pid, line.tid}];
    last.timestamp.assign(line.timestamp);
    last.tag.assign(line.tag);
    last.message.assign(line.message);
    last.source.assign(line.source);
    last.time = line.time;
    last.format = line.format;
    last.level = line.level;
  } else {
    lastLines.erase({line.pid, line.tid});
  }
  BootStory& current = Boot();
  if (current.processes.empty() || current.processes.back().pid != line.pid) NewProcess(line.pid);
  Process().lastTime = time;
  if (ctx.threads.size() >= kMaxKeys && ctx.threads.count({line.pid, line.tid}) == 0) {
    CloseAll();
    ctx.threads.clear();
  }
  Thread& thread = ctx.threads[{line.pid, line.tid}];
  thread.lastLine = ++ctx.lines;
  if (messageCentre) {
    if (line.message == "m_pMessageCenterSendMessageFuncPtr is NULL" || line.message == "m_pRemediumCore is NULL") {
      const std::string text = line.message == "m_pRemediumCore is NULL"
                                   ? "the message centre library is missing"
                                   : "the message centre's send function is missing: its answer is empty";
      if (thread.probe) {
        thread.probe->events.push_back(Make("message-centre-missing", text));
      } else {
        Add(thread.eeprom ? thread.eeprom->camera : thread.lastCamera, Make("message-centre-missing", text));
      }
    } else {
      Unknown(line.message);
    }
    ctx.linesBefore = true;
    return;
  }
  if (!matched && !MatchSite(line.message, &match)) {
    Unknown(line.message);
    ctx.linesBefore = true;
    return;
  }
  Library(line, match);
  ctx.linesBefore = true;
  if (Thread& after = ctx.threads[{line.pid, line.tid}]; after.probe) after.probe->lastMicros = micros;
}

void StorySink::State::Unknown(std::string_view message) {
  if (story.unrecognisedCount++ < kMaxListed)
    story.unrecognised.push_back({where, std::string(message.substr(0, 1024))});
}

bool IsBootMarker(const LogLine& line) {
  // The kernel's lines (pid 0) are the only ones searched: a search of every line would cost more
  // than reading it.
  return (line.tag == "init" && line.message.starts_with("init first stage started")) ||
         (line.pid == 0 && line.message.find("Booting Linux on physical CPU") != std::string_view::npos) ||
         line.tag == "boot_progress_start";
}

// The first lines of a boot: a log that runs across a reboot begins a new boot there.
bool StorySink::State::Rebooted(const LogLine& line) {
  const bool marker = IsBootMarker(line);
  bool monotonicBack = false;
  if (line.time.clock == LogTime::Clock::kMonotonic) {
    const int64_t now = TimeMicros(line.time, year);
    monotonicBack = lastMonotonic >= 0 && now + 10'000'000 < lastMonotonic;  // seconds since boot start again
    lastMonotonic = now;
  }
  if (!marker && !monotonicBack) return false;
  if (story.boots.empty() || Boot().processes.empty() || inPrevious) return marker;
  NewBoot("a reboot the log shows at " + std::string(line.source) + ":" + std::to_string(line.lineNumber));
  lastMonotonic = monotonicBack ? TimeMicros(line.time, year) : -1;
  return marker;
}

// logd's chatty lines: "identical N lines" stands for N more copies of the thread's line
// before it; "expire N lines" (and older logd's "dropped=N") says lines of the process are gone.
void StorySink::State::Chatty(const LogLine& line) {
  const std::string_view message = line.message;
  long long count = 0;
  bool identical = false;
  if (const size_t at = message.rfind(" identical "); at != std::string_view::npos) {
    identical = true;
    count = Number(message.substr(at + 11));
  } else if (const size_t expire = message.rfind(" expire "); expire != std::string_view::npos) {
    count = Number(message.substr(expire + 8));
  } else if (const size_t dropped = message.find("dropped="); dropped != std::string_view::npos) {
    count = Number(message.substr(dropped + 8));
  } else {
    return;
  }
  if (count <= 0) return;
  if (identical) {
    const auto last = lastLines.find({line.pid, line.tid});
    if (last == lastLines.end()) return;  // the line before was not the library's
    const LastLine copy = last->second;
    LogLine again = line;
    again.timestamp = copy.timestamp;
    again.time = copy.time;
    again.format = copy.format;
    again.level = copy.level;
    again.tag = copy.tag;
    again.message = copy.message;
    for (long long i = 0; i < std::min(count, 1'000'000LL); ++i) Line(again);
    return;
  }
  Place(line);
  // The pruned lines were the process's: it ran here even if none of its lines is left.
  if (Boot().processes.empty() || Process().pid != line.pid) NewProcess(line.pid);
  ProcessStory* process = &Process();
  const std::string text = "logd pruned " + Plural(count, "line") +
                           " of this process here (chatty): decisions of this camera may be missing";
  std::vector<int> ids;
  for (const auto& [id, camera] : process->cameras) ids.push_back(id);
  if (ids.empty()) ids.push_back(-1);
  for (const int id : ids) Add(id, Make("gap", text));
  // What follows the gap is not the same operation's: nothing is carried across it.
  for (auto& [key, thread] : ctx.threads) {
    if (key.first != line.pid) continue;
    CloseProbe(thread, false, true);
    thread.eeprom.reset();
    thread.lastCamera = -1;
    thread.skippedCamera = -1;
    thread.arguments.clear();
  }
  lastLines.clear();
  ctx.linesBefore = false;
}

namespace {

// A matched line's fields as the handlers read them.
struct Fields {
  const SiteMatch& match;
  // A field as the story quotes it: a line can hold far more than any name or number needs.
  std::string operator()(size_t i) const {
    if (i >= match.fields.size()) return std::string();
    const std::string_view text = match.fields[i];
    return text.size() <= kMaxField ? std::string(text) : std::string(text.substr(0, kMaxField)) + "...";
  }
  long long Number(size_t i) const { return i < match.fields.size() ? explain::Number(match.fields[i]) : 0; }
  int Camera(size_t i) const { return CameraId(Number(i)); }
  bool Complete() const { return !match.cut; }
};

}  // namespace

// Each site of the library's log has its case: a site added to the tables is a compile
// error here (-Wswitch, no default) until the story knows what its line means.
void StorySink::State::Library(const LogLine& line, const SiteMatch& match) {
  Thread& thread = ctx.threads[{line.pid, line.tid}];
  const Fields field{match};
  switch (match.id) {
    // The core client: a missing core, per wrapper.
    case LogSiteId::kIsSwitchOpenedNullCore:
      if (thread.probe) thread.probe->coreMissingForSwitch = true;
      [[fallthrough]];
    case LogSiteId::kLoadRemediumNullCore:
    case LogSiteId::kNotifyHookMessageNullCore:
    case LogSiteId::kGetHookArgumentsNullCore:
    case LogSiteId::kProtectionCallbackNullCore:
    case LogSiteId::kRecordProbeMessageNullCore:
      return Here(thread, "core-missing", "the framework core is missing (" + std::string(match.site->function) + ")");
    case LogSiteId::kSettingsOpenFailure:
      return Here(thread, "settings-missing", "override settings file not opened: " + field(0));
    case LogSiteId::kReadProbeResultOpenFailure:
      if (thread.probe) thread.probe->kernelUnavailable = true;
      [[fallthrough]];
    case LogSiteId::kSetProbeResultOpenFailure:
    case LogSiteId::kResetProbeResultOpenFailure:
    case LogSiteId::kInitResultOpenFailure:
      return Here(thread, "kernel-unavailable",
                  "kernel parameter not opened (" + std::string(match.site->function) + "): " + field(0));
    case LogSiteId::kStaticCapsSlot:
      thread.lastCamera = field.Camera(0);
      if (match.fields.size() >= 2) Camera(thread.lastCamera).slot = field.Camera(1);
      return;
    // The image sensor state record: context only.
    case LogSiteId::kStateUpdateRead:
      thread.lastCamera = field.Camera(0);
      return;
    case LogSiteId::kStateUpdateWrite:
    case LogSiteId::kStateGetValue:
    case LogSiteId::kStateGetMatch:
      return;

    // The sensor probe.
    case LogSiteId::kProbeSettings:
    case LogSiteId::kProbeSettingsMissing:
      Probe(thread, true).settingsMissing = match.id == LogSiteId::kProbeSettingsMissing;
      return;
    case LogSiteId::kProbeProtectionArgument:
      return OnProtectionArgument(thread, field(0));
    case LogSiteId::kProbeProtectionSensorName:
      return OnProtectionSensorName(thread, field(0));
    case LogSiteId::kProbeSensorUsage: {
      SensorAttempt& attempt = Probe(thread, thread.probe && thread.probe->sawUsage);
      attempt.sensor = field(0);
      attempt.sawUsage = true;
      attempt.frequent = field.Number(2) != 0;
      attempt.never = field.Number(3) != 0;
      return;
    }
    case LogSiteId::kProbeMostProbed:
    case LogSiteId::kEepromBypassProbeCount:
      Probe(thread, false);
      return;
    case LogSiteId::kProbeCount: {
      SensorAttempt& attempt = Probe(thread, thread.probe && thread.probe->sawCount);
      attempt.sensor = field(0);
      attempt.sawCount = true;
      if (field.Complete()) {
        attempt.moduleProbe = field.Number(1);
        CheckProbeCount(ctx.sensorProbesSeen, attempt.sensor, attempt.moduleProbe, -1, "probe", &attempt.events);
      }
      return;
    }
    case LogSiteId::kLastRetryVerdict: {
      SensorAttempt& attempt = Probe(thread, false);
      if (attempt.sensor.empty()) attempt.sensor = field(0);
      attempt.lastRetry = field.Number(3) != 0;
      return;
    }
    case LogSiteId::kEepromBypassVerdict: {
      SensorAttempt& attempt = Probe(thread, false);
      ++attempt.eepromVerdicts;
      attempt.lastEepromVerdict = field.Number(4) != 0;
      return;
    }
    case LogSiteId::kReadProbeResultReadText:
      if (thread.probe && !thread.probe->outcome) thread.probe->reads.push_back(field(0));
      return;
    case LogSiteId::kProbeLastResult:
    case LogSiteId::kSetProbeResultReadText:
    case LogSiteId::kInitResultReadText:
      return;
    case LogSiteId::kSetProbeResultWrite:
      ctx.kernelRetryArmed = true;
      return Here(thread, "kernel-retry-armed",
                  "kernel retry armed: the last module of a multi-sourced slot is marked for a kernel-assisted "
                  "re-probe (" +
                      sim::records::DescribeKernelText(field(0)) + ")");
    case LogSiteId::kProbeOutcome: {
      SensorAttempt& attempt = Probe(thread, thread.probe && thread.probe->outcome);
      attempt.sensor = field(0);
      attempt.camera = field.Camera(1);
      attempt.kmd = field.Number(2);
      attempt.umd = field.Number(3);
      attempt.outcome = field.Complete();
      attempt.armedAtOutcome = ctx.kernelRetryArmed;
      ctx.cameraOfSensor[attempt.sensor] = attempt.camera;
      thread.lastCamera = attempt.camera;
      ++ctx.sensorProbesSeen[attempt.sensor];
      return;
    }
    case LogSiteId::kResetProbeResultReadText:
    case LogSiteId::kResetProbeResultWrite:
      if (thread.probe && thread.probe->outcome) thread.probe->resetAfterOutcome = true;
      return;

    // EEPROM hooks: outside the sensor probe, which they end on their thread.
    case LogSiteId::kEepromDataSettings:
      CloseProbe(thread, false);
      thread.eeprom.emplace();
      thread.eeprom->camera = field.Camera(2);
      return;
    case LogSiteId::kEepromDataSensorUsage:
      CloseProbe(thread, false);
      EepromAttemptOf(thread);
      thread.eeprom->camera = field.Camera(0);
      thread.eeprom->sensor = field(2);
      thread.eeprom->frequent = field.Number(4) != 0;
      thread.eeprom->never = field.Number(5) != 0;
      ctx.cameraOfSensor[thread.eeprom->sensor] = thread.eeprom->camera;
      return;
    case LogSiteId::kEepromLastRetryVerdict:
      CloseProbe(thread, false);
      EepromAttemptOf(thread).verdicts.push_back(field.Number(3) != 0);
      return;
    case LogSiteId::kEepromDataOutcome:
      CloseProbe(thread, false);
      return OnEepromDataOutcome(thread, field.Camera(0), field(1), field.Number(2));
    case LogSiteId::kEepromProbeRecorded:
      CloseProbe(thread, false);
      if (field.Complete()) {
        const std::string sensor = field(0);
        ctx.eepromProbesSeen.emplace(sensor, 0);
        CheckProbeCount(ctx.eepromProbesSeen, sensor, field.Number(1) - 1,
                        thread.eeprom ? thread.eeprom->camera : thread.lastCamera, "EEPROM probe", nullptr);
        ctx.eepromProbesSeen[sensor] = field.Number(1);
      }
      thread.eeprom.reset();
      return;
    case LogSiteId::kProbeEepromArgument:
    case LogSiteId::kReadEepromArgument:
      CloseProbe(thread, false);
      thread.arguments.push_back(field(0));
      return;
    case LogSiteId::kProbeEepromOutcome:
      CloseProbe(thread, false);
      OnEepromFault(thread, "EEPROM probe", field(0), thread.arguments);
      Add(CameraOfModule(thread, field(0)),
          Make("eeprom-probe", "EEPROM probe of " + field(0) + ": result " + field(1)));
      thread.arguments.clear();
      return;
    case LogSiteId::kReadEepromSensorName: {
      CloseProbe(thread, false);
      std::vector<std::string> last;
      if (!thread.arguments.empty()) {
        last.push_back(thread.arguments.back());
        thread.arguments.pop_back();
      }
      return OnEepromFault(thread, "EEPROM read", field(0), last);
    }

    // Bring-up: outside the sensor probe too. After a skip the change line shows the
    // library's own result 1 for the step that was not run: no failure of CamX was
    // hidden, the skip says it all.
    case LogSiteId::kInitDeviceChanged:
      CloseProbe(thread, false);
      return OnChanged(thread, field.Camera(0), TakeSkipped(thread), "initialisation", field.Number(1) == 1,
                       field.Number(1) != field.Number(2),
                       "init failure hidden: CamX's result " + field(1) + " reported as " + field(2) + " (init state " +
                           field(3) + ")",
                       "init-failure-hidden", "reported as " + field(2) + " (init state " + field(3) + ")");
    case LogSiteId::kConfigCmdsChanged:
      CloseProbe(thread, false);
      return OnChanged(thread, field.Camera(0), TakeSkipped(thread), "configuration", field.Number(1) == 1,
                       field.Number(1) != field.Number(2),
                       "configuration failure hidden: CamX's result " + field(1) + " reported as " + field(2),
                       "config-failure-hidden", "reported as " + field(2));
    case LogSiteId::kInitDeviceSkip:
    case LogSiteId::kConfigCmdsSkip: {
      CloseProbe(thread, false);
      TakeSkipped(thread);
      const bool init = match.id == LogSiteId::kInitDeviceSkip;
      thread.lastCamera = thread.skippedCamera = field.Camera(0);
      return Add(thread.lastCamera,
                 Make("bringup-skipped", std::string(init ? "initialisation" : "configuration") +
                                             " skipped: the probe is recorded failed; recorded " + (init ? "I" : "C") +
                                             "=F, error id set, CamX told success (0)"));
    }
    case LogSiteId::kInitConfigChanged:
      CloseProbe(thread, false);
      TakeSkipped(thread);
      thread.lastCamera = field.Camera(0);
      if (field.Number(1) != field.Number(3) || field.Number(2) != 0) {
        Add(thread.lastCamera,
            Make("config-failure-hidden", "init settings failure hidden: CamX's result " + field(1) +
                                              ", kernel init failed " + field(2) + ", reported as " + field(3)));
      }
      return;
    case LogSiteId::kSubmitInitialConfigCode:
    case LogSiteId::kSubmitConfigCode:
      CloseProbe(thread, false);
      TakeSkipped(thread);
      return;
    case LogSiteId::kSubmitInitialConfigChanged:
    case LogSiteId::kSubmitConfigChanged:
      CloseProbe(thread, false);
      TakeSkipped(thread);
      if (field.Number(0) != field.Number(1)) {
        Add(thread.lastCamera,
            Make(
                "config-failure-hidden",
                std::string(match.id == LogSiteId::kSubmitInitialConfigChanged ? "initial settings" : "configuration") +
                    " submit failure hidden: CamX's result " + field(0) + " reported as " + field(1)));
      }
      return;
    case LogSiteId::kSensorI2CSlaveAddress:
      CloseProbe(thread, false);
      TakeSkipped(thread);
      return Add(thread.lastCamera, Make("i2c-address", "sensor I2C slave address now 0x" + field(0)));

    // Lens, OIS and gyro: lines that name no camera.
    case LogSiteId::kActuatorAddressChanged:
      CloseProbe(thread, false);
      TakeSkipped(thread);
      return Add(-1,
                 Make("i2c-address", "actuator I2C slave address switched to 0x" + field(0) + " (the core named it)"));
    case LogSiteId::kOisProviderResult:
      CloseProbe(thread, false);
      TakeSkipped(thread);
      return Add(-1,
                 Make("ois-provider-forced", "OIS provider registration reported " + field(0) + ", the HAL's not run"));
    case LogSiteId::kOisI2CSlaveAddress:
      CloseProbe(thread, false);
      TakeSkipped(thread);
      return Add(-1, Make("i2c-address", "OIS I2C slave address switched to 0x" + field(0)));
    case LogSiteId::kGyroTimestampModified:
      CloseProbe(thread, false);
      TakeSkipped(thread);
      return Add(-1, Make("gyro-timestamp-shifted", "gyro sample timestamp moved back to " + field(0)));
    case LogSiteId::kActuatorNames:
    case LogSiteId::kActuatorAddress:
    case LogSiteId::kGyroSampleTimestamp:
      CloseProbe(thread, false);
      TakeSkipped(thread);
      return;
  }
  // A value outside the enum cannot come from MatchSite; shown rather than dropped all the same.
  Unknown(line.message);
}

Story StorySink::Finish() {
  if (m_state->inPrevious) PreviousBoot(false);
  m_state->CloseAll();
  m_state->ctx.threads.clear();
  return std::move(m_state->story);
}

}  // namespace explain
