// Call sequences (the call-sequence fuzzer's inputs, a byte encoding of a
// scenario): bytes, scenario and JSON read back as written, a sequence's
// scenario file does on the phone what the sequence does, the fuzzer reaches
// every core argument, and a broken invariant is reported with the step.
#include "sim/sequence/sequence.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hook/src/corearguments.h"
#include "sim/framework/simframework.h"
#include "sim/invariants/invariants.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simlog.h"
#include "sim/platform/simproperties.h"
#include "sim/scenario/scenario.h"
#include "tests/support/bundled_scenarios.h"

namespace {

using ::testing::HasSubstr;
namespace sc = sim::scenario;
namespace seq = sim::sequence;

std::string Text(const sc::Scenario& scenario) {
  return sc::ScenarioJson(scenario).dump(-1, ' ', false, sc::Json::error_handler_t::replace);
}

sc::Scenario Load(const std::filesystem::path& file) {
  sc::LoadError error;
  std::optional<sc::Scenario> scenario = sc::LoadScenarioFile(file.string(), &error);
  EXPECT_TRUE(scenario.has_value()) << error.ToString();
  return scenario ? std::move(*scenario) : sc::Scenario{};
}

sc::Scenario Seed(const std::filesystem::path& file) {
  const std::vector<uint8_t> bytes = seq::Encode(Load(file));
  return seq::Decode(bytes.data(), bytes.size(), file.stem().string());
}

std::vector<std::string> PlayChecked(const sc::Scenario& scenario, std::optional<size_t> leakAfter = std::nullopt,
                                     sc::RunResult* result = nullptr) {
  std::vector<std::string> violations;
  const auto invariants =
      sim::invariants::Make({[&violations](const std::string& message) { violations.push_back(message); }, leakAfter});
  sc::PlayOptions options;
  options.observers = {invariants.get()};
  sc::RunResult run = sc::Play(scenario, options);
  EXPECT_EQ(run.error, "");
  if (result != nullptr) *result = std::move(run);
  return violations;
}

// What the library did on the phone, as the golden transcripts see it.
struct Effects {
  std::vector<std::string> log, kernelWrites, notifications;
  std::map<std::string, std::string> properties;
  bool operator==(const Effects&) const = default;
};

// From the records left on the phone, or the outcomes of a scenario's run (which drains them step by step).
Effects Recorded(const sc::RunResult& run) {
  Effects effects;
  // HAL object addresses differ from run to run.
  static const std::regex kAddress("0x[0-9a-f]+");
  for (const sc::StepOutcome& outcome : run.outcomes) {
    for (const sim::LogLine& line : outcome.slice.log) {
      effects.log.push_back(std::regex_replace(sc::LogText(line), kAddress, "0x?"));
    }
    for (const sim::SysfsWrite& write : outcome.slice.kernelWrites) effects.kernelWrites.push_back(write.bytes);
    for (const auto& notification : outcome.slice.notifications) {
      effects.notifications.push_back(notification.hookName + " " + std::to_string(notification.value));
    }
  }
  effects.properties = run.end.properties;
  return effects;
}

// Bytes -> scenario -> bytes is the identity on decoded scenarios, and a
// decoded scenario's JSON file loads as the same scenario.
TEST(CallSequence, BytesAndJsonReadBackAsWritten) {
  std::vector<std::vector<uint8_t>> inputs;
  for (const std::filesystem::path file : test::BundledScenarioFiles()) {
    inputs.push_back(seq::Encode(Load(file)));
    // The fuzzer's seed of each bundled scenario is committed as remedium-seq seed writes it.
    std::ifstream seed(
        std::filesystem::path(REMEDIUM_SCENARIO_DIR) / "../../fuzz/corpus/fuzz_call_sequence" / file.stem(),
        std::ios::binary);
    EXPECT_EQ(std::vector<uint8_t>(std::istreambuf_iterator<char>(seed), {}), inputs.back())
        << file.stem() << ": run remedium-seq seed " << file << " fuzz/corpus/fuzz_call_sequence/" << file.stem();
  }
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    std::vector<uint8_t>& bytes = inputs.emplace_back(random() % 600);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  }
  for (const std::vector<uint8_t>& bytes : inputs) {
    const sc::Scenario scenario = seq::Decode(bytes.data(), bytes.size());
    ASSERT_LE(scenario.steps.size(), seq::kMaxSteps);
    const std::vector<uint8_t> again = seq::Encode(scenario);
    EXPECT_EQ(Text(seq::Decode(again.data(), again.size())), Text(scenario));
    sc::LoadError error;
    const auto loaded = sc::ParseScenario(Text(scenario), "sequence.json", &error);
    ASSERT_TRUE(loaded.has_value()) << error.ToString() << "\n" << Text(scenario);
    EXPECT_EQ(Text(*loaded), Text(scenario));
  }
}

