// Control side of the simulated system property store (libcutils.so).
#pragma once

#include <map>
#include <optional>
#include <string>

namespace sim {

// Sets a property directly, bypassing property_set's limits (a preset).
void PresetProperty(const std::string& key, const std::string& value);
std::optional<std::string> GetProperty(const std::string& key);
std::map<std::string, std::string> AllProperties();
// Forgets one property, as if it had never been set.
void RemoveProperty(const std::string& key);
// Forgets every property.
void ResetProperties();
// A reboot: only "persist." properties stay.
void RebootProperties();

}  // namespace sim
