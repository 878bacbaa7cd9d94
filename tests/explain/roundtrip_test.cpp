// Round trip: every bundled scenario is played, its library lines are wrapped
// in the noise of a real phone's log (other tags and processes, interleaved
// threads, the camera provider's restart), written in every format the reader
// takes (logcat threadtime, brief and time, a bug report and its zip) and
// read back from the file, and explained. The story's decisions must be the ones the
// scenario's event report shows: results the library changed against the HAL's,
// kernel parameter writes, calls into the core, log lines of a missing core.
#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "explain/story.h"
#include "sim/records/records.h"
#include "sim/report/report.h"
#include "sim/scenario/scenario.h"
#include "tests/explain/logtext.h"
#include "tests/support/bundled_scenarios.h"

namespace sc = sim::scenario;
namespace report = sim::report;

namespace {

// The image sensor state stage a bring-up call records ("I" or "C"), or 0.
char StageOf(const std::string& call, const std::string& title) {
  if (call == "InitializeSensorDevice" || call == "LoadSensorInitConfigCmd") return 'I';
  if (call == "LoadSensorConfigCmds") return 'C';
  if (call == "SensorCreateAndSubmitCommand") {
    if (title.find("opcode 2") != std::string::npos) return 'I';
    if (title.find("opcode 4") != std::string::npos) return 'C';
  }
  return 0;
}

// What the event report says the library decided in one step.
std::set<std::string> Expected(const sc::Json& step) {
  std::set<std::string> kinds;
  std::string states;  // the image sensor states the step wrote
  const std::string title = step.value("title", "");
  const std::string call = title.substr(0, title.find('('));
  const sc::Json observed = step.value("observed", sc::Json::object());
  const sc::Json hal = step.value("halResults", sc::Json::array());
  const bool changed = observed.contains("result") && observed["result"].is_number_integer() && !hal.empty() &&
                       observed["result"].get<int64_t>() != hal.back().get<int64_t>();
  for (const sc::Json& event : step.value("events", sc::Json::array())) {
    const std::string source = event.value("source", "");
    const std::string text = event.value("text", "");
    if (call == "SensorProbe" && source == "core" && text.starts_with("ProtectionCallback("))
      kinds.insert("bypass-taken");
    if (source == "prop" && text.starts_with("vendor.debug.camera.imagesensorstate.")) states += text;
    if (source == "sysfs" && call == "SensorProbe") {
      const std::vector<int64_t> table = sim::records::ParseNumberList(text.substr(text.find(": ") + 2), 64);
      for (size_t camera = 0; table.size() == 64 && camera < 16; ++camera) {
        if (table[camera] == 1 && table[camera + 16] == 3) kinds.insert("kernel-retry-armed");
      }
    }
  }
  if (call == "EEPROMDataProbe" && changed && observed["result"] == 0) kinds.insert("forced-eeprom-success");
  // A bring-up step: skipped when the HAL was not called; otherwise a failure
  // hidden when CamX is told success while the HAL failed or the step's own
  // stage was recorded failed (the kernel's init verdict).
  const bool toldSuccess = observed.contains("result") && observed["result"] == 0;
  if (const char stage = StageOf(call, title); stage != 0 && toldSuccess) {
    const bool halFailed = !hal.empty() && hal.back().get<int64_t>() != 0;
    const bool stageFailed = states.find(std::string("<") + stage + ":F") != std::string::npos;
    const std::string hidden = call == "InitializeSensorDevice" ? "init-failure-hidden" : "config-failure-hidden";
    if (hal.empty() && (call == "InitializeSensorDevice" || call == "LoadSensorConfigCmds")) {
      kinds.insert("bringup-skipped");
    } else if (!hal.empty() && (halFailed || stageFailed)) {
      kinds.insert(hidden);
    }
  }
  if (call == "SensorProbe" && changed && observed["result"] == 1) kinds.insert("protection-fault");
  if (call == "SensorProbe" && toldSuccess && states.find("<P:F") != std::string::npos) {
    kinds.insert("kernel-retry-verdict");
  }
  return kinds;
}

constexpr const char* kCheckedKinds[] = {"bypass-taken",        "kernel-retry-armed",  "forced-eeprom-success",
                                         "init-failure-hidden", "bringup-skipped",     "config-failure-hidden",
                                         "protection-fault",    "kernel-retry-verdict"};

struct Played {
  std::vector<test::LibraryLine> lines;
  std::vector<sc::Json> steps;
  std::map<std::string, std::string> properties;  // as the run left them
};

Played PlayScenario(const std::string& file) {
  sc::LoadError error;
  const std::optional<sc::Scenario> scenario = sc::LoadScenarioFile(file, &error);
  EXPECT_TRUE(scenario) << error.ToString();
  if (!scenario) return {};
  const sc::RunResult run = sc::Play(*scenario);
  const sc::Json document = report::ReportJson(*scenario, run, report::Check(*scenario, run));
  Played played;
  int pid = 1000;
  for (const sc::Json& step : document.value("steps", sc::Json::array())) {
    const std::string title = step.value("title", "");
    // The camera process ends at a restart, a reboot or an abort; the next lines come from a new one.
    if (title.find("restart") != std::string::npos || title.find("reboot") != std::string::npos) pid += 7;
    for (const sc::Json& event : step.value("events", sc::Json::array())) {
      if (event.value("source", "") == "prop") {
        const std::string text = event.value("text", "");
        played.properties[text.substr(0, text.find('='))] = text.substr(text.find('=') + 1);
      }
      if (event.value("source", "") != "log") continue;
      played.lines.push_back(test::ParseEventLog(event.value("text", ""), pid, played.steps.size()));
      if (const size_t at = title.find("(camera "); at != std::string::npos) {
        played.lines.back().camera = std::atoi(title.c_str() + at + 8);
      }
    }
    played.steps.push_back(step);
  }
  return played;
}

// The story's checked decisions by step, and its sensor and EEPROM results.
void Compare(const std::string& file, const Played& played, const test::Explained& explained) {
  const explain::Story& story = explained.story;
  std::map<size_t, std::set<std::string>> told;
  for (const explain::BootStory& boot : story.boots) {
    for (const explain::ProcessStory& process : boot.processes) {
      for (const auto& [id, camera] : process.cameras) {
        for (const explain::Event& event : camera.events) {
          const size_t step = explained.StepOf(event.where);
          ASSERT_NE(step, SIZE_MAX) << event.where << ": " << event.text;
          told[step].insert(event.kind);
          const sc::Json& report = played.steps[step];
          const sc::Json hal = report.value("halResults", sc::Json::array());
          if (event.kind == "sensor-probe" && event.text.find("umd (CamX) ") != std::string::npos && !hal.empty()) {
            const std::string umd = event.text.substr(event.text.find("umd (CamX) ") + 11);
            EXPECT_EQ(std::stoll(umd), hal.back().get<int64_t>())
                << file << " " << report["title"] << ": " << event.text;
          }
          if (event.kind == "eeprom-probe" && event.text.starts_with("EEPROM data probe") &&
              report["observed"].contains("result")) {
            const std::string result = event.text.substr(event.text.rfind("result ") + 7);
            EXPECT_EQ(std::stoll(result), report["observed"]["result"].get<int64_t>()) << file << ": " << event.text;
          }
        }
      }
    }
  }
  for (size_t step = 0; step < played.steps.size(); ++step) {
    // A step whose lines the library's log level dropped (persist.vendor.camera.remedium.loglevel
    // above INFO) has nothing in the log: its decisions show only in the recorded state, and the
    // story must not claim any.
    const bool logged = std::ranges::any_of(played.steps[step].value("events", sc::Json::array()),
                                            [](const sc::Json& e) { return e.value("source", "") == "log"; });
    const std::set<std::string> expected = logged ? Expected(played.steps[step]) : std::set<std::string>{};
    for (const char* kind : kCheckedKinds) {
      EXPECT_EQ(expected.contains(kind), told[step].contains(kind))
          << file << " step " << step + 1 << " " << played.steps[step]["title"] << ": " << kind;
    }
    size_t nullCore = 0, coreMissing = 0;
    for (const sc::Json& event : played.steps[step].value("events", sc::Json::array())) {
      if (event.value("source", "") == "log" && event.value("text", "").find("[REMEDIUM]") != std::string::npos &&
          event.value("text", "").ends_with("m_pRemediumCore is NULL")) {
        ++nullCore;
      }
    }
    for (const explain::BootStory& boot : story.boots) {
      for (const explain::ProcessStory& process : boot.processes) {
        for (const auto& [id, camera] : process.cameras) {
          for (const explain::Event& event : camera.events) {
            if (event.kind == "core-missing" && explained.StepOf(event.where) == step) ++coreMissing;
          }
        }
      }
    }
    EXPECT_EQ(nullCore, coreMissing) << file << " step " << step + 1;
  }
  EXPECT_TRUE(story.unrecognised.empty()) << file << ": " << story.unrecognised.front().text;
  EXPECT_TRUE(story.readingNotes.empty()) << file << ": " << story.readingNotes.front();
  if (played.lines.empty()) {
    for (const explain::BootStory& boot : story.boots) EXPECT_TRUE(boot.processes.empty()) << file;
  }
}

// Every scenario is played in this one process, each on a freshly loaded
// library; the first is played again last and must log the same lines.
TEST(ExplainRoundTrip, EveryScenarioInNoiseGivesTheReportedDecisions) {
  const std::filesystem::path work = std::filesystem::path(REMEDIUM_EXPLAIN_WORK) / "roundtrip";
  std::filesystem::create_directories(work);
  size_t decisions = 0;
  std::set<std::string> kindsSeen;
  const std::vector<std::string> files = test::BundledScenarioFiles();
  ASSERT_FALSE(files.empty());
  std::vector<test::LibraryLine> firstLines;
  std::string first;
  for (const std::string& file : files) {
    // A scenario of hooks that write no line (the EEPROM checksum) is pure noise to the story.
    const Played played = PlayScenario(file);
    if (first.empty() && !played.lines.empty()) first = file, firstLines = played.lines;
    for (const sc::Json& step : played.steps) {
      const std::set<std::string> expected = Expected(step);
      decisions += expected.size();
      kindsSeen.insert(expected.begin(), expected.end());
    }
    const std::string base = (work / std::filesystem::path(file).stem()).string();
    std::vector<std::string> summary;
    std::map<std::string, size_t> kinds;
    for (test::Format format : test::kFormats) {
      SCOPED_TRACE(file + " as " + test::FormatName(format));
      const test::Explained explained = test::Explain(played.lines, format, base, played.properties);
      const explain::Story& story = explained.story;
      Compare(file, played, explained);
      // The same log in any shape tells the same decisions, each as often.
      std::map<std::string, size_t> counted;
      for (const explain::BootStory& boot : story.boots) {
        for (const explain::ProcessStory& process : boot.processes) {
          for (const auto& [id, camera] : process.cameras) {
            for (const explain::Event& event : camera.events) ++counted[event.kind];
          }
        }
      }
      if (format == test::Format::kRecords) {
        summary = explain::SummaryLines(story);
        kinds = counted;
      } else {
        EXPECT_EQ(explain::SummaryLines(story), summary);
        EXPECT_EQ(counted, kinds);
      }
      if (format >= test::Format::kBugreport) {
        ASSERT_EQ(story.boots.size(), 1u);
        for (const auto& [key, value] : played.properties) {
          EXPECT_EQ(story.boots[0].properties.count(key) != 0 ? story.boots[0].properties.at(key) : "<none>", value)
              << file << ": " << key;
        }
      }
    }
  }
  const std::vector<test::LibraryLine> again = PlayScenario(first).lines;
  ASSERT_EQ(again.size(), firstLines.size()) << "the library kept state from the scenarios played between";
  for (size_t i = 0; i < again.size(); ++i) EXPECT_EQ(again[i].message, firstLines[i].message) << i;
  EXPECT_GT(decisions, 20u);  // the bundled scenarios exercise the decisions checked
  for (const char* kind : kCheckedKinds) EXPECT_TRUE(kindsSeen.contains(kind)) << "no scenario shows " << kind;
}

// A log that starts late or lost lines to logd's pruning tells what it holds and says
// what it cannot tell: no decision it claims is one the scenario did not make.
TEST(ExplainRoundTrip, LateStartsAndPrunedRangesClaimNothingFalse) {
  const std::filesystem::path work = std::filesystem::path(REMEDIUM_EXPLAIN_WORK) / "damaged";
  std::filesystem::create_directories(work);
  size_t logs = 0;
  for (const std::string& file : test::BundledScenarioFiles()) {
    const Played played = PlayScenario(file);
    const size_t total = played.lines.size();
    if (total < 4) continue;
    const std::string base = (work / std::filesystem::path(file).stem()).string();
    std::vector<test::Damage> damages;
    for (size_t cut = 1; cut < total; cut += std::max<size_t>(1, total / 9)) damages.push_back({cut, SIZE_MAX, 0});
    for (size_t from = 1; from + 2 < total; from += std::max<size_t>(1, total / 7)) damages.push_back({0, from, 3});
    for (const test::Damage& damage : damages) {
      SCOPED_TRACE(file + ": late start " + std::to_string(damage.lateStart) + ", pruned from " +
                   std::to_string(damage.expireFrom));
      const test::Explained explained =
          test::Explain(played.lines, test::Format::kThreadtime, base, played.properties, damage);
      ++logs;
      bool gapTold = damage.expireCount == 0;
      for (const explain::BootStory& boot : explained.story.boots) {
        for (const explain::ProcessStory& process : boot.processes) {
          for (const auto& [id, camera] : process.cameras) {
            for (const explain::Event& event : camera.events) {
              if (event.kind == "gap" && event.text.find("pruned") != std::string::npos) gapTold = true;
              const size_t step = explained.StepOf(event.where);
              if (step == SIZE_MAX || std::ranges::find(kCheckedKinds, event.kind) == std::end(kCheckedKinds)) continue;
              EXPECT_TRUE(Expected(played.steps[step]).contains(event.kind))
                  << "step " << step + 1 << " " << played.steps[step]["title"] << ": " << event.kind << ": "
                  << event.text;
            }
          }
        }
      }
      EXPECT_TRUE(gapTold) << "the pruned range is not told";
    }
  }
  EXPECT_GT(logs, 100u);
}

}  // namespace
