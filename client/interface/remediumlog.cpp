#include "remediumlog.h"

#include <android/log.h>
#include <cutils/properties.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t kLineSize = 1024;
constexpr char kLogTag[] = "[REMEDIUM]";
constexpr char kLogLevelProperty[] = "persist.vendor.camera.remedium.loglevel";
constexpr int kDefaultLogLevel = kLogInfo;

const char* BaseName(const char* file) {
  const char* slash = std::strrchr(file, '/');
  return slash != nullptr ? slash + 1 : file;
}

}  // namespace

void RemediumLog(int level, const char* file, int line, const char* func, const char* fmt, ...) {
  static const int s_logLevel = property_get_int32(kLogLevelProperty, kDefaultLogLevel);
  if (s_logLevel > level) return;

  char buffer[kLineSize];
  std::memset(buffer, 0, sizeof(buffer));
  const int prefix = std::snprintf(buffer, sizeof(buffer), "%s:%d %s() ", BaseName(file), line, func);
  // Drops the line when the prefix leaves no room for a message.
  if (prefix < 0 || prefix + 10 > static_cast<int>(kLineSize) - 1) return;

  va_list args;
  va_start(args, fmt);
  std::vsnprintf(buffer + prefix, kLineSize - static_cast<size_t>(prefix), fmt, args);
  va_end(args);
  __android_log_print(level, kLogTag, "%s", buffer);
}
