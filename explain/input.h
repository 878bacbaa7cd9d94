// explain/input.h
#pragma once
#include <cstdint>
#include <string>
#include <string_view>

namespace explain {

// The logcat output formats (logcat -v FORMAT), and Android Studio's Logcat
// panel copied as text. Each line is parsed on its own (but for long, whose
// header line stands before its message lines), so a file may mix them.
enum class LogFormat {
  kNone,
  kBrief,       // "P/TAG(  PID): message"
  kProcess,     // "P(  PID) message  (TAG)"
  kTag,         // "P/TAG: message"                 no process: too little for a story
  kThread,      // "P(  PID: TID) message"           no tag
  kRaw,         // "message"                         never returned by ParseLogLine
  kTime,        // "TIME P/TAG(  PID): message"
  kThreadtime,  // "TIME  PID  TID P TAG: message"
  kLong,        // "[ TIME  PID: TID P/TAG ]" then the message's lines, then a blank line
  kStudio,      // Android Studio's Logcat panel, old and new layouts
};

// The parts of LogLine::timestamp, as logcat's modifiers wrote them.
// kWall: "MM-DD HH:MM:SS.f" with the year under -v year (and in Android
// Studio), a zone under -v zone (and UTC under -v UTC); kEpoch: seconds since
// 1970 (-v epoch); kMonotonic: seconds since boot (-v monotonic).
struct LogTime {
  enum class Clock : uint8_t { kNone, kWall, kEpoch, kMonotonic };
  Clock clock = Clock::kNone;
  int year = 0;  // 0: not written
  int month = 0, day = 0, hour = 0, minute = 0, second = 0;
  int64_t seconds = 0;  // kEpoch and kMonotonic: the whole seconds
  int32_t nanos = 0;    // the fraction, in nanoseconds, whatever its digits (-v usec, -v nsec)
  bool hasZoneOffset = false;
  int zoneMinutes = 0;        // "+0100": 60; "-0530": -330
  std::string_view zoneName;  // a zone written as a name ("UTC", "CET"), empty otherwise
};

// One record read from an input, in input order. The views are valid only during the call.
// A log line's fields are the input's bytes as they are, valid UTF-8 or not: a sink that shows
// them escapes what is not.
struct LogLine {
  std::string_view source;     // the input file's path (and "!member" for a zip member)
  uint64_t lineNumber;         // 1-based line in that input/member
  std::string_view timestamp;  // as the log wrote it ("11-23 05:09:38.562"), empty in brief format
  LogTime time;                // the timestamp's parts
  LogFormat format = LogFormat::kNone;
  std::string_view uid;  // -v uid's column (a number or a user name), empty without it
  int pid = -1;
  int tid = -1;              // -1 when the format has none (brief, time)
  char level = '?';          // V D I W E F
  std::string_view tag;      // "[REMEDIUM]" for the library's lines
  std::string_view message;  // the text after "TAG: ", without the line end
};

class InputSink {
 public:
  virtual ~InputSink() = default;
  // A new input begins: a file, or a bug report (a bug report is a new boot for the story).
  enum class InputKind { kLogcat, kBugreport, kGetprop, kKernelText };
  virtual void BeginInput(std::string_view source, InputKind kind) = 0;
  virtual void Log(const LogLine& line) = 0;  // every log line, any tag
  virtual void Property(std::string_view source, std::string_view key, std::string_view value) = 0;
  virtual void KernelText(std::string_view source, std::string_view text) = 0;  // the parameter's text
  virtual void EndInput(std::string_view source) = 0;
  // The log lines between PreviousBoot(true) and PreviousBoot(false) are of the boot before this
  // input's: a bug report's LAST LOGCAT (the log pstore kept across the reboot).
  virtual void PreviousBoot(bool /*begins*/) {}
  // One line of a tombstone (a bug report's TOMBSTONE section or a zip's FS/data/tombstones/ member).
  virtual void Tombstone(std::string_view /*source*/, uint64_t /*lineNumber*/, std::string_view /*text*/) {}
  // A bug report's own time, as its "== dumpstate: YYYY-MM-DD HH:MM:SS" line gives it (before its
  // log lines): the year of the log's timestamps, which carry none.
  virtual void ReportTime(std::string_view /*source*/, std::string_view /*time*/) {}
  // What the reader passed changed or left out ("FILE:LINE" and the text), for the story to say.
  virtual void Notice(std::string_view /*where*/, std::string_view /*text*/) {}
  // True once the sink has all it wants: the reader stops early (a peek at an input's first time).
  virtual bool Enough() const { return false; }
};

// Reads one input file, detects its format by content (logcat in any -v format, bug report .txt or
// .zip, getprop dump, kernel parameter text; UTF-8, or UTF-16 with a byte order mark), and streams
// its records into `sink` in bounded memory. On bad input returns false and sets `error` to one line
// naming the file ("FILE: not a logcat, bug report, getprop dump or kernel parameter text",
// "FILE: truncated zip", ...); the command then exits 2. Records already streamed before an error
// stay streamed.
bool ReadInput(const std::string& path, InputSink& sink, std::string* error);

// Same over bytes already in memory (for the fuzz target and unit tests); `name` stands for the path.
bool ReadInputBytes(std::string_view name, std::string_view bytes, InputSink& sink, std::string* error);

// A file name as an error message or a story shows it: bytes that are not UTF-8 and control
// characters (line ends among them) escaped, so that a message stays one line.
std::string PrintableName(std::string_view name);

}  // namespace explain
