// Control side of the simulated system property store (libcutils.so).
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

// Sets a property directly, bypassing property_set's limits (a preset).
void PresetProperty(const std::string& key, const std::string& value);
std::optional<std::string> GetProperty(const std::string& key);
std::map<std::string, std::string> AllProperties();
// Forgets one property, as if it had never been set.
void RemoveProperty(const std::string& key);
// Forgets every property and every refused set.
void ResetProperties();

// A property_set the store refused (it returned -1), as Android's does: a
// value of PROPERTY_VALUE_MAX (92) bytes or more, or a read-only ("ro.")
// property set again. Each is also journalled as source "libcutils",
// "property_set KEY rejected: REASON".
struct RejectedPropertySet {
  std::string key;
  size_t bytes;        // the value's length
  std::string reason;  // "value of N bytes", "read-only, already set"
};
std::vector<RejectedPropertySet> RejectedPropertySets(size_t from = 0);  // from the `from`-th on
// A reboot: only "persist." properties stay.
void RebootProperties();

}  // namespace sim
