// CamX::SetErrorFrameworkId over arbitrary property text: never crashes,
// keeps at most six of the listed numbers, rewrites the value only in the
// plain list format, and a repeated set changes nothing more.
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "hook/src/errorframeworkid.h"
#include "hook/src/hook.h"
#include "hook/src/numberlist.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simproperties.h"

namespace {

constexpr const char* kProperty = CamX::kErrorFrameworkIdProperty;

std::string Value() { return sim::GetProperty(kProperty).value_or(""); }

// One call from `before`; checks what it wrote and returns the new value.
std::string CheckedCall(const std::string& before, unsigned int id, int isError) {
  CamX::SetErrorFrameworkId(id, isError);
  const std::string after = Value();
  if (after == before) return after;
  const std::vector<long> listed = CamX::StringToArray64(after, 0);
  FUZZ_CHECK(CamX::ArrayToString64(listed) == after);
  if (isError != 0) {
    // At most six kept numbers, then the appended one.
    FUZZ_CHECK(listed.size() <= 7);
    const long expected = id < std::size(CamX::kFrameworkIdOfCamera) ? CamX::kFrameworkIdOfCamera[id] : 0;
    FUZZ_CHECK(listed.back() == expected);
  } else {
    FUZZ_CHECK(listed.size() <= 5);
  }
  return after;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const unsigned int id = data[0] % 8;
  const int isError = static_cast<int8_t>(data[1]) % 3;  // negative, zero and positive flags
  const std::string before(reinterpret_cast<const char*>(data) + 2, size - 2);
  sim::PresetProperty(kProperty, before);
  sim::ClearJournal();

  const std::string once = CheckedCall(before, id, isError);
  const std::string twice = CheckedCall(once, id, isError);
  if (isError != 0) FUZZ_CHECK(twice == once);
  return 0;
}
