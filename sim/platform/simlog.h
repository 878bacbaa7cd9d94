// Control side of the simulated Android log (liblog.so): every line written
// through __android_log_print is kept for tests and can be echoed in
// logcat's "threadtime" format.
#pragma once

#include <string>
#include <vector>

namespace sim {

struct LogLine {
  int priority;
  std::string tag;
  std::string text;
};

std::vector<LogLine> LogLines(size_t from = 0);  // from the `from`-th line on
void ClearLog();
// Every line written since the last take or clear, which are then forgotten.
std::vector<LogLine> TakeLogLines();
// Echo each line to stderr in logcat format as it is written.
void SetLogEcho(bool echo);
// One line in logcat's threadtime format ("MM-DD HH:MM:SS.mmm PID TID P TAG: text").
std::string FormatLogcat(const LogLine& line);
char PriorityLetter(int priority);

}  // namespace sim
