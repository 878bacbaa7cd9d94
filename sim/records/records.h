// The library's records in words: the image sensor state property, the
// error framework id list and the kernel parameter's probe-result table,
// read the way the library reads them. `remedium-sim decode`, the scenario
// report and `remedium-sim explain` all show them through these, so the
// three say the same thing about the same value. With them, the text helpers
// their readers share (UTF-8 validity and escaping, trimming).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim::records {

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

// Reads comma-separated decimal numbers the way the library does: a number,
// then one optional ",", until a number cannot be read or `limit` were read.
std::vector<int64_t> ParseNumberList(const std::string& text, size_t limit);

// "64 values; non-zero: [0]=1 [16]=3" and the like.
std::string DescribeKernelText(const std::string& text);

// Explanations in words, one line per item; `ok` is false when the text is
// not of the kind asked for.
struct Explanation {
  bool ok = true;
  std::string kind;  // "image sensor state", "error framework id list", "kernel parameter"
  std::vector<std::string> lines;
};
Explanation ExplainImageSensorState(const std::string& value);
Explanation ExplainErrorFrameworkIds(const std::string& value);
Explanation ExplainKernelParameter(const std::string& value);
// Picks the kind from the text ("<P:..." a state; 16 or more numbers a kernel
// parameter; otherwise an error list). Accepts "name=value" and getprop's
// "[name]: [value]" as well, using the property name to choose.
Explanation Explain(const std::string& text);

}  // namespace sim::records
