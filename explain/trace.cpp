#include "explain/trace.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace explain {
namespace {

// Sensor and EEPROM probe attempts are numbered apart: "eeprom-probe" events
// carry a camera's EEPROM attempt numbers, every other event its sensor ones.
enum class Family { kSensor, kEeprom };

Family FamilyOf(const Event& event) { return event.kind == "eeprom-probe" ? Family::kEeprom : Family::kSensor; }

// An attempt's slice on its camera's track: [begin, end) in trace microseconds.
struct Slice {
  Family family;
  int attempt;
  int64_t begin, end;
  int64_t span;  // from its first event to its last, whatever the nesting left of the slice
  size_t events = 0;
};

class TraceWriter {
 public:
  explicit TraceWriter(std::ostream& out) : m_out(out) {}

  // One object of the traceEvents array. Bytes that are not UTF-8 become
  // U+FFFD, so the document stays valid JSON whatever the log held.
  void Write(const Json& event) {
    m_out << (m_first ? "\n" : ",\n") << event.dump(-1, ' ', false, Json::error_handler_t::replace);
    m_first = false;
  }

  void Metadata(const char* name, int pid, int tid, Json args) {
    Write({{"name", name}, {"ph", "M"}, {"ts", 0}, {"pid", pid}, {"tid", tid}, {"args", std::move(args)}});
  }

 private:
  std::ostream& m_out;
  bool m_first = true;
};

std::string TrackName(const CameraStory& camera) {
  if (camera.id < 0) return "no camera named";
  return "camera " + std::to_string(camera.id) + (camera.slot ? " (slot " + std::to_string(*camera.slot) + ")" : "");
}

// The events of one camera with their trace times, in time order: an event
// without a time takes the time of the event before it (0 for the first).
std::vector<std::pair<int64_t, const Event*>> Timed(const CameraStory& camera, int64_t origin) {
  std::vector<std::pair<int64_t, const Event*>> timed;
  int64_t last = 0;
  for (const Event& event : camera.events) {
    if (event.micros >= 0) last = event.micros - origin;
    timed.emplace_back(last, &event);
  }
  std::stable_sort(timed.begin(), timed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  return timed;
}

// Each probe attempt's slice, from its first event to its last (at least 1
// µs), ordered by start, outer before inner. Slices on one track must nest
// for the trace viewers, so one that would overlap the end of the slice
// around it ends with that slice instead (its `span` keeps the true length).
std::vector<Slice> Slices(const std::vector<std::pair<int64_t, const Event*>>& timed) {
  std::map<std::pair<Family, int>, Slice> byAttempt;
  for (const auto& [ts, event] : timed) {
    if (event->attempt <= 0) continue;
    const std::pair key(FamilyOf(*event), event->attempt);
    auto [it, added] = byAttempt.try_emplace(key, Slice{key.first, key.second, ts, ts, 0});
    it->second.begin = std::min(it->second.begin, ts);
    // A sensor attempt lasts until its last line, which may write no event of its own.
    const int64_t end = event->endMicros >= 0 && event->micros >= 0 ? ts + (event->endMicros - event->micros) : ts;
    it->second.end = std::max(it->second.end, end);
    ++it->second.events;
  }
  std::vector<Slice> slices;
  for (auto& [key, slice] : byAttempt) {
    slice.span = slice.end - slice.begin;
    slice.end = std::max(slice.end, slice.begin + 1);
    slices.push_back(slice);
  }
  std::sort(slices.begin(), slices.end(),
            [](const Slice& a, const Slice& b) { return a.begin != b.begin ? a.begin < b.begin : a.end > b.end; });
  std::vector<int64_t> open;  // the ends of the slices around the current one
  for (Slice& slice : slices) {
    while (!open.empty() && open.back() <= slice.begin) open.pop_back();
    if (!open.empty()) slice.end = std::min(slice.end, open.back());
    open.push_back(slice.end);
  }
  return slices;
}

void WriteTrack(TraceWriter& writer, const CameraStory& camera, int pid, int tid, int64_t origin) {
  const std::vector<std::pair<int64_t, const Event*>> timed = Timed(camera, origin);
  const std::vector<Slice> slices = Slices(timed);
  // Slices and instants merged in time order, a slice before the instants
  // at its start.
  size_t next = 0;
  for (const auto& [ts, event] : timed) {
    for (; next < slices.size() && slices[next].begin <= ts; ++next) {
      const Slice& slice = slices[next];
      const bool eeprom = slice.family == Family::kEeprom;
      writer.Write(
          {{"name", std::string(eeprom ? "EEPROM" : "sensor") + " probe attempt " + std::to_string(slice.attempt)},
           {"cat", eeprom ? "eeprom-attempt" : "sensor-attempt"},
           {"ph", "X"},
           {"ts", slice.begin},
           {"dur", slice.end - slice.begin},
           {"pid", pid},
           {"tid", tid},
           {"args", {{"attempt", slice.attempt}, {"events", slice.events}, {"span_us", slice.span}}}});
    }
    Json args = {{"text", event->text}, {"where", event->where}, {"attempt", event->attempt}};
    if (!event->time.empty()) args["time"] = event->time;
    writer.Write({{"name", event->kind},
                  {"cat", "event"},
                  {"ph", "i"},
                  {"s", "t"},
                  {"ts", ts},
                  {"pid", pid},
                  {"tid", tid},
                  {"args", std::move(args)}});
  }
}

}  // namespace

void WriteTrace(const Story& story, std::ostream& out) {
  // Times count from the story's first known one; ids are numbered through
  // the whole story, processes first, so that no two processes of different
  // boots (which may reuse a PID) or two cameras share one.
  int64_t origin = -1;
  int processes = 0;
  for (const BootStory& boot : story.boots) {
    for (const ProcessStory& process : boot.processes) {
      ++processes;
      for (const auto& [id, camera] : process.cameras) {
        for (const Event& event : camera.events) {
          if (event.micros >= 0 && (origin < 0 || event.micros < origin)) origin = event.micros;
        }
      }
    }
  }
  origin = std::max<int64_t>(origin, 0);

  Json otherData = {{"generator", "remedium-sim explain"},
                    {"library lines", story.libraryLines},
                    {"unrecognised lines", story.unrecognised.size()}};
  out << "{\"displayTimeUnit\":\"ms\",\"otherData\":" << otherData.dump(-1, ' ', false, Json::error_handler_t::replace)
      << ",\"traceEvents\":[";
  TraceWriter writer(out);
  int pid = 0;
  int tid = processes;
  for (size_t b = 0; b < story.boots.size(); ++b) {
    const BootStory& boot = story.boots[b];
    for (const ProcessStory& process : boot.processes) {
      ++pid;
      writer.Metadata("process_name", pid, 0,
                      {{"name", "boot " + std::to_string(b + 1) + " camera process " +
                                    (process.pid >= 0 ? std::to_string(process.pid) : std::string("(no PID)"))}});
      writer.Metadata("process_labels", pid, 0, {{"labels", boot.source}});
      writer.Metadata("process_sort_index", pid, 0, {{"sort_index", pid}});
      int track = 0;
      for (const auto& [id, camera] : process.cameras) {
        ++tid;
        writer.Metadata("thread_name", pid, tid, {{"name", TrackName(camera)}});
        writer.Metadata("thread_sort_index", pid, tid, {{"sort_index", track++}});
        WriteTrack(writer, camera, pid, tid, origin);
      }
    }
  }
  out << "\n]}\n";
}

}  // namespace explain
