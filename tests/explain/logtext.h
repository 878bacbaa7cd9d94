// Test support: the library's lines of a played scenario wrapped in a real
// phone's log noise, written in the shapes phones and Android's tools write
// (every logcat format and modifier, Android Studio's panel, line ends and
// encodings, -b all, chatty, bug reports with their sections and zips, logs
// split across files, HAL threads) and read back by the reader into a story.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "explain/story.h"

namespace test {

struct LibraryLine {
  int pid = 0;
  size_t step = 0;
  char level = 'I';
  std::string tag;
  std::string message;
  int camera = -1;  // the camera the step names (-1: none), for the threads shape
};

// "I [REMEDIUM]: hook.cpp:17 ..." as the scenario report writes a log event.
LibraryLine ParseEventLog(const std::string& text, int pid, size_t step);

// Each shape is a way a real capture looks; all must tell the same decisions.
enum class Format {
  kRecords,         // fed straight to the story
  kThreadtime,      // adb logcat
  kBrief,           // logcat -v brief
  kTime,            // logcat -v time
  kModifiers,       // -v threadtime -v uid -v usec -v year -v zone
  kEpoch,           // -v epoch -v nsec
  kMonotonic,       // -v monotonic
  kProcess,         // -v process
  kThread,          // -v thread (no tag)
  kLong,            // -v long
  kColor,           // -v color
  kStudio,          // Android Studio's Logcat panel, copied
  kCrLf,            // a Windows editor's line ends
  kCrCrLf,          // adb shell through a pty
  kUtf16,           // PowerShell 5's ">" (UTF-16LE with a byte order mark)
  kUtf16BigEndian,  // UTF-16BE with a byte order mark
  kAllBuffers,      // -b all, dividers and other buffers' lines between
  kChatty,          // logd's "identical N lines" for repeats
  kSplitFiles,      // two files, given newest first
  kThreads,         // the cameras' steps on their own HAL threads, interleaved
  kBugreport,       // dumpstate's text
  kBugreportZip,    // the zip adb bugreport writes
  kTwoSystemLogs,   // Android 12+: a second SYSTEM LOG (-T) repeating the first one's end
  kPersistentLogs,  // the zip with logpersist's FS/data/misc/logd/logcat* beside the report
  kStreamedZip,     // a zip written to a pipe (data descriptors), re-zipped with its folder
  kUsec,            // logpersist's files (-v threadtime -v usec -v printable); a part of kPersistentLogs only
};
extern const std::vector<Format> kFormats;
std::string FormatName(Format format);

struct Explained {
  explain::Story story;
  std::map<std::string, std::vector<size_t>> stepsOf;  // by input name: the step of each line (SIZE_MAX: noise)
  // The step of the line an event's "FILE:LINE" names; SIZE_MAX for noise or an unknown place.
  size_t StepOf(const std::string& where) const;
};

// What a real log may lack: its start (it begins after the first `lateStart` library
// lines), or a range logd pruned (`expireCount` library lines from the `expireFrom`-th,
// with chatty's "expire" line in their place).
struct Damage {
  size_t lateStart = 0;
  size_t expireFrom = SIZE_MAX;
  size_t expireCount = 0;
};

// Explains `lines` among noise, written as `format` to files named `base` plus
// the format's ending and read back with ReadInput (kRecords: fed straight to
// the story). A bug report also carries `properties` as its getprop section.
Explained Explain(const std::vector<LibraryLine>& lines, Format format, const std::string& base,
                  const std::map<std::string, std::string>& properties, const Damage& damage = {});

// One record of the library fed straight to a sink.
void Feed(explain::StorySink& sink, const std::string& message, uint64_t lineNumber, int pid = 100, int tid = 100,
          const std::string& time = "11-23 05:09:38.562");

}  // namespace test
