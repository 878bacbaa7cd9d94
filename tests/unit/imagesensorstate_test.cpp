// ImageSensorStateHelper: the per-camera stage record kept in a property,
// its transitions, its tolerance of malformed values, its module gate and
// its log lines. The module configuration and the log level are built once
// per process, so every case runs in a fresh process.
#include "core/model/monitor/interface/imagesensorstate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "harness.h"
#include "simdevice.h"
#include "simproperties.h"
#include "support/fresh_process.h"
#include "support/log_matchers.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kModSwitch[] = "persist.vendor.camera.cloud.remedium.modswitch";
constexpr char kLogLevel[] = "persist.vendor.camera.remedium.loglevel";
constexpr char kEmpty[] = "<P:-:0><I:-:0><C:-:0>";

std::string StateKey(uint32_t camera) { return "vendor.debug.camera.imagesensorstate." + std::to_string(camera); }
std::string StateValue(uint32_t camera) { return sim::GetProperty(StateKey(camera)).value_or("(unset)"); }

// The record as "<letter>=<result>:<time>" entries, in key order.
std::vector<std::string> Entries(const ImageSensorStateSet& set) {
  std::vector<std::string> entries;
  for (const auto& [letter, state] : set.states) {
    entries.push_back(letter + "=" + state.result + ":" + std::to_string(state.timestamp));
  }
  return entries;
}

bool AnyPropertyWrite() {
  for (const sim::Event& event : sim::Journal()) {
    if (event.source == "prop") return true;
  }
  return false;
}

class ImageSensorStateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::PresetProperty(kModSwitch, "64");
    sim::PinBootTime(1234);
  }
  sim::Phone phone_;
};

TEST_F(ImageSensorStateTest, UnsetRecordTakesTheStageWithWholeBootSeconds) {
  EXPECT_IN_FRESH_PROCESS([] {
    ImageSensorStateHelper::UpdateImageSensorStateProperty(3, "I", "S");
    EXPECT_EQ(StateValue(3), "<P:-:0><I:S:1234><C:-:0>");
    EXPECT_EQ(StateValue(0), "(unset)");
    const ImageSensorStateSet set = ImageSensorStateHelper::GetImageSensorState(3);
    EXPECT_EQ(set.cameraId, 3u);
    EXPECT_THAT(Entries(set), ElementsAre("C=-:0", "I=S:1234", "P=-:0"));
  });
}

TEST_F(ImageSensorStateTest, UpdateReplacesOnlyItsStage) {
  sim::PresetProperty(StateKey(15), "<P:S:10><I:S:11><C:S:12>");
  EXPECT_IN_FRESH_PROCESS([] {
    sim::PinBootTime(50);
    ImageSensorStateHelper::UpdateImageSensorStateProperty(15, "P", "F");
    EXPECT_EQ(StateValue(15), "<P:F:50><I:S:11><C:S:12>");
  });
}

// Any result other than exactly "S" or "F" copies nothing, so the record
// goes back to unrecorded whatever it held.
TEST_F(ImageSensorStateTest, ResultOtherThanSOrFResetsTheRecord) {
  EXPECT_IN_FRESH_PROCESS([] {
    for (const char* result : {"-", "SS", "", "s", "X"}) {
      sim::PresetProperty(StateKey(2), "<P:S:10><I:S:11><C:F:12>");
      ImageSensorStateHelper::UpdateImageSensorStateProperty(2, "C", result);
      EXPECT_EQ(StateValue(2), kEmpty) << "result \"" << result << "\"";
    }
  });
}

// Written even when nothing changes.
TEST_F(ImageSensorStateTest, UnknownStageRewritesTheRecordNormalised) {
  sim::PresetProperty(StateKey(1), "x<C:F:3>junk<P:S:1> <I:-:2>");
  EXPECT_IN_FRESH_PROCESS([] {
    ImageSensorStateHelper::UpdateImageSensorStateProperty(1, "X", "S");
    EXPECT_EQ(StateValue(1), "<P:S:1><I:-:2><C:F:3>");
    EXPECT_TRUE(AnyPropertyWrite());
    ImageSensorStateHelper::UpdateImageSensorStateProperty(1, "PI", "F");
    EXPECT_EQ(StateValue(1), "<P:S:1><I:-:2><C:F:3>");
  });
}

// A stage is only recorded when the value holds a group for it.
TEST_F(ImageSensorStateTest, ValueWithOnlyAProbeGroup) {
  sim::PresetProperty(StateKey(4), "<P:F:7>");
  EXPECT_IN_FRESH_PROCESS([] {
    EXPECT_THAT(Entries(ImageSensorStateHelper::GetImageSensorState(4)), ElementsAre("C=-:0", "I=-:0", "P=F:7"));
    ImageSensorStateHelper::UpdateImageSensorStateProperty(4, "I", "S");
    EXPECT_EQ(StateValue(4), "<P:F:7><I:-:0><C:-:0>");
  });
}

