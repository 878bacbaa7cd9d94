// Call sequences (the call-sequence fuzzer's inputs): the byte form reads back
// as written, a sequence converted to a scenario file does on the phone what
// the sequence does, and a broken invariant is reported with the operation.
#include "sim/sequence/sequence.h"

#include <filesystem>
#include <random>
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/framework/simframework.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simlog.h"
#include "sim/platform/simproperties.h"
#include "sim/scenario/scenario.h"

namespace {

using ::testing::HasSubstr;
namespace sc = sim::scenario;
namespace seq = sim::sequence;

std::vector<std::string> Lines(const std::vector<seq::Op>& ops) {
  std::vector<std::string> lines;
  for (const seq::Op& op : ops) lines.push_back(seq::Describe(op));
  return lines;
}

std::vector<std::filesystem::path> BundledScenarios() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(REMEDIUM_SCENARIO_DIR)) {
    if (entry.path().extension() == ".json") files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<seq::Op> Seed(const std::filesystem::path& file) {
  sc::LoadError error;
  const std::optional<sc::Scenario> scenario = sc::LoadScenarioFile(file.string(), &error);
  EXPECT_TRUE(scenario.has_value()) << error.ToString();
  return scenario ? seq::FromScenario(*scenario) : std::vector<seq::Op>{};
}

// What the library did on the phone, as the golden transcripts see it.
struct Effects {
  std::vector<std::string> log, kernelWrites, notifications;
  std::map<std::string, std::string> properties;
  bool operator==(const Effects&) const = default;
};

// From the records left on the phone, or the outcomes of a scenario's run (which drains them step by step).
Effects Recorded(const sc::RunResult* run = nullptr) {
  std::vector<sc::Slice> slices(1);
  if (run == nullptr) {
    slices[0].log = sim::LogLines();
    slices[0].kernelWrites = sim::SysfsWrites();
    slices[0].notifications = sim::framework::CoreNotifications();
    slices[0].properties = sim::AllProperties();
  } else {
    for (const sc::StepOutcome& outcome : run->outcomes) slices.push_back(outcome.slice);
    slices[0].properties = run->end.properties;
  }
  Effects effects;
  // HAL object addresses differ from run to run.
  static const std::regex kAddress("0x[0-9a-f]+");
  for (const sc::Slice& slice : slices) {
    for (const sim::LogLine& line : slice.log) {
      effects.log.push_back(std::regex_replace(sc::LogText(line), kAddress, "0x?"));
    }
    for (const sim::SysfsWrite& write : slice.kernelWrites) effects.kernelWrites.push_back(write.bytes);
    for (const auto& notification : slice.notifications) {
      effects.notifications.push_back(notification.hookName + " " + std::to_string(notification.value));
    }
  }
  effects.properties = slices[0].properties;
  return effects;
}

TEST(CallSequence, BytesReadBackAsWritten) {
  for (const auto& file : BundledScenarios()) {
    SCOPED_TRACE(file.filename().string());
    const std::vector<seq::Op> ops = Seed(file);
    ASSERT_GT(ops.size(), 3u);
    const std::vector<uint8_t> bytes = seq::Encode(ops);
    EXPECT_EQ(Lines(seq::Decode(bytes.data(), bytes.size())), Lines(ops));
  }
  // Any bytes read as at most kMaxOps operations, which write back to bytes that read the same.
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    std::vector<uint8_t> bytes(random() % 600);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    const std::vector<seq::Op> ops = seq::Decode(bytes.data(), bytes.size());
    ASSERT_LE(ops.size(), seq::kMaxOps);
    const std::vector<uint8_t> again = seq::Encode(ops);
    EXPECT_EQ(Lines(seq::Decode(again.data(), again.size())), Lines(ops)) << "round " << round;
  }
}

// A bundled scenario, made a seed and the seed made a scenario file again,
// plays on the phone with the same effects as the seed itself, and every
// seed keeps the invariants.
TEST(CallSequence, ScenarioFileOfASequencePlaysTheSame) {
  size_t logged = 0;
  for (const auto& file : BundledScenarios()) {
    SCOPED_TRACE(file.filename().string());
    const std::vector<seq::Op> ops = Seed(file);
    std::vector<std::string> violations;
    seq::PlayHooks hooks;
    hooks.violation = [&violations](const std::string& message) { violations.push_back(message); };
    EXPECT_EQ(seq::Play(ops, hooks), ops.size());
    EXPECT_THAT(violations, ::testing::IsEmpty());
    const Effects played = Recorded();

    sc::LoadError error;
    const std::optional<sc::Scenario> scenario =
        sc::ParseScenario(seq::ToScenarioJson(ops, file.stem().string()), "sequence.json", &error);
    ASSERT_TRUE(scenario.has_value()) << error.ToString();
    const sc::RunResult run = sc::Play(*scenario);
    ASSERT_EQ(run.error, "");
    const Effects converted = Recorded(&run);
    EXPECT_EQ(converted.log, played.log);
    EXPECT_EQ(converted.kernelWrites, played.kernelWrites);
    EXPECT_EQ(converted.notifications, played.notifications);
    EXPECT_EQ(converted.properties, played.properties);
    logged += played.log.size();
  }
  EXPECT_GT(logged, 100u);
}

TEST(CallSequence, ViolationNamesTheOperationAndTheInvariant) {
  seq::Op caps;
  caps.entry = static_cast<size_t>(sim::FindCall("GetStaticCaps") - sim::Catalogue().data());
  caps.args.camera = 0;
  caps.args.slot = 0;
  std::vector<std::string> violations;
  seq::PlayHooks hooks;
  hooks.violation = [&violations](const std::string& message) { violations.push_back(message); };
  seq::Play({caps, caps, caps}, hooks);
  EXPECT_TRUE(violations.empty());

  hooks.leakAfter = 1;  // a descriptor left open during the second call
  seq::Play({caps, caps, caps}, hooks);
  ASSERT_EQ(violations.size(), 1u);
  EXPECT_THAT(violations[0], HasSubstr("operation 1 (GetStaticCaps(camera 0, slot 0) hal 0)"));
  EXPECT_THAT(violations[0], HasSubstr("invariant violated: no descriptor left open"));
}

TEST(CallSequence, DefaultHandlerAbortsWithTheMessage) {
  seq::Op caps;
  caps.entry = static_cast<size_t>(sim::FindCall("GetStaticCaps") - sim::Catalogue().data());
  caps.args.camera = 0;
  seq::PlayHooks hooks;
  hooks.leakAfter = 0;
  EXPECT_DEATH(seq::Play({caps}, hooks), "operation 0 .*no descriptor left open");
}

}  // namespace
