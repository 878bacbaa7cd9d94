// Host stand-in for Android's <hardware/sensors.h>: the sensor event record
// with Android's layout (104 bytes, timestamp at byte 16), as the HAL's
// sensor service hands it to CamX. Only the event record and the types it is
// made of are declared; the sensor HAL module interface is not needed here.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SENSOR_TYPE_META_DATA 0
#define SENSOR_TYPE_ACCELEROMETER 1
#define SENSOR_TYPE_MAGNETIC_FIELD 2
#define SENSOR_TYPE_ORIENTATION 3
#define SENSOR_TYPE_GYROSCOPE 4
#define SENSOR_TYPE_GYROSCOPE_UNCALIBRATED 16

typedef struct {
  union {
    float v[3];
    struct {
      float x;
      float y;
      float z;
    };
    struct {
      float azimuth;
      float pitch;
      float roll;
    };
  };
  int8_t status;
  uint8_t reserved[3];
} sensors_vec_t;

typedef struct {
  union {
    float uncalib[3];
    struct {
      float x_uncalib;
      float y_uncalib;
      float z_uncalib;
    };
  };
  union {
    float bias[3];
    struct {
      float x_bias;
      float y_bias;
      float z_bias;
    };
  };
} uncalibrated_event_t;

typedef struct meta_data_event {
  int32_t what;
  int32_t sensor;
} meta_data_event_t;

typedef struct {
  float bpm;
  int8_t status;
} heart_rate_event_t;

typedef struct sensors_event_t {
  int32_t version;  // sizeof(struct sensors_event_t)
  int32_t sensor;   // sensor identifier
  int32_t type;     // sensor type
  int32_t reserved0;
  int64_t timestamp;  // nanoseconds
  union {
    union {
      float data[16];
      sensors_vec_t acceleration;
      sensors_vec_t magnetic;
      sensors_vec_t orientation;
      sensors_vec_t gyro;
      float temperature;
      float distance;
      float light;
      float pressure;
      float relative_humidity;
      uncalibrated_event_t uncalibrated_gyro;
      uncalibrated_event_t uncalibrated_magnetic;
      uncalibrated_event_t uncalibrated_accelerometer;
      heart_rate_event_t heart_rate;
      meta_data_event_t meta_data;
    };
    union {
      uint64_t data[8];
      uint64_t step_counter;
    } u64;
  };
  uint32_t flags;  // reserved for internal use, zero
  uint32_t reserved1[3];
} sensors_event_t;

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
static_assert(sizeof(sensors_event_t) == 104, "sensors_event_t must keep Android's size");
static_assert(offsetof(sensors_event_t, timestamp) == 16, "sensors_event_t.timestamp must sit at byte 16");
#else
_Static_assert(sizeof(sensors_event_t) == 104, "sensors_event_t must keep Android's size");
_Static_assert(offsetof(sensors_event_t, timestamp) == 16, "sensors_event_t.timestamp must sit at byte 16");
#endif
