// sim/explain/input.h
#pragma once
#include <cstdint>
#include <string>
#include <string_view>

namespace explain {

// One record read from an input, in input order. The views are valid only during the call.
struct LogLine {
  std::string_view source;     // the input file's path (and "!member" for a zip member)
  uint64_t lineNumber;         // 1-based line in that input/member
  std::string_view timestamp;  // as the log wrote it ("11-23 05:09:38.562"), empty in brief format
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
};

// Reads one input file, detects its format by content (logcat threadtime/brief/time, bug report
// .txt or .zip, getprop dump, kernel parameter text), and streams its records into `sink` in
// bounded memory. On bad input returns false and sets `error` to a one-line message naming the file
// ("FILE: not a logcat, bug report, getprop dump or kernel parameter text", "FILE: truncated zip", ...);
// the command then exits 2. Records already streamed before an error stay streamed.
bool ReadInput(const std::string& path, InputSink& sink, std::string* error);

// Same over bytes already in memory (for the fuzz target and unit tests); `name` stands for the path.
bool ReadInputBytes(std::string_view name, std::string_view bytes, InputSink& sink, std::string* error);

}  // namespace explain
