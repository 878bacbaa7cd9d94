// What the fleet's commands read from a database: the totals, the groups with
// each rate's count, the failure signatures with example reports, and the
// rates' text as the terminal and the report page show them. Shared by
// summary, compare and report.
#pragma once

#include <array>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/fleet/fleet.h"
#include "sim/fleet/stats.h"

struct sqlite3;

namespace fleet {

inline constexpr size_t kRateCount = std::size(kRates);

// A fleet database opened read-only: never created nor changed by reading it.
class FleetDb {
 public:
  // Null, with `error` one phrase ("no such file", "not a fleet database
  // (...)"), when the file is missing, unreadable or not a fleet database.
  static std::unique_ptr<FleetDb> Open(const std::string& path, std::string* error);
  ~FleetDb();
  FleetDb(const FleetDb&) = delete;
  FleetDb& operator=(const FleetDb&) = delete;
  sqlite3* handle() const { return m_db; }

 private:
  explicit FleetDb(sqlite3* db) : m_db(db) {}
  sqlite3* m_db;
};

struct Totals {
  int64_t reports = 0;   // status 'ok'
  int64_t rejected = 0;  // not counted anywhere else
  int64_t boots = 0;
  int64_t cameras = 0;  // with a camera id
};

// One group of a summary (or one side of a comparison): its counts and, per
// rate of kRates (in that order), the cameras with the flag.
struct Group {
  std::optional<std::string> key;  // nullopt: the column is NULL
  std::string label;               // builds: their ro.build.id when a fingerprint has one
  int64_t reports = 0, boots = 0, cameras = 0;
  std::array<int64_t, kRateCount> counts{};
  std::vector<std::string> builds;  // compare: the fingerprints matched
};

struct Signature {
  std::string text;
  int64_t cameras = 0, reports = 0;
  std::vector<std::string> examples;  // report paths, first ingested first
};

Totals LoadTotals(const FleetDb& db);
// `by`: one of kGroupings. Ordered by key, NULL last.
std::vector<Group> LoadGroups(const FleetDb& db, const std::string& by);
// A build's reports: by fingerprint, or by ro.build.id. Nullopt: none.
std::optional<Group> LoadBuild(const FleetDb& db, const std::string& build);
// Cameras with any rate's flag, by signature, most frequent first.
std::vector<Signature> LoadSignatures(const FleetDb& db, size_t top = 10, size_t examples = 5);

// Decimals that show an interval of this width with two significant digits.
int DecimalsFor(stats::Interval interval);
std::string Percent(double fraction, int decimals);
// "29%" and "[8%, 64%]" of k in n (2 of 7); "n/a" and "" when n is 0.
struct RateText {
  std::string rate, interval;
};
RateText FormatRate(int64_t k, int64_t n);
// "+20.0 pp" and "[+4.6, +35.4]": a difference of proportions in percentage points.
RateText FormatDifference(double difference, stats::Interval interval);

// A group's name in words: "(not recorded)" for NULL.
std::string GroupName(const Group& group);

}  // namespace fleet
