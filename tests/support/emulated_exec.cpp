// Linked into the test programs of a cross build that runs under a user-mode
// emulator (qemu-aarch64 without a binfmt handler). GoogleTest starts the
// child of a "threadsafe" death test, and so every EXPECT_IN_FRESH_PROCESS
// check, by exec'ing its own command line again; the kernel cannot exec an
// aarch64 program here, so the child is started through the emulator, with
// the same options the parent was started with.
#include <stdlib.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#ifndef REMEDIUM_TEST_EMULATOR
#error "REMEDIUM_TEST_EMULATOR must name the emulator command, its parts separated by '|'"
#endif

namespace {

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t end; (end = text.find(separator, start)) != std::string::npos; start = end + 1) {
    parts.push_back(text.substr(start, end - start));
  }
  parts.push_back(text.substr(start));
  return parts;
}

// The emulator command, then this program's own command line as the
// emulator shows it to the program (/proc/self/cmdline is the guest's).
bool InjectEmulatorIntoChildCommandLine() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  const std::string cmdline((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (cmdline.empty()) return false;
  std::vector<std::string> args = Split(REMEDIUM_TEST_EMULATOR, '|');
  std::vector<std::string> own = Split(cmdline.substr(0, cmdline.size() - 1), '\0');
  // execv does not search PATH: the program itself by absolute path.
  if (char* resolved = realpath("/proc/self/exe", nullptr)) {
    own[0] = resolved;
    free(resolved);
  }
  args.insert(args.end(), own.begin(), own.end());
  ::testing::internal::SetInjectableArgvs(args);
  return true;
}

[[maybe_unused]] const bool g_injected = InjectEmulatorIntoChildCommandLine();

}  // namespace
