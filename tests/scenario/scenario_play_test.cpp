// Playing scenarios on the simulated phone with the built library, and
// comparing with their expectations: a mismatch is reported where it happened,
// with what was expected and what the library did.
#include <cstring>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hook/src/errorframeworkid.h"
#include "sim/report/report.h"
#include "sim/scenario/scenario.h"
#include "sim/text/text.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;
namespace sc = sim::scenario;
namespace report = sim::report;

sc::Scenario Parse(const std::string& text) {
  sc::LoadError error;
  std::optional<sc::Scenario> scenario = sc::ParseScenario(text, "test.json", &error);
  EXPECT_TRUE(scenario.has_value()) << error.ToString();
  return scenario ? *scenario : sc::Scenario{};
}

std::vector<std::string> Paths(const report::CheckResult& check) {
  std::vector<std::string> paths;
  for (const report::Mismatch& mismatch : check.mismatches) paths.push_back(mismatch.path);
  return paths;
}

TEST(ScenarioPlay, ReportsEachUnmetExpectationWithItsPath) {
  const sc::Scenario scenario = Parse(R"({
    "name": "t",
    "device": {"cameras": [{"id": 0, "slot": 5}]},
    "core": {"hookArguments": {"EEPROMI2C": ["24"]}},
    "steps": [
      {"call": "GetStaticCaps", "camera": 0,
       "expect": {"result": 1, "log": ["slot id: 5"], "noLog": ["camera id: 0"]}},
      {"call": "CreateI2CInfoCmd", "slaveAddress": "0x18", "hal": 4,
       "expect": {"result": 4, "slaveAddress": "0x18", "notifications": []}}
    ],
    "expect": {"halCalls": {"GetStaticCaps": 2, "CreateI2CInfoCmd": 1}, "properties": {"x.y": "1"}}
  })");
  const sc::RunResult run = sc::Play(scenario);
  ASSERT_EQ(run.error, "");
  const report::CheckResult check = report::Check(scenario, run);
  EXPECT_EQ(check.checked, 9u);
  EXPECT_THAT(Paths(check), UnorderedElementsAre("steps[0].expect.result", "steps[0].expect.noLog",
                                                 "steps[1].expect.slaveAddress", "steps[1].expect.notifications",
                                                 "expect.halCalls.GetStaticCaps", "expect.properties.x.y"));
  const std::string text = report::FormatMismatches(check);
  EXPECT_THAT(text, HasSubstr("steps[1] CreateI2CInfoCmd(slave 0x18):"));
  EXPECT_THAT(text, HasSubstr("expected: 0x18 (24)\n      got:      0x66 (102)"));
  EXPECT_THAT(text, HasSubstr("expected: \"1\"\n      got:      (unset)"));
}

TEST(ScenarioPlay, EachRepetitionIsCheckedOnItsOwn) {
  // The address switch notifies the core on the first change of a process only.
  const sc::Scenario scenario = Parse(R"({
    "name": "t",
    "device": {"cameras": [{"id": 0}]},
    "core": {"hookArguments": {"EEPROMI2C": ["24"]}},
    "steps": [
      {"call": "CreateI2CInfoCmd", "slaveAddress": 24, "repeat": 2,
       "expect": {"slaveAddress": 102, "notifications": ["CreateI2CInfoCmdHook"]}},
      {"restart": true},
      {"call": "CreateI2CInfoCmd", "slaveAddress": 24, "expect": {"notifications": ["CreateI2CInfoCmdHook"]}}
    ]
  })");
  const sc::RunResult run = sc::Play(scenario);
  const report::CheckResult check = report::Check(scenario, run);
  ASSERT_EQ(check.mismatches.size(), 1u);
  EXPECT_EQ(check.mismatches[0].path, "steps[0].expect.notifications");
  EXPECT_THAT(check.mismatches[0].where, HasSubstr("repetition 2 of 2"));
  EXPECT_EQ(run.restarts, 1);
}

