// Runs a check in a freshly started copy of the test program, so that the
// library's once-per-process statics (log level, core client, module
// configuration) start unbuilt, as in a newly started camera process.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#define EXPECT_IN_FRESH_PROCESS(body)                                      \
  do {                                                                     \
    GTEST_FLAG_SET(death_test_style, "threadsafe");                       \
    EXPECT_EXIT(                                                           \
        {                                                                  \
          dup2(STDERR_FILENO, STDOUT_FILENO); /* failures reach the parent */ \
          (body)();                                                        \
          std::fflush(nullptr);                                            \
          _exit(::testing::Test::HasFailure() ? 1 : 0);                    \
        },                                                                 \
        ::testing::ExitedWithCode(0), "");                                 \
  } while (0)
