// A main for the fuzz targets when they are built without libFuzzer (the
// coverage build): hands each input file to LLVMFuzzerTestOneInput once, in
// the order given, the files of a folder in name order. Arguments starting
// with '-' are libFuzzer options and are ignored, so a target's usual command
// line still works. LLVMFuzzerInitialize runs first when the target has one.
// Exits non-zero when an argument cannot be read; an input that breaks an
// invariant aborts, as under libFuzzer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

bool Replay(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return false;
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // A copy of exactly the input's size, so that a read past its end is one
  // past an allocation, as under libFuzzer.
  std::vector<uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.empty() ? nullptr : input.data(), input.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument.starts_with("-")) continue;
    std::vector<std::filesystem::path> files;
    std::error_code error;
    if (std::filesystem::is_directory(argument, error)) {
      for (const auto& entry : std::filesystem::directory_iterator(argument, error)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
      }
      std::sort(files.begin(), files.end());
    } else {
      files.emplace_back(argument);
    }
    if (error) {
      std::fprintf(stderr, "replay: cannot read %s: %s\n", argument.c_str(), error.message().c_str());
      return 2;
    }
    for (const std::filesystem::path& file : files) {
      if (!Replay(file)) {
        std::fprintf(stderr, "replay: cannot read %s\n", file.c_str());
        return 2;
      }
      ++replayed;
    }
  }
  std::printf("replay: %zu inputs\n", replayed);
  return 0;
}
