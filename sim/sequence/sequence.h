// Call sequences: a compact byte encoding of a scenario, the call-sequence
// fuzzer's input. Bytes read (as the fuzzer reads them with
// FuzzedDataProvider) as a scenario of at most kMaxSteps steps on the
// fuzzer's phone: 18 cameras with small pools of module names, no framework
// core, message centre or files at first. Each step is one HAL call through
// a proxy, one change of the phone (a set step holding one thing), a restart
// or a reboot. Such a scenario is played by the scenario runner like any
// other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/scenario/scenario.h"

namespace sim::sequence {

inline constexpr size_t kMaxSteps = 64;

scenario::Scenario Decode(const uint8_t* data, size_t size, const std::string& name = "call sequence");

// Bytes that decode to `scenario`: the identity on what Decode gives. Any
// other scenario is made one first: its setup becomes set steps and a
// restart, repeats are unrolled, a set step is split into one change each,
// a call keeps its first HAL outcome, names and values move into the
// fuzzer's pools and ranges (a property it does not draw is left out), and
// expectations are dropped.
std::vector<uint8_t> Encode(const scenario::Scenario& scenario);

// One line per step: "SensorProbe(camera 0, s5kgm2_rear) hal 0 kernel 0".
std::string Describe(const scenario::Step& step);

}  // namespace sim::sequence
