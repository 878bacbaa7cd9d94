// ImageSensorStateHelper: the per-camera stage record kept in a property,
// its transitions, its tolerance of malformed values, its module gate and
// its log lines. The module configuration and the log level are built once
// per process, so every case runs in a fresh process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/model/monitor/interface/imagesensorstate.h"
#include "sim/harness/harness.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simproperties.h"
#include "tests/support/fresh_process.h"
#include "tests/support/log_matchers.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kModSwitch[] = "persist.vendor.camera.cloud.remedium.modswitch";
constexpr char kLogLevel[] = "persist.vendor.camera.remedium.loglevel";
constexpr char kEmpty[] = "<P:-:0><I:-:0><C:-:0>";

std::string StateKey(uint32_t camera) { return "vendor.debug.camera.imagesensorstate." + std::to_string(camera); }
std::string StateValue(uint32_t camera) { return sim::GetProperty(StateKey(camera)).value_or("(unset)"); }

// The record as "<letter>=<result>:<time>" entries, in key order.
std::vector<std::string> Entries(uint32_t camera) {
  const ImageSensorStateSet set = ImageSensorStateHelper::GetImageSensorState(camera);
  EXPECT_EQ(set.cameraId, camera);
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
  sim::Phone m_phone;
};

struct Case {
  const char* before;  // null: unset
  const char* stage;
  const char* result;
  const char* after;
};
const Case kUpdates[] = {
    {nullptr, "I", "S", "<P:-:0><I:S:1234><C:-:0>"},
    {"<P:S:10><I:S:11><C:S:12>", "P", "F", "<P:F:1234><I:S:11><C:S:12>"},
    {"<P:S:10><I:S:11><C:F:12>", "C", "-", kEmpty},
    {"<P:S:10><I:S:11><C:F:12>", "C", "SS", kEmpty},
    {"<P:S:10><I:S:11><C:F:12>", "C", "", kEmpty},
    {"<P:S:10><I:S:11><C:F:12>", "C", "s", kEmpty},
    {"<P:S:10><I:S:11><C:F:12>", "C", "X", kEmpty},
    {"x<C:F:3>junk<P:S:1> <I:-:2>", "X", "S", "<P:S:1><I:-:2><C:F:3>"},
    {"x<C:F:3>junk<P:S:1> <I:-:2>", "PI", "F", "<P:S:1><I:-:2><C:F:3>"},
    {"<P:F:7>", "I", "S", "<P:F:7><I:-:0><C:-:0>"},
    {"<P:S:-5><I:X:1><c:F:9><C:F:9>", "X", "S", "<P:-:0><I:-:0><C:F:9>"},
    {"<P:S:99999999999999999999999>", "X", "S", "<P:S:9223372036854775807><I:-:0><C:-:0>"},
    {"<P:S:1", "X", "S", kEmpty},
    {"<P:S:1><P:F:2><I:S:007>", "C", "S", "<P:F:2><I:S:7><C:-:0>"},
};

// An update replaces only its own stage, stamped with whole boot seconds,
// and only when the value holds a group for it; a result other than exactly
// "S" or "F" resets the record; the value is always rewritten normalised
// (malformed groups ignored, the later duplicate winning).
TEST_F(ImageSensorStateTest, UpdateReplacesItsStageAndRewritesTheRecordNormalised) {
  EXPECT_IN_FRESH_PROCESS([] {
    for (const Case& c : kUpdates) {
      sim::ResetProperties();
      sim::PresetProperty(kModSwitch, "64");
      if (c.before != nullptr) sim::PresetProperty(StateKey(3), c.before);
      sim::ClearJournal();
      ImageSensorStateHelper::UpdateImageSensorStateProperty(3, c.stage, c.result);
      EXPECT_EQ(StateValue(3), c.after) << (c.before ? c.before : "(unset)") << " " << c.stage << " " << c.result;
      EXPECT_TRUE(AnyPropertyWrite());
      EXPECT_EQ(StateValue(0), "(unset)");
    }
    EXPECT_THAT(Entries(3), ElementsAre("C=-:0", "I=S:7", "P=F:2"));
  });
}

// With "sensorstate" off (mask unset or 63) nothing is read, written or logged.
TEST_F(ImageSensorStateTest, OffModuleReadsAndWritesNothing) {
  for (const char* mask : {static_cast<const char*>(nullptr), "63"}) {
    sim::ResetProperties();
    if (mask != nullptr) sim::PresetProperty(kModSwitch, mask);
    sim::PresetProperty(kLogLevel, "2");
    sim::PresetProperty(StateKey(1), "<P:F:7><I:S:8><C:S:9>");
    EXPECT_IN_FRESH_PROCESS([] {
      ImageSensorStateHelper::UpdateImageSensorStateProperty(1, "P", "S");
      ImageSensorStateHelper::UpdateImageSensorStateProperty(2, "P", "S");
      EXPECT_FALSE(AnyPropertyWrite());
      EXPECT_EQ(StateValue(1), "<P:F:7><I:S:8><C:S:9>");
      EXPECT_EQ(StateValue(2), "(unset)");
      EXPECT_THAT(Entries(1), ElementsAre("C=-:0", "I=-:0", "P=-:0"));
      EXPECT_THAT(test::LogTexts(), IsEmpty());
    });
  }
}

}  // namespace
