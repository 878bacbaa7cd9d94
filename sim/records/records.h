// The library's records in words: the image sensor state property, the
// error framework id list and the kernel parameter's probe-result table,
// read the way the library reads them. `remedium-sim decode`, the scenario
// report and `remedium-sim explain` all show them through these, so the
// three say the same thing about the same value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "sim/text/text.h"

namespace sim::records {

// Reads comma-separated decimal numbers with the library's own reader
// (CamX::StringToArray64: a number, then one optional ",", until a number
// cannot be read) and keeps the first `limit`.
std::vector<int64_t> ParseNumberList(const std::string& text, size_t limit);

// The numbers of `text` when it is exactly a list as the library writes one
// (decimal numbers joined by single ","; "" is the empty list); nullopt for
// any other text.
std::optional<std::vector<int64_t>> ParseWrittenNumberList(const std::string& text);

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

// `remedium-sim decode`: each text explained; "-" alone reads them from `in`,
// one a line, at most 1 MiB. 0 every text understood, 2 otherwise.
int RunDecode(std::vector<std::string> texts, const std::string& as, std::istream& in, std::ostream& out,
              std::ostream& err);

}  // namespace sim::records
