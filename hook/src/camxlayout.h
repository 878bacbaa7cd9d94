// Every byte offset at which the proxies read or write CamX HAL objects. The
// offsets belong to one HAL build; porting to another build is an edit of this
// file alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>

#include "hook/src/camxhal.h"

namespace CamX::Layout {

// A field of type T at a fixed byte offset of a HAL object.
template <typename T>
struct Field {
  size_t offset;
};

// Reads and writes go through memcpy: HAL objects are foreign memory, not C++
// objects of ours, so no aliasing assumption is made about them.
template <typename T>
T Read(const void* object, Field<T> field) {
  T value;
  // NOLINTNEXTLINE(bugprone-sizeof-expression): a pointer field holds a pointer's size.
  std::memcpy(static_cast<void*>(&value), static_cast<const unsigned char*>(object) + field.offset, sizeof(T));
  return value;
}

template <typename T>
void Write(void* object, Field<T> field, T value) {
  // NOLINTNEXTLINE(bugprone-sizeof-expression): a pointer field holds a pointer's size.
  std::memcpy(static_cast<unsigned char*>(object) + field.offset, static_cast<const void*>(&value), sizeof(T));
}

template <typename T>
constexpr bool IsAligned(Field<T> field) {
  return field.offset % alignof(T) == 0;
}

// CamX::SensorModuleStaticCaps (second argument of GetStaticCaps): slot id of
// the sensor module.
inline constexpr Field<uint32_t> kStaticCapsSlotId{0x4D318};
static_assert(kStaticCapsSlotId.offset == 316184 && IsAligned(kStaticCapsSlotId));

// CamX::ActuatorDriverData (second argument of ActuatorData): the actuator's
// name (NUL-terminated) and its I2C slave address.
inline constexpr Field<const char*> kActuatorDriverDataName{0x18};
static_assert(kActuatorDriverDataName.offset == 24 && IsAligned(kActuatorDriverDataName));
inline constexpr Field<uint16_t> kActuatorDriverDataSlaveAddress{0x2C};
static_assert(kActuatorDriverDataSlaveAddress.offset == 44 && IsAligned(kActuatorDriverDataSlaveAddress));

// CSLOISI2CInfo (second argument of OISCreateI2CInfoCmd): the OIS I2C slave
// address, first in the record.
inline constexpr Field<uint32_t> kOISI2CInfoSlaveAddress{0};
static_assert(kOISI2CInfoSlaveAddress.offset == 0 && IsAligned(kOISI2CInfoSlaveAddress));

// CSLMessage (second argument of CSLMessageHandler): the message kind (0 for
// the frame messages that are matched, 1 for an error message), the 64-bit
// value a frame message carries, and the two words an error message is made
// of. The error code overlays the low half of the frame value.
inline constexpr Field<uint32_t> kCSLMessageType{0};
static_assert(kCSLMessageType.offset == 0 && IsAligned(kCSLMessageType));
inline constexpr Field<uint64_t> kCSLMessageFrameValue{8};
static_assert(kCSLMessageFrameValue.offset == 8 && IsAligned(kCSLMessageFrameValue));
inline constexpr Field<uint32_t> kCSLMessageErrorCode{8};
static_assert(kCSLMessageErrorCode.offset == kCSLMessageFrameValue.offset && IsAligned(kCSLMessageErrorCode));
inline constexpr Field<uint32_t> kCSLMessageErrorWord{0x2C};
static_assert(kCSLMessageErrorWord.offset == 44 && IsAligned(kCSLMessageErrorWord));

// CamX::Camera3CaptureRequest (second argument of ProcessCaptureRequest): the
// request's settings metadata (a camera_metadata_t*, null for none).
inline constexpr Field<void*> kCaptureRequestSettings{8};
static_assert(kCaptureRequestSettings.offset == 8 && IsAligned(kCaptureRequestSettings));

// --- Sensor probe: the object passed to SensorProbe -------------------------
// pThis + 24 -> probe info P; P + 0 -> module B; B + 24 -> sensor name (C string).
inline constexpr Field<const void*> kSensorProbeInfo{24};
inline constexpr Field<const void*> kProbeInfoModule{0};
inline constexpr Field<const char*> kModuleSensorName{24};
// pThis + 48 -> camera info Q; Q + 32 -> pointer to the 16-bit camera id (null: none).
inline constexpr Field<const void*> kSensorProbeCameraInfo{48};
inline constexpr Field<const uint16_t*> kCameraInfoCameraId{32};

// --- EEPROM data object (EEPROMDataProbe, ReadEEPROMDevice) -----------------
inline constexpr Field<uint16_t> kEepromDataCameraId{0x3F8};
inline constexpr Field<std::string> kEepromDataSensorName{0x400};  // libc++ std::string
inline constexpr Field<uint32_t> kEepromDataLastRetryFlag{0x44C};  // set to 1 on the last retry

// --- HwSensorInfo (ProbeEEPROM's second argument) ---------------------------
// +0 -> A; A + 24 -> B; B + 0 -> C; C + 24 -> EEPROM name (C string).
inline constexpr Field<const void*> kHwSensorInfoFirst{0};
inline constexpr Field<const void*> kHwSensorInfoSecond{24};
inline constexpr Field<const void*> kHwSensorInfoThird{0};
inline constexpr Field<const char*> kHwSensorInfoEepromName{24};

// --- Sensor node (init, config and command-submission hooks) ----------------
inline constexpr Field<const Node*> kSensorNodeNode{0xDB8};  // node passed to Node::GetPipeline
inline constexpr Field<uint32_t> kSensorNodeInitState{0x8};  // 1 initialised, 2 failed or skipped

// --- CSLSensorI2CInfo --------------------------------------------------------
inline constexpr Field<uint32_t> kSensorI2CInfoSlaveAddress{0x0};

static_assert(IsAligned(kSensorProbeInfo) && IsAligned(kModuleSensorName) && IsAligned(kSensorProbeCameraInfo) &&
              IsAligned(kCameraInfoCameraId) && IsAligned(kEepromDataCameraId) && IsAligned(kEepromDataSensorName) &&
              IsAligned(kEepromDataLastRetryFlag) && IsAligned(kSensorNodeNode) && IsAligned(kSensorNodeInitState) &&
              IsAligned(kHwSensorInfoSecond) && IsAligned(kHwSensorInfoEepromName));
static_assert(kEepromDataSensorName.offset + sizeof(std::string) <= kEepromDataLastRetryFlag.offset);

// A HAL object living at a fixed offset of another (a std::string the HAL
// built with the same libc++).
template <typename T>
const T& At(const void* object, Field<T> field) {
  return *reinterpret_cast<const T*>(static_cast<const unsigned char*>(object) + field.offset);
}

// Follows a chain of pointer fields; null at any step gives null.
inline const void* Follow(const void* object, std::initializer_list<Field<const void*>> chain) {
  for (Field<const void*> link : chain) {
    if (object == nullptr) return nullptr;
    object = Read(object, link);
  }
  return object;
}

inline const char* ReadSensorProbeName(const void* pThis) {
  const void* module = Follow(pThis, {kSensorProbeInfo, kProbeInfoModule});
  const char* name = module == nullptr ? nullptr : Read(module, kModuleSensorName);
  return name == nullptr ? "" : name;
}

inline const uint16_t* ReadSensorProbeCameraIdPointer(const void* pThis) {
  const void* cameraInfo = Follow(pThis, {kSensorProbeCameraInfo});
  return cameraInfo == nullptr ? nullptr : Read(cameraInfo, kCameraInfoCameraId);
}

inline const char* ReadEepromName(const void* pSensorInfo) {
  const void* holder = Follow(pSensorInfo, {kHwSensorInfoFirst, kHwSensorInfoSecond, kHwSensorInfoThird});
  const char* name = holder == nullptr ? nullptr : Read(holder, kHwSensorInfoEepromName);
  return name == nullptr ? "" : name;
}

}  // namespace CamX::Layout
