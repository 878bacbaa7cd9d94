// libcutils stand-in: an in-memory, thread-safe property store with Android's
// semantics for property_get, property_get_int32 and property_set.
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <mutex>

#include <cutils/properties.h>

#include "sim/platform/simdevice.h"
#include "sim/platform/simproperties.h"

namespace {

struct PropertyState {
  std::mutex mutex;
  std::map<std::string, std::string> values;
  std::vector<sim::RejectedPropertySet> rejected;
};

PropertyState& State() {
  static auto* state = new PropertyState;
  return *state;
}

// Copies at most PROPERTY_VALUE_MAX - 1 characters and terminates.
int CopyValue(char* out, const char* in) {
  const size_t length = strnlen(in, PROPERTY_VALUE_MAX - 1);
  std::memcpy(out, in, length);
  out[length] = '\0';
  return static_cast<int>(length);
}

}  // namespace

extern "C" {

int property_get(const char* key, char* value, const char* default_value) {
  if (key == nullptr || value == nullptr) return 0;
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    auto it = State().values.find(key);
    if (it != State().values.end()) return CopyValue(value, it->second.c_str());
  }
  if (default_value != nullptr) return CopyValue(value, default_value);
  value[0] = '\0';
  return 0;
}

int32_t property_get_int32(const char* key, int32_t default_value) {
  char buffer[PROPERTY_VALUE_MAX] = {};
  if (key == nullptr || property_get(key, buffer, "") <= 0) return default_value;
  const int savedErrno = errno;
  errno = 0;
  char* end = nullptr;
  const intmax_t parsed = strtoimax(buffer, &end, 0);
  int32_t result = static_cast<int32_t>(parsed);
  if (((parsed == INTMAX_MIN || parsed == INTMAX_MAX) && errno == ERANGE) || parsed < INT32_MIN || parsed > INT32_MAX ||
      end == buffer) {
    result = default_value;
  }
  errno = savedErrno;
  return result;
}

// Android's property service refuses a value of PROPERTY_VALUE_MAX bytes or
// more and a second set of a read-only property, and property_set returns -1.
// A refusal is kept and journalled, so that tools see what the phone dropped.
int property_set(const char* key, const char* value) {
  if (key == nullptr || *key == '\0') return -1;
  if (value == nullptr) value = "";
  const size_t length = std::strlen(value);
  std::string refusal;
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    if (length >= PROPERTY_VALUE_MAX) {
      refusal = "value of " + std::to_string(length) + " bytes";
    } else if (std::strncmp(key, "ro.", 3) == 0 && State().values.count(key) != 0) {
      refusal = "read-only, already set";
    } else {
      State().values[key] = value;
    }
    if (!refusal.empty()) State().rejected.push_back({key, length, refusal});
  }
  if (!refusal.empty()) {
    sim::Record("libcutils", "property_set " + std::string(key) + " rejected: " + refusal);
    return -1;
  }
  sim::Record("prop", std::string(key) + "=" + value);
  return 0;
}

}  // extern "C"

namespace sim {

void PresetProperty(const std::string& key, const std::string& value) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().values[key] = value;
}

std::optional<std::string> GetProperty(const std::string& key) {
  std::lock_guard<std::mutex> lock(State().mutex);
  auto it = State().values.find(key);
  if (it == State().values.end()) return std::nullopt;
  return it->second;
}

std::map<std::string, std::string> AllProperties() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().values;
}

void RemoveProperty(const std::string& key) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().values.erase(key);
}

void ResetProperties() {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().values.clear();
  State().rejected.clear();
}

std::vector<RejectedPropertySet> RejectedPropertySets(size_t from) {
  std::lock_guard<std::mutex> lock(State().mutex);
  return Tail(State().rejected, from);
}

void RebootProperties() {
  std::lock_guard<std::mutex> lock(State().mutex);
  std::erase_if(State().values, [](const auto& entry) { return entry.first.rfind("persist.", 0) != 0; });
}

}  // namespace sim
