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

#include "sim/explain/input.h"
#include "sim/explain/logline.h"
#include "sim/records/records.h"

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

TEST(ExplainReaderTest, ThreadtimeWithYearAndWithUidColumn) {
  LogLine line{};
  ASSERT_EQ(ParseLogLine("2024-11-23 05:09:38.562  7219  7221 I [REMEDIUM]: x: y", line), LogFormat::kThreadtime);
  EXPECT_EQ(line.timestamp, "2024-11-23 05:09:38.562");
  EXPECT_EQ(line.message, "x: y");
  ASSERT_EQ(ParseLogLine("11-23 05:09:38.562  1047  7219  7221 I [REMEDIUM]: m", line), LogFormat::kThreadtime);
  EXPECT_EQ(line.pid, 7219);
  EXPECT_EQ(line.tid, 7221);
  ASSERT_EQ(ParseLogLine("02-18 04:26:31.829  logd   468   469 W auditd  : type=2000", line), LogFormat::kThreadtime);
  EXPECT_EQ(line.pid, 468);
  EXPECT_EQ(line.tid, 469);
  EXPECT_EQ(line.tag, "auditd");
  // Microseconds (logcat -v usec) are a longer fraction.
  ASSERT_EQ(ParseLogLine("11-23 05:09:38.562123  1  2 V t: m", line), LogFormat::kThreadtime);
  EXPECT_EQ(line.timestamp, "11-23 05:09:38.562123");
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

TEST(ExplainReaderTest, BriefAndTimeLinesHaveNoThread) {
  const Result result = ReadBytes(
      "I/[REMEDIUM]( 7219): hook.cpp:17 GetStaticCapsHook() camera id: 0\n"
      "11-23 05:09:38.562 E/CamX    (  812): [ERROR] probe failed (rc -110)\n"
      "W/Tag(1000: 4321): uid before the pid\n");
  ASSERT_TRUE(result.ok) << result.error;
  ASSERT_EQ(result.sink.logs.size(), 3u);
  EXPECT_EQ(result.sink.logs[0].timestamp, "");
  EXPECT_EQ(result.sink.logs[0].pid, 7219);
  EXPECT_EQ(result.sink.logs[0].tid, -1);
  EXPECT_EQ(result.sink.logs[0].tag, "[REMEDIUM]");
  EXPECT_EQ(result.sink.logs[0].message, "hook.cpp:17 GetStaticCapsHook() camera id: 0");
  EXPECT_EQ(result.sink.logs[1].timestamp, "11-23 05:09:38.562");
  EXPECT_EQ(result.sink.logs[1].tag, "CamX");
  EXPECT_EQ(result.sink.logs[1].level, 'E');
  EXPECT_EQ(result.sink.logs[1].message, "[ERROR] probe failed (rc -110)");
  EXPECT_EQ(result.sink.logs[2].pid, 4321);
  LogLine line{};
  EXPECT_EQ(ParseLogLine("I/T( 1): m", line), LogFormat::kBrief);
  EXPECT_EQ(ParseLogLine("11-23 05:09:38.562 I/T( 1): m", line), LogFormat::kTime);
}

TEST(ExplainReaderTest, LinesThatAreNotLogLinesAreRejected) {
  LogLine line{};
  for (const char* text : {"", "hello world", "11-23 05:09:38.562", "11-23 05:09:38.562  7219  7221 X tag: m",
                           "11-23 05:09:38.562  72a9  7221 I tag: m", "11-23 05:09:38.562  7219 I tag: m",
                           "11-23 05:09:38.562  7219  7221 I no colon", "I/tag( x): m", "I/tag 123): m",
                           "1-23 05:09:38.562  7219  7221 I tag: m", "11-23 05:09:38.  7219  7221 I tag: m",
                           "11-23 05:09:38.562  99999999999  7221 I tag: m"}) {
    EXPECT_EQ(ParseLogLine(text, line), LogFormat::kNone) << text;
  }
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
  EXPECT_TRUE(sim::records::IsUtf8(result.sink.logs[0].message));
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

TEST(ExplainReaderTest, GetpropDumpGivesEveryProperty) {
  const Result result = ReadBytes(
      "[persist.vendor.camera.errorFrameworkId]: [2,3]\n"
      "\n"
      "[vendor.debug.camera.imagesensorstate.0]: [<P:F:12><I:-:0><C:-:0>]\n"
      "[empty.value]: []\n",
      "props.txt");
  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(result.sink.kinds.at(0), InputSink::InputKind::kGetprop);
  using P = std::pair<std::string, std::string>;
  EXPECT_THAT(result.sink.properties,
              ElementsAre(P{"props.txt persist.vendor.camera.errorFrameworkId", "2,3"},
                          P{"props.txt vendor.debug.camera.imagesensorstate.0", "<P:F:12><I:-:0><C:-:0>"},
                          P{"props.txt empty.value", ""}));
}

TEST(ExplainReaderTest, KernelParameterTextIsPassedWhole) {
  std::string table;
  for (int i = 0; i < 64; ++i) table += (i ? "," : "") + std::to_string(i == 32 ? -110 : 0);
  Result result = ReadBytes(table + "\n", "param");
  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(result.sink.kinds.at(0), InputSink::InputKind::kKernelText);
  EXPECT_THAT(result.sink.kernelTexts, ElementsAre("param " + table));
  // As the parameter is written: NUL-padded to 1024 bytes.
  std::string padded = table;
  padded.resize(1024, '\0');
  result = ReadBytes(padded, "padded");
  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_THAT(result.sink.kernelTexts, ElementsAre("padded " + table));
}

// --- bug reports ------------------------------------------------------------

void ExpectSampleBugreport(const Result& result, const std::string& source) {
  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_THAT(result.sink.events, ElementsAre("begin " + source, "end " + source));
  EXPECT_EQ(result.sink.kinds.at(0), InputSink::InputKind::kBugreport);
  // The SYSTEM LOG section only: not the EVENT LOG's line nor the dmesg's.
  size_t library = 0;
  for (const Record& log : result.sink.logs) {
    EXPECT_EQ(log.source, source);
    EXPECT_NE(log.tag, "am_proc_start");
    if (log.tag == "[REMEDIUM]") {
      ++library;
      EXPECT_EQ(log.pid, 15002);
      EXPECT_EQ(log.tid, 15002);
    }
  }
  EXPECT_EQ(library, 93u);
  EXPECT_GT(result.sink.logs.size(), 2 * library);
  ASSERT_FALSE(result.sink.logs.empty());
  EXPECT_EQ(result.sink.logs.front().lineNumber, 22u);
  const auto getStaticCaps = std::find_if(result.sink.logs.begin(), result.sink.logs.end(),
                                          [](const Record& log) { return log.tag == "[REMEDIUM]"; });
  EXPECT_EQ(getStaticCaps->message, "hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0");
  EXPECT_EQ(getStaticCaps->timestamp, "11-23 05:15:21.338");
  using P = std::pair<std::string, std::string>;
  EXPECT_THAT(
      result.sink.properties,
      ::testing::IsSupersetOf({P{source + " vendor.debug.camera.imagesensorstate.0", "<P:S:100><I:S:100><C:S:100>"},
                               P{source + " persist.vendor.camera.errorFrameworkId", ""}}));
  EXPECT_EQ(result.sink.properties.size(), 8u);
}

TEST(ExplainReaderTest, SampleBugreportText) { ExpectSampleBugreport(ReadPath(kSample), kSample.string()); }

TEST(ExplainReaderTest, SampleBugreportZipAsAdbWritesIt) {
  const std::string text = ReadFile(kSample);
  const std::string member = kSample.filename().string();
  const std::filesystem::path zip = WorkDir() / "bugreport.zip";
  const std::string bytes = MakeZip(zip, {{"version.txt", "2.0"},
                                          {"main_entry.txt", member},
                                          {member, text},
                                          {"FS/data/anr/anr_2024-11-23-05-15-00-000", "----- pid 15002 -----\n"}});
  ASSERT_FALSE(bytes.empty());
  ExpectSampleBugreport(ReadPath(zip), zip.string() + "!" + member);
  ExpectSampleBugreport(ReadBytes(bytes, "mem.zip"), "mem.zip!" + member);
  // Without main_entry.txt the bugreport-*.txt member is taken.
  const std::filesystem::path plain = WorkDir() / "plain.zip";
  ASSERT_FALSE(MakeZip(plain, {{"dumpstate_log.txt", "x"}, {member, text}}).empty());
  ExpectSampleBugreport(ReadPath(plain), plain.string() + "!" + member);
}

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
  // Latin-1 in the first lines, and further down a log.
  EXPECT_EQ(ErrorOf("caf\xe9\n"), "bad.txt:1: invalid UTF-8");
  EXPECT_EQ(ErrorOf("11-23 05:09:38.562  1  2 I T: ok\n11-23 05:09:38.563  1  2 I T: caf\xe9\n"),
            "bad.txt:2: invalid UTF-8");
  // A NUL in the first 64 KiB makes a binary file; further down, the line is named.
  EXPECT_EQ(ErrorOf("11-23 05:09:38.562  1  2 I T: ok\n" + std::string("a\0b\n", 4)),
            "bad.txt: binary file: not a logcat, bug report, getprop dump or kernel parameter text");
  std::string log;
  for (int i = 0; i < 3000; ++i) log += "11-23 05:09:38.562  1  2 I T: a line of some length\n";
  EXPECT_EQ(ErrorOf(log + std::string("a\0b\n", 4)), "bad.txt:3001: binary data (a NUL byte) in a text input");
  EXPECT_EQ(ErrorOf(std::string("\xFF\xFE"
                                "1\0"
                                "1\0",
                                6)),
            "bad.txt: UTF-16 text; save it as UTF-8");
  // An overlong encoding and a surrogate are not UTF-8 either.
  EXPECT_EQ(ErrorOf("\xc0\xaf\n"), "bad.txt:1: invalid UTF-8");
  EXPECT_EQ(ErrorOf("\xed\xa0\x80\n"), "bad.txt:1: invalid UTF-8");
}

TEST(ExplainReaderTest, GetpropDumpWithGarbageNamesTheLine) {
  EXPECT_EQ(ErrorOf("[a]: [1]\n[b]: [2]\nb = 3\n", "props.txt"),
            "props.txt:3: not a \"[key]: [value]\" line in a getprop dump");
  EXPECT_EQ(ErrorOf("[a]: [1]\n[b]: [unterminated\n", "props.txt"),
            "props.txt:2: not a \"[key]: [value]\" line in a getprop dump");
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