// A step that fails on every repetition keeps only the first mismatches in
// memory; the text and the JSON report still hold every one.
TEST(ScenarioPlay, EveryMismatchOfALongRunIsReportedWithoutKeepingThemAll) {
  const size_t repeat = report::kKeptMismatches + 50;
  const sc::Scenario scenario = Parse(R"({"name": "t", "device": {"cameras": [{"id": 0}]},
    "steps": [{"call": "GetStaticCaps", "camera": 0, "hal": 0, "repeat": )" +
                                      std::to_string(repeat) + R"(, "expect": {"result": 3}}]})");
  const sc::RunResult run = sc::Play(scenario);
  const report::CheckResult check = report::Check(scenario, run);
  EXPECT_EQ(check.failed, repeat);
  EXPECT_EQ(check.mismatches.size(), report::kKeptMismatches);
  const std::string text = report::FormatMismatches(check);
  EXPECT_THAT(text, HasSubstr("repetition " + std::to_string(repeat) + " of " + std::to_string(repeat) +
                              ":\n    steps[0].expect.result\n      expected: 3\n      got:      0\n"));
  const sc::Json mismatches = report::ReportJson(scenario, run, check)["check"]["mismatches"];
  ASSERT_EQ(mismatches.size(), repeat);
  EXPECT_EQ(mismatches.back()["got"], "0");
  EXPECT_THAT(report::FormatSummary(scenario, run, check),
              HasSubstr("expectations: " + std::to_string(repeat) + " of " + std::to_string(repeat) + " not met"));
}

TEST(ScenarioPlay, LogLinesMatchInOrderAndStarStandsForAnyText) {
  const sc::Scenario scenario = Parse(R"({
    "name": "t",
    "device": {"cameras": [{"id": 0, "slot": 1}, {"id": 1, "slot": 2}]},
    "steps": [{"call": "GetStaticCaps", "camera": 0}, {"call": "GetStaticCaps", "camera": 1}],
    "expect": {
      "log": ["I [REMEDIUM]: hook.cpp:* GetStaticCapsHook() camera id: 0, slot id: 1", "camera id: 1, slot id: 2"],
      "logCount": {"GetStaticCapsHook() camera id: *, slot id: ": 2}
    }
  })");
  EXPECT_TRUE(report::Check(scenario, sc::Play(scenario)).ok());

  sc::Scenario reversed = scenario;
  reversed.expect.log = sc::LogPatterns({"camera id: 1, slot id: 2", "camera id: 0, slot id: 1"});
  const report::CheckResult check = report::Check(reversed, sc::Play(reversed));
  EXPECT_THAT(Paths(check), ElementsAre("expect.log[1]"));
}

// A compiled pattern matches as "*" + pattern + "*" does as a glob.
TEST(ScenarioPlay, LogPatternMatchesAsAGlobWouldOnRandomTexts) {
  const auto glob = [](const std::string& line, const std::string& pattern) {
    const std::string g = "*" + pattern + "*";
    std::vector<std::vector<bool>> m(g.size() + 1, std::vector<bool>(line.size() + 1, false));
    m[0][0] = true;
    for (size_t i = 1; i <= g.size(); ++i) {
      for (size_t j = 0; j <= line.size(); ++j) {
        m[i][j] = g[i - 1] == '*' ? m[i - 1][j] || (j > 0 && m[i][j - 1])
                                  : j > 0 && m[i - 1][j - 1] && g[i - 1] == line[j - 1];
      }
    }
    return static_cast<bool>(m[g.size()][line.size()]);
  };
  std::mt19937 random(7);
  const auto text = [&random](const char* alphabet, size_t most) {
    std::string t(random() % (most + 1), ' ');
    for (char& c : t) c = alphabet[random() % std::strlen(alphabet)];
    return t;
  };
  for (int i = 0; i < 20000; ++i) {
    const std::string line = text("ab", 12), pattern = text("ab**", 8);
    ASSERT_EQ(sc::LogPattern(pattern).Matches(line), glob(line, pattern)) << line << " / " << pattern;
  }
  EXPECT_TRUE(sc::LogPattern(std::string(2000000, '*')).pieces.empty());  // matches every line at once
}

// A run without kept outcomes holds one step's records at a time: the
// simulated platform is drained after each step, and the whole run's
// expectations, followed step by step, still hold.
TEST(ScenarioPlay, LongRunHoldsOneStepOfRecords) {
  const sc::Scenario scenario = Parse(R"({"name": "t", "device": {"cameras": [{"id": 0}]},
    "steps": [{"call": "GetStaticCaps", "camera": 0, "repeat": 500}],
    "expect": {"logCount": {"GetStaticCapsHook() camera id: 0": 500}, "log": ["camera id: 0", "camera id: 0"]}})");
  sc::PlayOptions options;
  options.keepOutcomes = false;
  report::CheckResult check;
  size_t steps = 0, left = 0;
  options.stepDone = [&](const sc::Scenario& played, const sc::StepOutcome& outcome) {
    ++steps;
    left += sim::LogLines().size() + sim::Journal().size() + sim::hal::CallResults().size();
    report::CheckStep(played, outcome, &check);
  };
  const sc::RunResult run = sc::Play(scenario, options);
  report::CheckEnd(scenario, run, &check);
  EXPECT_EQ(steps, 500u);
  EXPECT_EQ(left, 0u);
  EXPECT_TRUE(run.outcomes.empty());
  EXPECT_EQ(run.totals.log, 500u);
  EXPECT_EQ(check.checked, 2u);
  EXPECT_TRUE(check.ok()) << report::FormatMismatches(check);
}

