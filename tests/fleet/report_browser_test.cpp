// remedium-sim fleet report in a real browser: Debian's headless chromium
// loads the page from disk, and its DOM (as rendered) and console are read
// back. Exit 77 (skipped) when chromium is not installed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include "sim/fleet/fleet.h"
#include "tests/fleet/query_test_db.h"

namespace fleet {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

std::string Chromium() {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path ? path : "/usr/bin:/bin");
  std::string folder;
  while (std::getline(folders, folder, ':'))
    for (const char* name : {"chromium", "chromium-browser"}) {
      const std::filesystem::path candidate = std::filesystem::path(folder) / name;
      if (::access(candidate.c_str(), X_OK) == 0) return candidate.string();
    }
  return "";
}

std::string Quote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// Runs chromium headless on the page with `arguments`; returns its stdout,
// its stderr (the page's console among its log lines) in `log`.
std::string Browse(const std::string& arguments, const std::string& url, const std::string& logPath,
                   std::string* log) {
  const std::string profile = testing::WorkPath("chromium-profile");
  const std::string command = "timeout 120 " + Quote(Chromium()) +
                              " --headless=new --no-sandbox --disable-gpu --no-first-run --disable-extensions"
                              " --user-data-dir=" + Quote(profile) + " --enable-logging=stderr --v=0 " +
                              arguments + " " + Quote(url) + " 2>" + Quote(logPath);
  std::string out;
  if (FILE* pipe = ::popen(command.c_str(), "r")) {
    char buffer[65536];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    EXPECT_EQ(::pclose(pipe), 0) << command;
  }
  std::ifstream file(logPath);
  *log = {std::istreambuf_iterator<char>(file), {}};
  return out;
}

// The page's own messages in chromium's log: console output and uncaught errors.
void ExpectNoPageErrors(const std::string& log) {
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_THAT(line, Not(HasSubstr("Uncaught")));
    EXPECT_THAT(line, Not(HasSubstr(":CONSOLE")));  // "INFO:CONSOLE:12] \"message\", source: ..."
    EXPECT_THAT(line, Not(HasSubstr("net::ERR_")));
  }
}

TEST(ReportBrowser, RendersTheDatabasesFigures) {
  testing::TestDb db("browser.sqlite");
  testing::FillAB(db);
  const std::string html = testing::WorkPath("report.html");
  std::ostringstream err;
  ASSERT_EQ(RunReport(db.path(), html, err), 0) << err.str();
  const std::string url = "file://" + html;

  std::string log;
  const std::string dom = Browse("--dump-dom", url, testing::WorkPath("chromium-dom.log"), &log);
  ExpectNoPageErrors(log);
  // The DOM as parsed: B's bypass rate and interval in the summary table and
  // in its chart, the whisker and point drawn, the examples' anchors.
  const size_t row = dom.find("<tr data-build=\"" + testing::kBuildB + "\">");
  ASSERT_NE(row, std::string::npos) << dom.substr(0, 2000);
  const std::string rowB = dom.substr(row, dom.find("</tr>", row) - row);
  EXPECT_THAT(rowB, HasSubstr("data-rate=\"bypass_taken\"><span class=\"value\">25%</span> "
                              "<span class=\"ci\">[14%, 40%]</span><span class=\"k\">10 of 40</span>"));
  EXPECT_THAT(rowB, HasSubstr("data-rate=\"first_probe_failed\"><span class=\"value\">25%</span>"));
  EXPECT_THAT(dom, HasSubstr(">25% [14%, 40%]</text>"));
  EXPECT_THAT(dom, HasSubstr(">5% [1%, 17%]</text>"));
  EXPECT_THAT(dom, HasSubstr("<circle class=\"point\""));
  EXPECT_THAT(dom, HasSubstr("<path class=\"whisker\""));
  EXPECT_THAT(dom, HasSubstr("<section id=\"examples-1\">"));
  EXPECT_THAT(dom, HasSubstr("href=\"file:///reports/b/bugreport-0.zip\""));

  const std::string png = testing::WorkPath("report.png");
  std::filesystem::remove(png);
  Browse("--screenshot=" + Quote(png) + " --window-size=1200,1600 --hide-scrollbars", url,
         testing::WorkPath("chromium-screenshot.log"), &log);
  ExpectNoPageErrors(log);
  std::ifstream image(png, std::ios::binary);
  char magic[8] = {};
  image.read(magic, sizeof magic);
  EXPECT_EQ(std::string(magic, 8), "\x89PNG\r\n\x1a\n") << png;
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
