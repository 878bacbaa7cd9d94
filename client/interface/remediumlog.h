// The library's one logging entry point: level-filtered lines under the tag
// "[REMEDIUM]", prefixed with "<file base name>:<line> <function>() ".
#pragma once

#include <atomic>

// Android log priorities, passed to the Android log unchanged.
inline constexpr int kLogVerbose = 2;
inline constexpr int kLogDebug = 3;
inline constexpr int kLogInfo = 4;
inline constexpr int kLogWarn = 5;
inline constexpr int kLogError = 6;

// Writes one line when `level` is at least the level in
// "persist.vendor.camera.remedium.loglevel" (default 4, read once per
// process). The line is at most 1023 characters; a prefix longer than 1013
// characters drops the line. Never allocates.
void RemediumLog(int level, const char* file, int line, const char* func, const char* fmt, ...)
    __attribute__((format(printf, 5, 6)));

// The level in force once the first line has read it, 0 before (0 drops
// nothing early). Read at the call site, so that a line below the level costs
// one load and compare, not the setting up of its arguments.
extern std::atomic<int> g_remediumLogLevel;
inline bool RemediumLogDropped(int level) { return g_remediumLogLevel.load(std::memory_order_relaxed) > level; }
