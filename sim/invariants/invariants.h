// What the library must never do, whatever it is called with: an observer
// the scenario runner calls around every step. The call-sequence fuzzer,
// `remedium-seq play` and `remedium-sim run --check-invariants` use it.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "sim/scenario/scenario.h"

namespace sim::invariants {

struct Options {
  // Gets "steps[3] #1 (SensorProbe(camera 0, ...)): invariant violated: ...";
  // without it a violation is printed on stderr and the process aborts.
  std::function<void(const std::string& message)> violation;
  std::optional<size_t> leakAfter;  // test-only fault: after this step, a descriptor is left open
};

std::unique_ptr<scenario::Observer> Make(Options options);

}  // namespace sim::invariants
