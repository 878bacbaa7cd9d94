#include "hook/src/globals.h"

namespace CamX {

namespace {

std::unordered_map<int, const char*> BuildSensorTypeNames() {
  static constexpr std::pair<int, const char*> kRows[] = {
      {0, "Invalid"},        {1, "Gyro"},     {2, "Accel"},        {3, "Mag"},
      {4, "Gravity"},        {5, "LinearAccel"}, {6, "TimeOfFlight"}, {7, "Light"},
      {8, "GyroCal"},        {9, "MagCal"},   {10, "Depth"},       {11, "OIS"},
      {12, "SS"},            {13, "AISeg"},   {14, "EVS"},         {15, "OisManager"},
      {16, "MaxInternal"},   {32, "CustomStart"}, {64, "CustomEnd"},
  };
  std::unordered_map<int, const char*> names;
  names.max_load_factor(1.0f);
  for (const auto& row : kRows) names.insert(row);
  return names;
}

}  // namespace

// Definition order is construction order at load.
const std::unordered_map<int, const char*> sensorTypeNames = BuildSensorTypeNames();

// "monitr" is the framework's spelling of the monitor module.
const std::map<std::string, int32_t> moduleSwitchBits = {
    {"vlcdb", 1},    {"monitr", 2},    {"hookswitch", 4}, {"inithookswitch", 8},
    {"firmware", 16}, {"bigdata", 32}, {"sensorstate", 64},
};

ProbeHistory probeInfoMap;
ProbeHistory eepromProbeInfoMap;

constinit std::atomic<uint32_t> cameraSlotIds[kMaxCameraId] = {};
constinit HookNotifiedFlags hookNotified = {};

}  // namespace CamX
