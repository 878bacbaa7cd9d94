// Scratch files for the fuzz targets that go through the file system: on
// tmpfs when the host has it, since a disk-backed /tmp slows each run down.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

namespace fuzz {

// A fresh folder, removed at exit; aborts when none can be made.
inline std::string MakeScratchDir(const char* name) {
  static std::vector<std::string>* made = new std::vector<std::string>;
  static std::once_flag cleanup;
  std::call_once(cleanup, [] {
    std::atexit([] {
      std::error_code ec;
      for (const std::string& dir : *made) std::filesystem::remove_all(dir, ec);
    });
  });
  for (const char* base : {"/dev/shm", "/tmp"}) {
    std::string pattern = std::string(base) + "/remedium-fuzz-" + name + "-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) {
      made->push_back(pattern);
      return pattern;
    }
  }
  std::abort();
}

}  // namespace fuzz
