#include <map>

#include "explain/story.h"
#include "sim/replay/replay.h"

namespace sim::replay {
namespace {

namespace sc = sim::scenario;

// One camera's decisions in one camera process of a run.
struct Decisions {
  std::string summary;              // as explain's summary says it, without the camera's name
  std::vector<std::string> events;  // "kind: text"
};
// By (boot, process, camera), in the run's order.
using Told = std::map<std::tuple<size_t, size_t, int>, Decisions>;

// Plays the scenario and tells its log as explain does: each camera process a PID of its own,
// each reboot a boot.
bool Tell(const std::string& file, const Overrides& overrides, Told* told, std::string* error) {
  sc::LoadError loadError;
  std::optional<sc::Scenario> scenario = sc::LoadScenarioFile(file, &loadError);
  if (!scenario) {
    *error = loadError.ToString();
    return false;
  }
  if (!ApplyOverrides(overrides, &*scenario, error)) return false;
  const sc::RunResult run = sc::Play(*scenario);
  if (!run.error.empty()) {
    *error = file + ": " + run.error;
    return false;
  }
  explain::StorySink sink;
  sink.BeginInput(file, explain::InputSink::InputKind::kLogcat);
  int pid = 1000;
  uint64_t number = 0;
  const auto feed = [&](std::string_view tag, std::string_view message, char level) {
    explain::LogLine line{};
    line.source = file;
    line.lineNumber = ++number;
    line.format = explain::LogFormat::kBrief;
    line.pid = line.tid = pid;
    line.level = level;
    line.tag = tag;
    line.message = message;
    sink.Log(line);
  };
  for (const sc::StepOutcome& outcome : run.outcomes) {
    const sc::Step::Kind kind = scenario->steps[outcome.step].kind;
    if (kind == sc::Step::Kind::kReboot) feed("init", "init first stage started!", 'I');
    if (kind == sc::Step::Kind::kReboot || kind == sc::Step::Kind::kRestart || outcome.restart) ++pid;
    for (const sim::LogLine& line : outcome.slice.log) feed(line.tag, line.text, sim::PriorityLetter(line.priority));
  }
  const explain::Story story = sink.Finish();
  for (size_t b = 0; b < story.boots.size(); ++b) {
    for (size_t p = 0; p < story.boots[b].processes.size(); ++p) {
      for (const auto& [id, camera] : story.boots[b].processes[p].cameras) {
        Decisions& decisions = (*told)[{b, p, id}];
        const std::string summary = explain::CameraSummary(camera);
        decisions.summary = summary.substr(summary.find(": ") == std::string::npos ? 0 : summary.find(": ") + 2);
        for (const explain::Event& event : camera.events) decisions.events.push_back(event.kind + ": " + event.text);
      }
    }
  }
  return true;
}

std::string Name(const std::tuple<size_t, size_t, int>& key, bool several) {
  const auto& [boot, process, camera] = key;
  std::string name = camera < 0 ? "lines naming no camera" : "camera " + std::to_string(camera);
  if (several) name = "boot " + std::to_string(boot + 1) + ", process " + std::to_string(process + 1) + ", " + name;
  return name;
}

}  // namespace

int RunCompare(const std::string& a, const std::string& b, const Overrides& overrides, bool json, std::ostream& out,
               std::ostream& err) {
  Told told[2];
  std::string error;
  for (int i = 0; i < 2; ++i) {
    if (!Tell(i == 0 ? a : b, overrides, &told[i], &error)) {
      err << "remedium-sim compare: " << error << "\n";
      return 2;
    }
  }
  std::map<std::tuple<size_t, size_t, int>, int> keys;
  for (const Told& run : told) {
    for (const auto& [key, decisions] : run) keys[key] = 0;
  }
  bool several = false;
  for (const auto& [key, unused] : keys) several = several || std::get<0>(key) > 0 || std::get<1>(key) > 0;
  Json cameras = Json::array();
  std::vector<std::string> lines;
  for (const auto& [key, unused] : keys) {
    const auto inA = told[0].find(key), inB = told[1].find(key);
    const Decisions none{"no decision", {}};
    const Decisions& da = inA == told[0].end() ? none : inA->second;
    const Decisions& db = inB == told[1].end() ? none : inB->second;
    const bool same = da.summary == db.summary && da.events == db.events;
    std::string line = Name(key, several) + ": ";
    if (same) {
      line += "the same: " + da.summary;
    } else if (da.summary != db.summary) {
      line += "A " + da.summary + "; B " + db.summary;
    } else {
      // The same outcome by other decisions: the first that differs.
      size_t i = 0;
      while (i < da.events.size() && i < db.events.size() && da.events[i] == db.events[i]) ++i;
      line += "A " + (i < da.events.size() ? da.events[i] : "nothing more") + "; B " +
              (i < db.events.size() ? db.events[i] : "nothing more");
    }
    lines.push_back(line);
    cameras.push_back({{"boot", std::get<0>(key) + 1},
                       {"process", std::get<1>(key) + 1},
                       {"camera", std::get<2>(key)},
                       {"same", same},
                       {"a", {{"summary", da.summary}, {"decisions", da.events}}},
                       {"b", {{"summary", db.summary}, {"decisions", db.events}}}});
  }
  const bool same = std::ranges::all_of(cameras, [](const Json& camera) { return camera["same"].get<bool>(); });
  if (json) {
    out << Json{{"a", a}, {"b", b}, {"same", same}, {"cameras", cameras}}.dump(2, ' ', false,
                                                                               Json::error_handler_t::replace)
        << "\n";
  } else {
    out << "A " << a << "\nB " << b << "\n";
    for (const std::string& line : lines) out << line << "\n";
    out << (same ? "the decisions agree\n" : "the decisions differ\n");
  }
  return same ? 0 : 1;
}

}  // namespace sim::replay
