// Parsing of single input lines: logcat's text formats, getprop's lines, the
// kernel parameter's number list. No state, no allocation:
// every result points into the line it was given.
#pragma once

#include <cstddef>
#include <string_view>

#include "sim/explain/input.h"

namespace explain {

// The logcat formats the reader takes. Each line is parsed on its own, so a
// file may mix them (a log concatenated from two captures).
enum class LogFormat { kNone, kThreadtime, kTime, kBrief };

// Parses one logcat line (without its line end) into `line`'s timestamp, pid,
// tid, level, tag and message. Takes:
//   threadtime  "MM-DD HH:MM:SS.mmm  PID  TID P TAG     : message"
//               with a year ("YYYY-MM-DD ..."), and with a UID column before
//               the PID (logcat -v uid: a number or a user name)
//   time        "MM-DD HH:MM:SS.mmm P/TAG     (  PID): message"
//   brief       "P/TAG     (  PID): message"
// (time and brief also with "UID:PID" in the parentheses). The tag loses
// logcat's padding; the message is the rest of the line, as it is. Returns
// kNone, and leaves `line` unspecified, for anything else.
LogFormat ParseLogLine(std::string_view text, LogLine& line);

// "--------- beginning of main": logcat's marker where a buffer's log begins.
bool IsBufferMarker(std::string_view text);

// getprop's "[key]: [value]". The value may hold anything but a line end.
bool ParsePropertyLine(std::string_view text, std::string_view& key, std::string_view& value);

// The kernel parameter's text: numbers with an optional sign, separated by
// commas ("0,0,-19,..."), at least two of them. Surrounding white space is
// the caller's to strip.
bool IsNumberList(std::string_view text);

}  // namespace explain
