// The story as a Trace Event Format document: parsed back, it holds what the
// trace viewers need (ids named by metadata, times in order per track, slices
// that nest) and the story's events and attempts where they belong.
#include "explain/trace.h"

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using nlohmann::json;

explain::Event At(const std::string& kind, int64_t micros, int attempt = 0, const std::string& text = "") {
  explain::Event event;
  event.kind = kind;
  event.micros = micros;
  event.attempt = attempt;
  event.text = text.empty() ? kind : text;
  event.where = "hook.cpp:152";
  return event;
}

explain::CameraStory Camera(int id, std::optional<int> slot, std::vector<explain::Event> events) {
  explain::CameraStory camera;
  camera.id = id;
  camera.slot = slot;
  camera.events = std::move(events);
  return camera;
}

// Two boots that both have a camera process 500. On camera 0, EEPROM attempt
// 1 (200..400) overlaps the end of sensor attempt 1 (100..300).
explain::Story TwoBoots() {
  constexpr int64_t t = 5'000'000;  // the story's first known time
  explain::Story story;
  story.boots.resize(2);
  explain::ProcessStory first, second, again;
  first.pid = 500;
  first.cameras[-1] = Camera(-1, {}, {At("core-missing", -1), At("gap", t + 50)});
  first.cameras[0] =
      Camera(0, 0,
             {At("sensor-probe", t + 100, 1), At("bypass-refused", -1, 1),
              At("eeprom-probe", t + 200, 1, "EEPROM of \xff\xfe bad\x01"), At("i2c-address", t + 300, 1),
              At("eeprom-probe", t + 400, 1), At("sensor-probe", t + 500, 2), At("init-failure-hidden", t + 500, 2)});
  second.pid = 501;
  second.cameras[1] = Camera(1, 1, {At("sensor-probe", t + 700, 1)});
  again.pid = 500;
  again.cameras[0] = Camera(0, {}, {At("log-ends", -1, 1), At("sensor-probe", t, 1)});
  story.boots[0].processes = {first, second};
  story.boots[1].processes = {again};
  return story;
}

json TraceOf(const explain::Story& story) {
  std::ostringstream out;
  explain::WriteTrace(story, out);
  return json::parse(out.str());  // throws on anything but valid JSON (UTF-8 included)
}

TEST(ExplainTrace, DocumentHoldsWhatTheViewersNeed) {
  const json trace = TraceOf(TwoBoots());
  EXPECT_EQ(trace.at("displayTimeUnit"), "ms");
  std::map<int, std::string> processNames;
  std::map<std::pair<int, int>, std::string> threadNames;
  std::set<std::pair<int, int>> used;
  std::map<std::pair<int, int>, int64_t> lastTs;
  std::map<std::pair<int, int>, std::vector<std::pair<int64_t, int64_t>>> slices;
  size_t instants = 0;
  for (const json& event : trace.at("traceEvents")) {
    for (const char* field : {"ph", "ts", "pid", "tid", "name"}) ASSERT_TRUE(event.contains(field)) << event;
    const std::string ph = event["ph"];
    const std::pair<int, int> track(event["pid"], event["tid"]);
    const int64_t ts = event["ts"];
    EXPECT_GE(ts, 0) << event;
    if (ph == "M") {
      if (event["name"] == "process_name") processNames[track.first] = event["args"]["name"];
      if (event["name"] == "thread_name") threadNames[track] = event["args"]["name"];
      continue;
    }
    used.insert(track);
    EXPECT_GE(ts, lastTs[track]) << event;
    lastTs[track] = ts;
    if (ph == "X") {
      ASSERT_GE(event.at("dur").get<int64_t>(), 1) << event;
      slices[track].emplace_back(ts, ts + event["dur"].get<int64_t>());
    } else {
      ASSERT_EQ(ph, "i") << event;
      EXPECT_EQ(event.at("s"), "t");
      for (const char* arg : {"text", "where", "attempt"}) EXPECT_TRUE(event.at("args").contains(arg)) << event;
      ++instants;
    }
  }
  EXPECT_EQ(instants, 12u);
  for (const auto& track : used) {
    EXPECT_TRUE(processNames.contains(track.first)) << track.first;
    EXPECT_TRUE(threadNames.contains(track)) << track.second;
  }
  // One trace process per camera process of each boot, PIDs reused across boots.
  std::set<std::string> names;
  for (const auto& [pid, name] : processNames) names.insert(name);
  EXPECT_EQ(names, (std::set<std::string>{"boot 1 camera process 500", "boot 1 camera process 501",
                                          "boot 2 camera process 500"}));
  std::multiset<std::string> tracks;
  for (const auto& [track, name] : threadNames) tracks.insert(name);
  EXPECT_EQ(tracks,
            (std::multiset<std::string>{"no camera named", "camera 0 (slot 0)", "camera 1 (slot 1)", "camera 0"}));
  // Slices on one track nest or follow each other, never overlap an end.
  for (const auto& [track, spans] : slices) {
    std::vector<int64_t> open;
    for (const auto& [begin, end] : spans) {
      while (!open.empty() && open.back() <= begin) open.pop_back();
      if (!open.empty()) EXPECT_LE(end, open.back()) << begin;
      open.push_back(end);
    }
  }
}

