// Host stand-in for Android's <system/camera_metadata.h>: the entry layout and
// the lookup the library uses. Symbols: sim/platform (libcamera_metadata.so);
// the simulated HAL builds metadata through sim/platform/simmetadata.h.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct camera_metadata camera_metadata_t;

typedef struct camera_metadata_rational {
  int32_t numerator;
  int32_t denominator;
} camera_metadata_rational_t;

enum {
  TYPE_BYTE = 0,
  TYPE_INT32 = 1,
  TYPE_FLOAT = 2,
  TYPE_INT64 = 3,
  TYPE_DOUBLE = 4,
  TYPE_RATIONAL = 5,
};

typedef struct camera_metadata_entry {
  size_t index;
  uint32_t tag;
  uint8_t type;
  size_t count;
  union {
    uint8_t* u8;
    int32_t* i32;
    float* f;
    int64_t* i64;
    double* d;
    camera_metadata_rational_t* r;
  } data;
} camera_metadata_entry_t;

// Returns 0 and fills `entry` when the tag is present, -ENOENT otherwise.
int find_camera_metadata_entry(camera_metadata_t* src, uint32_t tag, camera_metadata_entry_t* entry);

#ifdef __cplusplus
}
#endif
