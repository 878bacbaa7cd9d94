// RemediumLog: the level gate (read once per process), the prefix and the
// 1024-byte line.
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/interface/remediumlog.h"
#include "sim/platform/simproperties.h"
#include "tests/support/fresh_process.h"
#include "tests/support/log_matchers.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

constexpr char kLevelProperty[] = "persist.vendor.camera.remedium.loglevel";

// Writes one line at each level 2..6 and returns the levels that were written.
std::vector<int> WrittenLevels() {
  sim::ClearLog();
  for (int level = 2; level <= 6; ++level) RemediumLog(level, "hook/src/hook.cpp", 1, "F", "level %d", level);
  std::vector<int> levels;
  for (const sim::LogLine& line : sim::LogLines()) levels.push_back(line.priority);
  return levels;
}

struct LevelCase {
  std::optional<std::string> property;
  std::vector<int> written;
};

class LogLevelTest : public ::testing::TestWithParam<LevelCase> {
 protected:
  sim::Phone m_phone;
};

TEST_P(LogLevelTest, PropertyGatesLowerLevelsAndIsReadOncePerProcess) {
  const LevelCase c = GetParam();
  EXPECT_IN_FRESH_PROCESS([&c] {
    if (c.property) sim::PresetProperty(kLevelProperty, *c.property);
    EXPECT_THAT(WrittenLevels(), ElementsAreArray(c.written));
    sim::PresetProperty(kLevelProperty, "2");
    EXPECT_THAT(WrittenLevels(), ElementsAreArray(c.written));
  });
}

INSTANTIATE_TEST_SUITE_P(Levels, LogLevelTest,
                         ::testing::Values(LevelCase{std::nullopt, {4, 5, 6}}, LevelCase{"6", {6}},
                                           LevelCase{"0", {2, 3, 4, 5, 6}}, LevelCase{"3", {3, 4, 5, 6}},
                                           LevelCase{"verbose", {4, 5, 6}}));

using RemediumLogTest = test::PhoneTest;

TEST_F(RemediumLogTest, LongLinesAreCutAndOverlongPrefixesDropped) {
  RemediumLog(kLogError, "a.cpp", 1, "F", "%s", std::string(2000, 'x').c_str());
  ASSERT_EQ(test::LogTexts().size(), 1u);
  EXPECT_EQ(test::LogTexts()[0].size(), 1023u);
  EXPECT_EQ(test::LogTexts()[0].substr(0, 11), "a.cpp:1 F()");
  sim::ClearLog();
  // "f:1 " + name + "() " is 1014 characters with a 1007-character name:
  // dropped; one character shorter still leaves room for a message.
  RemediumLog(kLogError, "f", 1, std::string(1007, 'n').c_str(), "text");
  EXPECT_TRUE(sim::LogLines().empty());
  RemediumLog(kLogError, "f", 1, std::string(1006, 'n').c_str(), "text");
  EXPECT_EQ(sim::LogLines().size(), 1u);
}

}  // namespace