TEST(ScenarioPlay, ReportCarriesStepsFinalStateAndCheck) {
  const sc::Scenario scenario = Parse(R"({
    "name": "t",
    "device": {"bootTime": 7, "cameras": [{"id": 0, "slot": 0}]},
    "properties": {"persist.vendor.camera.cloud.remedium.modswitch": "64"},
    "steps": [{"call": "InitializeSensorDevice", "camera": 0, "hal": 3,
               "expect": {"result": 0, "initState": 2, "halCalls": 1}}]
  })");
  const sc::RunResult run = sc::Play(scenario);
  const report::CheckResult check = report::Check(scenario, run);
  EXPECT_TRUE(check.ok());
  const sc::Json document = report::ReportJson(scenario, run, check);
  EXPECT_EQ(document["check"]["ok"], true);
  ASSERT_EQ(document["steps"].size(), 1u);
  EXPECT_EQ(document["steps"][0]["call"], "InitializeSensorDevice");
  EXPECT_EQ(document["steps"][0]["halResults"], sc::Json::array({3}));
  EXPECT_EQ(document["final"]["properties"]["vendor.debug.camera.imagesensorstate.0"], "<P:-:0><I:F:7><C:-:0>");
  EXPECT_EQ(document["final"]["properties"][CamX::kErrorFrameworkIdProperty], "2");
  // The streamed report is the document's item as dump(2) writes it.
  report::JsonReport streamed;
  streamed.Add(scenario, run.outcomes[0]);
  std::ostringstream out;
  streamed.Write(scenario, run, check, out);
  EXPECT_EQ(out.str(), std::regex_replace(document.dump(2), std::regex("\n"), "\n    "));
  const std::string summary = report::FormatSummary(scenario, run, check);
  EXPECT_THAT(summary, HasSubstr("results changed by the library: 1"));
  EXPECT_THAT(summary, HasSubstr("initialisation (I): failed, recorded 7 s after boot"));
}

TEST(ScenarioPlay, AbortedCameraProcessIsRestartedWithPropertiesKept) {
  const sc::Scenario scenario = Parse(R"({
    "name": "t",
    "device": {"cameras": [{"id": 0, "slot": 3}]},
    "properties": {"persist.vendor.camera.cloud.remedium.modswitch": "64"},
    "steps": [
      {"call": "GetStaticCaps", "camera": 0},
      {"call": "ProcessCaptureRequest", "recordControl": 1, "expect": {"aborted": true}},
      {"call": "InitializeSensorDevice", "camera": 0, "hal": 1,
       "expect": {"properties": {"vendor.debug.camera.imagesensorstate.0": "<P:-:0><I:F:100><C:-:0>"}}}
    ]
  })");
  const sc::RunResult run = sc::Play(scenario);
  EXPECT_EQ(run.aborts, 1);
  EXPECT_EQ(run.restarts, 1);
  EXPECT_TRUE(report::Check(scenario, run).ok());
}

// A library log line cut inside a multi-byte character still gives a report:
// the bytes that are not UTF-8 are escaped as \xNN in --json.
TEST(ScenarioPlay, LogTextThatIsNotUtf8IsEscapedInTheReport) {
  std::string name;
  for (int i = 0; i < 600; ++i) name += "\u00e9";  // two bytes each in UTF-8
  const sc::Scenario scenario = Parse(R"({"name": "t", "device": {"cameras": [{"id": 0}]},
    "overrideSettings": ["SensorModuleRetryTimes=3", "sensorModuleNumber=2"],
    "steps": [{"call": "SensorProbe", "camera": 0, "sensor": ")" +
                                      name + R"("}]})");
  const sc::RunResult run = sc::Play(scenario);
  const sc::Json document = report::ReportJson(scenario, run, report::Check(scenario, run));
  std::string text;
  ASSERT_NO_THROW(text = document.dump());
  EXPECT_THAT(text, HasSubstr(R"(\\xC3")"));  // the cut character's first byte, at the end of a line
  bool cut = false;
  for (const sim::LogLine& line : run.outcomes[0].slice.log) cut = cut || !sim::text::IsUtf8(line.text);
  EXPECT_TRUE(cut) << "no log line was cut inside a character";
  EXPECT_EQ(sim::text::EscapeUtf8("a\\b\xC3"), "a\\\\b\\xC3");
}

// The annotated example of the scenario format's documentation, without its
// comments, loads and meets its own expectations.
TEST(ScenarioPlay, DocumentedExampleHolds) {
  std::ifstream in(REMEDIUM_SCENARIO_DIR "/README.md");
  std::stringstream readme;
  readme << in.rdbuf();
  const std::string text = readme.str();
  const size_t begin = text.find("```jsonc\n");
  ASSERT_NE(begin, std::string::npos);
  const size_t end = text.find("```", begin + 9);
  const std::string example =
      std::regex_replace(text.substr(begin + 9, end - begin - 9), std::regex("[ \t]*//[^\n]*"), "");
  const sc::Scenario scenario = Parse(example);
  const report::CheckResult check = report::Check(scenario, sc::Play(scenario));
  EXPECT_GT(check.checked, 10u);
  EXPECT_TRUE(check.ok()) << report::FormatMismatches(check);
}

}  // namespace
