// Short texts for what the simulator shows: numbers, kernel tables, core and
// message-centre records, and explanations of the library's state values.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simframework.h"

namespace sim::scenario {

std::string Hex(uint64_t value);

// Whether `text` is valid UTF-8; and `text` made so: each byte outside a
// valid sequence written as "\xNN" (two hexadecimal digits) and each
// backslash doubled, so that the bytes can be read back.
bool IsUtf8(const std::string& text);
std::string EscapeUtf8(const std::string& text);

// Reads comma-separated decimal numbers the way the library does: a number,
// then one optional ",", until a number cannot be read or `limit` were read.
std::vector<int64_t> ParseNumberList(const std::string& text, size_t limit);

// "64 values; non-zero: [0]=1 [16]=3" and the like.
std::string DescribeKernelText(const std::string& text);

std::string Describe(const sim::framework::CoreCallback& callback);
std::string DescribeRequest(const sim::framework::MessageCenterRequest& request);

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

}  // namespace sim::scenario
