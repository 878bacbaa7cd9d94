// The site matcher: the same fields as a plain backtracking search over the
// strings' lengths, in time linear in the line for any line.
#include "explain/sites.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

// The backtracking matcher the linear one replaced, straight from the
// format: exponential on long near-matches, plainly right on short lines.
bool Reference(const char* f, std::string_view t, bool mayEnd, std::vector<std::string_view>* fields) {
  if (*f == '\0') return t.empty();
  if (t.empty() && mayEnd) return true;
  if (*f != '%' || f[1] == '%') {
    return !t.empty() && t[0] == *f && Reference(f + (*f == '%' ? 2 : 1), t.substr(1), mayEnd, fields);
  }
  ++f;
  while (*f == 'l' || *f == 'h' || *f == 'z') ++f;
  const char c = *f == 'i' || *f == 'u' ? 'd' : *f;
  const char* next = f + 1;
  if (c == 's') {
    for (size_t length = *next == '\0' ? t.size() : 0; length <= t.size(); ++length) {
      fields->push_back(t.substr(0, length));
      if (Reference(next, t.substr(length), mayEnd, fields)) return true;
      fields->pop_back();
    }
    return false;
  }
  size_t length = 0;
  if (c == 'p' && t.starts_with("(nil)")) {
    length = 5;
  } else if (c != 'p' || t.starts_with("0x")) {
    const size_t start = c == 'p' ? 2 : c == 'd' && t.starts_with('-') ? 1 : 0;
    const size_t end =
        std::min(t.find_first_not_of(c == 'd' ? "0123456789" : "0123456789abcdefABCDEF", start), t.size());
    length = end > start ? end : 0;
  }
  if (length == 0) return false;
  fields->push_back(t.substr(0, length));
  if (Reference(next, t.substr(length), mayEnd, fields)) return true;
  fields->pop_back();
  return false;
}

// A line near a format: its literals, mostly intact, around values and
// pieces of its own text, then a few cuts, copies and insertions.
std::string NearLine(const std::string& format, std::mt19937& random) {
  static const std::vector<std::string> kValues = {"",   "-12", "66",  "0x1f", "(nil)",   "imx582", ", ", ": ",
                                                   "0x", "-",   "(ni", "7",    "a, b: c", "0xg",    "-0"};
  const auto pick = [&](size_t size) { return std::uniform_int_distribution<size_t>(0, size - 1)(random); };
  std::string line;
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      if (pick(300) != 0) line += format[i];
      continue;
    }
    while (++i < format.size() && (format[i] == 'l' || format[i] == 'h' || format[i] == 'z')) {
    }
    if (format[i] == '%') {
      line += '%';
      continue;
    }
    if (pick(2) == 0) {  // a value of the conversion's own kind
      const char* own[] = {format[i] == 'd' ? "-12" : format[i] == 'x' ? "66" : "a, b: c", "(nil)", "0xb4"};
      line += own[format[i] == 'p' ? 1 + pick(2) : 0];
      continue;
    }
    for (size_t values = pick(3) + (format[i] != 's'); values > 0; --values) line += kValues[pick(kValues.size())];
  }
  for (size_t edits = pick(3); edits > 0 && !line.empty(); --edits) {
    const size_t at = pick(line.size() + 1);
    switch (pick(3)) {
      case 0:
        line.erase(std::min(at, line.size() - 1), 1);
        break;
      case 1:
        line.insert(at, kValues[pick(kValues.size())]);
        break;
      default:
        line.insert(at, line.substr(pick(line.size()), pick(24)));
        break;
    }
  }
  if (pick(4) == 0) line.resize(pick(line.size() + 1));
  return line;
}

TEST(ExplainSitesMatcher, SameFieldsAsBacktrackingOnLinesNearEverySite) {
  std::mt19937 random(7);
  size_t matched = 0, tried = 0;
  for (const LogSite& site : logsite::kAll) {
    for (int n = 0; n < 300; ++n) {
      const std::string line = NearLine(site.format, random);
      for (const bool mayEnd : {false, true}) {
        std::vector<std::string_view> expected, fields;
        const bool expectMatch = Reference(site.format, line, mayEnd, &expected);
        ASSERT_EQ(explain::MatchFormat(site.format, line, mayEnd, &fields), expectMatch)
            << site.name << " may end " << mayEnd << ": \"" << line << '"';
        if (expectMatch) EXPECT_EQ(fields, expected) << site.name << " may end " << mayEnd << ": \"" << line << '"';
        matched += expectMatch;
        ++tried;
      }
    }
  }
  // Both outcomes well represented, or the comparison proves little.
  EXPECT_GT(matched, tried / 5);
  EXPECT_LT(matched, tried * 4 / 5);
}

std::string PrefixOf(std::string_view name) {
  for (const LogSite& site : logsite::kAll) {
    if (name == site.name) {
      const std::string file = site.reportedFile;
      return file.substr(file.rfind('/') + 1) + ":" + std::to_string(site.reportedLine) + " " + site.function + "() ";
    }
  }
  ADD_FAILURE() << name;
  return "";
}

std::string Repeat(std::string line, const std::string& unit, size_t size) {
  while (line.size() < size) line += unit;
  line.resize(size);
  return line;
}

// Long lines of near-matches took a backtracking search minutes (a 64 KiB
// one 23 s, cubic in the length): each stays well under a second here.
TEST(ExplainSitesMatcher, HostileLongLinesInLinearTime) {
  struct Hostile {
    std::string head, unit;
    const char* site;  // the site it matches as a cut line, or null: no match
  };
  const std::vector<Hostile> lines = {
      {PrefixOf("EepromDataSensorUsage") + "camera id: 1, probe time: 0, sensor name: ",
       ", sensor name: ,  sensor type: , frequentlyUsedSensor: 1, neverBeenSuccessfullyProbed: 1 output sensor name: "
       ", ",
       "EepromDataSensorUsage"},
      {PrefixOf("ProbeSensorUsage") + "sensor name: ", "sensor name: , ,  sensor type: , frequentlyUsedSensor: -",
       "ProbeSensorUsage"},
      {PrefixOf("ProbeOutcome") + "probe sensor: ", ", slot id: 1 kmd result: -1, umd result: 0x", "ProbeOutcome"},
      {PrefixOf("ProbeSettings") + "sensorModuleRetryTimes: ", "-1", nullptr},
      {PrefixOf("EepromDataSettings") + "sensorModuleRetryTimes: ", "1", "EepromDataSettings"},
  };
  for (const size_t size : {size_t{256} << 10, size_t{1} << 20}) {
    for (const Hostile& hostile : lines) {
      const std::string line = Repeat(hostile.head, hostile.unit, size);
      explain::SiteMatch match;
      const auto start = std::chrono::steady_clock::now();
      const bool matched = explain::MatchSite(line, &match);
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      EXPECT_LT(took.count(), 1.0) << hostile.unit << " " << size;
      ASSERT_EQ(matched, hostile.site != nullptr) << hostile.unit;
      if (matched) {
        EXPECT_STREQ(match.site->name, hostile.site);
        EXPECT_TRUE(match.cut);
      }
    }
  }
}

}  // namespace
