#include "sim/fleet/fleet.h"

namespace fleet {

int RunReport(const std::string&, const std::string&, std::ostream& err) {
  err << "remedium-sim fleet report: not built yet\n";
  return 2;
}

}  // namespace fleet
