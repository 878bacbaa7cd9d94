// Fixtures of the unit tests: a fresh simulated phone per test, and checks run
// in a freshly started copy of the test program, so that the library's
// once-per-process statics (log level, core client, module configuration)
// start unbuilt, as in a newly started camera process.
#pragma once

#include <signal.h>
#include <unistd.h>

#include <cstdio>

#include <gtest/gtest.h>

#include "sim/harness/harness.h"

#define EXPECT_IN_FRESH_PROCESS(body)                                         \
  do {                                                                        \
    GTEST_FLAG_SET(death_test_style, "threadsafe");                           \
    EXPECT_EXIT(                                                              \
        {                                                                     \
          dup2(STDERR_FILENO, STDOUT_FILENO); /* failures reach the parent */ \
          (body)();                                                           \
          std::fflush(nullptr);                                               \
          _exit(::testing::Test::HasFailure() ? 1 : 0);                       \
        },                                                                    \
        ::testing::ExitedWithCode(0), "");                                    \
  } while (0)

namespace test {

class PhoneTest : public ::testing::Test {
 protected:
  sim::Phone phone_;
};

// The death of a deliberate trap (__builtin_trap): ud2 raises SIGILL on
// x86_64, brk SIGTRAP on aarch64. A sanitizer's report ends with SIGABRT or
// exit code 1 and so never matches.
inline ::testing::KilledBySignal KilledByTrap() {
#if defined(__aarch64__)
  return ::testing::KilledBySignal(SIGTRAP);
#else
  return ::testing::KilledBySignal(SIGILL);
#endif
}

}  // namespace test
