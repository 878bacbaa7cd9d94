#include "sim/explain/logline.h"

#include <climits>
#include <cstdint>

#include "sim/records/records.h"

namespace explain {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsLevel(char c) { return c == 'V' || c == 'D' || c == 'I' || c == 'W' || c == 'E' || c == 'F'; }

// A process or thread id: 1 to 10 digits, no sign, within int.
bool ParseId(std::string_view text, int& value) {
  if (text.empty() || text.size() > 10) return false;
  int64_t parsed = 0;
  for (char c : text) {
    if (!IsDigit(c)) return false;
    parsed = parsed * 10 + (c - '0');
  }
  if (parsed > INT_MAX) return false;
  value = static_cast<int>(parsed);
  return true;
}

std::string_view TrimRight(std::string_view text) {
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

// "MM-DD HH:MM:SS.fff" (fraction of 1 to 9 digits), with an optional
// "YYYY-" in front. Returns its length, or 0.
size_t TimestampLength(std::string_view text) {
  size_t at = 0;
  if (text.size() > 5 && IsDigit(text[0]) && IsDigit(text[1]) && IsDigit(text[2]) && IsDigit(text[3]) &&
      text[4] == '-') {
    at = 5;
  }
  static constexpr char kShape[] = "dd-dd dd:dd:dd.";  // d: a digit
  constexpr size_t kShapeLength = sizeof(kShape) - 1;
  if (text.size() < at + kShapeLength + 1) return 0;
  for (size_t i = 0; i < kShapeLength; ++i) {
    const char c = text[at + i];
    if (kShape[i] == 'd' ? !IsDigit(c) : c != kShape[i]) return 0;
  }
  at += kShapeLength;
  const size_t fraction = at;
  while (at < text.size() && at - fraction < 9 && IsDigit(text[at])) ++at;
  return at > fraction ? at : 0;
}

// The next run of non-space characters from `at`, skipping spaces before it.
std::string_view NextToken(std::string_view text, size_t& at) {
  while (at < text.size() && text[at] == ' ') ++at;
  const size_t begin = at;
  while (at < text.size() && text[at] != ' ') ++at;
  return text.substr(begin, at - begin);
}

// "TAG     : message" from `at`: the tag up to the first ": " (or a ':' that
// ends the line), without logcat's padding.
bool SplitTagMessage(std::string_view text, size_t at, LogLine& line) {
  const size_t colon = text.find(": ", at);
  if (colon != std::string_view::npos) {
    line.tag = TrimRight(text.substr(at, colon - at));
    line.message = text.substr(colon + 2);
    return true;
  }
  if (text.size() > at && text.back() == ':') {
    line.tag = TrimRight(text.substr(at, text.size() - 1 - at));
    line.message = {};
    return true;
  }
  return false;
}

// threadtime after its timestamp: "  [UID]  PID  TID P TAG: message".
bool ParseThreadtimeBody(std::string_view text, size_t at, LogLine& line) {
  std::string_view tokens[4];
  for (int i = 0; i < 4; ++i) {
    tokens[i] = NextToken(text, at);
    if (tokens[i].size() == 1 && IsLevel(tokens[i][0]) && i >= 2) {
      // PID TID P, or UID PID TID P; the level is followed by a space and the tag.
      if (at >= text.size() || text[at] != ' ') return false;
      if (!ParseId(tokens[i - 2], line.pid) || !ParseId(tokens[i - 1], line.tid)) return false;
      line.level = tokens[i][0];
      return SplitTagMessage(text, at + 1, line);
    }
  }
  return false;
}

// time and brief after the timestamp: "P/TAG     (  PID): message", with
// "UID:PID" in the parentheses under logcat -v uid.
bool ParseBriefBody(std::string_view text, size_t at, LogLine& line) {
  if (text.size() < at + 2 || !IsLevel(text[at]) || text[at + 1] != '/') return false;
  line.level = text[at];
  const size_t tagBegin = at + 2;
  // The parenthesis that closes the ids: before ": message", or at the end of a line without a message.
  size_t end = text.find("): ", tagBegin);
  if (end == std::string_view::npos && text.ends_with(")")) end = text.size() - 1;
  if (end == std::string_view::npos) return false;
  const size_t open = text.rfind('(', end);
  if (open == std::string_view::npos || open < tagBegin) return false;
  std::string_view ids = sim::records::Trim(text.substr(open + 1, end - open - 1), " ");
  if (const size_t colon = ids.find(':'); colon != std::string_view::npos)
    ids = sim::records::Trim(ids.substr(colon + 1), " ");
  if (!ParseId(ids, line.pid)) return false;
  line.tid = -1;
  line.tag = TrimRight(text.substr(tagBegin, open - tagBegin));
  line.message = end + 3 <= text.size() ? text.substr(end + 3) : std::string_view{};
  return true;
}

}  // namespace

LogFormat ParseLogLine(std::string_view text, LogLine& line) {
  line.pid = -1;
  line.tid = -1;
  line.level = '?';
  if (text.empty()) return LogFormat::kNone;
  if (const size_t length = TimestampLength(text); length != 0) {
    line.timestamp = text.substr(0, length);
    if (length < text.size() && text[length] != ' ') return LogFormat::kNone;
    if (ParseBriefBody(text, length + 1, line)) return LogFormat::kTime;
    line.pid = line.tid = -1;
    return ParseThreadtimeBody(text, length, line) ? LogFormat::kThreadtime : LogFormat::kNone;
  }
  line.timestamp = {};
  return ParseBriefBody(text, 0, line) ? LogFormat::kBrief : LogFormat::kNone;
}

bool IsBufferMarker(std::string_view text) {
  return text.starts_with("--------- beginning of ") || text.starts_with("--------- switch to ");
}

std::string_view FormatName(LogFormat format) {
  switch (format) {
    case LogFormat::kNone:
      return "none";
    case LogFormat::kBrief:
      return "brief";
    case LogFormat::kProcess:
      return "process";
    case LogFormat::kTag:
      return "tag";
    case LogFormat::kThread:
      return "thread";
    case LogFormat::kRaw:
      return "raw";
    case LogFormat::kTime:
      return "time";
    case LogFormat::kThreadtime:
      return "threadtime";
    case LogFormat::kLong:
      return "long";
    case LogFormat::kStudio:
      return "Android Studio";
  }
  return "none";
}

int64_t TimeMicros(const LogTime& time, int year) {
  switch (time.clock) {
    case LogTime::Clock::kNone:
      return -1;
    case LogTime::Clock::kEpoch:
    case LogTime::Clock::kMonotonic:
      return time.seconds * 1000000 + time.nanos / 1000;
    case LogTime::Clock::kWall:
      break;
  }
  // Days since 1970-01-01 of a proleptic Gregorian date (Howard Hinnant's days_from_civil).
  const int64_t y = (time.year != 0 ? time.year : year) - (time.month <= 2 ? 1 : 0);
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yearOfEra = y - era * 400;
  const int64_t month = time.month;
  const int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + time.day - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  const int64_t days = era * 146097 + dayOfEra - 719468;
  const int64_t seconds = days * 86400 + time.hour * 3600 + time.minute * 60 + time.second -
                          (time.hasZoneOffset ? time.zoneMinutes * 60 : 0);
  return seconds * 1000000 + time.nanos / 1000;
}

LogFormat LogLineParser::Parse(std::string_view text, LogLine& line) {
  line.format = ParseLogLine(text, line);
  return line.format;
}

bool ParsePropertyLine(std::string_view text, std::string_view& key, std::string_view& value) {
  if (text.size() < 6 || text.front() != '[' || text.back() != ']') return false;
  const size_t separator = text.find("]: [");
  if (separator == std::string_view::npos || separator < 2) return false;
  key = text.substr(1, separator - 1);
  value = text.substr(separator + 4, text.size() - separator - 5);
  return key.find_first_of("[] ") == std::string_view::npos;
}

bool IsNumberList(std::string_view text) {
  size_t values = 0;
  size_t at = 0;
  while (true) {
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
    const size_t digits = at;
    while (at < text.size() && IsDigit(text[at])) ++at;
    if (at == digits) return false;
    ++values;
    if (at == text.size()) return values >= 2;
    if (text[at] != ',') return false;
    ++at;
    if (at == text.size()) return values >= 2;  // the parameter's text may end with a comma
  }
}

}  // namespace explain