TEST_F(ImageSensorStateTest, MalformedGroupsAreIgnoredAndTheLaterDuplicateWins) {
  EXPECT_IN_FRESH_PROCESS([] {
    const auto read = [](const std::string& value) {
      sim::PresetProperty(StateKey(5), value);
      return Entries(ImageSensorStateHelper::GetImageSensorState(5));
    };
    EXPECT_THAT(read("<P:S:-5><I:X:1><c:F:9><C:F:9>"), ElementsAre("C=F:9", "I=-:0", "P=-:0"));
    EXPECT_THAT(read("<P:S:1><P:F:2>"), ElementsAre("C=-:0", "I=-:0", "P=F:2"));
    EXPECT_THAT(read("<P:S:99999999999999999999999>"), ElementsAre("C=-:0", "I=-:0", "P=S:9223372036854775807"));
    EXPECT_THAT(read("<P:S:1"), ElementsAre("C=-:0", "I=-:0", "P=-:0"));

    sim::PresetProperty(StateKey(5), "<P:S:1><P:F:2><I:S:007>");
    ImageSensorStateHelper::UpdateImageSensorStateProperty(5, "C", "S");
    EXPECT_EQ(StateValue(5), "<P:F:2><I:S:7><C:-:0>");
  });
}

class ImageSensorStateGateTest : public ::testing::TestWithParam<const char*> {
 protected:
  sim::Phone phone_;
};

TEST_P(ImageSensorStateGateTest, OffModuleReadsAndWritesNothing) {
  if (GetParam() != nullptr) sim::PresetProperty(kModSwitch, GetParam());
  sim::PresetProperty(kLogLevel, "2");
  sim::PresetProperty(StateKey(1), "<P:F:7><I:S:8><C:S:9>");
  EXPECT_IN_FRESH_PROCESS([] {
    ImageSensorStateHelper::UpdateImageSensorStateProperty(1, "P", "S");
    ImageSensorStateHelper::UpdateImageSensorStateProperty(2, "P", "S");
    EXPECT_FALSE(AnyPropertyWrite());
    EXPECT_EQ(StateValue(1), "<P:F:7><I:S:8><C:S:9>");
    EXPECT_EQ(StateValue(2), "(unset)");
    const ImageSensorStateSet set = ImageSensorStateHelper::GetImageSensorState(1);
    EXPECT_EQ(set.cameraId, 1u);
    EXPECT_THAT(Entries(set), ElementsAre("C=-:0", "I=-:0", "P=-:0"));
    EXPECT_THAT(test::LogTexts(), IsEmpty());
  });
}

INSTANTIATE_TEST_SUITE_P(Masks, ImageSensorStateGateTest, ::testing::Values(nullptr, "63"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           return info.param == nullptr ? std::string("Unset") : "Mask" + std::string(info.param);
                         });

TEST_F(ImageSensorStateTest, LogsTheReadTheWriteAndEachMatch) {
  sim::PresetProperty(kLogLevel, "2");
  EXPECT_IN_FRESH_PROCESS([] {
    EXPECT_THAT(Entries(ImageSensorStateHelper::GetImageSensorState(2)), ElementsAre("C=-:0", "I=-:0", "P=-:0"));
    EXPECT_THAT(test::LogTexts(), IsEmpty());  // the unrecorded value is not logged

    sim::PinBootTime(77);
    ImageSensorStateHelper::UpdateImageSensorStateProperty(2, "P", "S");
    ImageSensorStateHelper::GetImageSensorState(2);
    EXPECT_THAT(
        test::LogTexts(),
        ElementsAre("imagesensorstate.cpp:100 UpdateImageSensorStateProperty() camera id: 2, stage: P, result: S, "
                    "property: <P:-:0><I:-:0><C:-:0>",
                    "imagesensorstate.cpp:138 UpdateImageSensorStateProperty() set property: <P:S:77><I:-:0><C:-:0>",
                    "imagesensorstate.cpp:174 GetImageSensorState() property key:vendor.debug.camera.imagesensorstate.2"
                    "  string: <P:S:77><I:-:0><C:-:0>",
                    "imagesensorstate.cpp:185 GetImageSensorState() match: <P:S:77>, P, S, 77",
                    "imagesensorstate.cpp:185 GetImageSensorState() match: <I:-:0>, I, -, 0",
                    "imagesensorstate.cpp:185 GetImageSensorState() match: <C:-:0>, C, -, 0"));
    std::vector<int> priorities;
    for (const sim::LogLine& line : sim::LogLines()) priorities.push_back(line.priority);
    EXPECT_THAT(priorities, ElementsAre(2, 2, 4, 2, 2, 2));
  });
}

}  // namespace
