// The scenario loader of remedium-sim over arbitrary bytes: every input is
// either a loaded scenario or refused with a message (and, for a problem
// inside the JSON, the path where it is); nothing crashes, recurses on the
// input's nesting or grows beyond the input's size.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "sim/scenario/scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace sc = sim::scenario;
  sc::LoadError error;
  const std::optional<sc::Scenario> scenario =
      sc::ParseScenario(std::string(reinterpret_cast<const char*>(data), size), "fuzz.json", &error);
  FUZZ_CHECK(scenario.has_value() == error.message.empty());
  FUZZ_CHECK(error.file == "fuzz.json");
  if (!scenario) return 0;
  size_t calls = 0;
  for (const sc::Step& step : scenario->steps) {
    FUZZ_CHECK(step.repeat >= 1 && step.repeat <= sc::kMaxRepeat);
    FUZZ_CHECK((step.kind == sc::Step::Kind::kCall) == (step.hook != nullptr));
    calls += step.kind == sc::Step::Kind::kCall ? static_cast<size_t>(step.repeat) : 0;
  }
  FUZZ_CHECK(calls == scenario->callCount && calls <= sc::kMaxSteps);
  return 0;
}
