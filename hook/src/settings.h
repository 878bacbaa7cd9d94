// The CamX override-settings file and the number-list texts that the hooks
// keep in kernel parameters and properties.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace CamX {

// Relative on purpose: the camera process runs in "/", and the path is used as
// it stands.
inline constexpr char kOverrideSettingsPath[] = "odm/etc/camera/camxoverridesettings.txt";

// Key/value pairs of one override-settings file, ordered byte-wise by key.
using SettingsMap = std::map<std::string, std::string>;

// Reads "key=value" lines. The key is the text before the first "=", the
// value everything after it up to "\n" (a "\r" stays). No comments, no
// trimming, no case folding; a line without "=" or without a value is
// skipped; the last line of a key wins. An unopenable file gives an empty map
// (and a VERBOSE line).
SettingsMap ParseConfigFile(const std::string& path);

// The value of `key` converted with atoi (so a non-number reads 0); 0 when
// the key is absent.
int SettingAsInt(const SettingsMap& settings, const std::string& key);

// Decimal values joined by "," ("1,-2"); an empty list gives "".
std::string ArrayToString(const std::vector<int>& values);
std::string ArrayToString64(const std::vector<long>& values);

// Reads signed 64-bit numbers separated by single "," (leading blanks of a
// number are skipped) and stops at the first text that is not a number:
// "1,,2" gives {1}. The int argument is not used.
std::vector<long> StringToArray64(const std::string& text, int);

// Copies the HAL tuning switches that `settings` holds into their system
// properties, values as they stand. Absent keys leave their property alone.
void RecoverySettings(std::map<std::string, std::string> settings);

}  // namespace CamX
