// liblog stand-in: __android_log_print with Android's 1024-byte line limit.
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <utility>

#include <android/log.h>

#include "sim/platform/simdevice.h"
#include "sim/platform/simlog.h"

namespace {

struct LogState {
  std::mutex mutex;
  std::vector<sim::LogLine> lines;
  bool echo = false;
};

LogState& State() {
  static auto* state = new LogState;
  return *state;
}

}  // namespace

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  char buffer[1024];  // liblog's LOG_BUF_SIZE: longer messages are cut
  va_list args;
  va_start(args, fmt);
  vsnprintf(buffer, sizeof(buffer), fmt, args);
  va_end(args);
  sim::LogLine line{prio, tag != nullptr ? tag : "", buffer};
  bool echo = false;
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().lines.push_back(line);
    echo = State().echo;
  }
  sim::Record("log", std::string(1, sim::PriorityLetter(prio)) + " " + line.tag + ": " + line.text);
  if (echo) std::fprintf(stderr, "%s\n", sim::FormatLogcat(line).c_str());
  return 1;
}

namespace sim {

std::vector<LogLine> LogLines(size_t from) {
  std::lock_guard<std::mutex> lock(State().mutex);
  return Tail(State().lines, from);
}

void ClearLog() {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().lines.clear();
}

std::vector<LogLine> TakeLogLines() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return std::exchange(State().lines, {});
}

void SetLogEcho(bool echo) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().echo = echo;
}

char PriorityLetter(int priority) {
  static const char kLetters[] = "??VDIWEFS";
  return priority >= 0 && priority <= ANDROID_LOG_SILENT ? kLetters[priority] : '?';
}

std::string FormatLogcat(const LogLine& line) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char stamp[32];
  std::strftime(stamp, sizeof(stamp), "%m-%d %H:%M:%S", &local);
  char out[1200];
  std::snprintf(out, sizeof(out), "%s.%03ld %5d %5ld %c %s: %s", stamp, now.tv_nsec / 1000000,
                static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)), PriorityLetter(line.priority),
                line.tag.c_str(), line.text.c_str());
  return out;
}

}  // namespace sim
