#include "sim/fleet/fleet.h"

namespace fleet {

int RunSummary(const SummaryOptions&, std::ostream&, std::ostream& err) {
  err << "remedium-sim fleet summary: not built yet\n";
  return 2;
}

int RunCompare(const CompareOptions&, std::ostream&, std::ostream& err) {
  err << "remedium-sim fleet compare: not built yet\n";
  return 2;
}

}  // namespace fleet
