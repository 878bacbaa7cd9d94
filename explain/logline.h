// Parsing of single input lines: every logcat output format and modifier,
// getprop's lines, the kernel parameter's number list. No allocation but the
// long format's header, which LogLineParser keeps: every other result points
// into the line it was given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "explain/input.h"

namespace explain {

// The format's name as logcat's -v takes it ("threadtime"; "Android Studio" for kStudio).
std::string_view FormatName(LogFormat format);

// Parses one logcat line (without its line end) into `line`'s timestamp,
// time, uid, pid, tid, level, tag, message and format. ANSI colour escapes
// around the line (-v color) are removed; the tag loses logcat's padding; the
// message is the rest of the line as it is. Fields the format does not carry
// stay as they were reset (pid and tid -1, level '?', empty views). Android
// Studio's assert level 'A' is given as 'F'. Returns kNone, and leaves `line`
// unspecified but for its format, for anything else. Never returns kLong (see
// LogLineParser) nor kRaw. Linear in the line's length, no allocation.
LogFormat ParseLogLine(std::string_view text, LogLine& line);

// The time on one scale in microseconds: kWall since 1970 as if the
// wall clock were UTC (less the zone's offset where one is written), in
// `year` when the log wrote none; kEpoch since 1970; kMonotonic since boot.
// -1 for kNone.
int64_t TimeMicros(const LogTime& time, int year);

// Line by line over one input, for the long format: a "[ ... ]" header line
// is copied and remembered (Parse returns kNone for it and for the blank line
// that ends an entry), and each message line under it is returned as kLong
// with the header's fields, the line itself as the message. Every other line
// goes to ParseLogLine.
class LogLineParser {
 public:
  LogFormat Parse(std::string_view text, LogLine& line);

 private:
  std::string m_header;  // the long format's current header line; the fields point into it
  LogLine m_headerLine{};
  bool m_inEntry = false;
};

// logcat's dividers: "--------- beginning of main", "--------- switch to crash".
bool IsBufferMarker(std::string_view text);

// getprop's "[key]: [value]". The value may hold anything but a line end.
bool ParsePropertyLine(std::string_view text, std::string_view& key, std::string_view& value);

// The kernel parameter's text: numbers with an optional sign, separated by
// commas ("0,0,-19,..."), at least two of them. Surrounding white space is
// the caller's to strip.
bool IsNumberList(std::string_view text);

}  // namespace explain
