// Test support: the library's lines of a played scenario wrapped in a real
// phone's log noise, fed to the story as records or written as text in each
// logcat format (and a bug report) and read back by the reader.
#pragma once

#include <cstddef>
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

enum class Format { kRecords, kThreadtime, kBrief, kTime, kBugreport };
extern const std::vector<Format> kFormats;
std::string FormatName(Format format);

// Explains `lines` among noise; `stepOfLine[n - 1]` is the step of input line n
// (SIZE_MAX for noise).
explain::Story Explain(const std::vector<LibraryLine>& lines, Format format, std::vector<size_t>* stepOfLine);

// One record of the library fed straight to a sink.
void Feed(explain::StorySink& sink, const std::string& message, uint64_t lineNumber, int pid = 100, int tid = 100,
          const std::string& time = "11-23 05:09:38.562");

}  // namespace test
