// `remedium-sim fleet ...` on the command line.
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "sim/fleet/fleet.h"

namespace fleet {

std::function<std::optional<int>()> AddCommand(CLI::App& app) {
  struct Given {
    IngestOptions ingest;
    SummaryOptions summary;
    CompareOptions compare;
    std::string reportDb, reportHtml, exportDb, mergeDb;
    bool exportJsonl = false;
    std::vector<std::string> mergeParts;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* fleet = app.add_subcommand(
      "fleet", "Many phones' bug reports in one SQLite database: ingest, summary, compare, report, export");
  fleet->require_subcommand(1);
  CLI::App* ingest =
      fleet->add_subcommand("ingest", "Tell bug reports (zip or txt, files or folders) into the database");
  ingest->add_option("--db", given->ingest.db, "The database file (created when missing)")->required();
  ingest->add_option("PATH", given->ingest.paths, "Bug reports, or folders searched recursively")->required();
  ingest->add_option("-j,--jobs", given->ingest.jobs, "Reports read at once (0: every core)");
  ingest->add_option("--progress", given->ingest.progress, "Progress bar on stderr: auto, on or off")
      ->check(CLI::IsMember({"auto", "on", "off"}));
  CLI::App* summary = fleet->add_subcommand("summary", "Rates per group, each with its 95% interval");
  summary->add_option("--db", given->summary.db, "The database file")->required();
  summary->add_option("--by", given->summary.by, "Group by build, model, module, slot or hw")
      ->check(CLI::IsMember({"build", "model", "module", "slot", "hw"}));
  summary->add_flag("--json", given->summary.json, "As JSON");
  CLI::App* compare = fleet->add_subcommand("compare", "A/B: which rates changed between two builds");
  compare->add_option("--db", given->compare.db, "The database file")->required();
  compare->add_option("--a", given->compare.a, "Build A")->required();
  compare->add_option("--b", given->compare.b, "Build B")->required();
  compare->add_flag("--json", given->compare.json, "As JSON");
  CLI::App* report = fleet->add_subcommand("report", "One self-contained HTML page of the fleet");
  report->add_option("--db", given->reportDb, "The database file")->required();
  report->add_option("--html", given->reportHtml, "The page to write")->required();
  CLI::App* exportTables = fleet->add_subcommand("export", "The tables as JSON Lines, for a warehouse");
  exportTables->add_option("--db", given->exportDb, "The database file")->required();
  exportTables->add_flag("--jsonl", given->exportJsonl, "JSON Lines (the one format)");
  CLI::App* merge = fleet->add_subcommand("merge", "Databases ingested apart into one (new ids, no report twice)");
  merge->add_option("--db", given->mergeDb, "The database merged into (created when missing)")->required();
  merge->add_option("PART", given->mergeParts, "Databases written by fleet ingest (none: the database is created)");
  return [=]() -> std::optional<int> {
    if (*ingest) return RunIngest(given->ingest, std::cout, std::cerr);
    if (*summary) return RunSummary(given->summary, std::cout, std::cerr);
    if (*compare) return RunCompare(given->compare, std::cout, std::cerr);
    if (*report) return RunReport(given->reportDb, given->reportHtml, std::cerr);
    if (*exportTables) return RunExport(given->exportDb, std::cout, std::cerr);
    if (*merge) return RunMerge(given->mergeDb, given->mergeParts, std::cout, std::cerr);
    return std::nullopt;
  };
}

}  // namespace fleet
