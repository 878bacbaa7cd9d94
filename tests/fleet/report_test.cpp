// remedium-sim fleet report: the page's figures are the database's, its text
// is escaped, and it fetches nothing.
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/fleet/fleet.h"
#include "tests/fleet/query_test_db.h"

namespace fleet {
namespace {

using ::testing::HasSubstr;
using testing::kBuildA;
using testing::kBuildB;
using ::testing::Not;

std::string Read(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The text from `start` to the first `end` after it.
std::string Between(const std::string& text, const std::string& start, const std::string& end) {
  const size_t from = text.find(start);
  if (from == std::string::npos) return "";
  return text.substr(from, text.find(end, from) - from);
}

TEST(Report, ShowsTheDatabasesFiguresEscapedAndSelfContained) {
  testing::TestDb db("report.sqlite");
  testing::FillAB(db);
  // Text that HTML would take for its own: a build (whose report has no
  // camera, so that the charts' axes stay A's and B's) and a signature.
  db.Report("<script>alert(1)</script>", "", "/reports/odd/none.zip");
  const int64_t odd = db.Report(kBuildA, "AP3A.240905.015.A2", "/reports/odd/my report #1 \"&\".zip");
  db.Camera(odd, 0, 0, "s5kgm2_rear", testing::Flag("hidden_init"), "slot 0: <b>bold</b> & 'quoted'");
  const std::string html = testing::WorkPath("report-escaped.html");
  std::ostringstream err;
  ASSERT_EQ(RunReport(db.path(), html, err), 0) << err.str();
  EXPECT_EQ(err.str(), "");
  const std::string page = Read(html);

  // The summary row of build B: its bypass rate with its interval and counts.
  const std::string rowB = Between(page, "<tr data-build=\"" + kBuildB + "\">", "</tr>");
  EXPECT_THAT(rowB, HasSubstr("<span class=\"build\">AP3A.241005.015</span>"));
  EXPECT_THAT(rowB, HasSubstr("<td class=\"num\">20</td><td class=\"num\">20</td><td class=\"num\">40</td>"));
  EXPECT_THAT(rowB, HasSubstr("<td class=\"rate\" data-rate=\"bypass_taken\"><span class=\"value\">25%</span> "
                              "<span class=\"ci\">[14%, 40%]</span><span class=\"k\">10 of 40</span></td>"));
  // The bypass chart: B's whisker spans its interval on an axis of 0 to 50%.
  const std::string chart = Between(page, "<figure id=\"chart-bypass_taken\">", "</figure>");
  EXPECT_THAT(chart, HasSubstr(">50%</text>"));
  const std::string barB = Between(chart, "<g class=\"row\" data-build=\"" + kBuildB + "\">", "</g>");
  EXPECT_THAT(barB, HasSubstr("<path class=\"whisker\" d=\"M414.4 87.0H752.5"));
  EXPECT_THAT(barB, HasSubstr(">25% [14%, 40%]</text>"));
  EXPECT_THAT(chart, HasSubstr(">5% [1%, 16%]</text>"));  // A: 2 of 41

  // Signatures, most frequent first, each linked to its examples' section.
  EXPECT_THAT(page, HasSubstr("<td><code>slot 0: imx582_rear -19 &gt; s5kgm2_rear bypass</code></td><td><a "
                              "href=\"#examples-1\">5 reports"));
  EXPECT_THAT(page, HasSubstr("<section id=\"examples-1\">"));
  EXPECT_THAT(page, HasSubstr("<li><a href=\"file:///reports/a/bugreport-0.zip\">/reports/a/bugreport-0.zip</a>"));

  // Database text is escaped wherever it goes; paths are percent-encoded in links.
  for (const char* escaped : {"&lt;script&gt;alert(1)&lt;/script&gt;", "lost &lt;&amp;&gt;</code>",
                              "slot 0: &lt;b&gt;bold&lt;/b&gt; &amp; &#39;quoted&#39;"})
    EXPECT_THAT(page, HasSubstr(escaped));
  EXPECT_THAT(page, HasSubstr("href=\"file:///reports/odd/my%20report%20%231%20%22%26%22.zip\">"
                              "/reports/odd/my report #1 &quot;&amp;&quot;.zip</a>"));
  // Nothing to fetch: no script, no external style, font or image.
  for (const char* fetch : {"<script", "<b>", "src=", "@import", "url(", "href=\"http", "<link"})
    EXPECT_THAT(page, Not(HasSubstr(fetch))) << fetch;
}

TEST(Report, EmptyMissingAndUnwritable) {
  testing::TestDb empty("report-empty.sqlite");
  const std::string html = testing::WorkPath("report-empty.html");
  std::ostringstream err;
  ASSERT_EQ(RunReport(empty.path(), html, err), 0);
  EXPECT_THAT(Read(html), HasSubstr("No report to show: the database is empty."));
  EXPECT_EQ(RunReport(testing::WorkPath("missing.sqlite"), html, err), 2);
  EXPECT_THAT(err.str(), HasSubstr("missing.sqlite: no such file\n"));
  err.str("");
  EXPECT_EQ(RunReport(empty.path(), testing::WorkPath("no-such-folder/report.html"), err), 2);
  EXPECT_THAT(err.str(), HasSubstr("no-such-folder/report.html: cannot write\n"));
}

}  // namespace
}  // namespace fleet
