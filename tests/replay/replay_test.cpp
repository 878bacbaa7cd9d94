// A phone's log replayed as a scenario: every bundled scenario's own log
// gives a scenario that tells the same decisions and replays to itself; each
// log shape real phones write, and a bug report across two boots, does the
// same; compare and the overrides;
// bad input is one line and exit status 2.
#include "sim/replay/replay.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "explain/input.h"
#include "explain/story.h"
#include "sim/scenario/scenario.h"
#include "tests/explain/logtext.h"
#include "tests/support/bundled_scenarios.h"

namespace sc = sim::scenario;
namespace rp = sim::replay;

namespace {

const std::filesystem::path kWork = REMEDIUM_EXPLAIN_WORK;

// The library's lines of a run, a new PID for each camera process.
std::vector<test::LibraryLine> Lines(const sc::Scenario& scenario) {
  const sc::RunResult run = sc::Play(scenario);
  EXPECT_EQ(run.error, "");
  std::vector<test::LibraryLine> lines;
  int pid = 1000;
  for (const sc::StepOutcome& outcome : run.outcomes) {
    const sc::Step::Kind kind = scenario.steps[outcome.step].kind;
    if (kind == sc::Step::Kind::kRestart || kind == sc::Step::Kind::kReboot || outcome.restart) pid += 7;
    for (const sim::LogLine& line : outcome.slice.log) {
      lines.push_back(test::ParseEventLog(sc::LogText(line), pid, outcome.step));
      if (scenario.steps[outcome.step].args.camera)
        lines.back().camera = int(*scenario.steps[outcome.step].args.camera);
    }
  }
  return lines;
}

// What explain tells, without times, places and PIDs.
std::vector<std::string> Decisions(const explain::Story& story) {
  std::vector<std::string> told;
  for (const explain::BootStory& boot : story.boots) {
    for (const explain::ProcessStory& process : boot.processes) {
      for (const auto& [id, camera] : process.cameras) {
        told.push_back(explain::CameraSummary(camera));
        for (const explain::Event& event : camera.events) told.push_back(event.kind + ": " + event.text);
      }
    }
  }
  return told;
}

// The first decision that differs, rather than both lists.
void ExpectSame(const std::vector<std::string>& replayed, const std::vector<std::string>& original) {
  size_t i = 0;
  while (i < replayed.size() && i < original.size() && replayed[i] == original[i]) ++i;
  EXPECT_EQ(i < replayed.size() ? replayed[i] : "(end)", i < original.size() ? original[i] : "(end)")
      << "decision " << i;
}

std::vector<std::string> Files(const test::Explained& explained) {
  std::vector<std::string> files;
  for (const auto& [name, steps] : explained.stepsOf) {
    const std::string file = name.substr(0, name.find('!'));  // a zip's member: the zip
    if (std::ranges::find(files, file) == files.end()) files.push_back(file);
  }
  return files;
}

rp::Replayed Replay(const std::vector<std::string>& files) {
  rp::Replayed replayed;
  std::string error;
  EXPECT_TRUE(rp::ReplayInputs(files, &replayed, &error)) << error;
  return replayed;
}

sc::Scenario Load(const rp::Replayed& replayed) {
  sc::LoadError error;
  std::optional<sc::Scenario> scenario = sc::ParseScenario(replayed.scenario.dump(), "replayed.json", &error);
  EXPECT_TRUE(scenario) << error.ToString() << "\n" << replayed.scenario.dump(1);
  return scenario.value_or(sc::Scenario{});
}

// The scenario without its name and description, which name the inputs.
sc::Json Body(sc::Json scenario) {
  scenario.erase("name");
  scenario.erase("description");
  return scenario;
}

size_t Lines(const std::string& text) { return static_cast<size_t>(std::ranges::count(text, '\n')); }

std::optional<sc::Scenario> LoadFile(const std::string& file) {
  sc::LoadError error;
  return sc::LoadScenarioFile(file, &error);
}

// Run S for its log L; replay L into S'; run S' for L'. L' tells L's decisions, and replays to S'.
TEST(Replay, EveryBundledScenarioIsAFixpoint) {
  std::filesystem::create_directories(kWork / "fixpoint");
  size_t replayed = 0;
  for (const std::string& file : test::BundledScenarioFiles()) {
    SCOPED_TRACE(file);
    const std::vector<test::LibraryLine> lines = Lines(*LoadFile(file));
    if (lines.empty()) continue;
    const std::string base = (kWork / "fixpoint" / std::filesystem::path(file).stem()).string();
    const test::Explained log = test::Explain(lines, test::Format::kThreadtime, base, {});
    const rp::Replayed first = Replay(Files(log));
    const test::Explained again = test::Explain(Lines(Load(first)), test::Format::kThreadtime, base + "-again", {});
    ExpectSame(Decisions(again.story), Decisions(log.story));
    EXPECT_EQ(Body(Replay(Files(again)).scenario).dump(1), Body(first.scenario).dump(1));
    ++replayed;
  }
  EXPECT_GE(replayed, 18u);
}

// Every shape a phone or tool writes a log in replays into a scenario that plays, tells the
// log's decisions, and whose own log in that shape replays to it again; a damaged log's notes
// say what it lacks.
TEST(Replay, EveryLogShapeReplaysAndItsGapsAreNoted) {
  std::filesystem::create_directories(kWork / "shapes");
  const std::vector<test::LibraryLine> lines = Lines(*LoadFile(std::string(REMEDIUM_SCENARIO_DIR) + "/default.json"));
  const std::string base = (kWork / "shapes" / "default").string();
  // Every shape written to files, and logpersist's microsecond files read alone.
  std::vector<test::Format> formats(test::kFormats.begin() + 1, test::kFormats.end());
  formats.push_back(test::Format::kUsec);
  for (test::Format format : formats) {
    SCOPED_TRACE(test::FormatName(format));
    const test::Explained log = test::Explain(lines, format, base, {{"persist.vendor.camera.remedium.loglevel", "3"}});
    const rp::Replayed replayed = Replay(Files(log));
    // L' in the same shape, a bug report's with the replayed properties (getprop writes them
    // sorted, so they are compared sorted).
    using Properties = std::map<std::string, std::string>;
    const test::Explained again = test::Explain(Lines(Load(replayed)), format, base + "-again",
                                                replayed.scenario["properties"].get<Properties>());
    ExpectSame(Decisions(again.story), Decisions(log.story));
    const auto sorted = [](const sc::Json& scenario) {
      sc::Json body = Body(scenario);
      body["properties"] = body["properties"].get<Properties>();
      return body.dump(1);
    };
    EXPECT_EQ(sorted(Replay(Files(again)).scenario), sorted(replayed.scenario));
    if (format >= test::Format::kBugreport && format != test::Format::kUsec) {
      EXPECT_EQ(replayed.scenario["properties"]["persist.vendor.camera.remedium.loglevel"], "3");
    }
  }
  // A log that starts late, and one logd pruned.
  const struct {
    test::Damage damage;
    const char* noted;
  } damaged[] = {{{5, SIZE_MAX, 0}, "the log starts (or resumes) inside this call"},
                 {{0, 12, 4}, "the log: logd pruned 4 lines"}};
  for (const auto& [damage, noted] : damaged) {
    SCOPED_TRACE(noted);
    const rp::Replayed replayed =
        Replay(Files(test::Explain(lines, test::Format::kThreadtime, base + "-damaged", {}, damage)));
    Load(replayed);
    EXPECT_TRUE(std::ranges::any_of(replayed.assumed, [&](const std::string& line) {
      return line.find(noted) != std::string::npos;
    })) << replayed.scenario.dump(1);
  }
}

// A bug report of two boots, the boot before in its LAST LOGCAT section, and the story it tells.
std::string TwoBootReport(const std::vector<test::LibraryLine>& before, const std::vector<test::LibraryLine>& after,
                          const std::string& base, explain::Story* story) {
  const auto log = [&](const std::vector<test::LibraryLine>& lines, const std::string& name) {
    test::Explain(lines, test::Format::kThreadtime, base + name, {});
    std::ostringstream text;
    text << std::ifstream(base + name + ".threadtime.txt").rdbuf();
    return text.str();
  };
  const std::string report = base + ".bugreport.txt";
  std::ofstream(report) << "== dumpstate: 2026-11-23 05:10:00\n"
                           "------ SYSTEM LOG (logcat -v threadtime -v printable -v uid -d *:v) ------\n"
                        << log(after, "-after") << "------ 0.1s was the duration of 'SYSTEM LOG' ------\n"
                        << "------ LAST LOGCAT (logcat -L -b all -v threadtime -v printable -v uid -d *:v) ------\n"
                        << log(before, "-before") << "------ 0.1s was the duration of 'LAST LOGCAT' ------\n";
  explain::StorySink sink;
  std::string error;
  EXPECT_TRUE(explain::ReadInput(report, sink, &error)) << error;
  *story = sink.Finish();
  EXPECT_EQ(story->boots.size(), 2u);
  return report;
}

// Two boots replay with one reboot between them, noted; the replayed run, written as the same
// report, tells both boots' decisions and replays to the same scenario.
TEST(Replay, BugreportWithTheBootBeforeReplaysAReboot) {
  std::filesystem::create_directories(kWork / "shapes");
  const std::vector<test::LibraryLine> lines = Lines(*LoadFile(std::string(REMEDIUM_SCENARIO_DIR) + "/default.json"));
  explain::Story story;
  const rp::Replayed replayed = Replay({TwoBootReport(lines, lines, (kWork / "shapes" / "boots").string(), &story)});
  EXPECT_TRUE(std::ranges::any_of(replayed.assumed, [](const std::string& line) {
    return line.find("a new boot: played as a reboot") != std::string::npos;
  })) << replayed.scenario.dump(1);
  const sc::Scenario scenario = Load(replayed);
  const auto reboot = std::ranges::find(scenario.steps, sc::Step::Kind::kReboot, &sc::Step::kind);
  ASSERT_EQ(std::ranges::count(scenario.steps, sc::Step::Kind::kReboot, &sc::Step::kind), 1);
  std::vector<test::LibraryLine> before, after;
  for (const test::LibraryLine& line : Lines(scenario)) {
    (line.step < size_t(reboot - scenario.steps.begin()) ? before : after).push_back(line);
  }
  explain::Story again;
  const std::string report = TwoBootReport(before, after, (kWork / "shapes" / "boots-again").string(), &again);
  ExpectSame(Decisions(again), Decisions(story));
  EXPECT_EQ(Body(Replay({report}).scenario).dump(1), Body(replayed.scenario).dump(1));
}

TEST(Replay, CompareTellsWhereDecisionsPart) {
  const std::string file = std::string(REMEDIUM_SCENARIO_DIR) + "/default.json";
  std::ostringstream out, err;
  EXPECT_EQ(rp::RunCompare(file, file, {}, false, out, err), 0) << err.str();
  EXPECT_NE(out.str().find("camera 0: the same: s5kgm2_rear kept on attempt 5 by bypass"), std::string::npos)
      << out.str();
  // Without the core's bypass switch the module is not kept by bypass.
  std::filesystem::create_directories(kWork);
  const std::string closed = (kWork / "closed.json").string();
  {
    sc::Json scenario = sc::Json::parse(std::ifstream(file));
    scenario["core"]["switches"] = sc::Json::object();
    std::ofstream(closed) << scenario.dump();
  }
  out.str("");
  EXPECT_EQ(rp::RunCompare(file, closed, {}, true, out, err), 1) << err.str();
  const sc::Json json = sc::Json::parse(out.str());
  EXPECT_EQ(json["cameras"][0]["a"]["summary"], "s5kgm2_rear kept on attempt 5 by bypass; EEPROM success forced");
  EXPECT_NE(json["cameras"][0]["b"]["summary"], json["cameras"][0]["a"]["summary"]);
  // The same difference made by an override.
  out.str("");
  EXPECT_EQ(rp::RunCompare(file, file, {{}, {}, {"SensorProbeProtection=s5kgm2"}, {}}, false, out, err), 0);
}

TEST(Replay, OverridesChangeTheScenarioOrNameWhatIsWrong) {
  sc::Scenario scenario = *LoadFile(std::string(REMEDIUM_SCENARIO_DIR) + "/default.json");
  std::string error;
  ASSERT_TRUE(
      rp::ApplyOverrides({{"persist.vendor.camera.remedium.loglevel=6", "vendor.debug.camera.imagesensorstate.3=x"},
                          {},
                          {"ProbeEEPROM=imx582,s5kgm2", "EEPROMI2C="},
                          {"0=ov64b_rear,s5kgm2_rear"}},
                         &scenario, &error))
      << error;
  EXPECT_EQ(scenario.setup.properties["persist.vendor.camera.remedium.loglevel"], "6");
  EXPECT_EQ(scenario.setup.core->hookArguments["ProbeEEPROM"], (std::vector<std::string>{"imx582", "s5kgm2"}));
  EXPECT_EQ(scenario.cameras[0].sensors[0], "ov64b_rear");
  EXPECT_EQ(scenario.steps[1].args.sensor, "ov64b_rear");  // the first module's probes renamed
  EXPECT_EQ(scenario.steps[3].args.sensor, "s5kgm2_rear");
  for (const rp::Overrides& bad :
       {rp::Overrides{{"persist.vendor.camera.nothing=1"}, {}, {}, {}}, rp::Overrides{{"=1"}, {}, {}, {}},
        rp::Overrides{{}, {"/nonexistent"}, {}, {}}, rp::Overrides{{}, {}, {"SensorProbe=1"}, {}},
        rp::Overrides{{}, {}, {}, {"7=a"}}, rp::Overrides{{}, {}, {}, {"x=a"}}}) {
    error.clear();
    EXPECT_FALSE(rp::ApplyOverrides(bad, &scenario, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
}

TEST(Replay, BadInputIsOneLineAndExitTwo) {
  std::ostringstream err;
  const std::string other = std::string(REMEDIUM_EXPLAIN_DATA) + "/latin1-other-process.txt";
  EXPECT_EQ(rp::RunReplay({other}, (kWork / "none.json").string(), err), 2);
  EXPECT_NE(err.str().find("no line of the library"), std::string::npos) << err.str();
  for (const auto& [a, b] : {std::pair{"/nonexistent.json", "/nonexistent.json"},
                             {REMEDIUM_EXPLAIN_DATA "/bad/empty.txt", REMEDIUM_EXPLAIN_DATA "/bad/empty.txt"}}) {
    err.str("");
    std::ostringstream out;
    EXPECT_EQ(rp::RunCompare(a, b, {}, false, out, err), 2);
    EXPECT_EQ(Lines(err.str()), 1u) << err.str();
  }
  err.str("");
  EXPECT_EQ(rp::RunReplay({"/nonexistent/logcat.txt"}, (kWork / "none.json").string(), err), 2);
  EXPECT_EQ(Lines(err.str()), 1u) << err.str();
}

}  // namespace
