// Per-camera record of the three bring-up stages of an image sensor: probe
// ("P"), initialisation ("I") and configuration ("C"). Each stage keeps a
// one-letter result ("S" success, "F" failure, "-" not yet recorded) and the
// whole seconds since boot at which it was recorded.
//
// The record lives in the system property
// "vendor.debug.camera.imagesensorstate.<camera number>" (the hooks pass the
// slot id), formatted "<P:%s:%lld><I:%s:%lld><C:%s:%lld>". It is the only
// state: there is no object, no cache and no lock, so two concurrent updates
// of one camera may lose one of them. Everything is a no-op while the module
// "sensorstate" is off (the default).
#pragma once

#include <cstdint>
#include <map>
#include <string>

inline constexpr char kImageSensorStatePropertyPrefix[] = "vendor.debug.camera.imagesensorstate.";
inline constexpr char kImageSensorStateFormat[] = "<P:%s:%lld><I:%s:%lld><C:%s:%lld>";
inline constexpr char kImageSensorStateEmpty[] = "<P:-:0><I:-:0><C:-:0>";
// One group: stage letter, result letter, time digits (no sign).
inline constexpr char kImageSensorStatePattern[] = "<([PIC]):([SF-]):(\\d+)>";
inline constexpr char kImageSensorStateModule[] = "sensorstate";

struct ImageSensorState {
  std::string result;     // "S", "F" or "-"
  int64_t timestamp = 0;  // whole seconds of CLOCK_BOOTTIME; 0 when unknown
};

struct ImageSensorStateSet {
  uint32_t cameraId = 0;
  // Always holds "P", "I" and "C".
  std::map<std::string, ImageSensorState> states;
};

class ImageSensorStateHelper {
 public:
  // Records `result` for `stage` of the camera, stamped with the time now, and
  // rewrites the property from the groups it held: the other stages keep their
  // entries, stages without a group read "-" 0. A result other than "S" or "F"
  // resets all three stages; a stage other than "P", "I", "C" rewrites the
  // value unchanged. The property is written on every call while the module
  // is on.
  static void UpdateImageSensorStateProperty(uint32_t cameraId, std::string stage, std::string result);

  // The camera's record as the property holds it; all "-" 0 when the property
  // is unset or the module is off.
  static ImageSensorStateSet GetImageSensorState(uint32_t cameraId);

  ImageSensorStateHelper() = delete;
};
