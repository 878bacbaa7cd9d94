#include "explain/logline.h"

#include <climits>
#include <cstdint>

#include "sim/text/text.h"

namespace explain {
namespace {

constexpr size_t kNpos = std::string_view::npos;
constexpr std::string_view kColorReset = "\x1B[0m";

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The priority letters logcat prints for a line: V D I W E F.
bool IsLevel(char c) { return c == 'V' || c == 'D' || c == 'I' || c == 'W' || c == 'E' || c == 'F'; }

// Android Studio prints A (assert) where logcat prints F: the same priority.
bool IsStudioLevel(char c) { return IsLevel(c) || c == 'A'; }
char StudioLevel(char c) { return c == 'A' ? 'F' : c; }

size_t CountDigits(std::string_view text, size_t at) {
  size_t count = 0;
  while (at + count < text.size() && IsDigit(text[at + count])) ++count;
  return count;
}

// The value of `count` (at most 18) digits at `at`.
int64_t DigitsValue(std::string_view text, size_t at, size_t count) {
  int64_t value = 0;
  for (size_t i = 0; i < count; ++i) value = value * 10 + (text[at + i] - '0');
  return value;
}

// A process or thread id: 1 to 10 digits, no sign, within int.
bool ParseId(std::string_view text, int& value) {
  if (text.empty() || text.size() > 10 || CountDigits(text, 0) != text.size()) return false;
  const int64_t parsed = DigitsValue(text, 0, text.size());
  if (parsed > INT_MAX) return false;
  value = static_cast<int>(parsed);
  return true;
}

// -v uid's column: the uid as a number, or the user name logcat found for it ("root", "u0_a201").
bool IsUid(std::string_view text) {
  if (text.empty() || text.size() > 32) return false;
  if (IsDigit(text[0])) return text.size() <= 10 && CountDigits(text, 0) == text.size();
  for (char c : text) {
    if (!((c >= 'a' && c <= 'z') || c == '_' || IsDigit(c))) return false;
  }
  return true;
}

std::string_view TrimRight(std::string_view text) {
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

std::string_view WithoutColorReset(std::string_view text) {
  if (text.ends_with(kColorReset)) text.remove_suffix(kColorReset.size());
  return text;
}

// -v color writes an SGR escape ("\x1B[32m", older logcats "\x1B[38;5;40m") before the line and
// "\x1B[0m" after it; both are dropped.
std::string_view StripColor(std::string_view text) {
  if (text.starts_with("\x1B[")) {
    size_t at = 2;
    while (at < text.size() && (IsDigit(text[at]) || text[at] == ';')) ++at;
    if (at < text.size() && text[at] == 'm') text.remove_prefix(at + 1);
  }
  return WithoutColorReset(text);
}

// The fields a format may leave unset.
void ResetFields(LogLine& line) {
  line.uid = {};
  line.pid = -1;
  line.tid = -1;
  line.level = '?';
  line.tag = {};
  line.message = {};
}

// "MM-DD HH:MM:SS" with "YYYY-" before it under -v year; `at` is left on the fraction's '.'.
bool ParseWallClock(std::string_view text, size_t& at, LogTime& time) {
  size_t p = at;
  if (CountDigits(text, p) == 4 && p + 4 < text.size() && text[p + 4] == '-') {
    time.year = static_cast<int>(DigitsValue(text, p, 4));
    p += 5;
  }
  static constexpr std::string_view kShape = "dd-dd dd:dd:dd.";  // d: a digit
  if (text.size() < p + kShape.size()) return false;
  for (size_t i = 0; i < kShape.size(); ++i) {
    const char c = text[p + i];
    if (kShape[i] == 'd' ? !IsDigit(c) : c != kShape[i]) return false;
  }
  time.month = static_cast<int>(DigitsValue(text, p, 2));
  time.day = static_cast<int>(DigitsValue(text, p + 3, 2));
  time.hour = static_cast<int>(DigitsValue(text, p + 6, 2));
  time.minute = static_cast<int>(DigitsValue(text, p + 9, 2));
  time.second = static_cast<int>(DigitsValue(text, p + 12, 2));
  if (time.month < 1 || time.month > 12 || time.day < 1 || time.day > 31 || time.hour > 23 || time.minute > 59 ||
      time.second > 60) {
    return false;
  }
  at = p + kShape.size() - 1;
  return true;
}

// ".f": milliseconds, microseconds under -v usec, nanoseconds under -v nsec; any 1 to 9 digits.
bool ParseFraction(std::string_view text, size_t& at, int32_t& nanos) {
  if (at >= text.size() || text[at] != '.') return false;
  const size_t count = CountDigits(text, at + 1);
  if (count == 0 || count > 9) return false;
  int64_t value = DigitsValue(text, at + 1, count);
  for (size_t i = count; i < 9; ++i) value *= 10;
  nanos = static_cast<int32_t>(value);
  at += 1 + count;
  return true;
}

// -v zone (and -v UTC, which sets the zone and turns the zone on) writes strftime's " %z":
// " +0100", " -0530". A zone name (" UTC") is taken as well.
void ParseZone(std::string_view text, size_t& at, LogTime& time) {
  if (at + 1 >= text.size() || text[at] != ' ') return;
  const char sign = text[at + 1];
  if ((sign == '+' || sign == '-') && CountDigits(text, at + 2) == 4 &&
      (at + 6 == text.size() || text[at + 6] == ' ')) {
    const int hours = static_cast<int>(DigitsValue(text, at + 2, 2));
    const int minutes = static_cast<int>(DigitsValue(text, at + 4, 2));
    if (hours > 23 || minutes > 59) return;
    time.hasZoneOffset = true;
    time.zoneMinutes = (sign == '-' ? -1 : 1) * (hours * 60 + minutes);
    at += 6;
    return;
  }
  size_t letters = 0;
  while (at + 1 + letters < text.size() && text[at + 1 + letters] >= 'A' && text[at + 1 + letters] <= 'Z') ++letters;
  if (letters < 3 || letters > 5 || at + 1 + letters >= text.size() || text[at + 1 + letters] != ' ') return;
  time.zoneName = text.substr(at + 1, letters);
  if (time.zoneName == "UTC" || time.zoneName == "GMT") {
    time.hasZoneOffset = true;
    time.zoneMinutes = 0;
  }
  at += 1 + letters;
}

// The time from `at`: the wall clock, or seconds right-aligned in their column (-v epoch: 19
// characters, -v monotonic: 6), then the fraction and, on the wall clock, the zone. Sets
// line.timestamp (without the padding) and line.time, and moves `at` past the time.
bool ParseTime(std::string_view text, size_t& at, LogLine& line) {
  const size_t column = at;
  size_t begin = at;
  while (begin < text.size() && text[begin] == ' ') ++begin;
  const size_t digits = CountDigits(text, begin);
  if (digits == 0) return false;
  LogTime time{};
  size_t p = begin;
  if (begin + digits < text.size() && text[begin + digits] == '.') {
    if (digits > 18) return false;
    time.seconds = DigitsValue(text, begin, digits);
    // A monotonic time of nine digits would be thirty years since boot.
    const bool epoch = begin + digits - column >= 19 || digits >= 9;
    time.clock = epoch ? LogTime::Clock::kEpoch : LogTime::Clock::kMonotonic;
    p += digits;
  } else {
    if (begin != column || !ParseWallClock(text, p, time)) return false;
    time.clock = LogTime::Clock::kWall;
  }
  if (!ParseFraction(text, p, time.nanos)) return false;
  if (time.clock == LogTime::Clock::kWall) ParseZone(text, p, time);
  line.timestamp = text.substr(begin, p - begin);
  line.time = time;
  at = p;
  return true;
}

// The next run of non-space characters from `at`, skipping spaces before it.
std::string_view NextToken(std::string_view text, size_t& at) {
  while (at < text.size() && text[at] == ' ') ++at;
  const size_t begin = at;
  while (at < text.size() && text[at] != ' ') ++at;
  return text.substr(begin, at - begin);
}

// Where "TAG: message" splits from `at`: the first ": ", or a ':' that ends the line (an empty
// message whose trailing space was lost). kNpos if neither.
size_t TagColon(std::string_view text, size_t at) {
  const size_t colon = text.find(": ", at);
  if (colon != kNpos) return colon;
  return text.size() > at && text.back() == ':' ? text.size() - 1 : kNpos;
}

std::string_view After(std::string_view text, size_t at) {
  return at < text.size() ? text.substr(at) : std::string_view{};
}

// "TAG     : message" from `at`, without logcat's padding of the tag.
bool SplitTagMessage(std::string_view text, size_t at, LogLine& line) {
  const size_t colon = TagColon(text, at);
  if (colon == kNpos) return false;
  line.tag = TrimRight(text.substr(at, colon - at));
  line.message = After(text, colon + 2);
  return true;
}

// The ids between parentheses: "  PID", or "  PID:  TID" with `withTid`, each after "UID:"
// under -v uid (six spaces instead when logd knew no uid).
bool ParseIds(std::string_view ids, bool withTid, LogLine& line) {
  std::string_view parts[3];
  size_t count = 0;
  size_t start = 0;
  for (size_t i = 0; i <= ids.size(); ++i) {
    if (i < ids.size() && ids[i] != ':') continue;
    if (count == 3) return false;
    parts[count++] = sim::text::Trim(ids.substr(start, i - start), " ");
    start = i + 1;
  }
  const size_t needed = withTid ? 2 : 1;
  if (count != needed && count != needed + 1) return false;
  const size_t first = count - needed;
  if (first == 1) {
    if (!IsUid(parts[0])) return false;
    line.uid = parts[0];
  }
  if (!ParseId(parts[first], line.pid)) return false;
  return !withTid || ParseId(parts[first + 1], line.tid);
}

// brief, and time after its timestamp: "P/TAG     (  PID): message". The tag ends at the
// parenthesis before the first "): ", so the message may hold "): " and parentheses.
bool ParseBriefBody(std::string_view text, size_t at, LogLine& line) {
  if (text.size() < at + 2 || !IsLevel(text[at]) || text[at + 1] != '/') return false;
  const size_t tagBegin = at + 2;
  size_t close = text.find("): ", tagBegin);
  if (close == kNpos && text.ends_with("):")) close = text.size() - 2;
  if (close == kNpos) return false;
  const size_t colon = close + 1;
  const size_t open = text.rfind('(', close);
  // The ids may hold ": " (-v uid), the tag may not: that is the tag format's message.
  if (open == kNpos || open < tagBegin || text.find(": ", tagBegin) < open) return false;
  if (!ParseIds(text.substr(open + 1, close - open - 1), false, line)) return false;
  line.level = text[at];
  line.tag = TrimRight(text.substr(tagBegin, open - tagBegin));
  line.message = After(text, colon + 2);
  return true;
}

// tag: "P/TAG     : message". The loosest shape, so held to logcat's own: the tag field is
// padded to at least eight characters, and a tag with a space in it is not taken.
bool ParseTagBody(std::string_view text, LogLine& line) {
  if (text.size() < 3 || !IsLevel(text[0]) || text[1] != '/') return false;
  const size_t colon = TagColon(text, 2);
  if (colon == kNpos || colon - 2 < 8) return false;
  const std::string_view tag = TrimRight(text.substr(2, colon - 2));
  if (tag.find(' ') != kNpos) return false;
  line.level = text[0];
  line.tag = tag;
  line.message = After(text, colon + 2);
  return true;
}

// process "P(  PID) message  (TAG)" and thread "P(  PID:  TID) message", both with "UID:" first
// under -v uid. Under -v color the process format's reset stands before "  (TAG)".
LogFormat ParseProcessOrThread(std::string_view text, LogLine& line) {
  if (text.size() < 3 || !IsLevel(text[0]) || text[1] != '(') return LogFormat::kNone;
  const size_t close = text.find(')', 2);
  if (close == kNpos || (close + 1 < text.size() && text[close + 1] != ' ')) return LogFormat::kNone;
  const std::string_view ids = text.substr(2, close - 2);
  size_t colons = 0;
  for (char c : ids) colons += c == ':';
  const size_t messageBegin = close + 2;
  size_t tagOpen = kNpos;
  if (text.back() == ')' && text.size() > messageBegin) {
    tagOpen = text.rfind("  (");
    if (tagOpen != kNpos && tagOpen < messageBegin) tagOpen = kNpos;
  }
  // One colon: "UID:PID" of process when the line ends with the tag, else "PID:TID" of thread.
  const bool process = colons == 0 || (colons == 1 && tagOpen != kNpos);
  line.level = text[0];
  if (process) {
    if (tagOpen == kNpos || !ParseIds(ids, false, line)) return LogFormat::kNone;
    line.tag = text.substr(tagOpen + 3, text.size() - tagOpen - 4);
    line.message = WithoutColorReset(text.substr(messageBegin, tagOpen - messageBegin));
    return LogFormat::kProcess;
  }
  if (!ParseIds(ids, true, line)) return LogFormat::kNone;
  line.message = After(text, messageBegin);
  return LogFormat::kThread;
}

// threadtime after its timestamp: "  [UID]  PID  TID P TAG     : message". The uid column is
// "%5s " of a number or a user name.
bool ParseThreadtimeBody(std::string_view text, size_t at, LogLine& line) {
  std::string_view tokens[4];
  for (int i = 0; i < 4; ++i) {
    tokens[i] = NextToken(text, at);
    if (tokens[i].empty()) return false;
    if (i < 2 || tokens[i].size() != 1 || !IsLevel(tokens[i][0])) continue;
    // The level stands alone, followed by a space and the tag.
    if (at >= text.size() || text[at] != ' ') return false;
    if (i == 3) {
      if (!IsUid(tokens[0])) return false;
      line.uid = tokens[0];
    }
    if (!ParseId(tokens[i - 2], line.pid) || !ParseId(tokens[i - 1], line.tid)) return false;
    line.level = tokens[i][0];
    return SplitTagMessage(text, at + 1, line);
  }
  return false;
}

// Android Studio's Logcat panel copied as text, after its "YYYY-MM-DD HH:MM:SS.mmm":
//   " PID-TID TAG  APP  P message"     Dolphin and later: the tag (or "<no-tag>") and the app
//                                      ("com.example.pkg", "pid-15002", "system_process") padded
//                                      to their columns;
//   " PID-TID/APP P/TAG: message"      the older panel, APP "?" when unknown.
// In the newer layout with one of the two columns hidden, the one word left is taken as the tag.
bool ParseStudioBody(std::string_view text, size_t at, LogLine& line) {
  while (at < text.size() && text[at] == ' ') ++at;
  size_t digits = CountDigits(text, at);
  if (digits == 0 || at + digits >= text.size() || text[at + digits] != '-') return false;
  if (!ParseId(text.substr(at, digits), line.pid)) return false;
  at += digits + 1;
  digits = CountDigits(text, at);
  if (!ParseId(text.substr(at, digits), line.tid)) return false;
  at += digits;
  if (at < text.size() && text[at] == '/') {
    const size_t space = text.find(' ', at);
    if (space == kNpos || space == at + 1) return false;
    at = space + 1;
    if (at + 2 > text.size() || !IsStudioLevel(text[at]) || text[at + 1] != '/') return false;
    line.level = StudioLevel(text[at]);
    return SplitTagMessage(text, at + 2, line);
  }
  if (at >= text.size() || text[at] != ' ') return false;
  size_t words = 0;
  size_t firstBegin = at;
  size_t lastBegin = at;
  size_t lastEnd = at;
  while (true) {
    while (at < text.size() && text[at] == ' ') ++at;
    if (at >= text.size()) return false;
    const size_t begin = at;
    while (at < text.size() && text[at] != ' ') ++at;
    if (at - begin == 1 && IsStudioLevel(text[begin])) break;
    if (words++ == 0) firstBegin = begin;
    lastBegin = begin;
    lastEnd = at;
  }
  line.level = StudioLevel(text[at - 1]);
  // The level is set off by a space, two in the newer panels.
  for (int i = 0; i < 2 && at < text.size() && text[at] == ' '; ++i) ++at;
  line.message = After(text, at);
  if (words == 1) line.tag = text.substr(firstBegin, lastEnd - firstBegin);
  if (words > 1) line.tag = TrimRight(text.substr(firstBegin, lastBegin - firstBegin));
  if (line.tag == "<no-tag>") line.tag = {};
  return true;
}

// The shape adb logcat and every bug report write, "MM-DD HH:MM:SS.mmm  PID  TID P TAG: message"
// without modifiers, read at fixed places: most lines of most inputs take this path. Anything
// else (a year, more digits, a uid column, colour) falls through to the general parser.
bool ParseCommonThreadtime(std::string_view text, LogLine& line) {
  constexpr size_t kTime = 18;  // "MM-DD HH:MM:SS.mmm"
  if (text.size() < kTime + 8 || text[2] != '-' || text[5] != ' ' || text[8] != ':' || text[11] != ':' ||
      text[14] != '.' || text[kTime] != ' ') {
    return false;
  }
  const auto two = [&text](size_t at) {
    return IsDigit(text[at]) && IsDigit(text[at + 1]) ? (text[at] - '0') * 10 + (text[at + 1] - '0') : -1;
  };
  LogTime& time = line.time;
  time = LogTime{};
  time.month = two(0);
  time.day = two(3);
  time.hour = two(6);
  time.minute = two(9);
  time.second = two(12);
  if (time.month < 1 || time.month > 12 || time.day < 1 || time.day > 31 || time.hour < 0 || time.hour > 23 ||
      time.minute < 0 || time.minute > 59 || time.second < 0 || time.second > 60 || !IsDigit(text[15]) ||
      !IsDigit(text[16]) || !IsDigit(text[17])) {
    return false;
  }
  time.clock = LogTime::Clock::kWall;
  time.nanos = ((text[15] - '0') * 100 + (text[16] - '0') * 10 + (text[17] - '0')) * 1000000;
  size_t at = kTime;
  int ids[2];
  for (int& id : ids) {
    while (at < text.size() && text[at] == ' ') ++at;
    const size_t digits = CountDigits(text, at);
    if (digits == 0 || digits > 9 || at + digits >= text.size() || text[at + digits] != ' ') return false;
    id = static_cast<int>(DigitsValue(text, at, digits));
    at += digits;
  }
  if (at + 3 > text.size() || text[at] != ' ' || !IsLevel(text[at + 1]) || text[at + 2] != ' ') return false;
  const size_t colon = TagColon(text, at + 3);
  if (colon == kNpos) return false;
  line.timestamp = text.substr(0, kTime);
  line.uid = {};
  line.pid = ids[0];
  line.tid = ids[1];
  line.level = text[at + 1];
  line.tag = TrimRight(text.substr(at + 3, colon - at - 3));
  line.message = After(text, colon + 2);
  return true;
}

LogFormat Parse(std::string_view text, LogLine& line) {
  if (ParseCommonThreadtime(text, line)) return LogFormat::kThreadtime;
  text = StripColor(text);
  if (text.empty()) return LogFormat::kNone;
  if (IsLevel(text[0])) {
    if (text.size() > 1 && text[1] == '(') return ParseProcessOrThread(text, line);
    if (ParseBriefBody(text, 0, line)) return LogFormat::kBrief;
    ResetFields(line);
    return ParseTagBody(text, line) ? LogFormat::kTag : LogFormat::kNone;
  }
  size_t at = 0;
  if (!ParseTime(text, at, line) || at >= text.size() || text[at] != ' ') return LogFormat::kNone;
  if (line.time.clock == LogTime::Clock::kWall && line.time.year != 0 && ParseStudioBody(text, at, line)) {
    return LogFormat::kStudio;
  }
  ResetFields(line);
  if (ParseBriefBody(text, at + 1, line)) return LogFormat::kTime;
  ResetFields(line);
  return ParseThreadtimeBody(text, at, line) ? LogFormat::kThreadtime : LogFormat::kNone;
}

// long's header, colour already stripped: "[ TIME  [UID:]  PID:  TID P/TAG      ]".
bool ParseLongHeader(std::string_view text, LogLine& line) {
  if (!text.starts_with("[ ") || !text.ends_with(" ]")) return false;
  ResetFields(line);
  size_t at = 2;
  if (!ParseTime(text, at, line) || at >= text.size() || text[at] != ' ') return false;
  const size_t idsBegin = at;
  // The ids are at most three words ("root:", "1234:", "1235"); then "P/TAG".
  for (int word = 0; word < 4; ++word) {
    const std::string_view token = NextToken(text, at);
    if (token.size() < 2) return false;
    if (!IsLevel(token[0]) || token[1] != '/') continue;
    const size_t levelAt = at - token.size();
    if (!ParseIds(text.substr(idsBegin, levelAt - idsBegin), true, line)) return false;
    line.level = token[0];
    line.tag = TrimRight(text.substr(levelAt + 2, text.size() - 2 - (levelAt + 2)));
    return true;
  }
  return false;
}

}  // namespace

LogFormat ParseLogLine(std::string_view text, LogLine& line) {
  line.timestamp = {};
  line.time = LogTime{};
  ResetFields(line);
  line.format = Parse(text, line);
  return line.format;
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
  const std::string_view plain = StripColor(text);
  LogLine header{};
  if (ParseLongHeader(plain, header)) {
    // The header outlives this call's view: the fields are parsed again from the copy.
    m_header.assign(plain);
    m_headerLine = LogLine{};
    ParseLongHeader(m_header, m_headerLine);
    m_inEntry = true;
    line.format = LogFormat::kNone;
    return line.format;
  }
  if (!m_inEntry) return ParseLogLine(text, line);
  if (plain.empty()) {
    // The blank line after an entry's message.
    m_inEntry = false;
    line.format = LogFormat::kNone;
    return line.format;
  }
  line.timestamp = m_headerLine.timestamp;
  line.time = m_headerLine.time;
  line.uid = m_headerLine.uid;
  line.pid = m_headerLine.pid;
  line.tid = m_headerLine.tid;
  line.level = m_headerLine.level;
  line.tag = m_headerLine.tag;
  line.message = plain;
  line.format = LogFormat::kLong;
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
