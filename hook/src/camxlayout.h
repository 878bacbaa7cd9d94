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

}  // namespace CamX::Layout
