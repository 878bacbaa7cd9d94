// What real captures hold besides one clean log: several boots and files, time
// going back or over New Year, a bug report's previous boot, crashes and
// tombstones, getprop values over several lines, the kernel parameter alone,
// formats that carry too little, pipes; and the command's outputs for batch
// tools and Perfetto (JSON Lines, filters, the trace).
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zip.h>

#include "explain/input.h"
#include "explain/sites.h"
#include "explain/story.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

std::filesystem::path Work() {
  const std::filesystem::path dir = std::filesystem::path(REMEDIUM_EXPLAIN_WORK) / "shapes" /
                                    ::testing::UnitTest::GetInstance()->current_test_info()->name();
  std::filesystem::create_directories(dir);
  return dir;
}

std::string Write(const std::string& name, const std::string& bytes) {
  const std::string path = (Work() / name).string();
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

struct Output {
  int status;
  std::string out, err;
};

Output Explain(const std::vector<std::string>& files, const explain::ExplainOptions& options = {}) {
  std::ostringstream out, err;
  const int status = explain::RunExplain(files, options, out, err);
  return {status, out.str(), err.str()};
}

// A threadtime line of the library.
std::string Lib(const std::string& time, int pid, int tid, const std::string& message) {
  char head[96];
  std::snprintf(head, sizeof head, "%s %5d %5d I [REMEDIUM]: ", time.c_str(), pid, tid);
  return head + message + "\n";
}

// One sensor probe attempt of `sensor` on `camera`, its kernel result `kmd` and CamX's `umd`.
std::string Probe(const std::string& time, int pid, int tid, const std::string& sensor, int camera, int kmd, int umd) {
  std::string table;
  for (int i = 0; i < 64; ++i) table += (i ? "," : "") + std::to_string(i == camera + 32 ? kmd : 0);
  return Lib(time, pid, tid, "hook.cpp:93 SensorProbeHook() sensorModuleRetryTimes: 3, sensorModuleNumber: 2") +
         Lib(time, pid, tid,
             "hook.cpp:105 SensorProbeHook() sensor name: " + sensor +
                 ",  sensor type: rear, frequentlyUsedSensor: 0, neverBeenSuccessfullyProbed: 0") +
         Lib(time, pid, tid, "hook.cpp:112 SensorProbeHook() Get camera name:" + sensor + ", probeCount: 0") +
         Lib(time, pid, tid, "hook.cpp:64 ReadSensorProbeResult() read sensor_apply_settings_control: " + table) +
         Lib(time, pid, tid,
             "hook.cpp:152 SensorProbeHook() probe sensor: " + sensor + ", slot id: " + std::to_string(camera) +
                 " kmd result: " + std::to_string(kmd) + ", umd result: " + std::to_string(umd));
}

TEST(ExplainShapes, BootsFollowTheLogNotTheArguments) {
  // One log appended across a reboot: the same PID again is a process of the next boot.
  const std::string first = Probe("11-23 05:00:01.000", 700, 700, "imx582_rear", 0, -19, 1);
  const std::string second =
      "--------- beginning of kernel\n"
      "11-23 05:03:00.000     0     0 I         : Booting Linux on physical CPU 0x0000000000 [0x411fd050]\n"
      "--------- beginning of main\n" +
      Probe("11-23 05:03:20.000", 700, 700, "s5kgm2_rear", 0, 0, 0);
  const Output appended = Explain({Write("appended.txt", first + second)});
  EXPECT_THAT(appended.out, HasSubstr("boot 1, process 700, camera 0: imx582_rear failed on attempt 1"));
  EXPECT_THAT(appended.out, HasSubstr("boot 2, process 700, camera 0: s5kgm2_rear kept on attempt 1"));
  EXPECT_THAT(appended.out, HasSubstr(": a reboot the log shows at"));
  // The two boots as two files, given newest first: told in time order.
  const std::string older = Write("older.txt", first), newer = Write("newer.txt", second);
  const Output files = Explain({newer, older});
  EXPECT_LT(files.out.find("imx582_rear failed"), files.out.find("s5kgm2_rear kept")) << files.out;
  // -v monotonic restarting from 0 is a reboot too.
  const Output monotonic = Explain(
      {Write("monotonic.txt",
             "   500.000   700   700 I [REMEDIUM]: hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0\n"
             "     3.000   700   700 I [REMEDIUM]: hook.cpp:17 GetStaticCapsHook() camera id: 1, slot id: 1\n")});
  EXPECT_THAT(monotonic.out, HasSubstr("boot 2 ("));
}

TEST(ExplainShapes, TimeOverNewYearAndASetBackClockKeepsTheLogsOrder) {
  const std::string log = Probe("12-31 23:59:59.900", 700, 700, "imx582_rear", 0, -19, 1) +
                          Probe("01-01 00:00:00.100", 700, 700, "s5kgm2_rear", 0, -110, 1) +
                          // Network time sets the clock back an hour: still the attempt after.
                          Probe("12-31 23:00:00.000", 700, 700, "ov13b_rear", 0, 0, 0);
  explain::StorySink sink;
  std::string error;
  ASSERT_TRUE(explain::ReadInput(Write("newyear.txt", log), sink, &error)) << error;
  const explain::Story story = sink.Finish();
  const std::vector<explain::Event>& events = story.boots.at(0).processes.at(0).cameras.at(0).events;
  ASSERT_EQ(events.size(), 3u);
  EXPECT_THAT(events[0].text, HasSubstr("attempt 1: imx582_rear"));
  EXPECT_THAT(events[1].text, HasSubstr("attempt 2: s5kgm2_rear"));
  EXPECT_THAT(events[2].text, HasSubstr("attempt 3: ov13b_rear"));
  EXPECT_LT(events[0].micros, events[1].micros);  // 01-01 is the next year's
  EXPECT_THAT(explain::FormatStory(story), HasSubstr("ov13b_rear kept on attempt 3"));
  // A bug report written in January: its December lines are of the year before.
  explain::StorySink report;
  ASSERT_TRUE(explain::ReadInput(Write("bugreport-newyear.txt",
                                       "== dumpstate: 2025-01-01 00:10:00\n"
                                       "------ SYSTEM LOG (logcat -v threadtime) ------\n" +
                                           log),
                                 report, &error))
      << error;
  const explain::Story told = report.Finish();
  EXPECT_EQ(told.boots.at(0).reportTime, "2025-01-01 00:10:00");
  const std::vector<explain::Event>& dated = told.boots.at(0).processes.at(0).cameras.at(0).events;
  EXPECT_EQ(dated.at(0).micros / 1000000, 1735689599);  // 2024-12-31 23:59:59
  EXPECT_EQ(dated.at(1).micros / 1000000, 1735689600);  // 2025-01-01 00:00:00
}

// A bug report with its previous boot (LAST LOGCAT), a crash in the crash buffer, and the
// tombstone of the zip: the earlier boot first, the crashed process ending with its signal.
TEST(ExplainShapes, BugreportsPreviousBootCrashAndTombstone) {
  const std::string report =
      "== dumpstate: 2026-11-23 05:10:00\n"
      "------ SYSTEM LOG (logcat -v threadtime -v printable -v uid -d *:v) ------\n"
      "--------- beginning of main\n" +
      Probe("11-23 05:05:00.000", 800, 801, "s5kgm2_rear", 0, 0, 0) +
      "--------- beginning of crash\n"
      "11-23 05:05:01.000   800   801 F libc    : Fatal signal 6 (SIGABRT), code -1 (SI_QUEUE) in tid 801 "
      "(camxthread), pid 800 (provider@2.7-se)\n"
      "11-23 05:05:01.100   900   900 F DEBUG   : pid: 800, tid: 801, name: camxthread  >>> "
      "/vendor/bin/hw/provider@2.7-se <<<\n"
      "11-23 05:05:01.100   900   900 F DEBUG   : signal 6 (SIGABRT), code -1 (SI_QUEUE), fault addr --------\n" +
      Probe("11-23 05:05:02.000", 820, 820, "s5kgm2_rear", 0, 0, 0) +
      "------ 0.1s was the duration of 'SYSTEM LOG' ------\n"
      "------ LAST LOGCAT (logcat -L -b all -v threadtime -v printable -v uid -d *:v) ------\n"
      "--------- beginning of main\n" +
      Probe("11-23 04:00:00.000", 800, 800, "imx582_rear", 0, -19, 1) +
      "------ 0.1s was the duration of 'LAST LOGCAT' ------\n";
  const std::string tombstone =
      "*** *** *** *** *** *** *** *** *** *** *** *** *** *** *** ***\n"
      "pid: 800, tid: 801, name: camxthread  >>> /vendor/bin/hw/provider@2.7-se <<<\n"
      "signal 6 (SIGABRT), code -1 (SI_QUEUE), fault addr --------\n"
      "backtrace:\n"
      "      #00 pc 000000000005e1c8  /apex/com.android.runtime/lib64/bionic/libc.so (abort+168)\n"
      "      #01 pc 0000000000012f40  /vendor/lib64/com.velora.remedium.hook.camx.so (CamX::CaptureRequestHook+96)\n";
  const std::string text = Explain({Write("bugreport-x.txt", report)}).out;
  EXPECT_LT(text.find("boot 1 ("), text.find("the boot before, from the LAST LOGCAT section"));
  EXPECT_LT(text.find("imx582_rear failed"), text.find("s5kgm2_rear kept")) << text;
  EXPECT_THAT(text, HasSubstr("process 800 ended by signal 6 (SIGABRT)"));
  EXPECT_THAT(text, HasSubstr("the previous camera process ended by signal 6 (SIGABRT)"));

  int error = 0;
  const std::string zipPath = (Work() / "bugreport.zip").string();
  zip_t* zip = zip_open(zipPath.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  ASSERT_NE(zip, nullptr);
  const std::string mainEntry = "bugreport-x.txt";
  for (const auto* member : {&mainEntry, &report, &tombstone}) {
    const std::string name = member == &mainEntry ? "main_entry.txt"
                             : member == &report  ? "bugreport-x.txt"
                                                  : "FS/data/tombstones/tombstone_03";
    zip_file_add(zip, name.c_str(), zip_source_buffer(zip, member->data(), member->size(), 0), 0);
  }
  ASSERT_EQ(zip_close(zip), 0);
  const std::string zipped = Explain({zipPath}).out;
  EXPECT_THAT(zipped, HasSubstr("ended by signal 6 (SIGABRT)\n      #01 pc 0000000000012f40  "
                                "/vendor/lib64/com.velora.remedium.hook.camx.so (CamX::CaptureRequestHook+96)"));
  EXPECT_THAT(zipped, Not(HasSubstr("libc.so (abort")));
}

TEST(ExplainShapes, GetpropValuesOverLinesAndTheKernelParameterAlone) {
  const std::string props =
      "[persist.vendor.camera.note]: [first line\r\nsecond line]\r\n"
      "[vendor.debug.camera.imagesensorstate.2]: [<P:F:12><I:-:0><C:-:0>]\r\n";
  explain::StorySink sink;
  std::string error;
  ASSERT_TRUE(explain::ReadInput(Write("getprop.txt", props), sink, &error)) << error;
  const explain::Story story = sink.Finish();
  EXPECT_EQ(story.boots.at(0).properties.at("persist.vendor.camera.note"), "first line\nsecond line");
  EXPECT_THAT(explain::FormatStory(story),
              HasSubstr("camera 2\n      state <P:F:12><I:-:0><C:-:0>: probe (P): failed"));
  // The parameter's text alone is told per camera: armed slots and kernel results.
  std::string table;
  for (int i = 0; i < 64; ++i) table += (i ? "," : "") + std::to_string(i == 1 ? 1 : i == 17 ? 3 : i == 33 ? -110 : 0);
  const std::string text = Explain({Write("sensor_apply_settings_control", table + std::string(8, '\0'))}).out;
  EXPECT_THAT(text, HasSubstr("camera 1\n      kernel table:"));
  EXPECT_THAT(text, HasSubstr("-110"));
}

TEST(ExplainShapes, TooLittleToTellAndWhatCannotBeRead) {
  const std::string line = "hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0";
  const Output raw = Explain({Write("raw.txt", line + "\n" + line + "\n")});
  EXPECT_EQ(raw.status, 2);
  EXPECT_THAT(raw.err, HasSubstr("raw.txt: logcat -v raw output: no tag, process id, thread or time"));
  const Output tag = Explain({Write("tag.txt", "I/[REMEDIUM]: " + line + "\nW/CameraService: x\n")});
  EXPECT_EQ(tag.status, 2);
  EXPECT_THAT(tag.err, HasSubstr("tag.txt: logcat -v tag output: no process id, thread or time"));
  // A pipe is refused at once, never waited on.
  const std::string fifo = (Work() / "fifo").string();
  std::filesystem::remove(fifo);
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const auto start = std::chrono::steady_clock::now();
  const Output piped = Explain({fifo});
  EXPECT_EQ(piped.status, 2);
  EXPECT_THAT(piped.err, HasSubstr("not a regular file"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  // A file cut while it is read (a log being rotated) is reported, not silently cut.
  std::string big;
  while (big.size() < (4u << 20)) big += "11-23 05:00:01.000  1000  1000 I CamX    : a line of another process\n";
  const std::string path = Write("shrinking.txt", big);
  struct Truncating : explain::StorySink {
    std::string path;
    bool cut = false;
    void Log(const explain::LogLine& line) override {
      if (!cut) std::filesystem::resize_file(path, 2u << 20), cut = true;
      StorySink::Log(line);
    }
  } sink;
  sink.path = path;
  std::string error;
  EXPECT_FALSE(explain::ReadInput(path, sink, &error));
  EXPECT_THAT(error, HasSubstr("shrinking.txt: the file shrank while being read"));
}

// The library cuts a line at 1023 bytes, maybe inside a character; a file name that is not
// UTF-8 still gives valid JSON.
TEST(ExplainShapes, CutCharactersAndNamesThatAreNotUtf8) {
  std::string message = "hook.cpp:105 SensorProbeHook() sensor name: " + std::string(960, 'x');
  while (message.size() < explain::kCutLength - 1) message += "\xC3\xA9";  // é
  message.resize(explain::kCutLength);                                     // inside the last é
  const std::string path = Write("caf\xE9.txt", Lib("11-23 05:00:01.000", 700, 700, message) +
                                                    Probe("11-23 05:00:02.000", 700, 700, "imx582_rear", 0, 0, 0));
  explain::ExplainOptions json;
  json.json = true;
  const Output out = Explain({path}, json);
  ASSERT_EQ(out.status, 0) << out.err;
  const explain::Json parsed = explain::Json::parse(out.out);
  EXPECT_THAT(parsed["boots"][0]["source"].get<std::string>(), HasSubstr("caf\\xE9.txt"));
  EXPECT_EQ(parsed["unrecognisedCount"], 0);
}

TEST(ExplainShapes, JsonLinesFiltersAndTrace) {
  const std::string log = Probe("11-23 05:00:01.000", 700, 700, "imx582_rear", 0, -19, 1) +
                          Probe("11-23 05:00:02.000", 700, 701, "ov16a1q_front", 1, 0, 0) +
                          Probe("11-23 05:00:03.000", 700, 700, "s5kgm2_rear", 0, 0, 0);
  const std::string path = Write("log.txt", log);
  explain::ExplainOptions jsonl;
  jsonl.jsonl = true;
  jsonl.camera = 0;
  const Output lines = Explain({path}, jsonl);
  std::istringstream in(lines.out);
  std::vector<explain::Json> decisions;
  for (std::string line; std::getline(in, line);) decisions.push_back(explain::Json::parse(line));
  ASSERT_EQ(decisions.size(), 2u);
  EXPECT_EQ(decisions[1]["camera"], 0);
  EXPECT_EQ(decisions[1]["pid"], 700);
  EXPECT_THAT(decisions[1]["text"].get<std::string>(), HasSubstr("s5kgm2_rear"));

  explain::ExplainOptions since;
  since.since = explain::ParseFilterTime("11-23 05:00:01.500");
  since.kinds = {"sensor-probe"};
  const std::string text = Explain({path}, since).out;
  EXPECT_THAT(text, Not(HasSubstr("imx582_rear")));
  EXPECT_THAT(text, HasSubstr("ov16a1q_front"));
  EXPECT_FALSE(explain::ParseFilterTime("yesterday"));

  explain::ExplainOptions trace;
  trace.trace = (Work() / "trace.json").string();
  ASSERT_EQ(Explain({path}, trace).status, 0);
  std::ifstream file(trace.trace);
  const explain::Json events = explain::Json::parse(file)["traceEvents"];
  size_t slices = 0;
  for (const explain::Json& event : events) slices += event["ph"] == "X";
  EXPECT_EQ(slices, 3u);
}

}  // namespace
