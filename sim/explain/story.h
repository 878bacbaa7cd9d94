// The story of what the library decided, rebuilt from a phone's records: per
// boot, per camera process (a new PID of the library's lines), per camera, in
// the log's own order and timestamps; then the state the properties and the
// kernel parameter hold. `remedium-sim explain` prints it as text or JSON.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "sim/explain/input.h"

namespace explain {

using Json = nlohmann::ordered_json;

// One thing the library did or decided, with where the log said it.
struct Event {
  std::string time;     // the log's timestamp, empty when the format has none
  std::string where;    // "FILE:LINE"
  std::string kind;     // a stable name: "sensor-probe", "bypass-taken", ... (kEventKinds)
  std::string text;     // in words
  int attempt = 0;      // the camera's sensor or EEPROM probe attempt it belongs to (0: none)
  int64_t micros = -1;  // the timestamp on one scale for ordering and traces (-1: none); see TimeMicros
};

// Every event kind the story writes, with its meaning.
struct EventKind {
  const char* name;
  const char* meaning;
};
extern const EventKind kEventKinds[];
extern const size_t kEventKindCount;

struct CameraStory {
  int id = -1;  // -1: lines that name no camera
  std::optional<int> slot;
  std::vector<Event> events;
  int sensorAttempts = 0;
  int eepromAttempts = 0;
  // For the summary.
  std::string lastSensor;
  int lastAttempt = 0;
  std::string lastOutcome;         // "kept", "failed", "reported probed"
  std::string lastHow;             // "by bypass", ...
  std::vector<std::string> notes;  // "init failure hidden", ... (each once)
};

struct ProcessStory {
  int pid = -1;
  std::string firstTime, lastTime;
  std::map<int, CameraStory> cameras;  // by camera id; -1 for lines that name none
};

struct BootStory {
  std::string source;  // the input that began it
  std::vector<ProcessStory> processes;
  std::map<std::string, std::string> properties;  // the camera's recorded state
  std::optional<std::string> kernelText;
};

struct Unrecognised {
  std::string where;  // "FILE:LINE"
  std::string text;
};

struct Story {
  std::vector<BootStory> boots;
  std::vector<Unrecognised> unrecognised;
  size_t libraryLines = 0;
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
  // Closes what is still open and hands the story over.
  Story Finish();

 private:
  struct State;
  State* state_;
};

// The summary, one line per camera of every process ("camera 0 (slot 0): ...").
std::vector<std::string> SummaryLines(const Story& story);
std::string FormatStory(const Story& story);
Json StoryJson(const Story& story);

// `remedium-sim explain FILE... [--json]`: 0 explained, 2 an input could not
// be read (its message on `err`).
int RunExplain(const std::vector<std::string>& files, bool json, std::ostream& out, std::ostream& err);

}  // namespace explain
