// The story of what the library decided, rebuilt from a phone's records: per
// boot, per camera process (a new PID of the library's lines), per camera, in
// the log's own order and timestamps; then the state the properties and the
// kernel parameter hold. `remedium-sim explain` prints it as text, JSON, JSON
// Lines or a Perfetto trace (output.cpp, trace.cpp).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "explain/input.h"

namespace CLI {
class App;
}

namespace explain {

// Adds `explain` to the command line (`command` is set to it, for options
// other tools add); the result runs it, or is nullopt when not given.
std::function<std::optional<int>()> AddCommand(CLI::App& app, CLI::App** command);

using Json = nlohmann::ordered_json;

// One thing the library did or decided, with where the log said it.
struct Event {
  std::string time;        // the log's timestamp, empty when the format has none
  std::string where;       // "FILE:LINE"
  std::string kind;        // a stable name: "sensor-probe", "bypass-taken", ... (kEventKinds)
  std::string text;        // in words
  int attempt = 0;         // the camera's sensor or EEPROM probe attempt it belongs to (0: none)
  int64_t micros = -1;     // the time on one scale, for filters and traces (-1: none; see TimeMicros)
  int64_t endMicros = -1;  // a probe attempt's events: the time of the attempt's last line
};

// Every event kind the story writes, with its meaning.
struct EventKind {
  const char* name;
  const char* meaning;
};
extern const EventKind kEventKinds[];
extern const size_t kEventKindCount;

// Lists that could grow without bound keep this many entries; the rest are counted.
inline constexpr size_t kMaxEventsPerCamera = 5000;
inline constexpr size_t kMaxProcessesPerBoot = 1000;
inline constexpr size_t kMaxCamerasPerProcess = 64;
inline constexpr size_t kMaxListed = 100;  // unrecognised lines, reading notes

struct CameraStory {
  int id = -1;  // -1: lines that name no camera
  std::optional<int> slot;
  std::vector<Event> events;
  std::map<std::string, uint64_t> omitted;  // events past kMaxEventsPerCamera, by kind
  int64_t sensorAttempts = 0;
  int64_t eepromAttempts = 0;
  // For the summary.
  std::string lastSensor;
  int64_t lastAttempt = 0;
  std::string lastOutcome;         // "kept", "failed", "reported probed"
  std::string lastHow;             // "by bypass", ...
  std::vector<std::string> notes;  // "init failure hidden", ... (each once)
};

struct ProcessStory {
  int pid = -1;
  std::string firstTime, lastTime;
  int64_t firstMicros = -1;
  std::map<int, CameraStory> cameras;  // by camera id; -1 for lines that name none
  std::string ending;                  // "signal 6 (SIGABRT)" when the log or a tombstone shows how it ended
  std::vector<std::string> frames;     // the tombstone's frames in the hook library
  uint64_t skippedBefore = 0;          // camera processes before this one not listed (kMaxProcessesPerBoot)
};

struct BootStory {
  std::string source;  // the input that began it
  std::string label;   // how it is known to be a boot of its own ("previous boot: ...", "reboot at ...")
  std::vector<ProcessStory> processes;
  std::map<std::string, std::string> properties;  // the camera's recorded state
  std::optional<std::string> kernelText;
  bool previous = false;        // a bug report's LAST LOGCAT: the boot before the report's
  std::string reportTime = {};  // the bug report's "== dumpstate:" time ("2024-11-23 05:16:02"), empty if none
};

struct Unrecognised {
  std::string where;  // "FILE:LINE"
  std::string text;
};

struct Story {
  std::vector<BootStory> boots;
  std::vector<Unrecognised> unrecognised;  // the first kMaxListed
  uint64_t unrecognisedCount = 0;
  std::vector<std::string> readingNotes;  // what the reader changed or left out, the first kMaxListed
  uint64_t readingNoteCount = 0;
  uint64_t libraryLines = 0;
  uint64_t bootsNotListed = 0;  // boots past the story's limit, between the first and the latest
};

// Where a filed event belongs, for listeners and filters.
struct EventPlace {
  int pid = -1;
  int camera = -1;
  bool previousBoot = false;
  std::string_view source;  // the input that began the boot
};

// Builds the story from the records a reader streams into it.
class StorySink : public InputSink {
 public:
  StorySink();
  ~StorySink() override;
  void BeginInput(std::string_view source, InputKind kind) override;
  void Log(const LogLine& line) override;
  void Property(std::string_view source, std::string_view key, std::string_view value) override;
  void KernelText(std::string_view source, std::string_view text) override;
  void EndInput(std::string_view source) override;
  void PreviousBoot(bool begins) override;
  void Tombstone(std::string_view source, uint64_t lineNumber, std::string_view text) override;
  void Notice(std::string_view where, std::string_view text) override;
  void ReportTime(std::string_view source, std::string_view time) override;
  // Called for every event as it is filed, also past the story's limits (--jsonl streams them).
  void SetListener(std::function<void(const Event&, const EventPlace&)> listener);
  // Closes what is still open and hands the story over.
  Story Finish();

 private:
  struct State;
  State* m_state;
};

// What `remedium-sim explain` shows: the filters keep the events (and the cameras and
// processes) they match; an empty filter keeps all.
struct ExplainOptions {
  bool json = false;   // the story as one JSON document
  bool jsonl = false;  // one event a line, streamed as the events are filed
  std::string trace;   // a Chrome/Perfetto JSON trace written to this file
  std::optional<int> camera, pid;
  std::optional<int64_t> since, until;  // microseconds on the events' scale (TimeMicros)
  std::vector<std::string> kinds;
};

// A --since/--until time as the log writes it ("11-23 05:15:21.338", "2024-11-23 05:15:21", or
// seconds since 1970 or since boot as -v epoch and -v monotonic write them): microseconds on the
// events' scale, or nullopt.
std::optional<int64_t> ParseFilterTime(std::string_view text);

bool Keeps(const ExplainOptions& options, const Event& event, const EventPlace& place);

// One camera's summary ("camera 0 (slot 0): s5kgm2_rear kept on attempt 5 by bypass; ...").
std::string CameraSummary(const CameraStory& camera);
// The summary, one line per camera of every process ("process 15002, camera 0 (slot 0): ...").
std::vector<std::string> SummaryLines(const Story& story, const ExplainOptions& options = {});
std::string FormatStory(const Story& story, const ExplainOptions& options = {});
// The story as one JSON document, written object by object.
void WriteStoryJson(const Story& story, const ExplainOptions& options, std::ostream& out);
Json StoryJson(const Story& story);
// One event as a line of JSON Lines (--jsonl).
std::string EventJsonLine(const Event& event, const EventPlace& place);

// A line only the first moments of a boot write (the kernel's "Booting Linux", init's first
// stage, boot_progress_start): a log that holds one runs across a reboot there.
bool IsBootMarker(const LogLine& line);

// Inputs in the order of their first log time. An input without one (a getprop dump, the
// kernel parameter's text) stays with the input given before it.
std::vector<std::string> InTimeOrder(const std::vector<std::string>& files);

// `remedium-sim explain FILE... [options]`: 0 explained, 2 an input could not
// be read (its message on `err`). Inputs are read in the order of their first
// log time, not of the arguments.
int RunExplain(const std::vector<std::string>& files, const ExplainOptions& options, std::ostream& out,
               std::ostream& err);

}  // namespace explain
