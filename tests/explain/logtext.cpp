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

const std::vector<Format> kFormats = {
    Format::kRecords,    Format::kThreadtime,   Format::kBrief,         Format::kTime,
    Format::kModifiers,  Format::kEpoch,        Format::kMonotonic,     Format::kProcess,
    Format::kThread,     Format::kLong,         Format::kColor,         Format::kStudio,
    Format::kCrLf,       Format::kCrCrLf,       Format::kUtf16,         Format::kUtf16BigEndian,
    Format::kAllBuffers, Format::kChatty,       Format::kSplitFiles,    Format::kThreads,
    Format::kBugreport,  Format::kBugreportZip, Format::kTwoSystemLogs, Format::kPersistentLogs,
    Format::kStreamedZip};

std::string FormatName(Format format) {
  static const char* const kNames[] = {"records",
                                       "threadtime",
                                       "brief",
                                       "time",
                                       "threadtime uid usec year zone",
                                       "epoch nsec",
                                       "monotonic",
                                       "process",
                                       "thread",
                                       "long",
                                       "color",
                                       "Android Studio",
                                       "CRLF",
                                       "CR CR LF",
                                       "UTF-16LE",
                                       "UTF-16BE",
                                       "-b all",
                                       "chatty",
                                       "split files",
                                       "HAL threads",
                                       "bug report",
                                       "zipped bug report",
                                       "bug report with two SYSTEM LOG sections",
                                       "zip with persistent logs",
                                       "streamed zip of a folder",
                                       "usec"};
  return kNames[static_cast<size_t>(format)];
}

size_t Explained::StepOf(const std::string& where) const {
  const size_t colon = where.rfind(':');
  const auto file = stepsOf.find(where.substr(0, colon));
  if (colon == std::string::npos || file == stepsOf.end()) return SIZE_MAX;
  const size_t line = std::stoul(where.substr(colon + 1));
  return line >= 1 && line <= file->second.size() ? file->second[line - 1] : SIZE_MAX;
}

