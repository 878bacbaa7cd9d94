// What the message centre knows about a sensor: its type, and which sensor of
// that type this device has probed most. The probe hooks use it to tell the
// slot's usual module (worth a bypass on its last retry) from a stranger.
#pragma once

#include <cstdint>
#include <string>

namespace CamX {

struct SensorUsage {
  std::string sensorType;      // answer to "GET_SENSOR_TYPE"; empty when unknown
  std::string mostProbedName;  // "sensor_name" of "GET_MOST_PROBE_SENSOR_NAME"
  int64_t recordCount = 0;     // its "record_count"
  // The most-probed sensor of the type is this very sensor.
  bool frequentlyUsedSensor = false;
  // The message centre knows no most-probed sensor of the type.
  bool neverBeenSuccessfullyProbed = false;
};

// Sends "GET_SENSOR_TYPE", then "GET_MOST_PROBE_SENSOR_NAME" (record count
// 100), and classifies `sensorName`. Both answers land in one reply record. The
// EEPROM probe sends its second request on the first request's record, so it
// still carries "sensor_name" (`carryFirstRequest`); the sensor probe builds a
// fresh request.
SensorUsage QuerySensorUsage(const std::string& sensorName, bool carryFirstRequest);

}  // namespace CamX
