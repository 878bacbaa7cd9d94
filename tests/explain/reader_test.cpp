// The explain reader: every input format told by content and parsed into the
// right fields, the sample bug report as text and as the zip adb writes, cut
// and over-long lines, and the errors a user gets for bad inputs.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zip.h>

#include "explain/input.h"
#include "explain/logline.h"
#include "sim/text/text.h"

namespace explain {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct Record {
  std::string source;
  uint64_t lineNumber;
  std::string timestamp;
  int pid;
  int tid;
  char level;
  std::string tag;
  std::string message;
};

// Keeps everything the reader streams, in order.
class RecordingSink : public InputSink {
 public:
  void BeginInput(std::string_view source, InputKind kind) override {
    events.push_back("begin " + std::string(source));
    kinds.push_back(kind);
  }
  void Log(const LogLine& line) override {
    logs.push_back({std::string(line.source), line.lineNumber, std::string(line.timestamp), line.pid, line.tid,
                    line.level, std::string(line.tag), std::string(line.message)});
  }
  void Property(std::string_view source, std::string_view key, std::string_view value) override {
    properties.emplace_back(std::string(source) + " " + std::string(key), std::string(value));
  }
  void KernelText(std::string_view source, std::string_view text) override {
    kernelTexts.push_back(std::string(source) + " " + std::string(text));
  }
  void EndInput(std::string_view source) override { events.push_back("end " + std::string(source)); }

