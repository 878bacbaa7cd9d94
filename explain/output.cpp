// The story told: as text for the terminal, as one JSON document written as it
// goes, or one event a line (JSON Lines); with the command line's filters.
#include <algorithm>
#include <cstdlib>
#include <set>
#include <sstream>

#include "explain/logline.h"
#include "explain/story.h"
#include "hook/src/errorframeworkid.h"
#include "sim/records/records.h"
#include "sim/text/text.h"

namespace explain {
namespace {

std::string Plural(uint64_t n, const std::string& word) { return std::to_string(n) + " " + word + (n == 1 ? "" : "s"); }

std::string CameraTitle(const CameraStory& camera) {
  if (camera.id < 0) return "no camera named (lens, OIS, gyro, process-wide)";
  return "camera " + std::to_string(camera.id) + (camera.slot ? " (slot " + std::to_string(*camera.slot) + ")" : "");
}

}  // namespace

std::string CameraSummary(const CameraStory& camera) {
  std::string text = CameraTitle(camera) + ": ";
  if (camera.lastAttempt > 0) {
    text += (camera.lastSensor.empty() ? "a sensor" : camera.lastSensor) + " " + camera.lastOutcome + " on attempt " +
            std::to_string(camera.lastAttempt) + (camera.lastHow.empty() ? "" : " " + camera.lastHow);
  } else if (camera.eepromAttempts > 0) {
    text += "no sensor probe in the log, " + Plural(static_cast<uint64_t>(camera.eepromAttempts), "EEPROM data probe");
  } else {
    uint64_t events = camera.events.size();
    for (const auto& [kind, count] : camera.omitted) events += count;
    text += Plural(events, "event");
  }
  for (const std::string& note : camera.notes) text += "; " + note;
  return text;
}

namespace {

constexpr char kStatePrefix[] = "vendor.debug.camera.imagesensorstate.";

std::vector<std::string> FinalState(const BootStory& boot, int cameraId) {
  std::vector<std::string> lines;
  const auto state = boot.properties.find(kStatePrefix + std::to_string(cameraId));
  if (state != boot.properties.end()) {
    for (const std::string& line : sim::records::ExplainImageSensorState(state->second).lines) {
      lines.push_back("state " + state->second + ": " + line);
    }
  }
  if (boot.kernelText) {
    const std::string prefix = "camera " + std::to_string(cameraId) + ":";
    for (const std::string& line : sim::records::ExplainKernelParameter(*boot.kernelText).lines) {
      if (line.starts_with(prefix)) lines.push_back("kernel table:" + line.substr(prefix.size()));
    }
  }
  return lines;
}

// The cameras a boot's records name: in its processes, its state properties, and the kernel
// parameter's table (armed slots and kernel results), so that the parameter's text alone is
// told camera by camera.
std::set<int> CamerasOf(const BootStory& boot) {
  std::set<int> ids;
  for (const ProcessStory& process : boot.processes) {
    for (const auto& [id, camera] : process.cameras) {
      if (id >= 0) ids.insert(id);
    }
  }
  for (const auto& [key, value] : boot.properties) {
    if (key.starts_with(kStatePrefix)) ids.insert(std::atoi(key.c_str() + sizeof(kStatePrefix) - 1));
  }
  if (boot.kernelText) {
    for (const std::string& line : sim::records::ExplainKernelParameter(*boot.kernelText).lines) {
      if (line.starts_with("camera ")) ids.insert(std::atoi(line.c_str() + 7));
    }
  }
  return ids;
}

constexpr const char* kErrorIds = CamX::kErrorFrameworkIdProperty;

// The library logs nothing when a capture request orders the abort, so a new
// PID is all a log shows of it, unless a crash report says how the process ended.
constexpr char kNewProcess[] =
    "the previous camera process ended: a restart, a crash, or a capture request's ordered abort (the library logs "
    "none of them)";

std::string NewProcessNote(const ProcessStory& previous) {
  if (previous.ending.empty()) return kNewProcess;
  return "the previous camera process ended by " + previous.ending +
         (previous.ending.find("SIGABRT") != std::string::npos
              ? " (an abort: a capture request's ordered abort raises it, so does any other abort)"
              : "");
}

// The library drops lines below the level in this property (INFO, 4, when unset); almost all its
// decisions are logged at INFO, so above it the log is silent and only the recorded state tells.
std::optional<std::string> LogLevelNote(const BootStory& boot) {
  const auto level = boot.properties.find("persist.vendor.camera.remedium.loglevel");
  if (level == boot.properties.end()) return std::nullopt;
  const long long value = std::atoll(level->second.c_str());
  if (value <= 4) return std::nullopt;
  return "persist.vendor.camera.remedium.loglevel is " + level->second +
         ": the library drops its INFO lines (most decisions); the recorded state below is the record";
}

// Filters on events (kind, time) hide cameras with none left; filters on places do not.
bool FiltersEvents(const ExplainOptions& options) { return !options.kinds.empty() || options.since || options.until; }

bool KeepsPlace(const ExplainOptions& options, int pid, int camera) {
  return (!options.pid || *options.pid == pid) && (!options.camera || *options.camera == camera);
}

std::vector<const Event*> KeptEvents(const ExplainOptions& options, const CameraStory& camera, const BootStory& boot,
                                     const ProcessStory& process) {
  std::vector<const Event*> kept;
  const EventPlace place{process.pid, camera.id, boot.previous, boot.source};
  for (const Event& event : camera.events) {
    if (Keeps(options, event, place)) kept.push_back(&event);
  }
  return kept;
}

std::string BootTitle(const Story& story, size_t index) {
  const BootStory& boot = story.boots[index];
  return "boot " + std::to_string(index + 1) + " (" + PrintableName(boot.source) + ")" +
         (boot.label.empty() ? "" : ": " + boot.label);
}

// A string for JSON: bytes that are not UTF-8 escaped, never the reason the output is lost.
std::string Quoted(std::string_view text) {
  const std::string valid = sim::text::IsUtf8(text) ? std::string(text) : sim::text::EscapeUtf8(text);
  return Json(valid).dump();
}

}  // namespace

std::optional<int64_t> ParseFilterTime(std::string_view text) {
  const auto digits = [&text](size_t at, size_t count, int& value) {
    if (at + count > text.size()) return false;
    value = 0;
    for (size_t i = at; i < at + count; ++i) {
      if (text[i] < '0' || text[i] > '9') return false;
      value = value * 10 + (text[i] - '0');
    }
    return true;
  };
  LogTime time;
  size_t at = 0;
  int year = 0;
  if (digits(0, 4, year) && text.size() > 4 && text[4] == '-') {
    time.year = year;
    at = 5;
  }
  if (text.size() >= at + 14 && text[at + 2] == '-' && text[at + 5] == ' ' && digits(at, 2, time.month) &&
      digits(at + 3, 2, time.day) && digits(at + 6, 2, time.hour) && text[at + 8] == ':' &&
      digits(at + 9, 2, time.minute) && text[at + 11] == ':' && digits(at + 12, 2, time.second)) {
    time.clock = LogTime::Clock::kWall;
    at += 14;
  } else if (at == 0) {
    // Seconds since 1970 or since boot, as -v epoch and -v monotonic write them.
    char* end = nullptr;
    const std::string copy(text);
    const double seconds = std::strtod(copy.c_str(), &end);
    if (end == copy.c_str() || *end != '\0' || !(seconds >= 0) || seconds > 1e12) return std::nullopt;
    return static_cast<int64_t>(seconds * 1e6);
  } else {
    return std::nullopt;
  }
  if (time.month < 1 || time.month > 12 || time.day < 1 || time.day > 31) return std::nullopt;
  if (at < text.size()) {
    if (text[at] != '.') return std::nullopt;
    int64_t scale = 100000000;
    for (++at; at < text.size() && scale > 0; ++at, scale /= 10) {
      if (text[at] < '0' || text[at] > '9') return std::nullopt;
      time.nanos += static_cast<int32_t>((text[at] - '0') * scale);
    }
    if (at < text.size()) return std::nullopt;
  }
  return TimeMicros(time, 2000);
}

bool Keeps(const ExplainOptions& options, const Event& event, const EventPlace& place) {
  if (!KeepsPlace(options, place.pid, place.camera)) return false;
  if (!options.kinds.empty() &&
      std::find(options.kinds.begin(), options.kinds.end(), event.kind) == options.kinds.end())
    return false;
  if ((options.since || options.until) && event.micros < 0) return false;
  if (options.since && event.micros < *options.since) return false;
  if (options.until && event.micros > *options.until) return false;
  return true;
}

std::string EventJsonLine(const Event& event, const EventPlace& place) {
  return "{\"source\":" + Quoted(PrintableName(place.source)) +
         ",\"previousBoot\":" + (place.previousBoot ? "true" : "false") + ",\"pid\":" + std::to_string(place.pid) +
         ",\"camera\":" + (place.camera < 0 ? "null" : std::to_string(place.camera)) +
         ",\"time\":" + Quoted(event.time) + ",\"where\":" + Quoted(event.where) + ",\"kind\":" + Quoted(event.kind) +
         ",\"attempt\":" + std::to_string(event.attempt) + ",\"text\":" + Quoted(event.text) + "}";
}

std::vector<std::string> SummaryLines(const Story& story, const ExplainOptions& options) {
  std::vector<std::string> lines;
  for (size_t b = 0; b < story.boots.size(); ++b) {
    const BootStory& boot = story.boots[b];
    for (const ProcessStory& process : boot.processes) {
      for (const auto& [id, camera] : process.cameras) {
        if (id < 0 && camera.events.empty()) continue;
        if (!KeepsPlace(options, process.pid, id)) continue;
        if (FiltersEvents(options) && KeptEvents(options, camera, boot, process).empty()) continue;
        lines.push_back((story.boots.size() > 1 ? "boot " + std::to_string(b + 1) + ", " : std::string()) + "process " +
                        std::to_string(process.pid) + ", " + CameraSummary(camera));
      }
      if (!process.ending.empty() && KeepsPlace(options, process.pid, options.camera.value_or(-1))) {
        lines.push_back((story.boots.size() > 1 ? "boot " + std::to_string(b + 1) + ", " : std::string()) + "process " +
                        std::to_string(process.pid) + " ended by " + process.ending);
      }
    }
  }
  return lines;
}

std::string FormatStory(const Story& story, const ExplainOptions& options) {
  std::string out = "summary\n";
  const std::vector<std::string> summary = SummaryLines(story, options);
  for (const std::string& line : summary) out += "  " + line + "\n";
  if (summary.empty()) {
    out += story.libraryLines == 0 ? "  no camera story: the inputs hold no line of the library\n"
           : FiltersEvents(options) || options.camera || options.pid
               ? "  no camera story matches the filters\n"
               : "  no camera story: the library's lines in the inputs tell no decision\n";
  }
  if (story.unrecognisedCount > 0) out += "  " + Plural(story.unrecognisedCount, "library line") + " not recognised\n";
  for (size_t b = 0; b < story.boots.size(); ++b) {
    const BootStory& boot = story.boots[b];
    out += "\n" + BootTitle(story, b) + "\n";
    if (b == 1 && story.bootsNotListed > 0) {
      out += "  (" + Plural(story.bootsNotListed, "boot") + " before this one not listed)\n";
    }
    for (size_t p = 0; p < boot.processes.size(); ++p) {
      const ProcessStory& process = boot.processes[p];
      if (options.pid && *options.pid != process.pid) continue;
      if (process.skippedBefore > 0) {
        out += "  (" + Plural(process.skippedBefore, "camera process") + " before this one not listed)\n";
      }
      out += "  camera process " + std::to_string(process.pid) +
             (process.firstTime.empty() ? "" : ", " + process.firstTime + " to " + process.lastTime) + "\n";
      if (p > 0) out += "    " + NewProcessNote(boot.processes[p - 1]) + "\n";
      for (const auto& [id, camera] : process.cameras) {
        if (camera.events.empty() && camera.omitted.empty()) continue;
        if (!KeepsPlace(options, process.pid, id)) continue;
        const std::vector<const Event*> kept = KeptEvents(options, camera, boot, process);
        if (FiltersEvents(options) && kept.empty()) continue;
        out += "    " + CameraTitle(camera) + "\n";
        for (const Event* event : kept) {
          out += "      " + (event->time.empty() ? std::string() : event->time + "  ") + event->kind + ": " +
                 event->text + "\n";
        }
        for (const auto& [kind, count] : camera.omitted) {
          out += "      ... and " + Plural(count, kind + " event") + " more, not listed (the story keeps " +
                 std::to_string(kMaxEventsPerCamera) + " a camera)\n";
        }
      }
      if (!process.ending.empty()) {
        out += "    ended by " + process.ending + "\n";
        for (const std::string& frame : process.frames) out += "      " + frame + "\n";
      }
    }
    if (const std::optional<std::string> quiet = LogLevelNote(boot)) out += "  " + *quiet + "\n";
    const std::set<int> ids = CamerasOf(boot);
    if (!boot.properties.empty() || boot.kernelText) out += "  recorded state\n";
    for (int id : ids) {
      if (options.camera && *options.camera != id) continue;
      const std::vector<std::string> lines = FinalState(boot, id);
      if (lines.empty()) continue;
      out += "    camera " + std::to_string(id) + "\n";
      for (const std::string& line : lines) out += "      " + line + "\n";
    }
    if (const auto errors = boot.properties.find(kErrorIds); errors != boot.properties.end()) {
      out += "    error framework ids \"" + errors->second + "\"\n";
      for (const std::string& line : sim::records::ExplainErrorFrameworkIds(errors->second).lines) {
        out += "      " + line + "\n";
      }
    }
  }
  if (!story.readingNotes.empty()) {
    out += "\nreading notes\n";
    for (const std::string& note : story.readingNotes) out += "  " + note + "\n";
    if (story.readingNoteCount > story.readingNotes.size()) {
      out += "  ... and " + std::to_string(story.readingNoteCount - story.readingNotes.size()) + " more\n";
    }
  }
  if (!story.unrecognised.empty()) {
    out += "\nlibrary lines not recognised\n";
    for (const Unrecognised& line : story.unrecognised) out += "  " + line.where + ": " + line.text + "\n";
    if (story.unrecognisedCount > story.unrecognised.size()) {
      out += "  ... and " + std::to_string(story.unrecognisedCount - story.unrecognised.size()) + " more\n";
    }
  }
  return out;
}

// One object at a time: memory follows the largest camera's events, never the whole document.
void WriteStoryJson(const Story& story, const ExplainOptions& options, std::ostream& out) {
  const auto list = [&out](const std::vector<std::string>& items) {
    out << "[";
    for (size_t i = 0; i < items.size(); ++i) out << (i > 0 ? "," : "") << Quoted(items[i]);
    out << "]";
  };
  out << "{\"tool\":\"remedium-sim\",\"command\":\"explain\",\"summary\":";
  list(SummaryLines(story, options));
  out << ",\"boots\":[";
  for (size_t b = 0; b < story.boots.size(); ++b) {
    const BootStory& boot = story.boots[b];
    const std::optional<std::string> quiet = LogLevelNote(boot);
    out << (b > 0 ? "," : "") << "{\"source\":" << Quoted(PrintableName(boot.source))
        << ",\"label\":" << Quoted(boot.label) << ",\"previousBoot\":" << (boot.previous ? "true" : "false")
        << ",\"logLevelNote\":" << (quiet ? Quoted(*quiet) : "null") << ",\"processes\":[";
    bool firstProcess = true;
    for (size_t p = 0; p < boot.processes.size(); ++p) {
      const ProcessStory& process = boot.processes[p];
      if (options.pid && *options.pid != process.pid) continue;
      out << (firstProcess ? "" : ",") << "{\"pid\":" << process.pid << ",\"first\":" << Quoted(process.firstTime)
          << ",\"last\":" << Quoted(process.lastTime) << ",\"skippedBefore\":" << process.skippedBefore
          << ",\"previousEnded\":" << (p > 0 ? Quoted(NewProcessNote(boot.processes[p - 1])) : "null")
          << ",\"ending\":" << (process.ending.empty() ? "null" : Quoted(process.ending)) << ",\"frames\":";
      firstProcess = false;
      list(process.frames);
      out << ",\"cameras\":[";
      bool firstCamera = true;
      for (const auto& [id, camera] : process.cameras) {
        if (!KeepsPlace(options, process.pid, id)) continue;
        const std::vector<const Event*> kept = KeptEvents(options, camera, boot, process);
        if (FiltersEvents(options) && kept.empty()) continue;
        out << (firstCamera ? "" : ",") << "{\"camera\":" << (id < 0 ? "null" : std::to_string(id))
            << ",\"slot\":" << (camera.slot ? std::to_string(*camera.slot) : "null")
            << ",\"summary\":" << Quoted(CameraSummary(camera)) << ",\"sensor\":" << Quoted(camera.lastSensor)
            << ",\"attempt\":" << camera.lastAttempt << ",\"outcome\":" << Quoted(camera.lastOutcome)
            << ",\"how\":" << Quoted(camera.lastHow) << ",\"notes\":";
        firstCamera = false;
        list(camera.notes);
        out << ",\"omitted\":{";
        bool firstKind = true;
        for (const auto& [kind, count] : camera.omitted) {
          out << (firstKind ? "" : ",") << Quoted(kind) << ":" << count;
          firstKind = false;
        }
        out << "},\"events\":[";
        for (size_t e = 0; e < kept.size(); ++e) {
          const Event& event = *kept[e];
          out << (e > 0 ? "," : "") << "{\"time\":" << Quoted(event.time) << ",\"where\":" << Quoted(event.where)
              << ",\"kind\":" << Quoted(event.kind) << ",\"attempt\":" << event.attempt
              << ",\"text\":" << Quoted(event.text) << "}";
        }
        out << "]}";
      }
      out << "]}";
    }
    out << "],\"recordedState\":{";
    bool firstState = true;
    for (int id : CamerasOf(boot)) {
      if (options.camera && *options.camera != id) continue;
      out << (firstState ? "" : ",") << Quoted(std::to_string(id)) << ":";
      list(FinalState(boot, id));
      firstState = false;
    }
    out << "},\"errorFrameworkIds\":";
    if (const auto ids = boot.properties.find(kErrorIds); ids != boot.properties.end()) {
      out << "{\"value\":" << Quoted(ids->second) << ",\"lines\":";
      list(sim::records::ExplainErrorFrameworkIds(ids->second).lines);
      out << "}";
    } else {
      out << "null";
    }
    out << ",\"kernelParameter\":" << (boot.kernelText ? Quoted(*boot.kernelText) : "null") << "}";
  }
  out << "],\"bootsNotListed\":" << story.bootsNotListed << ",\"readingNotes\":";
  list(story.readingNotes);
  out << ",\"unrecognised\":[";
  for (size_t i = 0; i < story.unrecognised.size(); ++i) {
    out << (i > 0 ? "," : "") << "{\"where\":" << Quoted(story.unrecognised[i].where)
        << ",\"text\":" << Quoted(story.unrecognised[i].text) << "}";
  }
  out << "],\"unrecognisedCount\":" << story.unrecognisedCount << "}\n";
}

Json StoryJson(const Story& story) {
  std::ostringstream text;
  WriteStoryJson(story, {}, text);
  return Json::parse(text.str());
}

}  // namespace explain
