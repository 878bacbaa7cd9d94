// Every byte offset at which the proxies read or write CamX HAL objects. The
// offsets belong to one HAL build; porting to another build is an edit of this
// file alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

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
  std::memcpy(&value, static_cast<const unsigned char*>(object) + field.offset, sizeof(T));
  return value;
}

template <typename T>
void Write(void* object, Field<T> field, T value) {
  std::memcpy(static_cast<unsigned char*>(object) + field.offset, &value, sizeof(T));
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

}  // namespace CamX::Layout
