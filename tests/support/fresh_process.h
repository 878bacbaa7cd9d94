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

// The coverage build's profile writer of this program (weak: null in every
// other build). _exit skips the writer exit() would run, so a fresh process
// writes its counters itself before it leaves.
extern "C" __attribute__((weak)) int __llvm_profile_write_file(void);

#define EXPECT_IN_FRESH_PROCESS(body)                                            \
  do {                                                                           \
    GTEST_FLAG_SET(death_test_style, "threadsafe");                              \
    EXPECT_EXIT(                                                                 \
        {                                                                        \
          dup2(STDERR_FILENO, STDOUT_FILENO); /* failures reach the parent */    \
          (body)();                                                              \
          std::fflush(nullptr);                                                  \
          if (__llvm_profile_write_file != nullptr) __llvm_profile_write_file(); \
          _exit(::testing::Test::HasFailure() ? 1 : 0);                          \
        },                                                                       \
        ::testing::ExitedWithCode(0), "");                                       \
  } while (0)

namespace test {

class PhoneTest : public ::testing::Test {
 protected:
  sim::Phone m_phone;
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
