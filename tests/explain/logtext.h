// Test support: the library's lines of a played scenario wrapped in a real
// phone's log noise, fed to the story as records or written to a file in each
// logcat format, a bug report and its zip, and read back by the reader.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "sim/explain/story.h"

namespace test {

struct LibraryLine {
  int pid = 0;
  size_t step = 0;
  char level = 'I';
  std::string tag;
  std::string message;
};

// "I [REMEDIUM]: hook.cpp:17 ..." as the scenario report writes a log event.
LibraryLine ParseEventLog(const std::string& text, int pid, size_t step);

enum class Format { kRecords, kThreadtime, kBrief, kTime, kBugreport, kBugreportZip };
extern const std::vector<Format> kFormats;
std::string FormatName(Format format);

// Explains `lines` among noise, written as `format` to a file named `base` plus
// the format's ending and read back with ReadInput (kRecords: fed straight to
// the story). A bug report also carries `properties` as its getprop section.
// `stepOfLine[n - 1]` is the step of input line n (SIZE_MAX for noise).
explain::Story Explain(const std::vector<LibraryLine>& lines, Format format, const std::string& base,
                       const std::map<std::string, std::string>& properties, std::vector<size_t>* stepOfLine);

// One record of the library fed straight to a sink.
void Feed(explain::StorySink& sink, const std::string& message, uint64_t lineNumber, int pid = 100, int tid = 100,
          const std::string& time = "11-23 05:09:38.562");

}  // namespace test
