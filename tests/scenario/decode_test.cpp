// The explanations remedium-sim decode gives, read the way the library reads
// the values.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/scenario/report.h"
#include "sim/scenario/scenario.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
namespace sc = sim::scenario;

std::string Lines(const sc::Explanation& explanation) {
  std::string text;
  for (const std::string& line : explanation.lines) text += line + "\n";
  return text;
}

TEST(Decode, ImageSensorStateStagesInWords) {
  const sc::Explanation state = sc::ExplainImageSensorState("<P:F:12><I:S:15><C:-:0>");
  EXPECT_TRUE(state.ok);
  EXPECT_THAT(state.lines, ElementsAre("probe (P): failed, recorded 12 s after boot",
                                       "initialisation (I): succeeded, recorded 15 s after boot",
                                       "configuration (C): not recorded", HasSubstr("skips this slot's")));
  // Only well-formed groups count; a negative time never parses.
  EXPECT_THAT(Lines(sc::ExplainImageSensorState("<P:S:-3><I:S:4>")), HasSubstr("probe (P): not recorded"));
  EXPECT_FALSE(sc::ExplainImageSensorState("garbage").ok);
}

TEST(Decode, ErrorListMapsFrameworkIdsBackToCameras) {
  EXPECT_THAT(sc::ExplainErrorFrameworkIds("2,9,0").lines,
              ElementsAre("framework id 2: camera (slot) 0 is in error", "framework id 9: camera (slot) 5 is in error",
                          HasSubstr("outside 0..5")));
  EXPECT_THAT(Lines(sc::ExplainErrorFrameworkIds("")), HasSubstr("no camera is in error"));
  EXPECT_THAT(Lines(sc::ExplainErrorFrameworkIds("x1")), HasSubstr("empty list"));
  const sc::Explanation seven = sc::ExplainErrorFrameworkIds("1,2,3,4,5,9,7");
  EXPECT_EQ(seven.lines.size(), 7u);  // six ids and the note about the seventh
  EXPECT_THAT(seven.lines.back(), HasSubstr("only the first six"));
}

TEST(Decode, KernelParameterPerCamera) {
  std::string text = sc::ZeroTable();
  EXPECT_THAT(Lines(sc::ExplainKernelParameter(text)), HasSubstr("every camera's entries are 0"));
  std::vector<std::string> values(64, "0");
  values[2] = "1";
  values[18] = "3";
  values[35] = "-110";
  std::string table;
  for (size_t i = 0; i < values.size(); ++i) table += (i ? "," : "") + values[i];
  const sc::Explanation kernel = sc::ExplainKernelParameter(table);
  EXPECT_THAT(kernel.lines, ElementsAre(HasSubstr("camera 2: marked for a kernel-assisted re-probe ([2]=1, [18]=3)"),
                                        HasSubstr("camera 3: kernel probe result (kmd) [35]=-110")));
  EXPECT_THAT(Lines(sc::ExplainKernelParameter("0,0,0")), HasSubstr("3 values: not a table of 64"));
}

TEST(Decode, PicksTheKindFromTheTextOrThePropertyName) {
  EXPECT_EQ(sc::Explain("<P:S:1><I:S:1><C:S:1>").kind, "image sensor state");
  EXPECT_EQ(sc::Explain("[vendor.debug.camera.imagesensorstate.2]: [<P:S:1><I:-:0><C:-:0>]").kind,
            "image sensor state");
  EXPECT_EQ(sc::Explain("persist.vendor.camera.errorFrameworkId=2,3").kind, "error framework id list");
  EXPECT_EQ(sc::Explain("2,3").kind, "error framework id list");
  EXPECT_EQ(sc::Explain(sc::ZeroTable()).kind, "kernel parameter");
}

}  // namespace
