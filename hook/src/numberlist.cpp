#include "hook/src/numberlist.h"

#include <algorithm>
#include <charconv>
#include <climits>

namespace CamX {

static_assert(sizeof(long) == 8, "number lists and the kernel table hold 64-bit values");

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

}  // namespace CamX