namespace {

struct Record {
  int pid, tid;
  char level;
  std::string tag, message;
  size_t step;
};

// The library's lines with other processes' and threads' lines between them,
// and the camera provider's restart where the library's PID changes.
std::vector<Record> WithNoise(const std::vector<LibraryLine>& lines) {
  std::vector<Record> records;
  // Every log has lines before the camera's, also one without any of the library's.
  records.push_back({1, 1, 'I', "init", "starting service 'vendor.camera-provider-2-7'...", SIZE_MAX});
  records.push_back({612, 612, 'I', "ActivityManager", "System now ready", SIZE_MAX});
  size_t n = 0;
  int pid = -1;
  for (const LibraryLine& line : lines) {
    if (pid >= 0 && line.pid != pid) {
      records.push_back({1, 1, 'I', "init",
                         "Service 'vendor.camera-provider-2-7' (pid " + std::to_string(pid) + ") exited", SIZE_MAX});
      records.push_back({1, 1, 'I', "init", "starting service 'vendor.camera-provider-2-7'...", SIZE_MAX});
      records.push_back({line.pid, line.pid, 'I', "CamX", "[CORE_CFG] camera provider started", SIZE_MAX});
    }
    pid = line.pid;
    if (n % 3 == 0) records.push_back({612, 640, 'D', "ActivityManager", "Start proc 4312:com.example/u0a1", SIZE_MAX});
    if (n % 5 == 1) records.push_back({line.pid, line.pid + 3, 'I', "CamX", "[CORE_CFG] probe thread busy", SIZE_MAX});
    if (n % 7 == 2) records.push_back({991, 991, 'W', "[REMEDIUM]x", "not the library: hook.cpp:17 X() y", SIZE_MAX});
    if (n % 11 == 4) records.push_back({line.pid, line.pid + 5, 'E', "CamX", "[ERROR][SENSOR ] no ack: 0x1", SIZE_MAX});
    records.push_back({line.pid, line.pid, line.level, line.tag, line.message, line.step});
    ++n;
  }
  return records;
}

// HAL threads: each camera's lines on a thread of its own, and the lines of two adjacent
// steps of different cameras interleaved, as parallel probes write them.
std::vector<Record> OnThreads(const std::vector<Record>& records, const std::vector<LibraryLine>& lines) {
  // A step that names no camera runs on the thread of the camera before it.
  std::map<size_t, int> cameraOf;
  int current = -1;
  for (const LibraryLine& line : lines) {
    if (line.camera >= 0) current = line.camera;
    cameraOf[line.step] = current;
  }
  std::vector<std::vector<Record>> blocks;  // a step's lines, noise after them with them
  for (Record record : records) {
    const int camera = record.step == SIZE_MAX ? -1 : cameraOf[record.step];
    if (camera >= 0) record.tid = record.pid + 100 + camera;
    if (blocks.empty() || (record.step != SIZE_MAX && record.step != blocks.back().front().step)) blocks.emplace_back();
    blocks.back().push_back(record);
  }
  std::vector<Record> out;
  for (size_t b = 0; b < blocks.size(); ++b) {
    const std::vector<Record>& first = blocks[b];
    const auto cameraAt = [&](size_t i) {
      return first.front().step == SIZE_MAX ? -1 : cameraOf[blocks[i].front().step];
    };
    if (b + 1 < blocks.size() && cameraAt(b) >= 0 && cameraOf[blocks[b + 1].front().step] >= 0 &&
        cameraAt(b) != cameraOf[blocks[b + 1].front().step] && first.front().pid == blocks[b + 1].front().pid) {
      const std::vector<Record>& second = blocks[b + 1];
      for (size_t i = 0; i < std::max(first.size(), second.size()); ++i) {
        if (i < first.size()) out.push_back(first[i]);
        if (i < second.size()) out.push_back(second[i]);
      }
      ++b;
      continue;
    }
    out.insert(out.end(), first.begin(), first.end());
  }
  return out;
}

struct Line {
  std::string text;
  size_t step = SIZE_MAX;
};

// The time of the n-th line: 2026-11-23 05:00:00 plus n milliseconds.
struct Clock {
  unsigned n;
  unsigned Minute() const { return (n / 60000) % 60; }
  unsigned Second() const { return (n / 1000) % 60; }
  unsigned Milli() const { return n % 1000; }
  std::string Wall(bool year, int digits) const {
    char text[64];
    const unsigned fraction = digits == 3 ? Milli() : digits == 6 ? Milli() * 1000 + 123 : Milli() * 1000000 + 123456;
    std::snprintf(text, sizeof text, "%s11-23 05:%02u:%02u.%0*u", year ? "2026-" : "", Minute(), Second(), digits,
                  fraction);
    return text;
  }
};

// The line(s) logcat (or Android Studio) writes for one record at time `clock`.
std::vector<std::string> Written(Format format, Clock clock, const Record& r) {
  char head[256];
  const char* tag = r.tag.c_str();
  const std::string uid = r.pid == 1 ? "root" : "1047";
  switch (format) {
    case Format::kBrief:
      std::snprintf(head, sizeof head, "%c/%-8s(%5d): ", r.level, tag, r.pid);
      break;
    case Format::kTime:
      std::snprintf(head, sizeof head, "%s %c/%-8s(%5d): ", clock.Wall(false, 3).c_str(), r.level, tag, r.pid);
      break;
    case Format::kModifiers:
      std::snprintf(head, sizeof head, "%s +0100 %5s %5d %5d %c %-8s: ", clock.Wall(true, 6).c_str(), uid.c_str(),
                    r.pid, r.tid, r.level, tag);
      break;
    case Format::kEpoch:
      std::snprintf(head, sizeof head, "%19u.%09u %5d %5d %c %-8s: ", 1795410000 + clock.n / 1000,
                    clock.Milli() * 1000000 + 123456, r.pid, r.tid, r.level, tag);
      break;
    case Format::kMonotonic:
      std::snprintf(head, sizeof head, "%6u.%03u %5d %5d %c %-8s: ", 100 + clock.n / 1000, clock.Milli(), r.pid, r.tid,
                    r.level, tag);
      break;
    case Format::kProcess:
      return {std::string(1, r.level) + "(" + std::string(5 - std::min<size_t>(5, std::to_string(r.pid).size()), ' ') +
              std::to_string(r.pid) + ") " + r.message + "  (" + r.tag + ")"};
    case Format::kThread:
      std::snprintf(head, sizeof head, "%c(%5d:%5d) ", r.level, r.pid, r.tid);
      break;
    case Format::kLong:
      std::snprintf(head, sizeof head, "[ %s %5d:%5d %c/%-8s ]", clock.Wall(false, 3).c_str(), r.pid, r.tid, r.level,
                    tag);
      return {head, r.message, ""};
    case Format::kColor: {
      const int color = r.level == 'E' ? 31 : r.level == 'W' ? 33 : r.level == 'I' ? 32 : 39;
      std::snprintf(head, sizeof head, "\x1B[%dm%s %5d %5d %c %-8s: ", color, clock.Wall(false, 3).c_str(), r.pid,
                    r.tid, r.level, tag);
      return {head + r.message + "\x1B[0m"};
    }
    case Format::kStudio: {
      const std::string ids = std::to_string(r.pid) + "-" + std::to_string(r.tid);
      std::snprintf(head, sizeof head, "%s %-11s %-23s %-35s %c  ", clock.Wall(true, 3).c_str(), ids.c_str(),
                    r.tag.empty() ? "<no-tag>" : tag, r.pid == 1 ? "system_process" : "vendor.camera-provider",
                    r.level);
      break;
    }
    default:
      std::snprintf(head, sizeof head,
                    "%s %5d %5d %c %-8s: ", clock.Wall(false, format == Format::kUsec ? 6 : 3).c_str(), r.pid, r.tid,
                    r.level, tag);
      break;
  }
  return {head + r.message};
}

// The text logcat writes for `records` in `format` (threadtime for the other shapes).
std::vector<Line> LogLines(const std::vector<Record>& records, Format format, unsigned firstClock = 1) {
  std::vector<Line> lines;
  const bool dividers = format != Format::kBrief && format != Format::kStudio && format != Format::kProcess;
  if (dividers) lines.push_back({"--------- beginning of main"});
  unsigned clock = firstClock;
  for (size_t i = 0; i < records.size(); ++i) {
    const Record& r = records[i];
    if (format == Format::kAllBuffers && i % 9 == 3) {
      // Other buffers' lines between, with their dividers, as -b all writes them.
      lines.push_back({"--------- switch to kernel"});
      lines.push_back({Clock{clock}.Wall(false, 3) + "     0     0 I         : binder: 612:640 transaction failed"});
      lines.push_back({"--------- switch to events"});
      lines.push_back({Clock{clock}.Wall(false, 3) + "  1000  1203 I am_proc_start: [0,4312,10201,com.example]"});
      lines.push_back({"--------- switch to main"});
    }
    if (format == Format::kChatty && r.step != SIZE_MAX) {
      // logd folds a thread's repeats of a line into one "identical N lines" line.
      size_t copies = 0;
      for (size_t j = i + 1; j < records.size(); ++j) {
        const Record& next = records[j];
        if (next.pid != r.pid || next.tid != r.tid) continue;
        if (next.message != r.message || next.step != r.step || next.level != r.level || next.tag != r.tag) break;
        ++copies;
      }
      if (copies > 0) {
        std::vector<Record> rest;
        for (const std::string& text : Written(Format::kThreadtime, Clock{clock++}, r)) lines.push_back({text, r.step});
        char chatty[160];
        std::snprintf(chatty, sizeof chatty,
                      "%s %5d %5d I chatty  : uid=1047(cameraserver) camera-provider identical %zu line%s",
                      Clock{clock++}.Wall(false, 3).c_str(), r.pid, r.tid, copies, copies == 1 ? "" : "s");
        lines.push_back({chatty, r.step});
        // The copies are gone from the buffer; the other lines between stay.
        size_t skipped = 0;
        for (size_t j = i + 1; j < records.size() && skipped < copies; ++j) {
          const Record& next = records[j];
          if (next.pid == r.pid && next.tid == r.tid) {
            ++skipped;
          } else {
            rest.push_back(next);
          }
          if (skipped == copies) {
            for (const Record& other : rest) {
              for (const std::string& text : Written(Format::kThreadtime, Clock{clock++}, other))
                lines.push_back({text, other.step});
            }
            i = j;
          }
        }
        continue;
      }
    }
    for (const std::string& text : Written(format, Clock{clock}, r)) lines.push_back({text, r.step});
    ++clock;
  }
  return lines;
}

std::vector<Line> Bugreport(const std::vector<Line>& log, const std::map<std::string, std::string>& props,
                            const std::vector<Line>& secondLog = {}) {
  std::vector<Line> text;
  for (const char* line :
       {"========================================================", "== dumpstate: 2026-11-23 05:10:00",
        "========================================================", "", "Build: AP3A.240905.015.A2",
        "------ SYSTEM LOG (logcat -v threadtime -v printable -v uid -d *:v) ------"}) {
    text.push_back({line});
  }
  text.insert(text.end(), log.begin(), log.end());
  text.push_back({"------ 0.123s was the duration of 'SYSTEM LOG' ------"});
  text.push_back({"------ SYSTEM PROPERTIES (getprop) ------"});
  text.push_back({"[ro.build.fingerprint]: [velora/vela/vela:15/AP3A.240905.015.A2/1123:user/release-keys]"});
  for (const auto& [key, value] : props) text.push_back({"[" + key + "]: [" + value + "]"});
  text.push_back({"------ 0.021s was the duration of 'SYSTEM PROPERTIES' ------"});
  if (!secondLog.empty()) {
    text.push_back(
        {"------ SYSTEM LOG (logcat -v threadtime -v printable -v uid -d *:v -T 2026-11-23 05:00:00.000) ------"});
    text.insert(text.end(), secondLog.begin(), secondLog.end());
    text.push_back({"------ 0.050s was the duration of 'SYSTEM LOG' ------"});
  }
  return text;
}

std::string Join(const std::vector<Line>& lines, const std::string& end = "\n") {
  std::string text;
  for (const Line& line : lines) text += line.text + end;
  return text;
}

std::vector<size_t> Steps(const std::vector<Line>& lines) {
  std::vector<size_t> steps;
  for (const Line& line : lines) steps.push_back(line.step);
  return steps;
}

std::string Utf16(const std::string& utf8, bool bigEndian) {
  std::string out = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (size_t i = 0; i < utf8.size();) {
    const auto byte = static_cast<unsigned char>(utf8[i]);
    uint32_t code = byte;
    size_t length = 1;
    if (byte >= 0xF0)
      code = byte & 0x07, length = 4;
    else if (byte >= 0xE0)
      code = byte & 0x0F, length = 3;
    else if (byte >= 0xC0)
      code = byte & 0x1F, length = 2;
    for (size_t k = 1; k < length; ++k) code = (code << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
    i += length;
    std::vector<uint16_t> units;
    if (code >= 0x10000) {
      units = {static_cast<uint16_t>(0xD800 + ((code - 0x10000) >> 10)),
               static_cast<uint16_t>(0xDC00 + (code & 0x3FF))};
    } else {
      units = {static_cast<uint16_t>(code)};
    }
    for (const uint16_t unit : units) {
      const char high = static_cast<char>(unit >> 8), low = static_cast<char>(unit & 0xFF);
      out += bigEndian ? std::string{high, low} : std::string{low, high};
    }
  }
  return out;
}

bool WriteZip(const std::string& path, const std::vector<std::pair<std::string, std::string>>& members) {
  int error = 0;
  zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  if (archive == nullptr) return false;
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

uint32_t Crc32(const std::string& data) {
  uint32_t crc = 0xFFFFFFFF;
  for (const char c : data) {
    crc ^= static_cast<unsigned char>(c);
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320 & (0 - (crc & 1)));
  }
  return ~crc;
}

// A zip as a writer that cannot seek writes it (to a pipe): stored members whose local headers
// carry no sizes, each followed by a data descriptor; the central directory has them.
std::string StreamedZip(const std::vector<std::pair<std::string, std::string>>& members) {
  std::string zip, central;
  const auto u16 = [](std::string& to, uint32_t v) { to += {static_cast<char>(v), static_cast<char>(v >> 8)}; };
  const auto u32 = [&u16](std::string& to, uint32_t v) { u16(to, v & 0xFFFF), u16(to, v >> 16); };
  for (const auto& [name, data] : members) {
    const uint32_t offset = static_cast<uint32_t>(zip.size()), crc = Crc32(data);
    const auto size = static_cast<uint32_t>(data.size());
    u32(zip, 0x04034b50), u16(zip, 20), u16(zip, 8), u16(zip, 0), u16(zip, 0), u16(zip, 0x21);
    u32(zip, 0), u32(zip, 0), u32(zip, 0), u16(zip, static_cast<uint32_t>(name.size())), u16(zip, 0);
    zip += name + data;
    u32(zip, 0x08074b50), u32(zip, crc), u32(zip, size), u32(zip, size);
    u32(central, 0x02014b50), u16(central, 20), u16(central, 20), u16(central, 8), u16(central, 0), u16(central, 0);
    u16(central, 0x21), u32(central, crc), u32(central, size), u32(central, size);
    u16(central, static_cast<uint32_t>(name.size())), u16(central, 0), u16(central, 0), u16(central, 0);
    u16(central, 0), u32(central, 0), u32(central, offset);
    central += name;
  }
  const auto start = static_cast<uint32_t>(zip.size());
  zip += central;
  u32(zip, 0x06054b50), u16(zip, 0), u16(zip, 0), u16(zip, static_cast<uint32_t>(members.size()));
  u16(zip, static_cast<uint32_t>(members.size())), u32(zip, static_cast<uint32_t>(central.size())), u32(zip, start);
  u16(zip, 0);
  return zip;
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

// The records as a damaged log holds them.
std::vector<Record> Damaged(const std::vector<Record>& records, const Damage& damage) {
  std::vector<Record> out;
  size_t library = 0;
  for (const Record& record : records) {
    const bool ours = record.step != SIZE_MAX;
    const size_t index = ours ? library++ : library;
    if (index < damage.lateStart) continue;
    if (ours && index >= damage.expireFrom && index < damage.expireFrom + damage.expireCount) {
      if (index + 1 == damage.expireFrom + damage.expireCount) {
        out.push_back({record.pid, record.tid, 'I', "chatty",
                       "uid=1047(cameraserver) camera-provider expire " + std::to_string(damage.expireCount) + " lines",
                       SIZE_MAX});
      }
      continue;
    }
    out.push_back(record);
  }
  return out;
}

Explained Explain(const std::vector<LibraryLine>& lines, Format format, const std::string& base,
                  const std::map<std::string, std::string>& properties, const Damage& damage) {
  std::vector<Record> records = Damaged(WithNoise(lines), damage);
  if (format == Format::kThreads) records = OnThreads(records, lines);
  explain::StorySink sink;
  Explained explained;
  if (format == Format::kRecords) {
    sink.BeginInput("roundtrip", explain::InputSink::InputKind::kLogcat);
    std::vector<size_t>& steps = explained.stepsOf["roundtrip"];
    for (const Record& record : records) {
      explain::LogLine line;
      line.source = "roundtrip";
      line.lineNumber = steps.size() + 1;
      const std::string time = Clock{static_cast<unsigned>(steps.size() + 1)}.Wall(false, 3);
      line.timestamp = time;
      line.pid = record.pid;
      line.tid = record.tid;
      line.level = record.level;
      line.tag = record.tag;
      line.message = record.message;
      steps.push_back(record.step);
      sink.Log(line);
    }
    sink.EndInput("roundtrip");
    explained.story = sink.Finish();
    return explained;
  }
  // The files to write: name, bytes, and the steps of the lines of each input the reader names.
  std::vector<std::pair<std::string, std::string>> files;
  const std::string bugreport = "bugreport-vela-AP3A.240905.015.A2-2026-11-23-05-10-00.txt";
  const std::string name = base + "." + FormatName(format) + ".txt";
  switch (format) {
    case Format::kBugreport:
    case Format::kTwoSystemLogs: {
      const std::vector<Line> log = LogLines(records, Format::kThreadtime);
      // The second section (logcat -T) repeats the last third of the first.
      const std::vector<Line> second(log.begin() + static_cast<std::ptrdiff_t>(log.size() * 2 / 3), log.end());
      const std::vector<Line> text =
          Bugreport(log, properties, format == Format::kTwoSystemLogs ? second : std::vector<Line>{});
      files.emplace_back(name, Join(text));
      explained.stepsOf[name] = Steps(text);
      break;
    }
    case Format::kBugreportZip:
    case Format::kPersistentLogs:
    case Format::kStreamedZip: {
      const std::string zipName = name + ".zip";
      std::vector<Line> log = LogLines(records, Format::kThreadtime);
      std::vector<std::pair<std::string, std::string>> members;
      const std::string folder = format == Format::kStreamedZip ? "bugreport-vela-2026-11-23/" : "";
      if (format == Format::kPersistentLogs) {
        // logpersist's files (oldest first: logcat.001 then logcat) hold the first 80% with
        // microseconds; the report's SYSTEM LOG the last 60%.
        std::vector<Line> older, newer;
        const size_t cut = log.size() * 2 / 5, end = log.size() * 4 / 5;
        std::vector<Line> usec = LogLines(records, Format::kUsec);  // the same lines in microseconds
        for (size_t i = 0; i < end; ++i) (i < cut ? older : newer).push_back(usec[i]);
        members.emplace_back("FS/data/misc/logd/logcat.001", Join(older));
        members.emplace_back("FS/data/misc/logd/logcat", Join(newer));
        explained.stepsOf[zipName + "!FS/data/misc/logd/logcat.001"] = Steps(older);
        explained.stepsOf[zipName + "!FS/data/misc/logd/logcat"] = Steps(newer);
        log.erase(log.begin(), log.begin() + static_cast<std::ptrdiff_t>(cut));
      }
      const std::vector<Line> text = Bugreport(log, properties);
      members.emplace_back(folder + "version.txt", "2.0");
      members.emplace_back(folder + "main_entry.txt", bugreport);
      members.emplace_back(folder + bugreport, Join(text));
      explained.stepsOf[zipName + "!" + folder + bugreport] = Steps(text);
      if (format == Format::kStreamedZip) {
        files.emplace_back(zipName, StreamedZip(members));
      } else {
        EXPECT_TRUE(WriteZip(zipName, members)) << zipName;
      }
      break;
    }
    case Format::kSplitFiles: {
      const std::vector<Line> log = LogLines(records, Format::kThreadtime);
      const std::vector<Line> first(log.begin(), log.begin() + static_cast<std::ptrdiff_t>(log.size() / 2));
      std::vector<Line> second(log.begin() + static_cast<std::ptrdiff_t>(log.size() / 2), log.end());
      second.insert(second.begin(), Line{"--------- beginning of main"});
      // Given newest first: the reader orders them by time.
      files.emplace_back(base + ".split.2.txt", Join(second));
      files.emplace_back(base + ".split.1.txt", Join(first));
      explained.stepsOf[base + ".split.2.txt"] = Steps(second);
      explained.stepsOf[base + ".split.1.txt"] = Steps(first);
      break;
    }
    default: {
      const Format written = format == Format::kCrLf || format == Format::kCrCrLf || format == Format::kUtf16 ||
                                     format == Format::kUtf16BigEndian || format == Format::kThreads
                                 ? Format::kThreadtime
                                 : format;
      const std::vector<Line> log = LogLines(records, written);
      const std::string end = format == Format::kCrLf ? "\r\n" : format == Format::kCrCrLf ? "\r\r\n" : "\n";
      std::string text = Join(log, end);
      if (format == Format::kUtf16 || format == Format::kUtf16BigEndian) {
        text = Utf16(text, format == Format::kUtf16BigEndian);
      }
      files.emplace_back(name, text);
      explained.stepsOf[name] = Steps(log);
      break;
    }
  }
  std::vector<std::string> paths;
  for (const auto& [path, bytes] : files) {
    std::ofstream(path, std::ios::binary) << bytes;
    paths.push_back(path);
  }
  if (paths.empty()) paths.push_back(name + ".zip");
  for (const std::string& path : explain::InTimeOrder(paths)) {
    std::string error;
    EXPECT_TRUE(explain::ReadInput(path, sink, &error)) << error;
  }
  explained.story = sink.Finish();
  return explained;
}

}  // namespace test
