// Host stand-in for libcutils' <cutils/properties.h>: Android's declarations
// and limits. The symbols come from sim/platform (libcutils.so).
#pragma once

#include <stdint.h>

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the value (or, when unset, the default) into `value`, which holds
// PROPERTY_VALUE_MAX bytes; returns the copied length.
int property_get(const char* key, char* value, const char* default_value);
// Parses the value as a number (base inferred); unset, non-numeric or out of
// range gives the default.
int32_t property_get_int32(const char* key, int32_t default_value);
// Returns 0 on success, negative when the value does not fit.
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
