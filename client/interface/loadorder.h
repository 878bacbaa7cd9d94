// The order in which the library's load-time tables are built, across its
// files: sensorTypeNames, moduleSwitchBits, probeInfoMap, eepromProbeInfoMap.
// Each registers its destructor right after it is built, so process exit
// destroys them in the reverse order. Fixed by priority rather than by the
// order in which the layers' objects are linked.
#pragma once

inline constexpr int kLoadOrderSensorTypeNames = 101;
inline constexpr int kLoadOrderModuleSwitchBits = 102;
inline constexpr int kLoadOrderProbeInfoMap = 103;
inline constexpr int kLoadOrderEepromProbeInfoMap = 104;

#define REMEDIUM_LOAD_ORDER(order) __attribute__((init_priority(order)))