// Every bundled scenario made a seed keeps the invariants, and its scenario
// file plays on the phone with the same effects as the seed itself.
TEST(CallSequence, SeedsKeepTheInvariantsAndTheirFilesPlayTheSame) {
  size_t logged = 0;
  for (const std::filesystem::path file : test::BundledScenarioFiles()) {
    SCOPED_TRACE(file.filename().string());
    const sc::Scenario seed = Seed(file);
    ASSERT_GT(seed.steps.size(), 3u);
    sc::RunResult run;
    EXPECT_THAT(PlayChecked(seed, std::nullopt, &run), ::testing::IsEmpty());
    const Effects played = Recorded(run);
    sc::LoadError error;
    const auto loaded = sc::ParseScenario(Text(seed), "sequence.json", &error);
    ASSERT_TRUE(loaded.has_value()) << error.ToString();
    const sc::RunResult again = sc::Play(*loaded);
    ASSERT_EQ(again.error, "");
    EXPECT_EQ(Recorded(again), played);
    logged += played.log.size();
  }
  EXPECT_GT(logged, 100u);
}

// The fuzzer draws every core argument some proxy reads; a scenario naming
// another is refused with the names the library asks for.
TEST(CallSequence, EveryCoreArgumentIsDrawnAndAnUnknownOneRefused) {
  std::set<std::string> drawn;
  std::mt19937 random(11);
  for (int round = 0; round < 2000; ++round) {
    std::vector<uint8_t> bytes(64);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    for (const sc::Step& step : seq::Decode(bytes.data(), bytes.size()).steps) {
      if (step.kind != sc::Step::Kind::kSet || !step.changes.core) continue;
      for (const auto& [name, values] : step.changes.core->hookArguments) drawn.insert(name);
    }
  }
  std::set<std::string> known;
  for (const sim::CoreArgument* argument : sim::CoreArguments()) known.insert(argument->name);
  EXPECT_EQ(drawn, known);
  EXPECT_EQ(known.size(), std::size(CamX::coreargument::kAll));

  sc::LoadError error;
  EXPECT_FALSE(sc::ParseScenario(R"({"name": "x", "device": {"cameras": []}, "steps": [],
                                     "core": {"hookArguments": {"SensorProbeProtect": ["s5kgm2"]}}})",
                                 "x.json", &error));
  EXPECT_THAT(error.ToString(),
              HasSubstr("core.hookArguments.SensorProbeProtect: the library asks the core for no "
                        "argument \"SensorProbeProtect\"; it asks for SensorProbeI2CError, SensorProbeProtection,"));
}

TEST(CallSequence, ViolationNamesTheStepAndTheInvariant) {
  sc::LoadError error;
  const auto scenario = sc::ParseScenario(R"({"name": "caps", "device": {"cameras": [{"id": 0, "slot": 0}]},
      "steps": [{"call": "GetStaticCaps", "camera": 0, "repeat": 3}]})",
                                          "caps.json", &error);
  ASSERT_TRUE(scenario.has_value()) << error.ToString();
  EXPECT_THAT(PlayChecked(*scenario), ::testing::IsEmpty());
  const std::vector<std::string> violations =
      PlayChecked(*scenario, 1);  // a descriptor left open during the second call
  ASSERT_EQ(violations.size(), 1u);
  EXPECT_THAT(violations[0], HasSubstr("steps[0] #2 (GetStaticCaps(camera 0, slot 0)): invariant violated: no "
                                       "descriptor left open"));
  const auto invariants = sim::invariants::Make({nullptr, 0});
  sc::PlayOptions options;
  options.observers = {invariants.get()};
  EXPECT_DEATH(sc::Play(*scenario, options), "steps\\[0\\] #1 .*no descriptor left open");
}

}  // namespace
