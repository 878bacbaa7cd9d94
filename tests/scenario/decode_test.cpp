// The explanations remedium-sim decode gives, read the way the library reads
// the values; the text helpers they and explain write with.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hook/src/errorframeworkid.h"
#include "sim/records/records.h"
#include "sim/scenario/scenario.h"
#include "sim/text/text.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
namespace sc = sim::scenario;
namespace records = sim::records;
namespace text = sim::text;

std::string Lines(const records::Explanation& explanation) {
  std::string text;
  for (const std::string& line : explanation.lines) text += line + "\n";
  return text;
}

TEST(Decode, ImageSensorStateStagesInWords) {
  const records::Explanation state = records::ExplainImageSensorState("<P:F:12><I:S:15><C:-:0>");
  EXPECT_TRUE(state.ok);
  EXPECT_THAT(state.lines, ElementsAre("probe (P): failed, recorded 12 s after boot",
                                       "initialisation (I): succeeded, recorded 15 s after boot",
                                       "configuration (C): not recorded", HasSubstr("skips this slot's")));
  // Only well-formed groups count; a negative time never parses.
  EXPECT_THAT(Lines(records::ExplainImageSensorState("<P:S:-3><I:S:4>")), HasSubstr("probe (P): not recorded"));
  EXPECT_FALSE(records::ExplainImageSensorState("garbage").ok);
}

TEST(Decode, ErrorListMapsFrameworkIdsBackToCameras) {
  EXPECT_THAT(records::ExplainErrorFrameworkIds("2,9,0").lines,
              ElementsAre("framework id 2: camera (slot) 0 is in error", "framework id 9: camera (slot) 5 is in error",
                          HasSubstr("outside 0..5")));
  EXPECT_THAT(Lines(records::ExplainErrorFrameworkIds("")), HasSubstr("no camera is in error"));
  EXPECT_THAT(Lines(records::ExplainErrorFrameworkIds("x1")), HasSubstr("empty list"));
  const records::Explanation seven = records::ExplainErrorFrameworkIds("1,2,3,4,5,9,7");
  EXPECT_EQ(seven.lines.size(), 7u);  // six ids and the note about the seventh
  EXPECT_THAT(seven.lines.back(), HasSubstr("only the first six"));
  // Each number is read into an int: one past its range ends the list.
  EXPECT_THAT(records::ExplainErrorFrameworkIds("2,4294967298,3").lines, ElementsAre(HasSubstr("slot) 0")));
}

TEST(Decode, WrittenNumberListIsExactlyWhatTheLibraryWrites) {
  EXPECT_EQ(records::ParseWrittenNumberList("2,-3"), (std::vector<int64_t>{2, -3}));
  EXPECT_EQ(records::ParseWrittenNumberList(""), std::vector<int64_t>{});
  for (const char* text : {"2,", " 2", "2,,3", "+2", "02", "2 ", "9223372036854775808"}) {
    EXPECT_EQ(records::ParseWrittenNumberList(text), std::nullopt) << text;
  }
}

TEST(Decode, KernelParameterPerCamera) {
  std::string text = sc::ZeroTable();
  EXPECT_THAT(Lines(records::ExplainKernelParameter(text)), HasSubstr("every camera's entries are 0"));
  std::vector<std::string> values(64, "0");
  values[2] = "1";
  values[18] = "3";
  values[35] = "-110";
  std::string table;
  for (size_t i = 0; i < values.size(); ++i) table += (i ? "," : "") + values[i];
  const records::Explanation kernel = records::ExplainKernelParameter(table);
  EXPECT_THAT(kernel.lines, ElementsAre(HasSubstr("camera 2: marked for a kernel-assisted re-probe ([2]=1, [18]=3)"),
                                        HasSubstr("camera 3: kernel probe result (kmd) [35]=-110")));
  EXPECT_THAT(Lines(records::ExplainKernelParameter("0,0,0")), HasSubstr("3 values: not a table of 64"));
}

TEST(Decode, PicksTheKindFromTheTextOrThePropertyName) {
  EXPECT_EQ(records::Explain("<P:S:1><I:S:1><C:S:1>").kind, "image sensor state");
  EXPECT_EQ(records::Explain("[vendor.debug.camera.imagesensorstate.2]: [<P:S:1><I:-:0><C:-:0>]").kind,
            "image sensor state");
  EXPECT_EQ(records::Explain(std::string(CamX::kErrorFrameworkIdProperty) + "=2,3").kind, "error framework id list");
  EXPECT_EQ(records::Explain("2,3").kind, "error framework id list");
  EXPECT_EQ(records::Explain(sc::ZeroTable()).kind, "kernel parameter");
}

// The one UTF-8 check of the report and the explainer's reader: the edges of
// each sequence length, with and without eight plain bytes before them (the
// check skips plain text a word at a time).
TEST(Text, Utf8IsCheckedStrictlyAtEveryPosition) {
  const std::vector<std::string> valid = {"",
                                          "a",
                                          std::string("\0", 1),
                                          "\x7f",
                                          "\xc2\x80",
                                          "\xdf\xbf",
                                          "\xe0\xa0\x80",
                                          "\xed\x9f\xbf",
                                          "\xee\x80\x80",
                                          "\xef\xbf\xbf",
                                          "\xf0\x90\x80\x80",
                                          "\xf4\x8f\xbf\xbf"};
  const std::vector<std::string> invalid = {// A stray continuation byte; overlong forms.
                                            "\x80", "\xbf", "\xc0\x80", "\xc1\xbf", "\xe0\x9f\xbf", "\xf0\x8f\xbf\xbf",
                                            // Surrogates; beyond U+10FFFF.
                                            "\xed\xa0\x80", "\xed\xbf\xbf", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80",
                                            "\xf8\x88\x80\x80\x80", "\xff",
                                            // Cut short, at the end or by a plain byte ("a").
                                            "\xc2", "\xe0\xa0", "\xf0\x90\x80", "\xc2\x61", "\xe2\x82\x61"};
  for (const std::string& prefix : {std::string(), std::string("camera: "), std::string("0123456789abcdef")}) {
    for (const std::string& text : valid) {
      EXPECT_TRUE(text::IsUtf8(prefix + text + "x")) << text::EscapeUtf8(prefix + text);
      EXPECT_EQ(text::EscapeUtf8(prefix + text), prefix + text);
    }
    for (const std::string& text : invalid) {
      EXPECT_FALSE(text::IsUtf8(prefix + text)) << text::EscapeUtf8(prefix + text);
      EXPECT_FALSE(text::IsUtf8(prefix + text + "12345678")) << text::EscapeUtf8(prefix + text);
    }
  }
  EXPECT_EQ(text::EscapeUtf8("\xe0\x9f\xbf \xed\xa0\x80!"), "\\xE0\\x9F\\xBF \\xED\\xA0\\x80!");
  EXPECT_EQ(text::EscapeUtf8("\xe2\x82"), "\\xE2\\x82");
}

TEST(Text, TrimTakesTheCharactersToRemove) {
  EXPECT_EQ(text::Trim(" \t\f2,3\v\r\n"), "2,3");
  EXPECT_EQ(text::Trim(" \t 2,3 \f", " \t\r\n"), "2,3 \f");
  EXPECT_EQ(text::Trim(" 1234 ", " "), "1234");
  EXPECT_EQ(text::Trim("\t1234", " "), "\t1234");
  EXPECT_EQ(text::Trim(" \n "), "");
}

}  // namespace
