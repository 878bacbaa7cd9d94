// The story's recognition of the library's log sites and its handling of
// incomplete logs: lines cut at the library's limit, a log that starts inside
// a probe, a library line it does not know.
#include "explain/story.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "explain/sites.h"
#include "hook/src/errorframeworkid.h"
#include "tests/explain/logtext.h"

namespace {

using ::testing::HasSubstr;

std::string Prefix(const LogSite& site) {
  const std::string file = site.reportedFile;
  return file.substr(file.rfind('/') + 1) + ":" + std::to_string(site.reportedLine) + " " + site.function + "() ";
}

// A site's line as the library prints it, with sample values.
std::string Sample(const LogSite& site) {
  std::string text = Prefix(site);
  for (const char* p = site.format; *p != '\0'; ++p) {
    if (*p != '%') {
      text += *p;
      continue;
    }
    ++p;
    while (*p == 'l') ++p;
    text += *p == 'd' ? "-12" : *p == 'x' ? "66" : *p == 'p' ? "0xb400007a1c2d3e40" : *p == '%' ? "%" : "imx582_rear";
  }
  return text;
}

TEST(ExplainSites, EverySiteIsRecognisedAsItself) {
  for (const LogSite& site : logsite::kAll) {
    explain::SiteMatch match;
    ASSERT_TRUE(explain::MatchSite(Sample(site), &match)) << Sample(site);
    EXPECT_STREQ(match.site->name, site.name) << Sample(site);
    EXPECT_EQ(&logsite::kAll[static_cast<size_t>(match.id)], &site) << site.name;
    EXPECT_EQ(match.fields.size(), explain::Conversions(site.format).size()) << site.name;
    EXPECT_FALSE(match.cut);
  }
}

TEST(ExplainSites, FieldsStringsWithSeparatorsAndCutLines) {
  explain::SiteMatch match;
  ASSERT_TRUE(explain::MatchSite(
      "hook.cpp:152 SensorProbeHook() probe sensor: a, b: c, slot id: 3 kmd result: -110, umd result: 1", &match));
  ASSERT_EQ(match.fields.size(), 4u);
  EXPECT_EQ(match.fields[0], "a, b: c");
  EXPECT_EQ(match.fields[2], "-110");
  // A different text after a known prefix is no match.
  EXPECT_FALSE(explain::MatchSite("hook.cpp:17 GetStaticCapsHook() camera: 0", &match));
  EXPECT_FALSE(explain::MatchSite("hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0 extra", &match));
  // A line of the library's full length may end anywhere in its format.
  std::string cut = "hook.cpp:64 ReadSensorProbeResult() read sensor_apply_settings_control: ";
  while (cut.size() < explain::kCutLength) cut += "0,";
  cut.resize(explain::kCutLength);
  ASSERT_TRUE(explain::MatchSite(cut, &match));
  EXPECT_STREQ(match.site->name, "ReadProbeResultReadText");  // a final string takes what is left
  std::string usage =
      "hook.cpp:84 EEPROMDataProbeHook() camera id: 1, probe time: 0, sensor name: " + std::string(900, 'n') +
      ",  sensor type: ";
  usage += std::string(explain::kCutLength - usage.size(), 't');
  ASSERT_TRUE(explain::MatchSite(usage, &match));
  EXPECT_STREQ(match.site->name, "EepromDataSensorUsage");
  EXPECT_TRUE(match.cut);
  usage.pop_back();  // shorter than the limit: not a cut line but a wrong one
  EXPECT_FALSE(explain::MatchSite(usage, &match));
}

explain::Story ExplainLines(const std::vector<std::string>& messages) {
  explain::StorySink sink;
  sink.BeginInput("test", explain::InputSink::InputKind::kLogcat);
  uint64_t n = 0;
  for (const std::string& message : messages) test::Feed(sink, message, ++n);
  return sink.Finish();
}

const std::string kSettings = "hook.cpp:93 SensorProbeHook() sensorModuleRetryTimes: 3, sensorModuleNumber: 2";
std::string Usage(const std::string& name, int frequent) {
  return "hook.cpp:105 SensorProbeHook() sensor name: " + name +
         ",  sensor type: rear, frequentlyUsedSensor: " + std::to_string(frequent) + ", neverBeenSuccessfullyProbed: 0";
}
TEST(ExplainStory, CutAndUnknownLibraryLinesAreNeverDropped) {
  std::string cut = "hook.cpp:152 SensorProbeHook() probe sensor: " + std::string(1200, 'x');
  cut.resize(explain::kCutLength);
  const explain::Story story = ExplainLines({
      kSettings,
      Usage("imx582_rear", 0),
      cut,
      "hook.cpp:999 NewHook() something the library never said",
      "client/interface/remediumclient.h:90 LoadRemedium() m_pRemediumCore is NULL",
      "remediumclient.h:90 LoadRemedium() m_pRemediumCore is NULL",
  });
  ASSERT_EQ(story.unrecognised.size(), 2u);
  EXPECT_EQ(story.unrecognised[0].where, "test:4");
  EXPECT_THAT(story.unrecognised[0].text, HasSubstr("NewHook"));
  EXPECT_EQ(story.libraryLines, 6u);
  // The cut outcome line still counts as the attempt's last line seen.
  const std::string text = explain::FormatStory(story);
  EXPECT_THAT(text, HasSubstr("core-missing: the framework core is missing (LoadRemedium)"));
  EXPECT_THAT(text, HasSubstr("library lines not recognised\n  test:4: hook.cpp:999 NewHook()"));
}

TEST(ExplainStory, ProcessesBootsAndTheRecordedState) {
  explain::StorySink sink;
  sink.BeginInput("a.txt", explain::InputSink::InputKind::kBugreport);
  test::Feed(sink, "hook.cpp:17 GetStaticCapsHook() camera id: 1, slot id: 2", 1, 100);
  test::Feed(sink, "hook.cpp:17 GetStaticCapsHook() camera id: 1, slot id: 2", 2, 200);
  sink.Property("a.txt", "vendor.debug.camera.imagesensorstate.1", "<P:F:12><I:-:0><C:-:0>");
  sink.Property("a.txt", CamX::kErrorFrameworkIdProperty, "1");
  std::string table;
  for (int i = 0; i < 64; ++i) table += (i ? "," : "") + std::to_string(i == 1 || i == 33 ? 1 : i == 17 ? 3 : 0);
  sink.KernelText("k", table);
  sink.EndInput("a.txt");
  sink.BeginInput("b.txt", explain::InputSink::InputKind::kBugreport);
  test::Feed(sink, "hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0", 1, 100);
  const explain::Story story = sink.Finish();
  ASSERT_EQ(story.boots.size(), 2u);
  EXPECT_EQ(story.boots[0].processes.size(), 2u);
  EXPECT_EQ(story.boots[1].processes.size(), 1u);
  const std::string text = explain::FormatStory(story);
  EXPECT_THAT(text, HasSubstr("state <P:F:12><I:-:0><C:-:0>: probe (P): failed, recorded 12 s after boot"));
  EXPECT_THAT(text, HasSubstr("kernel table: marked for a kernel-assisted re-probe"));
  EXPECT_THAT(text, HasSubstr("framework id 1: camera (slot) 1 is in error"));
  const explain::Json json = explain::StoryJson(story);
  EXPECT_EQ(json["boots"][0]["recordedState"]["1"].size(), 5u);
  EXPECT_EQ(json["boots"][1]["processes"][0]["pid"], 100);
}

}  // namespace
