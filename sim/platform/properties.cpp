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

int property_set(const char* key, const char* value) {
  if (key == nullptr || *key == '\0') return -1;
  if (value == nullptr) value = "";
  if (std::strlen(value) >= PROPERTY_VALUE_MAX) return -1;
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    auto it = State().values.find(key);
    if (std::strncmp(key, "ro.", 3) == 0 && it != State().values.end()) return -1;
    State().values[key] = value;
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
}

void RebootProperties() {
  std::lock_guard<std::mutex> lock(State().mutex);
  std::erase_if(State().values, [](const auto& entry) { return entry.first.rfind("persist.", 0) != 0; });
}

}  // namespace sim
