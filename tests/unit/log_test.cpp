// RemediumLog: the level gate (read once per process), the prefix and the
// 1024-byte line.
#include "client/interface/remediumlog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "harness.h"
#include "simproperties.h"
#include "support/fresh_process.h"
#include "support/log_matchers.h"

namespace {

using ::testing::ElementsAre;

constexpr char kLevelProperty[] = "persist.vendor.camera.remedium.loglevel";

// Writes one line at each level 2..6 and returns the levels that were written.
std::vector<int> WrittenLevels() {
  sim::ClearLog();
  for (int level = 2; level <= 6; ++level) RemediumLog(level, "hook/src/hook.cpp", 1, "F", "level %d", level);
  std::vector<int> levels;
  for (const sim::LogLine& line : sim::LogLines()) levels.push_back(line.priority);
  return levels;
}

class RemediumLogTest : public ::testing::Test {
 protected:
  sim::Phone phone_;
};

TEST_F(RemediumLogTest, DefaultLevelWritesInfoAndAbove) {
  EXPECT_IN_FRESH_PROCESS([] { EXPECT_THAT(WrittenLevels(), ElementsAre(4, 5, 6)); });
}

TEST_F(RemediumLogTest, PropertySetsTheLevel) {
  EXPECT_IN_FRESH_PROCESS([] {
    sim::PresetProperty(kLevelProperty, "6");
    EXPECT_THAT(WrittenLevels(), ElementsAre(6));
  });
  EXPECT_IN_FRESH_PROCESS([] {
    sim::PresetProperty(kLevelProperty, "0");
    EXPECT_THAT(WrittenLevels(), ElementsAre(2, 3, 4, 5, 6));
  });
  EXPECT_IN_FRESH_PROCESS([] {
    sim::PresetProperty(kLevelProperty, "3");
    EXPECT_THAT(WrittenLevels(), ElementsAre(3, 4, 5, 6));
  });
}

TEST_F(RemediumLogTest, NonNumericLevelFallsBackToInfo) {
  EXPECT_IN_FRESH_PROCESS([] {
    sim::PresetProperty(kLevelProperty, "verbose");
    EXPECT_THAT(WrittenLevels(), ElementsAre(4, 5, 6));
  });
}

TEST_F(RemediumLogTest, LevelIsReadOncePerProcess) {
  EXPECT_IN_FRESH_PROCESS([] {
    sim::PresetProperty(kLevelProperty, "6");
    EXPECT_THAT(WrittenLevels(), ElementsAre(6));
    sim::PresetProperty(kLevelProperty, "2");
    EXPECT_THAT(WrittenLevels(), ElementsAre(6));
  });
}

TEST_F(RemediumLogTest, PrefixNamesBaseNameLineAndFunction) {
  sim::ClearLog();
  RemediumLog(kLogError, "vendor/velora/hook/src/hook.cpp", 734, "SensorProbeHook", "value %d", 7);
  RemediumLog(kLogError, "hook.cpp", 12, "F", "no folder");
  EXPECT_THAT(test::LogTexts(), ElementsAre("hook.cpp:734 SensorProbeHook() value 7", "hook.cpp:12 F() no folder"));
  ASSERT_EQ(sim::LogLines().size(), 2u);
  EXPECT_EQ(sim::LogLines()[0].priority, kLogError);
}

TEST_F(RemediumLogTest, LongMessageIsCutToTheLine) {
  sim::ClearLog();
  const std::string message(2000, 'x');
  RemediumLog(kLogError, "a.cpp", 1, "F", "%s", message.c_str());
  const std::vector<std::string> texts = test::LogTexts();
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0].size(), 1023u);
  EXPECT_EQ(texts[0].substr(0, 11), "a.cpp:1 F()");
}

TEST_F(RemediumLogTest, OverlongPrefixDropsTheLine) {
  sim::ClearLog();
  // "f:1 " + name + "() " is 1014 characters with a 1007-character name: dropped.
  RemediumLog(kLogError, "f", 1, std::string(1007, 'n').c_str(), "text");
  EXPECT_TRUE(sim::LogLines().empty());
  // One character shorter (1013) still leaves room for a message.
  RemediumLog(kLogError, "f", 1, std::string(1006, 'n').c_str(), "text");
  EXPECT_EQ(sim::LogLines().size(), 1u);
}

}  // namespace
