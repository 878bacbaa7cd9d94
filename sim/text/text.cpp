#include "sim/text/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace sim::text {
namespace {

// The length of the valid UTF-8 sequence at `at`, or 0. The second byte's
// range excludes overlong forms, surrogates and values beyond U+10FFFF.
size_t Utf8Length(std::string_view text, size_t at) {
  const auto byte = [text](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const unsigned lead = byte(at);
  if (lead < 0x80) return 1;
  const size_t length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
  const unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  for (size_t i = 1; i < length; ++i) {
    if (byte(at + i) < (i == 1 ? low : 0x80) || byte(at + i) > (i == 1 ? high : 0xBF)) return 0;
  }
  return length;
}

}  // namespace

bool IsUtf8(std::string_view text) {
  for (size_t at = 0, length = 1; at < text.size(); at += length) {
    // Plain ASCII, eight bytes at a time: the explainer checks every line it reads.
    if (text.size() - at >= 8) {
      uint64_t word;
      std::memcpy(&word, text.data() + at, sizeof word);
      if ((word & 0x8080808080808080ULL) == 0) {
        length = 8;
        continue;
      }
    }
    if ((length = Utf8Length(text, at)) == 0) return false;
  }
  return true;
}

std::string EscapeUtf8(std::string_view text) {
  std::string out;
  for (size_t at = 0, length = 0; at < text.size(); at += std::max<size_t>(length, 1)) {
    char escaped[8];
    std::snprintf(escaped, sizeof(escaped), "\\x%02X", static_cast<unsigned char>(text[at]));
    length = Utf8Length(text, at);
    if (length == 0) {
      out += escaped;
    } else if (text[at] == '\\') {
      out += "\\\\";
    } else {
      out += text.substr(at, length);
    }
  }
  return out;
}

std::string_view Trim(std::string_view text, std::string_view space) {
  const size_t begin = text.find_first_not_of(space);
  return begin == std::string_view::npos ? std::string_view{}
                                         : text.substr(begin, text.find_last_not_of(space) + 1 - begin);
}

}  // namespace sim::text
