#include "client/interface/remediumlog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <android/log.h>
#include <cutils/properties.h>

#include "client/interface/logsites.h"

namespace {

constexpr size_t kLineSize = 1024;
constexpr char kLogTag[] = "[REMEDIUM]";
constexpr char kLogLevelProperty[] = "persist.vendor.camera.remedium.loglevel";
constexpr int kDefaultLogLevel = kLogInfo;

const char* BaseName(const char* file) {
  const char* slash = std::strrchr(file, '/');
  return slash != nullptr ? slash + 1 : file;
}

// Reads the level once per process, then formats and writes one line when it
// is not below the level. Out of line, so that a call below the level pays
// neither this frame nor its 1 KiB buffer.
__attribute__((noinline, format(printf, 5, 0))) void WriteLine(int level, const char* file, int line, const char* func,
                                                               const char* fmt, va_list args) {
  static const int s_logLevel = property_get_int32(kLogLevelProperty, kDefaultLogLevel);
  g_remediumLogLevel.store(s_logLevel, std::memory_order_relaxed);
  if (s_logLevel > level) return;

  char buffer[kLineSize];
  std::memset(buffer, 0, sizeof(buffer));
  const int prefix = std::snprintf(buffer, sizeof(buffer), "%s:%d %s() ", BaseName(file), line, func);
  // Drops the line when the prefix leaves no room for a message.
  if (prefix < 0 || prefix + 10 > static_cast<int>(kLineSize) - 1) return;
  std::vsnprintf(buffer + prefix, kLineSize - static_cast<size_t>(prefix), fmt, args);
  __android_log_print(level, kLogTag, "%s", buffer);
}

}  // namespace

std::atomic<int> g_remediumLogLevel{0};

void RemediumLog(int level, const char* file, int line, const char* func, const char* fmt, ...) {
  if (g_remediumLogLevel.load(std::memory_order_relaxed) > level) return;
  va_list args;
  va_start(args, fmt);
  WriteLine(level, file, line, func, fmt, args);
  va_end(args);
}

void LogSiteText(const LogSite& site, const char* text) {
  // The format is one of the table's, each checked by its caller to take
  // exactly one string.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wformat-nonliteral"
  RemediumLog(site.level, site.reportedFile, site.reportedLine, site.function, site.format, text);
#pragma clang diagnostic pop
}
