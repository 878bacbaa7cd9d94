// Compares a played scenario with the expectations written in it.
#pragma once

#include <string>
#include <vector>

#include "player.h"
#include "scenario.h"

namespace sim::scenario {

// One expectation that was not met: where (a step, or the end of the
// scenario), which expectation (its JSON path), what was expected and what
// the library did.
struct Mismatch {
  std::string where;
  std::string path;
  std::string expected;
  std::string got;
};

struct CheckResult {
  size_t checked = 0;  // expectations compared
  std::vector<Mismatch> mismatches;
  bool ok() const { return mismatches.empty(); }
};

CheckResult Check(const Scenario& scenario, const RunResult& run);

// A readable difference, one mismatch per paragraph.
std::string FormatMismatches(const CheckResult& result);

// An observed value as JSON (a report's "observed" and the checker's texts).
Json ToJson(const Value& value);

}  // namespace sim::scenario
