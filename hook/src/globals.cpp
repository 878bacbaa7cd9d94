#include "hook/src/globals.h"

#include "client/interface/loadorder.h"

namespace CamX {

namespace {

std::unordered_map<int, const char*> BuildSensorTypeNames() {
  static constexpr std::pair<int, const char*> kRows[] = {
      {0, "Invalid"},     {1, "Gyro"},         {2, "Accel"},        {3, "Mag"},        {4, "Gravity"},
      {5, "LinearAccel"}, {6, "TimeOfFlight"}, {7, "Light"},        {8, "GyroCal"},    {9, "MagCal"},
      {10, "Depth"},      {11, "OIS"},         {12, "SS"},          {13, "AISeg"},     {14, "EVS"},
      {15, "OisManager"}, {16, "MaxInternal"}, {32, "CustomStart"}, {64, "CustomEnd"},
  };
  std::unordered_map<int, const char*> names;
  names.max_load_factor(1.0f);
  for (const auto& row : kRows) names.insert(row);
  return names;
}

}  // namespace

// Built at load in the order of client/interface/loadorder.h; moduleSwitchBits
// (between the first and the probe maps) is the module configuration's.
const std::unordered_map<int, const char*> sensorTypeNames REMEDIUM_LOAD_ORDER(kLoadOrderSensorTypeNames) =
    BuildSensorTypeNames();

ProbeHistory probeInfoMap REMEDIUM_LOAD_ORDER(kLoadOrderProbeInfoMap);
ProbeHistory eepromProbeInfoMap REMEDIUM_LOAD_ORDER(kLoadOrderEepromProbeInfoMap);

constinit std::atomic<uint32_t> cameraSlotIds[kMaxCameraId] = {};
constinit HookNotifiedFlags hookNotified = {};
constinit SensorProbeOnceFlags sensorProbeOnce = {};

}  // namespace CamX
