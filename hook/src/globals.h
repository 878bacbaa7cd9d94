// Process-wide state of the hook library, all in one place.
//
// Built at load, in this order, destroyed at exit in reverse:
//   sensorTypeNames, moduleSwitchBits, probeInfoMap, eepromProbeInfoMap.
// Zero at load and never destroyed: cameraSlotIds, the hookNotified flags and
// the sensor probe's once flags.
// Everything else is a function-local static built on first use (log level,
// core and message-centre clients, module configuration, parsed override
// settings). Loading the library reads no file and no property.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>

#include "client/interface/remediumconfig.h"
#include "hook/src/probehistory.h"

namespace CamX {

inline constexpr uint32_t kMaxCameraId = 16;  // camera and slot ids are below this

// Names of the HAL's NCSSensorType values (19 rows).
extern const std::unordered_map<int, const char*> sensorTypeNames;
// Module name to switch bit of the framework's module switch mask (7 rows),
// owned by the module configuration.
using ::moduleSwitchBits;
// Per-name sensor probe history, and the EEPROM one; never mixed.
extern ProbeHistory probeInfoMap;
extern ProbeHistory eepromProbeInfoMap;

// Slot id of each camera id, as the HAL's static capabilities report it. A
// camera never queried reads slot 0. Written by GetStaticCapsHook only.
extern std::atomic<uint32_t> cameraSlotIds[kMaxCameraId];

// First-call reports of the proxies to the core, one flag per report.
// Relaxed atomic bytes: a duplicate report is possible, a torn read is not.
struct HookNotifiedFlags {
  std::atomic<uint8_t> actuatorData;
  std::atomic<uint8_t> createI2CInfoCmd;
  std::atomic<uint8_t> oisRegisterProvider;
  std::atomic<uint8_t> readLensPositionDataDelay;
  std::atomic<uint8_t> readLensPositionDataReplace;
  std::atomic<uint8_t> postGyroData;
  std::atomic<uint8_t> oisCreateI2CInfoCmd;
  std::atomic<uint8_t> cslMessageHandler;
  std::atomic<uint8_t> readEEPROMDevice;
  std::atomic<uint8_t> probeEEPROM;
  std::atomic<uint8_t> sensorProbeProtection;
};
extern HookNotifiedFlags hookNotified;

// The sensor probe's once-per-process decision: the kernel-assisted re-probe
// of a multi-sourced slot's last module has been armed. A relaxed atomic byte.
struct SensorProbeOnceFlags {
  std::atomic<uint8_t> kernelRetryArmed;
};
extern SensorProbeOnceFlags sensorProbeOnce;

static_assert(std::atomic<uint8_t>::is_always_lock_free && sizeof(std::atomic<uint8_t>) == 1);
static_assert(std::atomic<uint32_t>::is_always_lock_free && sizeof(std::atomic<uint32_t>) == 4);

}  // namespace CamX
