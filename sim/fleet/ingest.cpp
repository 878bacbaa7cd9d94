#include "sim/fleet/fleet.h"

namespace fleet {

int RunIngest(const IngestOptions&, std::ostream&, std::ostream& err) {
  err << "remedium-sim fleet ingest: not built yet\n";
  return 2;
}

int RunExport(const std::string&, std::ostream&, std::ostream& err) {
  err << "remedium-sim fleet export: not built yet\n";
  return 2;
}

}  // namespace fleet
