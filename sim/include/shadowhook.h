// Host stand-in for ShadowHook's public header: the three calls a proxy makes,
// with ShadowHook's declarations. The symbols come from sim/platform
// (libshadowhook.so).
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
  SHADOWHOOK_MODE_SHARED = 0,
  SHADOWHOOK_MODE_UNIQUE = 1,
} shadowhook_mode_t;

shadowhook_mode_t shadowhook_get_mode(void);
void* shadowhook_get_prev_func(void* func);
void shadowhook_pop_stack(void* return_address);

#ifdef __cplusplus
}
#endif
