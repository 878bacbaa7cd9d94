// A camera's flags and failure signature, the recorded state in words and the
// report's time from its name: what ingest computes from explain's story.
#include <cstdlib>
#include <map>
#include <set>

#include "hook/src/errorframeworkid.h"
#include "sim/fleet/ingest.h"
#include "sim/records/records.h"

namespace fleet {
namespace {

// A number after `label` in `text` ("umd (CamX) 1, ..."), or nullopt.
std::optional<long long> NumberAfter(std::string_view text, std::string_view label) {
  const size_t at = text.find(label);
  if (at == std::string_view::npos) return std::nullopt;
  const std::string rest(text.substr(at + label.size(), 24));
  char* end = nullptr;
  const long long value = std::strtoll(rest.c_str(), &end, 10);
  if (end == rest.c_str()) return std::nullopt;
  return value;
}

// The sensor an attempt's event names: "sensor probe attempt 3: NAME (probe 2 ...", "...: NAME, umd ...",
// "sensor probe attempt 3 of NAME: the log ends ...".
std::string SensorOf(std::string_view text) {
  constexpr std::string_view kHead = "sensor probe attempt ";
  if (!text.starts_with(kHead)) return {};
  size_t at = kHead.size();
  while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at;
  if (text.substr(at).starts_with(": ")) {
    at += 2;
  } else if (text.substr(at).starts_with(" of ")) {
    at += 4;
  } else {
    return {};
  }
  const size_t end = text.find_first_of(" ,:", at);
  return std::string(text.substr(at, end == std::string_view::npos ? std::string_view::npos : end - at));
}

// One sensor attempt as the signature says it, and whether the probe failed.
struct Attempt {
  std::string sensor;
  std::string word;
  int rank = 0;  // the event that decides the word: a higher rank wins within an attempt
  bool failed = false;
};

void Take(Attempt& attempt, int rank, std::string word, bool failed) {
  if (rank < attempt.rank) return;
  attempt.rank = rank;
  attempt.word = std::move(word);
  attempt.failed = failed;
}

// An event of a sensor attempt folded into that attempt's word.
void Fold(Attempt& attempt, const explain::Event& event) {
  const std::string sensor = SensorOf(event.text);
  if (!sensor.empty()) attempt.sensor = sensor;
  const std::string_view text = event.text;
  if (event.kind == "bypass-taken") {
    Take(attempt, 5, "bypass", true);
  } else if (event.kind == "kernel-retry-verdict") {
    Take(attempt, 4, "kernel retry", true);
  } else if (event.kind == "sensor-probe") {
    const std::optional<long long> umd = NumberAfter(text, "umd (CamX) ");
    const std::optional<long long> kmd = NumberAfter(text, "kmd (kernel) ");
    if (umd && kmd) {
      Take(attempt, 3,
           *umd == 0   ? "ok"
           : *kmd != 0 ? "kmd " + std::to_string(*kmd)
                       : "umd " + std::to_string(*umd),
           *umd != 0);
    } else if (text.find("protection path") != std::string_view::npos) {
      const bool failed = text.find("reported failed") != std::string_view::npos;
      Take(attempt, 3, failed ? "protection fault" : "protection path", failed);
    } else if (text.find("override settings missing") != std::string_view::npos) {
      Take(attempt, 3, "settings missing", false);
    } else if (text.find("kernel parameter unavailable") != std::string_view::npos) {
      Take(attempt, 3, "kernel unavailable", false);
    } else if (text.find("without probing") != std::string_view::npos) {
      Take(attempt, 3, "not probed", false);
    } else {
      Take(attempt, 3, "unknown", false);
    }
  } else if (event.kind == "kernel-unavailable") {
    Take(attempt, 2, "kernel unavailable", false);
  } else if (event.kind == "log-ends") {
    Take(attempt, 1, "log ends", false);
  } else if (event.kind == "gap" && text.find("logd pruned lines of it") != std::string_view::npos) {
    Take(attempt, 1, "pruned", false);
  }
}

bool SensorAttemptEvent(const explain::Event& event) {
  if (event.attempt <= 0) return false;
  return event.kind == "sensor-probe" || event.kind == "bypass-taken" || event.kind == "kernel-retry-verdict" ||
         event.kind == "log-ends" || (event.kind == "kernel-unavailable" && event.text.starts_with("sensor probe")) ||
         (event.kind == "gap" && event.text.find("logd pruned lines of it") != std::string::npos);
}

// A signature past this many words ends with how many more there are.
constexpr size_t kMaxSignatureWords = 32;

}  // namespace

CameraFacts FactsOf(const explain::CameraStory& camera) {
  CameraFacts facts;
  std::set<std::string_view> kinds;
  for (const explain::Event& event : camera.events) kinds.insert(event.kind);
  for (const auto& [kind, count] : camera.omitted) kinds.insert(kind);
  facts.bypassTaken = kinds.contains("bypass-taken");
  facts.kernelRetry = kinds.contains("kernel-retry-armed") || kinds.contains("kernel-retry-verdict");
  facts.forcedEeprom = kinds.contains("forced-eeprom-success");
  facts.hiddenInit = kinds.contains("init-failure-hidden");
  facts.hiddenConfig = kinds.contains("config-failure-hidden");
  facts.incomplete = kinds.contains("gap") || kinds.contains("undetermined") || kinds.contains("log-ends");
  facts.lost = camera.id >= 0 && camera.lastOutcome == "failed";

  // The sensor attempts in the order they began (attempt numbers count them).
  std::map<int, Attempt> attempts;
  for (const explain::Event& event : camera.events) {
    if (SensorAttemptEvent(event)) Fold(attempts[event.attempt], event);
  }
  if (attempts.empty()) return facts;
  facts.firstProbeFailed = attempts.begin()->second.failed;

  std::vector<std::string> words;
  std::vector<int> repeats;
  for (const auto& [number, attempt] : attempts) {
    const std::string word = (attempt.sensor.empty() ? "?" : attempt.sensor) + " " + attempt.word;
    if (!words.empty() && words.back() == word) {
      ++repeats.back();
    } else {
      words.push_back(word);
      repeats.push_back(1);
    }
  }
  std::string signature = "slot " + (camera.slot ? std::to_string(*camera.slot) : std::string("?")) + ":";
  for (size_t i = 0; i < words.size() && i < kMaxSignatureWords; ++i) {
    signature += (i > 0 ? " > " : " ") + words[i] + (repeats[i] > 1 ? " x" + std::to_string(repeats[i]) : "");
  }
  if (words.size() > kMaxSignatureWords) {
    signature += " > ... " + std::to_string(words.size() - kMaxSignatureWords) + " more";
  }
  facts.signature = std::move(signature);
  return facts;
}

std::vector<RecordedLine> RecordedState(const explain::BootStory& boot) {
  // As explain tells it: the cameras its processes, state properties and kernel table name, each
  // with its state in words and its kernel table entry; then the error framework id list.
  static constexpr std::string_view kStatePrefix = "vendor.debug.camera.imagesensorstate.";
  std::set<int> ids;
  for (const explain::ProcessStory& process : boot.processes) {
    for (const auto& [id, camera] : process.cameras) {
      if (id >= 0) ids.insert(id);
    }
  }
  for (const auto& [key, value] : boot.properties) {
    if (key.starts_with(kStatePrefix)) ids.insert(std::atoi(key.c_str() + kStatePrefix.size()));
  }
  std::vector<std::string> kernelLines;
  if (boot.kernelText) kernelLines = sim::records::ExplainKernelParameter(*boot.kernelText).lines;
  for (const std::string& line : kernelLines) {
    if (line.starts_with("camera ")) ids.insert(std::atoi(line.c_str() + 7));
  }
  std::vector<RecordedLine> lines;
  for (const int id : ids) {
    const auto state = boot.properties.find(std::string(kStatePrefix) + std::to_string(id));
    if (state != boot.properties.end()) {
      for (const std::string& line : sim::records::ExplainImageSensorState(state->second).lines) {
        lines.push_back({id, "state " + state->second + ": " + line});
      }
    }
    const std::string prefix = "camera " + std::to_string(id) + ":";
    for (const std::string& line : kernelLines) {
      if (line.starts_with(prefix)) lines.push_back({id, "kernel table:" + line.substr(prefix.size())});
    }
  }
  const auto errors = boot.properties.find(CamX::kErrorFrameworkIdProperty);
  if (errors != boot.properties.end()) {
    lines.push_back({-1, "error framework ids \"" + errors->second + "\""});
    for (const std::string& line : sim::records::ExplainErrorFrameworkIds(errors->second).lines) {
      lines.push_back({-1, line});
    }
  }
  return lines;
}

std::optional<std::string> TimeFromName(std::string_view name) {
  // The last "-YYYY-MM-DD-HH-MM-SS" in a file name (a path's last part, or a zip's member) that
  // begins with "bugreport-".
  constexpr std::string_view kShape = "-dddd-dd-dd-dd-dd-dd";
  for (size_t at = name.size() >= kShape.size() ? name.size() - kShape.size() + 1 : 0; at-- > 0;) {
    bool fits = true;
    for (size_t i = 0; i < kShape.size() && fits; ++i) {
      const char c = name[at + i];
      fits = kShape[i] == 'd' ? c >= '0' && c <= '9' : c == '-';
    }
    if (!fits) continue;
    const size_t part = name.find_last_of("/!", at);
    const std::string_view file = name.substr(part == std::string_view::npos ? 0 : part + 1);
    if (!file.starts_with("bugreport-")) continue;
    const std::string_view t = name.substr(at + 1, kShape.size() - 1);
    return std::string(t.substr(0, 10)) + " " + std::string(t.substr(11, 2)) + ":" + std::string(t.substr(14, 2)) +
           ":" + std::string(t.substr(17, 2));
  }
  return std::nullopt;
}

}  // namespace fleet
