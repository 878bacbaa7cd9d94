// The CamX override-settings file and the HAL tuning properties it sets.
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

// The HAL tuning switches RecoverySettings copies, in its order: key in the
// override file -> property the HAL reads later. Only numPCRsBeforeStreamOn
// lives in the non-persistent space.
struct RecoveryRow {
  const char* key;
  const char* property;
};
inline constexpr RecoveryRow kRecoveryRows[] = {
    {"enableEarlyPipelineActivate", "persist.vendor.camera.enableEarlyPipelineActivate"},
    {"isSatFollowFingersOpt", "persist.vendor.camera.isSatFollowFingersOpt"},
    {"enableSATWideAlwaysOn", "persist.vendor.camera.enableSATWideAlwaysOn"},
    {"numPCRsBeforeStreamOn", "vendor.debug.camera.numPCRsBeforeStreamOn"},
    {"isEarlysettingsEnable", "persist.vendor.camera.isEarlysettingsEnable"},
};

// Copies the HAL tuning switches that `settings` holds into their system
// properties, values as they stand. Absent keys leave their property alone.
void RecoverySettings(std::map<std::string, std::string> settings);

}  // namespace CamX
