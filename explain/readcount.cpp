// explain-readcount FILE...: reads each input as remedium-sim explain does and
// prints what it held (log lines, the library's among them, properties,
// kernel texts). For measuring the reader on its own (scripts/bench-explain).
// Exit codes as remedium-sim's: 2 for an input it cannot read.
#include <chrono>
#include <cstdio>
#include <string>

#include "explain/input.h"

namespace {

class CountingSink : public explain::InputSink {
 public:
  void BeginInput(std::string_view, InputKind) override { ++inputs; }
  void Log(const explain::LogLine& line) override {
    ++logs;
    if (line.tag == "[REMEDIUM]") ++library;
  }
  void Property(std::string_view, std::string_view, std::string_view) override { ++properties; }
  void KernelText(std::string_view, std::string_view) override { ++kernelTexts; }
  void EndInput(std::string_view) override {}

  unsigned long inputs = 0, logs = 0, library = 0, properties = 0, kernelTexts = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: explain-readcount FILE...\n");
    return 2;
  }
  CountingSink sink;
  const auto start = std::chrono::steady_clock::now();
  for (int i = 1; i < argc; ++i) {
    std::string error;
    if (!explain::ReadInput(argv[i], sink, &error)) {
      std::fprintf(stderr, "explain-readcount: %s\n", error.c_str());
      return 2;
    }
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%lu input(s): %lu log lines (%lu of the library), %lu properties, %lu kernel texts in %.3f s",
              sink.inputs, sink.logs, sink.library, sink.properties, sink.kernelTexts, seconds);
  if (seconds > 0) std::printf(" (%.0f lines/s)", static_cast<double>(sink.logs) / seconds);
  std::printf("\n");
  return 0;
}
