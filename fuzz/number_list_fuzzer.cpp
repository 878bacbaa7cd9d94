// The number-list texts: any text parses exactly as formatted stream input
// reads it; whatever text is parsed, its values format back to text that
// parses to the same values; any list of values survives a round trip
// exactly, extremes included.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "hook/src/numberlist.h"

namespace {

// The reference reading: number after number with formatted stream input,
// one "," skipped after each.
std::vector<long> StreamRead(const std::string& text) {
  std::vector<long> values;
  std::istringstream in(text);
  long value = 0;
  while (in >> value) {
    values.push_back(value);
    if (in.peek() == ',') in.ignore();
  }
  return values;
}

bool IsCanonicalText(const std::string& text) {
  return text.find_first_not_of("0123456789,-") == std::string::npos && text.find(",,") == std::string::npos &&
         (text.empty() || (text.front() != ',' && text.back() != ','));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::vector<long> parsed = CamX::StringToArray64(text, 0);
  FUZZ_CHECK(parsed == StreamRead(text));
  FUZZ_CHECK(parsed.size() <= size);  // every number takes at least one character
  const std::string formatted = CamX::ArrayToString64(parsed);
  FUZZ_CHECK(IsCanonicalText(formatted));
  FUZZ_CHECK(CamX::StringToArray64(formatted, 0) == parsed);

  // The same bytes taken as raw 64-bit and 32-bit values.
  std::vector<long> wide(size / sizeof(long));
  if (!wide.empty()) std::memcpy(wide.data(), data, wide.size() * sizeof(long));
  const std::string wideText = CamX::ArrayToString64(wide);
  FUZZ_CHECK(IsCanonicalText(wideText));
  FUZZ_CHECK(CamX::StringToArray64(wideText, 0) == wide);

  std::vector<int> narrow(size / sizeof(int));
  if (!narrow.empty()) std::memcpy(narrow.data(), data, narrow.size() * sizeof(int));
  const std::vector<long> narrowBack = CamX::StringToArray64(CamX::ArrayToString(narrow), 0);
  FUZZ_CHECK(narrowBack == std::vector<long>(narrow.begin(), narrow.end()));
  return 0;
}
