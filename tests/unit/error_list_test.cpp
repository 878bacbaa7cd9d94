// CamX::SetErrorFrameworkId: the list of cameras in error in its property.
#include <gtest/gtest.h>

#include "hook/src/errorframeworkid.h"
#include "hook/src/hook.h"
#include "sim/harness/harness.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simproperties.h"

namespace {

constexpr const char* kProperty = CamX::kErrorFrameworkIdProperty;

class ErrorListTest : public ::testing::Test {
 protected:
  // Presets `before`, makes the call and returns the value written, or
  // "<unchanged>" when the call wrote nothing.
  std::string Apply(const std::string& before, unsigned int id, int isError) {
    sim::PresetProperty(kProperty, before);
    sim::ClearJournal();
    CamX::SetErrorFrameworkId(id, isError);
    for (const sim::Event& event : sim::Journal()) {
      if (event.source == "prop") return event.text.substr(event.text.find('=') + 1);
    }
    return "<unchanged>";
  }
  sim::Phone m_phone;
};

TEST_F(ErrorListTest, AddsAndRemovesEachCamerasFixedIdOnce) {
  EXPECT_EQ(Apply("", 0, 1), "2");
  EXPECT_EQ(Apply("2", 0, 1), "<unchanged>");
  EXPECT_EQ(Apply("2,3", 0, 0), "3");
  EXPECT_EQ(Apply("3", 1, 0), "<unchanged>");
  EXPECT_EQ(Apply("3,2,3", 2, 0), "2,3");  // only the first duplicate goes
  EXPECT_EQ(Apply("", 4, 0), "<unchanged>");
  EXPECT_EQ(sim::GetProperty(kProperty), "");
  // Cameras map to fixed framework ids, unknown ones to 0.
  for (unsigned int id = 0; id <= 5; ++id) CamX::SetErrorFrameworkId(id, -1);
  EXPECT_EQ(sim::GetProperty(kProperty), "2,1,3,4,5,9");
  EXPECT_EQ(Apply("", 7, 1), "0");
  EXPECT_EQ(Apply("", 0xFFFFFFFF, 1), "0");
}

TEST_F(ErrorListTest, MalformedValuesKeepAtMostSixLeadingNumbers) {
  EXPECT_EQ(Apply("1,2,3,4,5,9,7", 5, 0), "1,2,3,4,5");
  EXPECT_EQ(Apply("1,2,3,4,5,9,0", 7, 1), "1,2,3,4,5,9,0");  // the 7th is dropped and added again
  EXPECT_EQ(Apply("abc", 1, 1), "1");
  EXPECT_EQ(Apply("abc", 1, 0), "<unchanged>");
  EXPECT_EQ(Apply("3,x,1", 1, 1), "3,1");
  EXPECT_EQ(Apply("-7, 2", 2, 1), "-7,2,3");
}

}  // namespace
