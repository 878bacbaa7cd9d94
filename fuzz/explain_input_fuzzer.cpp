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

#include "explain/input.h"
#include "explain/story.h"
#include "explain/trace.h"
#include "fuzz/fuzz_support.h"

namespace {

bool HasLineEnd(std::string_view text) { return text.find('\n') != std::string_view::npos; }

class CheckingSink : public explain::InputSink {
 public:
  void BeginInput(std::string_view source, InputKind) override {
    FUZZ_CHECK(!m_open);
    FUZZ_CHECK(source.starts_with("in"));
    m_open = true;
    m_source = source;
    m_lastLine.clear();
  }
  void Log(const explain::LogLine& line) override {
    // A zip's persistent logs are parts of their own, named after the zip.
    FUZZ_CHECK(m_open && line.source.starts_with("in.log"));
    uint64_t& last = m_lastLine[std::string(line.source)];
    FUZZ_CHECK(line.lineNumber > last);
    last = line.lineNumber;
    FUZZ_CHECK(std::string_view("VDIWEF").find(line.level) != std::string_view::npos);
    FUZZ_CHECK(line.pid >= 0 && line.tid >= -1);
    FUZZ_CHECK(!HasLineEnd(line.tag) && !HasLineEnd(line.message) && !HasLineEnd(line.timestamp));
    // Touch every byte: the views must point at live memory.
    m_sum += std::string(line.tag).size() + std::string(line.message).size() + std::string(line.timestamp).size();
  }
  void Property(std::string_view source, std::string_view key, std::string_view value) override {
    FUZZ_CHECK(m_open && source == m_source);
    FUZZ_CHECK(!key.empty() && !HasLineEnd(key));
    m_sum += std::string(key).size() + std::string(value).size();
  }
  void KernelText(std::string_view source, std::string_view text) override {
    FUZZ_CHECK(m_open && source == m_source);
    FUZZ_CHECK(!text.empty() && text.find_first_not_of("+-0123456789,") == std::string_view::npos);
  }
  void EndInput(std::string_view source) override {
    FUZZ_CHECK(m_open && source == m_source && !m_previous);
    m_open = false;
    ++m_ended;
  }
  void PreviousBoot(bool begins) override {
    FUZZ_CHECK(m_open && begins != m_previous);
    m_previous = begins;
  }
  void Tombstone(std::string_view source, uint64_t, std::string_view text) override {
    FUZZ_CHECK(m_open && source.starts_with("in.log") && !HasLineEnd(text));
  }
  void Notice(std::string_view where, std::string_view text) override {
    FUZZ_CHECK(where.starts_with("in.log") && !HasLineEnd(text));
  }
  bool Open() const { return m_open; }
  int Ended() const { return m_ended; }

 private:
  bool m_open = false;
  bool m_previous = false;
  std::string m_source;
  std::map<std::string, uint64_t> m_lastLine;
  size_t m_sum = 0;
  int m_ended = 0;
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
