// remedium-sim fleet report in a real browser: Debian's headless chromium
// loads the page from disk; its DOM as parsed and its console are read back,
// its screenshot kept. Exit 77 (skipped) when chromium is not installed.
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/fleet/query_test_db.h"

namespace fleet {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

std::string Chromium() {
  std::istringstream folders(std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin");
  for (std::string folder; std::getline(folders, folder, ':');)
    for (const char* name : {"/chromium", "/chromium-browser"})
      if (::access((folder + name).c_str(), X_OK) == 0) return folder + name;
  return "";
}

// Chromium's stdout for the page; its log (the page's console among it) in
// WORK/chromium-`name`.log, checked for any message of the page.
std::string Browse(const std::string& name, const std::string& arguments, const std::string& html) {
  const std::string log = testing::WorkPath("chromium-" + name + ".log");
  const std::string command = "timeout 120 '" + Chromium() +
                              "' --headless=new --no-sandbox --disable-gpu --no-first-run --disable-extensions"
                              " --user-data-dir='" +
                              testing::WorkPath("chromium-profile") + "' --enable-logging=stderr --v=0 " + arguments +
                              " 'file://" + html + "' 2>'" + log + "'";
  std::string out;
  FILE* pipe = ::popen(command.c_str(), "r");
  char buffer[65536];
  for (size_t n; pipe && (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
  EXPECT_EQ(pipe ? ::pclose(pipe) : -1, 0) << command;
  std::ifstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_THAT(line, Not(HasSubstr(":CONSOLE")));  // "INFO:CONSOLE:12] \"message\", source: ..."
    EXPECT_THAT(line, Not(HasSubstr("Uncaught")));
  }
  return out;
}

TEST(ReportBrowser, RendersTheDatabasesFigures) {
  testing::TestDb db("browser.sqlite");
  testing::FillAB(db);
  const std::string html = testing::WorkPath("report.html");
  std::ostringstream err;
  ASSERT_EQ(RunReport(db.path(), html, err), 0) << err.str();

  const std::string dom = Browse("dom", "--dump-dom", html);
  // B's bypass rate and interval in the summary table and in its chart, the
  // whiskers and points drawn, the examples' anchors.
  const size_t row = dom.find("<tr data-build=\"" + testing::kBuildB + "\">");
  ASSERT_NE(row, std::string::npos) << dom.substr(0, 2000);
  EXPECT_THAT(dom.substr(row, dom.find("</tr>", row) - row),
              HasSubstr("data-rate=\"bypass_taken\"><span class=\"value\">25%</span> "
                        "<span class=\"ci\">[14%, 40%]</span><span class=\"k\">10 of 40</span>"));
  for (const char* drawn :
       {">25% [14%, 40%]</text>", ">5% [1%, 17%]</text>", "<circle class=\"point\"", "<path class=\"whisker\"",
        "<section id=\"examples-1\">", "href=\"file:///reports/b/bugreport-0.zip\""})
    EXPECT_THAT(dom, HasSubstr(drawn));

  const std::string png = testing::WorkPath("report.png");
  std::filesystem::remove(png);
  Browse("screenshot", "--screenshot='" + png + "' --window-size=1200,1600 --hide-scrollbars", html);
  std::ifstream image(png, std::ios::binary);
  std::string magic(8, '\0');
  image.read(magic.data(), 8);
  EXPECT_EQ(magic, "\x89PNG\r\n\x1a\n") << png;
  EXPECT_GT(std::filesystem::file_size(png), 20000u) << "a blank page? " << png;
  std::printf("the report page's screenshot: %s\n", png.c_str());
}

}  // namespace
}  // namespace fleet

int main(int argc, char** argv) {
  if (fleet::Chromium().empty()) {
    std::printf("skipped: chromium is not installed (Debian package chromium; scripts/setup installs it)\n");
    return 77;
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