  std::vector<std::string> events;
  std::vector<InputKind> kinds;
  std::vector<Record> logs;
  std::vector<std::pair<std::string, std::string>> properties;
  std::vector<std::string> kernelTexts;
};

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

const std::filesystem::path kSample =
    std::filesystem::path(REMEDIUM_EXPLAIN_DATA) / "bugreport-vela-AP3A.240905.015.A2-2024-11-23-05-16-02.txt";

std::filesystem::path WorkDir() {
  const std::filesystem::path dir =
      std::filesystem::path(REMEDIUM_EXPLAIN_WORK) / ::testing::UnitTest::GetInstance()->current_test_info()->name();
  std::filesystem::create_directories(dir);
  return dir;
}

// A zip like the one adb bugreport writes, made with libzip: the members
// given as name and content. The sample's zip is made here from its text
// rather than committed, so that the two cannot drift apart.
std::string MakeZip(const std::filesystem::path& path,
                    const std::vector<std::pair<std::string, std::string>>& members) {
  int error = 0;
  zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  if (archive == nullptr) return {};
  for (const auto& [name, content] : members) {
    // libzip reads the buffer at zip_close; the strings outlive it.
    zip_source_t* source = zip_source_buffer(archive, content.data(), content.size(), 0);
    if (source == nullptr || zip_file_add(archive, name.c_str(), source, ZIP_FL_ENC_UTF_8) < 0) {
      zip_source_free(source);
      zip_discard(archive);
      return {};
    }
  }
  if (zip_close(archive) != 0) {
    zip_discard(archive);
    return {};
  }
  return ReadFile(path);
}

struct Result {
  bool ok;
  std::string error;
  RecordingSink sink;
};

Result ReadBytes(std::string_view bytes, std::string_view name = "in.txt") {
  Result result{};
  result.ok = ReadInputBytes(name, bytes, result.sink, &result.error);
  return result;
}

Result ReadPath(const std::filesystem::path& path) {
  Result result{};
  result.ok = ReadInput(path.string(), result.sink, &result.error);
  return result;
}

// --- logcat formats ---------------------------------------------------------

TEST(ExplainReaderTest, ThreadtimeLinesGiveEveryField) {
  const Result result = ReadBytes(
      "--------- beginning of main\n"
      "11-23 05:09:38.562  7219  7221 I [REMEDIUM]: hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0\n"
      "11-23 05:09:38.563  1203  1203 W CameraService: connect: camera 0\n"
      "11-23 05:09:38.564   812   900 D Tag     : padded tag\r\n"
      "11-23 05:09:38.565  7219  7230 E [REMEDIUM]:\n");
  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_THAT(result.sink.events, ElementsAre("begin in.txt", "end in.txt"));
  EXPECT_EQ(result.sink.kinds.at(0), InputSink::InputKind::kLogcat);
  ASSERT_EQ(result.sink.logs.size(), 4u);
  const Record& first = result.sink.logs[0];
  EXPECT_EQ(first.source, "in.txt");
  EXPECT_EQ(first.lineNumber, 2u);
  EXPECT_EQ(first.timestamp, "11-23 05:09:38.562");
  EXPECT_EQ(first.pid, 7219);
  EXPECT_EQ(first.tid, 7221);
  EXPECT_EQ(first.level, 'I');
  EXPECT_EQ(first.tag, "[REMEDIUM]");
  EXPECT_EQ(first.message, "hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0");
  EXPECT_EQ(result.sink.logs[1].tag, "CameraService");
  EXPECT_EQ(result.sink.logs[1].level, 'W');
  EXPECT_EQ(result.sink.logs[2].tag, "Tag");
  EXPECT_EQ(result.sink.logs[2].message, "padded tag");
  EXPECT_EQ(result.sink.logs[2].pid, 812);
  EXPECT_EQ(result.sink.logs[3].message, "");
  EXPECT_EQ(result.sink.logs[3].level, 'E');
}

TEST(ExplainReaderTest, ByteOrderMarkBeforeTheFirstLineIsSkipped) {
  const Result result = ReadBytes(
      "\xEF\xBB\xBF"
      "11-23 05:09:38.562  7219  7221 I [REMEDIUM]: first\n");
  ASSERT_TRUE(result.ok) << result.error;
  ASSERT_EQ(result.sink.logs.size(), 1u);
  EXPECT_EQ(result.sink.logs[0].timestamp, "11-23 05:09:38.562");
  EXPECT_EQ(ReadBytes("\xEF\xBB\xBF"
                      "[a]: [1]\n")
                .sink.properties.size(),
            1u);
}

// --- every -v format and modifier, as logprint writes them ---------------------

// The parsed fields on one line: "format uid|pid|tid level [tag] message".
std::string Fields(LogFormat format, const LogLine& line) {
  return std::string(FormatName(format)) + " " + std::string(line.uid) + "|" + std::to_string(line.pid) + "|" +
         std::to_string(line.tid) + " " + line.level + " [" + std::string(line.tag) + "] " + std::string(line.message);
}

// The time's parts: "timestamp = clock Y-M-D h:m:s seconds.nanos zone".
std::string TimeParts(const LogLine& line) {
  const LogTime& t = line.time;
  static constexpr const char* kClocks[] = {"none", "wall", "epoch", "monotonic"};
  return std::string(line.timestamp) + " = " + kClocks[static_cast<int>(t.clock)] + " " + std::to_string(t.year) + "-" +
         std::to_string(t.month) + "-" + std::to_string(t.day) + " " + std::to_string(t.hour) + ":" +
         std::to_string(t.minute) + ":" + std::to_string(t.second) + " " + std::to_string(t.seconds) + "." +
         std::to_string(t.nanos) + (t.hasZoneOffset ? " " + std::to_string(t.zoneMinutes) : "") +
         (t.zoneName.empty() ? "" : " " + std::string(t.zoneName));
}

struct FormatCase {
  std::string text;
  std::string fields;
  std::string time;  // empty: the format writes none
};

TEST(ExplainReaderTest, EveryLogcatFormatAndModifier) {
  const std::string kWall = "11-23 05:09:38.562 = wall 0-11-23 5:9:38 0.562000000";
  const FormatCase cases[] = {
      // threadtime: "%s %s%5d %5d %c %-8.*s: ", uid "%5s " (a name of up to five letters, else the number).
      {"11-23 05:09:38.562  7219  7221 I [REMEDIUM]: hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0",
       "threadtime |7219|7221 I [[REMEDIUM]] hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0", kWall},
      {"11-23 05:09:38.562 10201  7219  7221 D Tag     : m", "threadtime 10201|7219|7221 D [Tag] m", kWall},
      {"11-23 05:09:38.562  root     1     1 I init    : a (b): c", "threadtime root|1|1 I [init] a (b): c", kWall},
      {"11-23 05:09:38.562 u0_a201  7219  7221 W t       : m", "threadtime u0_a201|7219|7221 W [t] m", kWall},
      {"11-23 05:09:38.562  7219  7221 E [REMEDIUM]: ", "threadtime |7219|7221 E [[REMEDIUM]] ", kWall},
      // usec, nsec, year, zone (strftime " %z"); UTC sets the zone and turns it on.
      {"2024-11-23 05:09:38.562123 +0100  7219  7221 I t       : m", "threadtime |7219|7221 I [t] m",
       "2024-11-23 05:09:38.562123 +0100 = wall 2024-11-23 5:9:38 0.562123000 60"},
      {"11-23 05:09:38.562123456 -0530  1  2 V t       : m", "threadtime |1|2 V [t] m",
       "11-23 05:09:38.562123456 -0530 = wall 0-11-23 5:9:38 0.562123456 -330"},
      {"11-23 04:09:38.562 +0000 logd   468   469 W auditd  : type=2000",
       "threadtime logd|468|469 W [auditd] type=2000", "11-23 04:09:38.562 +0000 = wall 0-11-23 4:9:38 0.562000000 0"},
      {"11-23 04:09:38.562 UTC  1  2 I t       : m", "threadtime |1|2 I [t] m",
       "11-23 04:09:38.562 UTC = wall 0-11-23 4:9:38 0.562000000 0 UTC"},
      // epoch "%19lld", monotonic "%6lld".
      {"         1732338921.338  7219  7221 I [REMEDIUM]: m", "threadtime |7219|7221 I [[REMEDIUM]] m",
       "1732338921.338 = epoch 0-0-0 0:0:0 1732338921.338000000"},
      {"   123.456789  7219  7221 I [REMEDIUM]: m", "threadtime |7219|7221 I [[REMEDIUM]] m",
       "123.456789 = monotonic 0-0-0 0:0:0 123.456789000"},
      {"1732338921.338  1  2 I t       : m", "threadtime |1|2 I [t] m",
       "1732338921.338 = epoch 0-0-0 0:0:0 1732338921.338000000"},
      // color: "\x1B[%dm" (older logcats "\x1B[38;5;%dm") before, "\x1B[0m" after.
      {"\x1B[32m11-23 05:09:38.562  7219  7221 I [REMEDIUM]: m\x1B[0m", "threadtime |7219|7221 I [[REMEDIUM]] m",
       kWall},
      {"\x1B[38;5;196m11-23 05:09:38.562  1  2 E t       : m\x1B[0m", "threadtime |1|2 E [t] m", kWall},
      // -b all: kernel (tag often empty, pid 0), events ("[tag number]" when unnamed), crash.
      {"11-23 05:09:38.562     0     0 I         : binder: 1234:1234 transaction failed",
       "threadtime |0|0 I [] binder: 1234:1234 transaction failed", kWall},
      {"11-23 05:09:38.562  1000  1203 I am_proc_start: [0,15002,10201,com.example.pkg,activity]",
       "threadtime |1000|1203 I [am_proc_start] [0,15002,10201,com.example.pkg,activity]", kWall},
      {"11-23 05:09:38.562  1000  1203 I [30011] : [15002,10201]", "threadtime |1000|1203 I [[30011]] [15002,10201]",
       kWall},
      {"11-23 05:09:38.562 15002 15002 F libc    : Fatal signal 11 (SIGSEGV), code 1 (SEGV_MAPERR)",
       "threadtime |15002|15002 F [libc] Fatal signal 11 (SIGSEGV), code 1 (SEGV_MAPERR)", kWall},
      // time "%s %c/%-8.*s(%s%5d): ", brief the same without the time.
      {"11-23 05:09:38.562 I/[REMEDIUM](  7219): f(x): y", "time |7219|-1 I [[REMEDIUM]] f(x): y", kWall},
      {"11-23 05:09:38.562 I/Tag     (10201: 7219): m", "time 10201|7219|-1 I [Tag] m", kWall},
      {"11-23 05:09:38.562 I/init    ( root:    1): m", "time root|1|-1 I [init] m", kWall},
      {"11-23 05:09:38.562 I/t       (       123): m", "time |123|-1 I [t] m", kWall},
      {"         1732338921.338 W/t       (  123): m", "time |123|-1 W [t] m",
       "1732338921.338 = epoch 0-0-0 0:0:0 1732338921.338000000"},
      {"\x1B[31mE/CamX    (  812): [ERROR] probe failed\x1B[0m", "brief |812|-1 E [CamX] [ERROR] probe failed", ""},
      {"I/Foo(1)  (  123): m", "brief |123|-1 I [Foo(1)] m", ""},
      {"I/t       (  123):", "brief |123|-1 I [t] ", ""},
      // process "%c(%s%5d) " and "  (%.*s)" after the message (after the colour's reset); thread "%c(%s%5d:%5d) ".
      {"I( 7219) hook.cpp:17 a (b)  ([REMEDIUM])", "process |7219|-1 I [[REMEDIUM]] hook.cpp:17 a (b)", ""},
      {"I(10201: 7219) m  (t)", "process 10201|7219|-1 I [t] m", ""},
      {"\x1B[32mI( root:    1) m\x1B[0m  (init)", "process root|1|-1 I [init] m", ""},
      {"I( 7219)   ([REMEDIUM])", "process |7219|-1 I [[REMEDIUM]] ", ""},
      {"I( 7219: 7221) hook.cpp:17 m: (x)", "thread |7219|7221 I [] hook.cpp:17 m: (x)", ""},
      {"W(10201: 7219: 7221) m", "thread 10201|7219|7221 W [] m", ""},
      // tag "%c/%-8.*s: ".
      {"I/[REMEDIUM]: hook.cpp:17 m: 1", "tag |-1|-1 I [[REMEDIUM]] hook.cpp:17 m: 1", ""},
      {"W/Tag     : m (1): 2", "tag |-1|-1 W [Tag] m (1): 2", ""},
      // Android Studio, newer panel and older panel.
      {"2024-11-23 05:15:21.338 15002-15002 [REMEDIUM]              com.example.pkg            I  hook.cpp:17 "
       "GetStaticCapsHook() camera id: 0",
       "Android Studio |15002|15002 I [[REMEDIUM]] hook.cpp:17 GetStaticCapsHook() camera id: 0",
       "2024-11-23 05:15:21.338 = wall 2024-11-23 5:15:21 0.338000000"},
      {"2024-11-23 05:15:21.338   812-900   CamX                    pid-812                             A  boom",
       "Android Studio |812|900 F [CamX] boom", "2024-11-23 05:15:21.338 = wall 2024-11-23 5:15:21 0.338000000"},
      {"2024-11-23 05:15:21.338  1203-1203  <no-tag>                system_process                      W  m",
       "Android Studio |1203|1203 W [] m", "2024-11-23 05:15:21.338 = wall 2024-11-23 5:15:21 0.338000000"},
      {"2024-11-23 05:15:21.338  1203-1203  long tag                system_process                      D  m",
       "Android Studio |1203|1203 D [long tag] m", "2024-11-23 05:15:21.338 = wall 2024-11-23 5:15:21 0.338000000"},
      {"2024-11-23 05:15:21.338 15002-15002/com.example.pkg I/[REMEDIUM]: hook.cpp:17 m: 0",
       "Android Studio |15002|15002 I [[REMEDIUM]] hook.cpp:17 m: 0",
       "2024-11-23 05:15:21.338 = wall 2024-11-23 5:15:21 0.338000000"},
      {"2024-11-23 05:15:21.338 15002-15002/? E/[REMEDIUM]: m", "Android Studio |15002|15002 E [[REMEDIUM]] m",
       "2024-11-23 05:15:21.338 = wall 2024-11-23 5:15:21 0.338000000"},
  };
  for (const FormatCase& c : cases) {
    LogLine line{};
    const LogFormat format = ParseLogLine(c.text, line);
    EXPECT_EQ(line.format, format) << c.text;
    EXPECT_EQ(Fields(format, line), c.fields) << c.text;
    if (!c.time.empty()) EXPECT_EQ(TimeParts(line), c.time) << c.text;
    if (c.time.empty()) EXPECT_EQ(line.time.clock, LogTime::Clock::kNone) << c.text;
  }
}

TEST(ExplainReaderTest, ShapesThatAreNotLogLines) {
  LogLine line{};
  for (const char* text : {"------ SYSTEM LOG (logcat -v threadtime -d *:v) ------",
                           "--------- beginning of main",
                           "[ro.build.id]: [AP3A]",
                           "0,0,-19",
                           "I/O error: disk full",
                           "I(  123) no tag after the message",
                           "I( x) m  (t)",
                           "X/tag     (  1): m",
                           "I/tag     (99999999999): m",
                           "13-23 05:09:38.562  1  2 I t: m",
                           "11-23 25:09:38.562  1  2 I t: m",
                           "11-23 05:09:38.5621234567  1  2 I t: m",
                           "   12 apples and pears",
                           "11-23 05:09:38.562 W/t(  1) m",
                           "2024-11-23 05:15:21.338 15002-15002 com.example.pkg no level",
                           "[ 11-23 05:09:38.562  1:  2 I/t        ]",
                           "11-23 05:09:38.562 loud!  1  2 I t: m",
                           "",
                           "11-23 05:09:38.562  7219  7221 X tag: m",
                           "11-23 05:09:38.562  72a9  7221 I tag: m",
                           "11-23 05:09:38.562  7219  7221 I no colon",
                           "1-23 05:09:38.562  7219  7221 I tag: m",
                           "11-23 05:09:38.  7219  7221 I tag: m",
                           "11-23 05:09:38.562  99999999999  7221 I tag: m"}) {
    EXPECT_EQ(ParseLogLine(text, line), LogFormat::kNone) << text;
    EXPECT_EQ(line.format, LogFormat::kNone) << text;
  }
}

// long: "[ %s %s%5d:%5d %c/%-8.*s ]", the message's lines, a blank line.
TEST(ExplainReaderTest, LongEntriesGiveEachMessageLineTheHeadersFields) {
  const std::vector<std::string> input = {
      "--------- beginning of main",
      "[ 11-23 05:09:38.562  7219: 7221 I/[REMEDIUM] ]",
      "hook.cpp:17 first",
      "second: (x)",
      "",
      "\x1B[31m[ 2024-11-23 05:09:38.562123 +0000 10201: 7219: 7222 E/t         ]",
      "coloured\x1B[0m",
      "",
      "[          1732338921.338  root:    1:    1 W/init     ]",
      "",
      "11-23 05:09:38.600  7219  7221 I [REMEDIUM]: after",
  };
  LogLineParser parser;
  std::vector<std::string> got;
  for (const std::string& text : input) {
    std::string copy = text;  // overwritten after the call, as the reader's buffer is
    LogLine line{};
    const LogFormat format = parser.Parse(copy, line);
    EXPECT_EQ(line.format, format);
    const std::string parsed = Fields(format, line) + " @ " + TimeParts(line);
    // A long message line is its message; the header's fields must outlive the header's line.
    const std::string message(line.message);
    copy.assign(copy.size(), '#');
    line.message = message;
    if (format != LogFormat::kNone)
      got.push_back(format == LogFormat::kLong ? Fields(format, line) + " @ " + TimeParts(line) : parsed);
  }
  EXPECT_THAT(got,
              ElementsAre("long |7219|7221 I [[REMEDIUM]] hook.cpp:17 first @ " + std::string("11-23 05:09:38.562 "
                                                                                              "= wall 0-11-23 5:9:38 "
                                                                                              "0.562000000"),
                          "long |7219|7221 I [[REMEDIUM]] second: (x) @ 11-23 05:09:38.562 = wall 0-11-23 5:9:38 "
                          "0.562000000",
                          "long 10201|7219|7222 E [t] coloured @ 2024-11-23 05:09:38.562123 +0000 = wall "
                          "2024-11-23 5:9:38 0.562123000 0",
                          "threadtime |7219|7221 I [[REMEDIUM]] after @ 11-23 05:09:38.600 = wall 0-11-23 5:9:38 "
                          "0.600000000"));
}

TEST(ExplainReaderTest, MessagesCutByTheLibraryPassAsTheyAre) {
  // The library cuts a message at 1023 characters; the line simply ends there.
  const std::string cut(1023 - 12, 'x');
  const std::string text = "11-23 05:09:38.562  7219  7221 I [REMEDIUM]: hook.cpp:1 " + cut + "\n" +
                           "11-23 05:09:38.563  7219  7221 I [REMEDIUM]: next\n";
  const Result result = ReadBytes(text);
  ASSERT_TRUE(result.ok) << result.error;
  ASSERT_EQ(result.sink.logs.size(), 2u);
  EXPECT_EQ(result.sink.logs[0].message, "hook.cpp:1 " + cut);
  EXPECT_EQ(result.sink.logs[1].message, "next");
  EXPECT_EQ(result.sink.logs[1].lineNumber, 2u);
}

TEST(ExplainReaderTest, OverlongLineIsCutAndTheNextLinesCountOn) {
  // Longer than the reader's line limit: the start is kept, at a character boundary.
  std::string text = "11-23 05:09:38.562  7219  7221 I T: ";
  while (text.size() < 700'000) text += "é";
  text += "\n11-23 05:09:38.563  7219  7221 I T: after\n";
  const Result result = ReadBytes(text);
  ASSERT_TRUE(result.ok) << result.error;
  ASSERT_EQ(result.sink.logs.size(), 2u);
  EXPECT_LT(result.sink.logs[0].message.size(), 300'000u);
  EXPECT_TRUE(sim::text::IsUtf8(result.sink.logs[0].message));
  EXPECT_EQ(result.sink.logs[1].message, "after");
  EXPECT_EQ(result.sink.logs[1].lineNumber, 2u);
}

TEST(ExplainReaderTest, ManyLinesAcrossBufferRefillsStayWhole) {
  std::string text;
  for (int i = 0; i < 40'000; ++i) {
    text += "11-23 05:09:38.562  7219  7221 I [REMEDIUM]: line " + std::to_string(i) + " " +
            std::string(static_cast<size_t>(i % 97), 'y') + "\n";
  }
  const Result result = ReadBytes(text);
  ASSERT_TRUE(result.ok) << result.error;
  ASSERT_EQ(result.sink.logs.size(), 40'000u);
  for (int i = 0; i < 40'000; i += 997) {
    EXPECT_EQ(result.sink.logs[i].message,
              "line " + std::to_string(i) + " " + std::string(static_cast<size_t>(i % 97), 'y'));
    EXPECT_EQ(result.sink.logs[i].lineNumber, static_cast<uint64_t>(i + 1));
  }
}

// --- getprop dumps and the kernel parameter ---------------------------------

// --- bug reports ------------------------------------------------------------

TEST(ExplainReaderTest, BugreportWithoutUidColumnAndWithAnotherSectionOrder) {
  const Result result = ReadBytes(
      "------ SYSTEM PROPERTIES (getprop) ------\n"
      "[vendor.debug.camera.imagesensorstate.1]: [<P:S:3>]\n"
      "not a property line, skipped in a bug report\n"
      "------ 0.03s was the duration of 'SYSTEM PROPERTIES' ------\n"
      "------ SYSTEM LOG (logcat -v threadtime -d *:v) ------\n"
      "11-23 05:09:38.562  7219  7221 I [REMEDIUM]: a\n"
      "------ 0.5s was the duration of 'SYSTEM LOG' ------\n"
      "11-23 05:09:38.562  7219  7221 I [REMEDIUM]: outside any section read\n",
      "br.txt");
  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(result.sink.kinds.at(0), InputSink::InputKind::kBugreport);
  ASSERT_EQ(result.sink.logs.size(), 1u);
  EXPECT_EQ(result.sink.logs[0].message, "a");
  EXPECT_EQ(result.sink.logs[0].lineNumber, 6u);
  EXPECT_EQ(result.sink.properties.size(), 1u);
}

// --- bad inputs -------------------------------------------------------------

std::string ErrorOf(std::string_view bytes, std::string_view name = "bad.txt") {
  const Result result = ReadBytes(bytes, name);
  EXPECT_FALSE(result.ok) << "accepted: " << name;
  EXPECT_EQ(result.error.find('\n'), std::string::npos) << result.error;
  return result.error;
}

TEST(ExplainReaderTest, BadTextInputsNameTheFileAndLine) {
  EXPECT_EQ(ErrorOf(""), "bad.txt: empty file");
  EXPECT_EQ(ErrorOf("\n  \n\n"), "bad.txt: empty file (blank lines only)");
  EXPECT_EQ(ErrorOf(std::string("\x7f"
                                "ELF\x02\x01\x01\0\0\0",
                                10)),
            "bad.txt: binary file: not a logcat, bug report, getprop dump or kernel parameter text");
  EXPECT_EQ(ErrorOf("just some notes\nabout the camera\n"),
            "bad.txt: not a logcat, bug report, getprop dump or kernel parameter text");
  // Text that is no log, whatever its bytes; UTF-16 without a log in it.
  EXPECT_EQ(ErrorOf("caf\xe9\n"), "bad.txt: not a logcat, bug report, getprop dump or kernel parameter text");
  EXPECT_EQ(ErrorOf("\xc0\xaf\n\xed\xa0\x80\n"),
            "bad.txt: not a logcat, bug report, getprop dump or kernel parameter text");
  EXPECT_EQ(ErrorOf(std::string("\xFF\xFE"
                                "1\0"
                                "1\0",
                                6)),
            "bad.txt: not a logcat, bug report, getprop dump or kernel parameter text");
  // A file name with a line end stays on one line.
  EXPECT_EQ(ErrorOf("notes\n", "a\nb.txt"),
            "a\\x0Ab.txt: not a logcat, bug report, getprop dump or kernel parameter text");
}

// Another process's bad bytes are never a reason to refuse a log: its lines pass as they are
// (the story escapes what it shows), line numbers count on, and the library's lines are read.
TEST(ExplainReaderTest, BadBytesInOtherLinesAreNotRefused) {
  std::string log = "11-23 05:09:38.562  1  2 I T: caf\xe9 au lait\n";
  log += std::string("11-23 05:09:38.563  1  2 I T: a\0b\x01\n", 35);
  for (int i = 0; i < 3000; ++i) log += "11-23 05:09:38.564  1  2 I T: a line of some length\n";
  log += "11-23 05:09:38.565  1  2 I T: \xc0\xaf overlong, \xed\xa0\x80 surrogate\n";
  log += "11-23 05:09:38.566  7  7 I [REMEDIUM]: hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0\n";
  const Result result = ReadBytes(log);
  ASSERT_TRUE(result.ok) << result.error;
  ASSERT_EQ(result.sink.logs.size(), 3004u);
  EXPECT_EQ(result.sink.logs[0].message, "caf\xe9 au lait");
  EXPECT_EQ(result.sink.logs[1].message, std::string("a\0b\x01", 4));
  EXPECT_EQ(result.sink.logs[3003].lineNumber, 3004u);
  EXPECT_EQ(result.sink.logs[3003].tag, "[REMEDIUM]");
}

TEST(ExplainReaderTest, GetpropDumpWithGarbageNamesTheLine) {
  EXPECT_EQ(ErrorOf("[a]: [1]\n[b]: [2]\nb = 3\n", "props.txt"),
            "props.txt:3: not a \"[key]: [value]\" line in a getprop dump");
  EXPECT_EQ(ErrorOf("[a]: [1]\n[b]: [unterminated\n", "props.txt"),
            "props.txt:2: not a \"[key]: [value]\" line in a getprop dump (its value never ends)");
  EXPECT_EQ(ErrorOf("0,0,0,0\n1,2\n", "param"), "param:2: a kernel parameter text is one line of numbers");
}

TEST(ExplainReaderTest, BadZipsNameTheFile) {
  const std::string text = ReadFile(kSample);
  const std::string bytes =
      MakeZip(WorkDir() / "whole.zip", {{"main_entry.txt", "bugreport-x.txt"}, {"bugreport-x.txt", text}});
  ASSERT_GT(bytes.size(), 1000u);
  EXPECT_THAT(ErrorOf(bytes.substr(0, bytes.size() / 2), "cut.zip"), StartsWith("cut.zip: truncated or damaged zip ("));
  // Cut on disk as well: the file-backed path.
  const std::filesystem::path cut = WorkDir() / "cut.zip";
  std::ofstream(cut, std::ios::binary) << bytes.substr(0, bytes.size() - 30);
  const Result fromFile = ReadPath(cut);
  EXPECT_FALSE(fromFile.ok);
  EXPECT_THAT(fromFile.error, StartsWith(cut.string() + ": truncated or damaged zip ("));

  EXPECT_EQ(ErrorOf(MakeZip(WorkDir() / "none.zip", {{"notes.txt", "hello"}}), "none.zip"),
            "none.zip: a zip without a bug report (no main_entry.txt, no bugreport*.txt in it)");
  EXPECT_EQ(ErrorOf(MakeZip(WorkDir() / "dangling.zip", {{"main_entry.txt", "bugreport-gone.txt\n"}}), "d.zip"),
            "d.zip: main_entry.txt names \"bugreport-gone.txt\", which is not in the zip");
  EXPECT_EQ(ErrorOf(MakeZip(WorkDir() / "binary.zip", {{"bugreport-b.txt", std::string("\0\1\2\3", 4)}}), "b.zip"),
            "b.zip!bugreport-b.txt: binary file: not a logcat, bug report, getprop dump or kernel parameter text");
  // A member whose compressed data is damaged: inflating or its checksum fails while streaming.
  std::string damaged = MakeZip(WorkDir() / "damaged.zip", {{"bugreport-s.txt", text}});
  damaged[damaged.size() / 2] = static_cast<char>(damaged[damaged.size() / 2] ^ 0x55);
  EXPECT_THAT(ErrorOf(damaged, "s.zip"), StartsWith("s.zip!bugreport-s.txt:"));
}

TEST(ExplainReaderTest, MissingFilesAndDirectories) {
  Result result = ReadPath("/nonexistent/log.txt");
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.error, "/nonexistent/log.txt: No such file or directory");
  result = ReadPath(REMEDIUM_EXPLAIN_DATA);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.error, std::string(REMEDIUM_EXPLAIN_DATA) + ": a directory, not a file");
  EXPECT_TRUE(result.sink.events.empty());
}

}  // namespace
}  // namespace explain
