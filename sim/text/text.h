// Text helpers of the tools that write out what they read: explain's reader,
// story and outputs, the scenario report, fleet's export and the records in
// words. What comes from a phone may be any bytes; what these tools write
// (JSON above all) must be UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace sim::text {

// Whether `text` is well-formed UTF-8: no overlong forms, no surrogates,
// nothing above U+10FFFF, no sequence cut short.
bool IsUtf8(std::string_view text);

// `text` made valid UTF-8: each byte outside a valid sequence written as
// "\xNN" (two hexadecimal digits) and each backslash doubled, so that the
// bytes can be read back.
std::string EscapeUtf8(std::string_view text);

// `text` without the characters of `space` at either end (by default all of
// C's white space).
std::string_view Trim(std::string_view text, std::string_view space = " \t\r\n\f\v");

}  // namespace sim::text
