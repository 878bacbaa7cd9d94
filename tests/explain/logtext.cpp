#include "tests/explain/logtext.h"

#include <cstdint>
#include <cstdio>

#include <gtest/gtest.h>

namespace test {

LibraryLine ParseEventLog(const std::string& text, int pid, size_t step) {
  LibraryLine line;
  line.pid = pid;
  line.step = step;
  line.level = text.empty() ? '?' : text[0];
  const size_t colon = text.find(": ");
  line.tag = text.substr(2, colon - 2);
  line.message = colon == std::string::npos ? "" : text.substr(colon + 2);
  return line;
}

const std::vector<Format> kFormats = {Format::kRecords, Format::kThreadtime, Format::kBrief, Format::kTime,
                                      Format::kBugreport};

std::string FormatName(Format format) {
  switch (format) {
    case Format::kRecords:
      return "records";
    case Format::kThreadtime:
      return "threadtime";
    case Format::kBrief:
      return "brief";
    case Format::kTime:
      return "time";
    case Format::kBugreport:
      return "bug report";
  }
  return "?";
}

namespace {

struct Record {
  std::string time;
  int pid, tid;
  char level;
  std::string tag, message;
  size_t step;
};

// The library's lines with other processes' and threads' lines between them.
std::vector<Record> WithNoise(const std::vector<LibraryLine>& lines) {
  std::vector<Record> records;
  unsigned clock = 0;
  const auto time = [&clock] {
    char text[32];
    ++clock;
    std::snprintf(text, sizeof(text), "11-23 05:%02u:%02u.%03u", (clock / 60000) % 60, (clock / 1000) % 60,
                  clock % 1000);
    return std::string(text);
  };
  size_t n = 0;
  for (const LibraryLine& line : lines) {
    if (n % 3 == 0)
      records.push_back({time(), 612, 640, 'D', "ActivityManager", "Start proc 4312:com.example/u0a1", SIZE_MAX});
    if (n % 5 == 1)
      records.push_back({time(), line.pid, line.pid + 3, 'I', "CamX", "[CORE_CFG] sensor probe thread busy", SIZE_MAX});
    if (n % 7 == 2)
      records.push_back({time(), 991, 991, 'W', "[REMEDIUM]x", "not the library: hook.cpp:17 X() y", SIZE_MAX});
    records.push_back({time(), line.pid, line.pid, line.level, line.tag, line.message, line.step});
    ++n;
  }
  return records;
}

}  // namespace

void Feed(explain::StorySink& sink, const std::string& message, uint64_t lineNumber, int pid, int tid,
          const std::string& time) {
  explain::LogLine line;
  line.source = "test";
  line.lineNumber = lineNumber;
  line.timestamp = time;
  line.pid = pid;
  line.tid = tid;
  line.level = 'I';
  line.tag = "[REMEDIUM]";
  line.message = message;
  sink.Log(line);
}

explain::Story Explain(const std::vector<LibraryLine>& lines, Format format, std::vector<size_t>* stepOfLine) {
  const std::vector<Record> records = WithNoise(lines);
  explain::StorySink sink;
  stepOfLine->clear();
  if (format == Format::kRecords) {
    sink.BeginInput("roundtrip", explain::InputSink::InputKind::kLogcat);
    for (const Record& record : records) {
      explain::LogLine line;
      line.source = "roundtrip";
      line.lineNumber = stepOfLine->size() + 1;
      line.timestamp = record.time;
      line.pid = record.pid;
      line.tid = record.tid;
      line.level = record.level;
      line.tag = record.tag;
      line.message = record.message;
      stepOfLine->push_back(record.step);
      sink.Log(line);
    }
    sink.EndInput("roundtrip");
    return sink.Finish();
  }
  std::string text;
  if (format == Format::kBugreport) {
    text =
        "========================================================\n== dumpstate: 2026-11-23 05:10:00\n"
        "========================================================\n\n"
        "------ SYSTEM LOG (logcat -v threadtime -v printable -v uid -d *:v) ------\n";
    for (int i = 0; i < 5; ++i) stepOfLine->push_back(SIZE_MAX);
  }
  for (const Record& r : records) {
    char head[96];
    if (format == Format::kBrief) {
      std::snprintf(head, sizeof(head), "%c/%s(%5d): ", r.level, r.tag.c_str(), r.pid);
    } else if (format == Format::kTime) {
      std::snprintf(head, sizeof(head), "%s %c/%s(%5d): ", r.time.c_str(), r.level, r.tag.c_str(), r.pid);
    } else {
      std::snprintf(head, sizeof(head), "%s %5d %5d %c %s: ", r.time.c_str(), r.pid, r.tid, r.level, r.tag.c_str());
    }
    text += head + r.message + "\n";
    stepOfLine->push_back(r.step);
  }
  if (format == Format::kBugreport) text += "------ 0.123s was the duration of 'SYSTEM LOG' ------\n";
  std::string error;
  EXPECT_TRUE(explain::ReadInputBytes("roundtrip", text, sink, &error)) << error;
  return sink.Finish();
}

}  // namespace test