TEST(ExplainTrace, AttemptsAndTimesOfOneCamera) {
  const json trace = TraceOf(TwoBoots());
  std::map<std::string, std::pair<int64_t, int64_t>> attempts;  // name: ts, dur (boot 1, camera 0)
  std::vector<std::pair<std::string, int64_t>> camera0;         // instants of boot 1's camera 0
  std::map<std::string, int64_t> firsts;                        // first instant of each kind
  int camera0Tid = -1;
  for (const json& event : trace["traceEvents"]) {
    if (event["name"] == "thread_name" && event["args"]["name"] == "camera 0 (slot 0)") camera0Tid = event["tid"];
    if (event["ph"] == "M" || event["tid"] != camera0Tid) {
      if (event["ph"] == "i") firsts.try_emplace(event["name"], event["ts"]);
      continue;
    }
    if (event["ph"] == "X") attempts[event["name"]] = {event["ts"], event["dur"]};
    if (event["ph"] == "i") camera0.emplace_back(event["name"], event["ts"]);
    if (event["name"] == "eeprom-probe" && event["ts"] == 200) {
      EXPECT_EQ(event["args"]["text"], "EEPROM of \xEF\xBF\xBD\xEF\xBF\xBD bad\x01");
      EXPECT_EQ(event["args"]["attempt"], 1);
    }
  }
  // Sensor and EEPROM attempts are numbered apart; the EEPROM attempt that
  // would overlap the sensor attempt's end is cut at it; one instant lasts 1 µs.
  EXPECT_EQ(attempts, (std::map<std::string, std::pair<int64_t, int64_t>>{{"sensor probe attempt 1", {100, 200}},
                                                                          {"EEPROM probe attempt 1", {200, 100}},
                                                                          {"sensor probe attempt 2", {500, 1}}}));
  // An event without a time keeps its place at the time of the one before.
  EXPECT_EQ(camera0, (std::vector<std::pair<std::string, int64_t>>{{"sensor-probe", 100},
                                                                   {"bypass-refused", 100},
                                                                   {"eeprom-probe", 200},
                                                                   {"i2c-address", 300},
                                                                   {"eeprom-probe", 400},
                                                                   {"sensor-probe", 500},
                                                                   {"init-failure-hidden", 500}}));
  // Times count from the story's first known one, across boots; an untimed
  // first event of a track is at 0.
  EXPECT_EQ(firsts.at("core-missing"), 0);
  EXPECT_EQ(firsts.at("gap"), 50);
  EXPECT_EQ(firsts.at("log-ends"), 0);
}

}  // namespace
