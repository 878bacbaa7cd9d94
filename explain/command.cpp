#include <algorithm>
#include <fstream>
#include <ostream>

#include "explain/logline.h"
#include "explain/story.h"
#include "explain/trace.h"

namespace explain {
namespace {

// The first log time of an input: its reader stops there.
class FirstTimeSink final : public InputSink {
 public:
  void BeginInput(std::string_view, InputKind) override {}
  void Log(const LogLine& line) override {
    if (line.time.clock == LogTime::Clock::kWall || line.time.clock == LogTime::Clock::kEpoch) {
      micros = TimeMicros(line.time, 2000);
      hasYear = line.time.clock == LogTime::Clock::kEpoch || line.time.year != 0;
      LogTime withoutYear = line.time;
      withoutYear.year = 0;
      yearless = TimeMicros(withoutYear, 2000);
    }
  }
  void Property(std::string_view, std::string_view, std::string_view) override {}
  void KernelText(std::string_view, std::string_view) override {}
  void EndInput(std::string_view) override {}
  bool Enough() const override { return micros >= 0; }

  int64_t micros = -1;
  bool hasYear = false;   // -v year or -v epoch: comparable across years
  int64_t yearless = -1;  // the same time in a year of its own, to compare with logs that write none
};

}  // namespace

std::vector<std::string> InTimeOrder(const std::vector<std::string>& files) {
  struct Group {
    FirstTimeSink first;
    std::vector<std::string> files;
  };
  std::vector<Group> groups;
  bool allYears = true;
  for (const std::string& file : files) {
    FirstTimeSink sink;
    std::string ignored;
    ReadInput(file, sink, &ignored);
    if (sink.micros < 0 && !groups.empty()) {
      groups.back().files.push_back(file);
    } else {
      allYears = allYears && (sink.micros < 0 || sink.hasYear);
      groups.push_back({sink, {file}});
    }
  }
  // Years count only when every log writes them; otherwise month and day decide.
  std::stable_sort(groups.begin(), groups.end(), [allYears](const Group& a, const Group& b) {
    return allYears ? a.first.micros < b.first.micros : a.first.yearless < b.first.yearless;
  });
  std::vector<std::string> ordered;
  for (const Group& group : groups) ordered.insert(ordered.end(), group.files.begin(), group.files.end());
  return ordered;
}

int RunExplain(const std::vector<std::string>& files, const ExplainOptions& options, std::ostream& out,
               std::ostream& err) {
  StorySink sink;
  if (options.jsonl) {
    sink.SetListener([&options, &out](const Event& event, const EventPlace& place) {
      if (Keeps(options, event, place)) out << EventJsonLine(event, place) << "\n";
    });
  }
  for (const std::string& file : InTimeOrder(files)) {
    std::string error;
    if (!ReadInput(file, sink, &error)) {
      err << "remedium-sim explain: " << error << "\n";
      return 2;
    }
  }
  const Story story = sink.Finish();
  if (!options.trace.empty()) {
    std::ofstream trace(options.trace, std::ios::binary | std::ios::trunc);
    if (trace) WriteTrace(story, trace);
    if (!trace || !trace.flush()) {
      err << "remedium-sim explain: " << PrintableName(options.trace) << ": cannot write the trace\n";
      return 2;
    }
  }
  if (options.jsonl) return 0;
  if (options.json) {
    WriteStoryJson(story, options, out);
  } else {
    out << FormatStory(story, options);
  }
  return 0;
}

}  // namespace explain
