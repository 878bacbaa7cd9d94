#include "tests/explain/logtext.h"

#include <cstdint>
#include <cstdio>
#include <fstream>

#include <gtest/gtest.h>
#include <zip.h>

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

const std::vector<Format> kFormats = {Format::kRecords, Format::kThreadtime, Format::kBrief,
                                      Format::kTime,    Format::kBugreport,  Format::kBugreportZip};

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
    case Format::kBugreportZip:
      return "zipped bug report";
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

// The library's lines with other processes' and threads' lines between them,
// and the camera provider's restart where the library's PID changes.
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
  // Every log has lines before the camera's, also one without any of the library's.
  records.push_back({time(), 1, 1, 'I', "init", "starting service 'vendor.camera-provider-2-7'...", SIZE_MAX});
  records.push_back({time(), 612, 612, 'I', "ActivityManager", "System now ready", SIZE_MAX});
  size_t n = 0;
  int pid = -1;
  for (const LibraryLine& line : lines) {
    if (pid >= 0 && line.pid != pid) {
      records.push_back({time(), 1, 1, 'I', "init",
                         "Service 'vendor.camera-provider-2-7' (pid " + std::to_string(pid) + ") exited with status 0",
                         SIZE_MAX});
      records.push_back({time(), 1, 1, 'I', "init", "starting service 'vendor.camera-provider-2-7'...", SIZE_MAX});
      records.push_back({time(), line.pid, line.pid, 'I', "CamX", "[CORE_CFG] camera provider started", SIZE_MAX});
    }
    pid = line.pid;
    if (n % 3 == 0)
      records.push_back({time(), 612, 640, 'D', "ActivityManager", "Start proc 4312:com.example/u0a1", SIZE_MAX});
    if (n % 5 == 1)
      records.push_back({time(), line.pid, line.pid + 3, 'I', "CamX", "[CORE_CFG] sensor probe thread busy", SIZE_MAX});
    if (n % 7 == 2)
      records.push_back({time(), 991, 991, 'W', "[REMEDIUM]x", "not the library: hook.cpp:17 X() y", SIZE_MAX});
    if (n % 11 == 4)
      records.push_back(
          {time(), line.pid, line.pid + 5, 'E', "CamX", "[ERROR][SENSOR ] sensor probe: no ack", SIZE_MAX});
    records.push_back({time(), line.pid, line.pid, line.level, line.tag, line.message, line.step});
    ++n;
  }
  return records;
}

// Appends one text line and the step it belongs to.
void Put(std::string* text, std::vector<size_t>* stepOfLine, const std::string& line, size_t step = SIZE_MAX) {
  *text += line + "\n";
  stepOfLine->push_back(step);
}

std::string LogText(const std::vector<Record>& records, Format format, const std::map<std::string, std::string>& props,
                    std::vector<size_t>* stepOfLine) {
  std::string text;
  const bool bugreport = format == Format::kBugreport || format == Format::kBugreportZip;
  if (bugreport) {
    for (const char* line :
         {"========================================================", "== dumpstate: 2026-11-23 05:10:00",
          "========================================================", "", "Build: AP3A.240905.015.A2",
          "------ SYSTEM LOG (logcat -v threadtime -v printable -v uid -d *:v) ------"}) {
      Put(&text, stepOfLine, line);
    }
  }
  if (format != Format::kBrief) Put(&text, stepOfLine, "--------- beginning of main");
  for (const Record& r : records) {
    char head[128];
    if (format == Format::kBrief) {
      std::snprintf(head, sizeof(head), "%c/%s(%5d): ", r.level, r.tag.c_str(), r.pid);
    } else if (format == Format::kTime) {
      std::snprintf(head, sizeof(head), "%s %c/%s(%5d): ", r.time.c_str(), r.level, r.tag.c_str(), r.pid);
    } else if (bugreport) {
      std::snprintf(head, sizeof(head), "%s %5s %5d %5d %c %-8s: ", r.time.c_str(), r.pid == 1 ? "root" : "1047", r.pid,
                    r.tid, r.level, r.tag.c_str());
    } else {
      std::snprintf(head, sizeof(head), "%s %5d %5d %c %-8s: ", r.time.c_str(), r.pid, r.tid, r.level, r.tag.c_str());
    }
    Put(&text, stepOfLine, head + r.message, r.step);
  }
  if (bugreport) {
    Put(&text, stepOfLine, "------ 0.123s was the duration of 'SYSTEM LOG' ------");
    Put(&text, stepOfLine, "------ SYSTEM PROPERTIES (getprop) ------");
    Put(&text, stepOfLine, "[ro.build.fingerprint]: [velora/vela/vela:15/AP3A.240905.015.A2/1123:user/release-keys]");
    for (const auto& [key, value] : props) Put(&text, stepOfLine, "[" + key + "]: [" + value + "]");
    Put(&text, stepOfLine, "------ 0.021s was the duration of 'SYSTEM PROPERTIES' ------");
  }
  return text;
}

bool WriteZip(const std::string& path, const std::string& member, const std::string& content) {
  int error = 0;
  zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  if (archive == nullptr) return false;
  const std::vector<std::pair<std::string, std::string>> members = {
      {"version.txt", "2.0"}, {"main_entry.txt", member}, {member, content}};
  for (const auto& [name, data] : members) {
    // libzip reads the buffers at zip_close; they outlive it.
    zip_source_t* source = zip_source_buffer(archive, data.data(), data.size(), 0);
    if (source == nullptr || zip_file_add(archive, name.c_str(), source, ZIP_FL_ENC_UTF_8) < 0) {
      zip_source_free(source);
      zip_discard(archive);
      return false;
    }
  }
  if (zip_close(archive) != 0) {
    zip_discard(archive);
    return false;
  }
  return true;
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

explain::Story Explain(const std::vector<LibraryLine>& lines, Format format, const std::string& base,
                       const std::map<std::string, std::string>& properties, std::vector<size_t>* stepOfLine) {
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
  const std::string text = LogText(records, format, properties, stepOfLine);
  std::string path = base + "." +
                     (format == Format::kThreadtime ? "threadtime"
                      : format == Format::kBrief    ? "brief"
                      : format == Format::kTime     ? "time"
                                                    : "bugreport");
  if (format == Format::kBugreportZip) {
    path += ".zip";
    EXPECT_TRUE(WriteZip(path, "bugreport-vela-AP3A.240905.015.A2-2026-11-23-05-10-00.txt", text)) << path;
  } else {
    path += ".txt";
    std::ofstream(path, std::ios::binary) << text;
  }
  std::string error;
  EXPECT_TRUE(explain::ReadInput(path, sink, &error)) << error;
  return sink.Finish();
}

}  // namespace test
