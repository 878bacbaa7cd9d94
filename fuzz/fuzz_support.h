// Shared by the fuzz targets: invariant checks that abort, so that libFuzzer
// keeps a violating input as a crash just like a sanitizer report, and
// scratch folders for the targets that go through the file system (on tmpfs
// when the host has it, since a disk-backed /tmp slows each run down).
#pragma once

#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#define FUZZ_CHECK(condition)                                                                  \
  do {                                                                                         \
    if (!(condition)) {                                                                        \
      std::fprintf(stderr, "%s:%d: invariant violated: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                            \
    }                                                                                          \
  } while (0)

namespace fuzz {

// A fresh folder, removed at exit (each target makes one); aborts when none
// can be made.
inline std::string MakeScratchDir(const char* name) {
  static std::string made;
  for (const char* base : {"/dev/shm", "/tmp"}) {
    std::string pattern = std::string(base) + "/remedium-fuzz-" + name + "-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) {
      made = pattern;
      std::atexit([] {
        std::error_code ec;
        std::filesystem::remove_all(made, ec);
      });
      return pattern;
    }
  }
  std::abort();
}

}  // namespace fuzz
