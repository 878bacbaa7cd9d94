// remedium-sim fleet: many phones' bug reports told by explain, kept in one
// SQLite database, and the fleet's questions answered from it: per build,
// model, module, slot or hardware revision, how often a camera needs the
// library's help, with the uncertainty of each rate; A/B between builds; a
// page to look at; the rows for a warehouse.
#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace fleet {

// Adds `fleet` and its subcommands to the command line; the result runs the
// one given, or is nullopt when none was.
std::function<std::optional<int>()> AddCommand(CLI::App& app);

// The database's tables, created (if missing) by every command that opens a
// database. README's "Fleet" section documents each column.
extern const char kSchema[];

// The groups a summary is made by, and the column of `cameras` or `reports` each is.
inline constexpr const char* kGroupings[] = {"build", "model", "module", "slot", "hw"};

// The rates a summary gives, each a flag of `cameras` (0 or 1) over the cameras of the group.
struct Rate {
  const char* column;  // in cameras
  const char* title;   // in words
};
inline constexpr Rate kRates[] = {
    {"first_probe_failed", "first probe failed"},
    {"bypass_taken", "bypass taken"},
    {"kernel_retry", "kernel retry"},
    {"forced_eeprom", "EEPROM success forced"},
    {"hidden_init", "init failure hidden"},
    {"hidden_config", "config failure hidden"},
    {"lost", "camera lost"},
};

struct IngestOptions {
  std::string db;
  std::vector<std::string> paths;  // files or folders (searched recursively for *.zip and *.txt)
  int jobs = 0;                    // 0: every core
  std::string progress = "auto";   // auto (on a terminal), on, off
};
int RunIngest(const IngestOptions& options, std::ostream& out, std::ostream& err);

struct SummaryOptions {
  std::string db;
  std::string by = "build";  // one of kGroupings
  bool json = false;
};
int RunSummary(const SummaryOptions& options, std::ostream& out, std::ostream& err);

struct CompareOptions {
  std::string db;
  std::string a, b;  // two builds (ro.build.fingerprint, or ro.build.id)
  bool json = false;
};
int RunCompare(const CompareOptions& options, std::ostream& out, std::ostream& err);

int RunReport(const std::string& db, const std::string& html, std::ostream& err);
int RunExport(const std::string& db, std::ostream& out, std::ostream& err);
// Databases ingested apart (by a cluster's workers) into `db`: their rows with new ids, a report
// already in `db` (by hash) left out with its rows.
int RunMerge(const std::string& db, const std::vector<std::string>& parts, std::ostream& out, std::ostream& err);

}  // namespace fleet
