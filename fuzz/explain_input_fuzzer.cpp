// The explain reader over any bytes, zips included: it never crashes, reads
// nothing outside what it was given, and either streams well-formed records
// (each input begun and ended once, line numbers rising per part, no line end
// inside a field but a getprop value's) or fails with one line naming the
// input. The story told from the same bytes renders in every output, and its
// JSON and trace are valid JSON whatever bytes the input held.
#include <cstddef>
#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <string_view>

#include "fuzz/fuzz_support.h"
#include "explain/input.h"
#include "explain/story.h"
#include "explain/trace.h"

namespace {

bool HasLineEnd(std::string_view text) { return text.find('\n') != std::string_view::npos; }

class CheckingSink : public explain::InputSink {
 public:
  void BeginInput(std::string_view source, InputKind) override {
    FUZZ_CHECK(!open_);
    FUZZ_CHECK(source.starts_with("in"));
    open_ = true;
    source_ = source;
    lastLine_.clear();
  }
  void Log(const explain::LogLine& line) override {
    // A zip's persistent logs are parts of their own, named after the zip.
    FUZZ_CHECK(open_ && line.source.starts_with("in.log"));
    uint64_t& last = lastLine_[std::string(line.source)];
    FUZZ_CHECK(line.lineNumber > last);
    last = line.lineNumber;
    FUZZ_CHECK(std::string_view("VDIWEF").find(line.level) != std::string_view::npos);
    FUZZ_CHECK(line.pid >= 0 && line.tid >= -1);
    FUZZ_CHECK(!HasLineEnd(line.tag) && !HasLineEnd(line.message) && !HasLineEnd(line.timestamp));
    // Touch every byte: the views must point at live memory.
    sum_ += std::string(line.tag).size() + std::string(line.message).size() + std::string(line.timestamp).size();
  }
  void Property(std::string_view source, std::string_view key, std::string_view value) override {
    FUZZ_CHECK(open_ && source == source_);
    FUZZ_CHECK(!key.empty() && !HasLineEnd(key));
    sum_ += std::string(key).size() + std::string(value).size();
  }
  void KernelText(std::string_view source, std::string_view text) override {
    FUZZ_CHECK(open_ && source == source_);
    FUZZ_CHECK(!text.empty() && text.find_first_not_of("+-0123456789,") == std::string_view::npos);
  }
  void EndInput(std::string_view source) override {
    FUZZ_CHECK(open_ && source == source_ && !previous_);
    open_ = false;
    ++ended_;
  }
  void PreviousBoot(bool begins) override {
    FUZZ_CHECK(open_ && begins != previous_);
    previous_ = begins;
  }
  void Tombstone(std::string_view source, uint64_t, std::string_view text) override {
    FUZZ_CHECK(open_ && source.starts_with("in.log") && !HasLineEnd(text));
  }
  void Notice(std::string_view where, std::string_view text) override {
    FUZZ_CHECK(where.starts_with("in.log") && !HasLineEnd(text));
  }
  bool Open() const { return open_; }
  int Ended() const { return ended_; }

 private:
  bool open_ = false;
  bool previous_ = false;
  std::string source_;
  std::map<std::string, uint64_t> lastLine_;
  size_t sum_ = 0;
  int ended_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  CheckingSink sink;
  std::string error;
  const bool ok = explain::ReadInputBytes("in.log", bytes, sink, &error);
  if (ok) {
    FUZZ_CHECK(error.empty());
    FUZZ_CHECK(!sink.Open() && sink.Ended() == 1);
  } else {
    FUZZ_CHECK(error.starts_with("in.log") && !HasLineEnd(error));
    FUZZ_CHECK(sink.Ended() == 0);
  }
  explain::StorySink story;
  if (!explain::ReadInputBytes("in.log", bytes, story, &error)) return 0;
  const explain::Story told = story.Finish();
  FUZZ_CHECK(!explain::FormatStory(told).empty());
  std::ostringstream json, trace;
  explain::WriteStoryJson(told, {}, json);
  explain::WriteTrace(told, trace);
  FUZZ_CHECK(explain::Json::accept(json.str()) && explain::Json::accept(trace.str()));
  return 0;
}
