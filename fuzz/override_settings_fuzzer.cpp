// The override-settings reader over arbitrary file contents: every entry is
// the last "key=value" line of its key, taken literally.
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

#include "fuzz/fuzz_support.h"
#include "hook/src/settings.h"

namespace {

const std::string& ScratchPath() {
  static const std::string path = fuzz::MakeScratchDir("settings") + "/camxoverridesettings.txt";
  return path;
}

// The reading rule stated plainly: lines end at "\n", key before the first
// "=", a non-empty value after it, the last line wins.
CamX::SettingsMap Expected(const std::string& text) {
  CamX::SettingsMap expected;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(start, end - start);
    const size_t equals = line.find('=');
    if (equals != std::string::npos && equals + 1 < line.size()) {
      expected[line.substr(0, equals)] = line.substr(equals + 1);
    }
    start = end + 1;
  }
  return expected;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  {
    std::ofstream out(ScratchPath(), std::ios::binary | std::ios::trunc);
    out << text;
  }
  const CamX::SettingsMap settings = CamX::ParseConfigFile(ScratchPath());
  for (const auto& [key, value] : settings) {
    FUZZ_CHECK(key.find('=') == std::string::npos);
    FUZZ_CHECK(key.find('\n') == std::string::npos);
    FUZZ_CHECK(!value.empty());
    FUZZ_CHECK(value.find('\n') == std::string::npos);
  }
  FUZZ_CHECK(settings == Expected(text));
  return 0;
}
