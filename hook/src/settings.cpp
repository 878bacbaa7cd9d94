#include "hook/src/settings.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <fstream>

#include <cutils/properties.h>

#include "hook/src/hooklogsites.h"

namespace CamX {

static_assert(sizeof(long) == 8, "number lists and the kernel table hold 64-bit values");

SettingsMap ParseConfigFile(const std::string& path) {
  SettingsMap settings;
  std::ifstream file(path);
  if (!file.is_open()) {
    REMEDIUM_LOG(SettingsOpenFailure, path.c_str());
    return settings;
  }
  std::string line;
  while (std::getline(file, line)) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos || equals + 1 == line.size()) continue;
    // OK: a repeated key takes the later line's value.
    settings[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return settings;
}

namespace {

template <typename T>
std::string JoinNumbers(const std::vector<T>& values) {
  std::string text;
  text.reserve(values.size() * 4);
  char digits[24];
  for (size_t i = 0; i < values.size(); ++i) {
    if (i != 0) text += ',';
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), values[i]);
    text.append(digits, end.ptr);
  }
  return text;
}

// The blanks formatted stream input skips before a number ("C" locale).
bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Reads one number at `p` as formatted stream input reads a long: blanks
// skipped, an optional sign, then decimal digits. False, with `p` anywhere,
// when no digit follows or the value does not fit a long.
bool ReadLong(const char*& p, const char* end, long* value) {
  while (p != end && IsBlank(*p)) ++p;
  const bool negative = p != end && *p == '-';
  if (p != end && (*p == '-' || *p == '+')) ++p;
  if (p == end || *p < '0' || *p > '9') return false;
  // The magnitude's limit: one more on the negative side.
  const unsigned long limit = static_cast<unsigned long>(LONG_MAX) + (negative ? 1U : 0U);
  unsigned long magnitude = 0;
  for (; p != end && *p >= '0' && *p <= '9'; ++p) {
    const auto digit = static_cast<unsigned long>(*p - '0');
    if (magnitude > (limit - digit) / 10) return false;
    magnitude = magnitude * 10 + digit;
  }
  // OK: -magnitude wraps to LONG_MIN exactly when magnitude is LONG_MAX + 1.
  *value = negative ? static_cast<long>(0UL - magnitude) : static_cast<long>(magnitude);
  return true;
}

}  // namespace

std::string ArrayToString(const std::vector<int>& values) { return JoinNumbers(values); }

std::string ArrayToString64(const std::vector<long>& values) { return JoinNumbers(values); }

std::vector<long> StringToArray64(const std::string& text, int) {
  std::vector<long> values;
  // Every number but the last takes two characters at least; the kernel
  // table's 64 values are read into one allocation.
  values.reserve(std::min<size_t>((text.size() / 2) + 1, 64));
  const char* p = text.data();
  const char* const end = p + text.size();
  long value = 0;
  // As formatted stream input: blanks before a number are skipped, and an
  // out-of-range number ends the list like any other bad text.
  while (ReadLong(p, end, &value)) {
    values.push_back(value);
    if (p != end && *p == ',') ++p;
  }
  return values;
}

void RecoverySettings(std::map<std::string, std::string> settings) {
  if (settings.empty()) return;
  // Key in the override file -> property the HAL reads later. Only
  // numPCRsBeforeStreamOn lives in the non-persistent space.
  static constexpr struct {
    const char* key;
    const char* property;
  } kRows[] = {
      {"enableEarlyPipelineActivate", "persist.vendor.camera.enableEarlyPipelineActivate"},
      {"isSatFollowFingersOpt", "persist.vendor.camera.isSatFollowFingersOpt"},
      {"enableSATWideAlwaysOn", "persist.vendor.camera.enableSATWideAlwaysOn"},
      {"numPCRsBeforeStreamOn", "vendor.debug.camera.numPCRsBeforeStreamOn"},
      {"isEarlysettingsEnable", "persist.vendor.camera.isEarlysettingsEnable"},
  };
  for (const auto& row : kRows) {
    const auto it = settings.find(row.key);
    // OK: a value too long for a property is dropped by property_set.
    if (it != settings.end()) property_set(row.property, it->second.c_str());
  }
}

int SettingAsInt(const SettingsMap& settings, const std::string& key) {
  auto it = settings.find(key);
  return it == settings.end() ? 0 : std::atoi(it->second.c_str());
}

}  // namespace CamX
