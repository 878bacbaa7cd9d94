#include "sim/fleet/query.h"

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

namespace fleet {

namespace {

using Json = nlohmann::ordered_json;

// A prepared statement, finalized on every path; a failure is an exception
// carrying SQLite's message, caught by the command.
class Statement {
 public:
  Statement(sqlite3* db, const std::string& sql) {
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &m_statement, nullptr) != SQLITE_OK)
      throw std::runtime_error(sqlite3_errmsg(db));
  }
  ~Statement() { sqlite3_finalize(m_statement); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& Reset() {
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
    return *this;
  }
  Statement& Bind(int index, const std::string& text) {
    sqlite3_bind_text(m_statement, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    return *this;
  }
  bool Step() {
    const int status = sqlite3_step(m_statement);
    if (status == SQLITE_ROW) return true;
    if (status == SQLITE_DONE) return false;
    throw std::runtime_error(sqlite3_errmsg(sqlite3_db_handle(m_statement)));
  }
  bool Null(int column) const { return sqlite3_column_type(m_statement, column) == SQLITE_NULL; }
  int64_t Int(int column) const { return sqlite3_column_int64(m_statement, column); }
  std::string Text(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
    return text ? std::string(text, static_cast<size_t>(sqlite3_column_bytes(m_statement, column))) : std::string();
  }

 private:
  sqlite3_stmt* m_statement = nullptr;
};

// The joins from a report down to its counted cameras.
constexpr const char kCamerasOfReports[] =
    " FROM cameras c JOIN processes p ON c.process_id = p.id JOIN boots b ON p.boot_id = b.id"
    " JOIN reports r ON b.report_id = r.id WHERE r.status = 'ok' AND c.camera IS NOT NULL";

// SUM(c.first_probe_failed <> 0), ... in kRates' order.
std::string RateSums() {
  std::string sql;
  for (const Rate& rate : kRates) sql += std::string(", TOTAL(c.") + rate.column + " <> 0)";
  return sql;
}

// The cameras with any of the rates' flags.
std::string AnyFlag() {
  std::string sql = "(";
  for (const Rate& rate : kRates) sql += std::string(sql.size() > 1 ? " OR c." : "c.") + rate.column + " <> 0";
  return sql + ")";
}

// Reads the counts of a group row: reports, boots, cameras, then the rates.
void ReadCounts(const Statement& row, int first, Group& group) {
  group.reports = row.Int(first);
  group.boots = row.Int(first + 1);
  group.cameras = row.Int(first + 2);
  for (size_t i = 0; i < kRateCount; ++i) group.counts[i] = row.Int(first + 3 + static_cast<int>(i));
}

// The grouping's SQL expression and whether it is a report's column (every
// report of the group counts, with or without cameras) or a camera's.
std::pair<std::string, bool> GroupingColumn(const std::string& by) {
  if (by == "build") return {"r.build", true};
  if (by == "model") return {"r.model", true};
  if (by == "hw") return {"r.hw", true};
  if (by == "module") return {"c.sensor", false};
  if (by == "slot") return {"COALESCE(c.slot, c.camera)", false};
  throw std::invalid_argument("unknown grouping \"" + by + "\"");
}

}  // namespace

std::unique_ptr<FleetDb> FleetDb::Open(const std::string& path, std::string* error) {
  std::error_code ec;
  const auto status = std::filesystem::status(path, ec);
  if (!std::filesystem::exists(status)) {
    *error = "no such file";
    return nullptr;
  }
  if (std::filesystem::is_directory(status)) {
    *error = "a folder, not a database";
    return nullptr;
  }
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    *error = std::string("cannot open: ") + (db ? sqlite3_errmsg(db) : "out of memory");
    sqlite3_close(db);
    return nullptr;
  }
  std::unique_ptr<FleetDb> fleet(new FleetDb(db));
  // An ingest may be writing at the same time: wait for its transaction.
  sqlite3_busy_timeout(db, 10000);
  // The columns the queries read, each table once: a database without them
  // (or a file that is not SQLite) is refused before any output.
  std::string cameraColumns = "id, process_id, camera, slot, sensor, signature";
  for (const Rate& rate : kRates) cameraColumns += std::string(", ") + rate.column;
  for (const std::string& sql :
       {std::string("SELECT id, path, status, build, build_id, model, hw FROM reports"),
        std::string("SELECT id, report_id FROM boots"), std::string("SELECT id, boot_id FROM processes"),
        "SELECT " + cameraColumns + " FROM cameras"}) {
    try {
      Statement check(db, sql + " LIMIT 0");
      check.Step();
    } catch (const std::exception& e) {
      const int code = sqlite3_errcode(db);
      *error = code == SQLITE_NOTADB || code == SQLITE_ERROR ? std::string("not a fleet database (") + e.what() + ")"
                                                             : std::string("cannot read: ") + e.what();
      return nullptr;
    }
  }
  return fleet;
}

FleetDb::~FleetDb() { sqlite3_close(m_db); }

Totals LoadTotals(const FleetDb& db) {
  Totals totals;
  Statement reports(db.handle(), "SELECT TOTAL(status = 'ok'), TOTAL(status <> 'ok') FROM reports");
  if (reports.Step()) totals = {reports.Int(0), reports.Int(1), 0, 0};
  Statement boots(db.handle(),
                  "SELECT COUNT(*) FROM boots b JOIN reports r ON b.report_id = r.id WHERE r.status = 'ok'");
  if (boots.Step()) totals.boots = boots.Int(0);
  Statement cameras(db.handle(), std::string("SELECT COUNT(*)") + kCamerasOfReports);
  if (cameras.Step()) totals.cameras = cameras.Int(0);
  return totals;
}

std::vector<Group> LoadGroups(const FleetDb& db, const std::string& by) {
  const auto [column, ofReports] = GroupingColumn(by);
  std::string sql = "SELECT " + column + ", COUNT(DISTINCT r.id), COUNT(DISTINCT b.id), COUNT(c.id)" + RateSums();
  // A fingerprint's build id names it in short, when it has exactly one.
  sql += by == "build" ? ", COUNT(DISTINCT r.build_id), MIN(r.build_id)" : ", 0, NULL";
  if (ofReports) {
    // Reports without a boot or a camera still count as reports of their group.
    sql +=
        " FROM reports r LEFT JOIN boots b ON b.report_id = r.id LEFT JOIN processes p ON p.boot_id = b.id"
        " LEFT JOIN cameras c ON c.process_id = p.id AND c.camera IS NOT NULL WHERE r.status = 'ok'";
  } else {
    sql += kCamerasOfReports;
  }
  sql += " GROUP BY 1 ORDER BY 1 IS NULL, 1";
  Statement row(db.handle(), sql);
  std::vector<Group> groups;
  const int labelColumn = 4 + static_cast<int>(kRateCount);
  while (row.Step()) {
    Group& group = groups.emplace_back();
    if (!row.Null(0)) group.key = row.Text(0);
    ReadCounts(row, 1, group);
    if (row.Int(labelColumn) == 1 && !row.Null(labelColumn + 1)) group.label = row.Text(labelColumn + 1);
  }
  return groups;
}

std::optional<Group> LoadBuild(const FleetDb& db, const std::string& build) {
  // A fingerprint names one build; a build id may be shared by several
  // fingerprints (one per device), which count together.
  Statement builds(db.handle(),
                   "SELECT DISTINCT build FROM reports WHERE status = 'ok' AND (build = ?1 OR build_id = ?1) "
                   "AND build IS NOT NULL ORDER BY 1");
  builds.Bind(1, build);
  Group group;
  group.key = build;
  while (builds.Step()) group.builds.push_back(builds.Text(0));
  Statement row(db.handle(),
                "SELECT COUNT(DISTINCT r.id), COUNT(DISTINCT b.id), COUNT(c.id)" + RateSums() +
                    " FROM reports r LEFT JOIN boots b ON b.report_id = r.id LEFT JOIN processes p ON p.boot_id = "
                    "b.id LEFT JOIN cameras c ON c.process_id = p.id AND c.camera IS NOT NULL"
                    " WHERE r.status = 'ok' AND (r.build = ?1 OR r.build_id = ?1)");
  row.Bind(1, build);
  if (!row.Step()) return std::nullopt;
  ReadCounts(row, 0, group);
  if (group.reports == 0) return std::nullopt;
  return group;
}

std::vector<Signature> LoadSignatures(const FleetDb& db, size_t top, size_t examples) {
  const std::string where =
      std::string(kCamerasOfReports) + " AND c.signature IS NOT NULL AND c.signature <> ''" + " AND " + AnyFlag();
  Statement row(db.handle(), "SELECT c.signature, COUNT(*), COUNT(DISTINCT r.id)" + where +
                                 " GROUP BY c.signature ORDER BY 2 DESC, 1 LIMIT " + std::to_string(top));
  std::vector<Signature> signatures;
  while (row.Step()) signatures.push_back({row.Text(0), row.Int(1), row.Int(2), {}});
  // Examples by path, not by row: the same reports give the same examples however they were ingested.
  Statement paths(db.handle(), "SELECT r.path" + where + " AND c.signature = ?1 GROUP BY r.id ORDER BY r.path LIMIT " +
                                   std::to_string(examples));
  for (Signature& signature : signatures) {
    paths.Reset().Bind(1, signature.text);
    while (paths.Step()) signature.examples.push_back(paths.Text(0));
  }
  return signatures;
}

int DecimalsFor(stats::Interval interval) {
  const double width = (interval.high - interval.low) * 100;
  if (!(width > 0)) return 1;
  return std::clamp(1 - static_cast<int>(std::floor(std::log10(width))), 0, 3);
}

std::string Percent(double fraction, int decimals) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f%%", decimals, fraction * 100);
  return text;
}

RateText FormatRate(int64_t k, int64_t n) {
  if (n <= 0) return {"n/a", ""};
  const stats::Interval interval = stats::Wilson(k, n);
  const int decimals = DecimalsFor(interval);
  return {Percent(static_cast<double>(k) / static_cast<double>(n), decimals),
          "[" + Percent(interval.low, decimals) + ", " + Percent(interval.high, decimals) + "]"};
}

RateText FormatDifference(double difference, stats::Interval interval) {
  const int decimals = DecimalsFor(interval);
  auto points = [decimals](double fraction) {
    char text[32];
    // -0.0 would read as a decrease.
    std::snprintf(text, sizeof text, "%+.*f", decimals, fraction * 100 + 0.0);
    return std::string(text);
  };
  return {points(difference) + " pp", "[" + points(interval.low) + ", " + points(interval.high) + "]"};
}

std::string GroupName(const Group& group) { return group.key ? *group.key : "(not recorded)"; }

namespace {

// Columns of text, each left- or right-aligned to its widest cell.
class Table {
 public:
  explicit Table(std::string alignment) : m_alignment(std::move(alignment)) {}
  void Add(std::vector<std::string> row) { m_rows.push_back(std::move(row)); }
  // A line of its own between rows (a heading), aligned with nothing.
  void AddLine(std::string line) { m_rows.push_back({std::move(line)}); }
  void Print(std::ostream& out, const std::string& indent) const {
    std::vector<size_t> widths(m_alignment.size());
    for (const auto& row : m_rows)
      for (size_t i = 0; i < row.size() && row.size() > 1; ++i) widths[i] = std::max(widths[i], row[i].size());
    for (const auto& row : m_rows) {
      if (row.size() == 1) {
        out << row.front() << '\n';
        continue;
      }
      std::string line = indent;
      for (size_t i = 0; i < row.size(); ++i) {
        const std::string padding(widths[i] - row[i].size(), ' ');
        if (i > 0) line += "  ";
        line += m_alignment[i] == 'r' ? padding + row[i] : row[i] + (i + 1 < row.size() ? padding : "");
      }
      out << line << '\n';
    }
  }

 private:
  std::string m_alignment;
  std::vector<std::vector<std::string>> m_rows;
};

std::string Count(int64_t k, int64_t n) { return std::to_string(k) + "/" + std::to_string(n); }

std::string Plural(int64_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

// A rate as JSON: null rate and interval when there is no camera.
Json RateJson(const Rate& rate, int64_t k, int64_t n) {
  Json json = {{"title", rate.title}, {"count", k}, {"cameras", n}};
  if (n > 0) {
    const stats::Interval interval = stats::Wilson(k, n);
    json["rate"] = static_cast<double>(k) / static_cast<double>(n);
    json["interval"] = {interval.low, interval.high};
  } else {
    json["rate"] = nullptr;
    json["interval"] = nullptr;
  }
  return json;
}

// Runs a command's body; a database that fails while it is read ends it as a
// bad one would.
template <typename Body>
int Guarded(const char* command, const std::string& path, std::ostream& err, Body&& body) {
  std::string error;
  std::unique_ptr<FleetDb> db = FleetDb::Open(path, &error);
  if (!db) {
    err << "remedium-sim fleet " << command << ": " << path << ": " << error << '\n';
    return 2;
  }
  try {
    return body(*db);
  } catch (const std::exception& e) {
    err << "remedium-sim fleet " << command << ": " << path << ": cannot read: " << e.what() << '\n';
    return 2;
  }
}

}  // namespace

int RunSummary(const SummaryOptions& options, std::ostream& out, std::ostream& err) {
  if (std::find_if(std::begin(kGroupings), std::end(kGroupings), [&](const char* by) { return options.by == by; }) ==
      std::end(kGroupings)) {
    err << "remedium-sim fleet summary: --by " << options.by << ": one of build, model, module, slot, hw\n";
    return 2;
  }
  return Guarded("summary", options.db, err, [&](const FleetDb& db) {
    const Totals totals = LoadTotals(db);
    const std::vector<Group> groups = LoadGroups(db, options.by);
    const std::vector<Signature> signatures = LoadSignatures(db);
    if (options.json) {
      Json json = {{"database", options.db},      {"by", options.by},           {"reports", totals.reports},
                   {"rejected", totals.rejected}, {"boots", totals.boots},      {"cameras", totals.cameras},
                   {"groups", Json::array()},     {"signatures", Json::array()}};
      for (const Group& group : groups) {
        Json entry = {{"group", group.key ? Json(*group.key) : Json(nullptr)}};
        if (!group.label.empty()) entry["build_id"] = group.label;
        entry["reports"] = group.reports;
        entry["boots"] = group.boots;
        entry["cameras"] = group.cameras;
        Json rates = Json::object();
        for (size_t i = 0; i < kRateCount; ++i)
          rates[kRates[i].column] = RateJson(kRates[i], group.counts[i], group.cameras);
        entry["rates"] = std::move(rates);
        json["groups"].push_back(std::move(entry));
      }
      for (const Signature& signature : signatures)
        json["signatures"].push_back({{"signature", signature.text},
                                      {"cameras", signature.cameras},
                                      {"reports", signature.reports},
                                      {"example", signature.examples.empty() ? "" : signature.examples.front()},
                                      {"examples", signature.examples}});
      out << json.dump(2) << '\n';
      return 0;
    }
    if (totals.reports == 0) {
      out << options.db << ": no report to summarise: the database is empty";
      if (totals.rejected > 0) out << " but for " << Plural(totals.rejected, "rejected report", "rejected reports");
      out << '\n';
      return 0;
    }
    out << options.db << ": " << Plural(totals.reports, "report", "reports");
    if (totals.rejected > 0) out << " (and " << totals.rejected << " rejected, not counted)";
    out << ", " << Plural(totals.boots, "boot", "boots") << ", " << Plural(totals.cameras, "camera", "cameras")
        << "; by " << options.by << ", each rate with its 95% interval (Wilson)\n";
    // One table for every group, so that the groups' figures line up.
    Table table("lrrl");
    for (const Group& group : groups) {
      std::string heading = "\n" + options.by + " " + GroupName(group);
      if (!group.label.empty() && group.label != GroupName(group)) heading += " (" + group.label + ")";
      table.AddLine(heading);
      table.AddLine("  " + Plural(group.reports, "report", "reports") + ", " + Plural(group.boots, "boot", "boots") +
                    ", " + Plural(group.cameras, "camera", "cameras"));
      if (group.cameras == 0) continue;
      for (size_t i = 0; i < kRateCount; ++i) {
        const RateText text = FormatRate(group.counts[i], group.cameras);
        table.Add({kRates[i].title, Count(group.counts[i], group.cameras), text.rate, text.interval});
      }
    }
    table.Print(out, "    ");
    out << "\ntop failure signatures (cameras with any of these flags, most frequent first)\n";
    if (signatures.empty()) {
      out << "  none\n";
      return 0;
    }
    Table top("rrl");
    top.Add({"cameras", "reports", "signature"});
    for (const Signature& signature : signatures) {
      top.Add({std::to_string(signature.cameras), std::to_string(signature.reports), signature.text});
      if (!signature.examples.empty()) top.Add({"", "", "  e.g. " + signature.examples.front()});
    }
    top.Print(out, "  ");
    return 0;
  });
}

int RunCompare(const CompareOptions& options, std::ostream& out, std::ostream& err) {
  return Guarded("compare", options.db, err, [&](const FleetDb& db) {
    const std::optional<Group> a = LoadBuild(db, options.a), b = LoadBuild(db, options.b);
    for (const auto& [side, name] : {std::pair{&a, &options.a}, {&b, &options.b}}) {
      if (side->has_value()) continue;
      err << "remedium-sim fleet compare: " << options.db << ": no report of build \"" << *name
          << "\" (neither a fingerprint nor a build id of a told report)\n";
      return 2;
    }
    struct Row {
      size_t rate;
      int64_t kA, kB;
      double difference;
      stats::Interval interval;
      stats::TestResult test;
    };
    std::vector<Row> rows;
    for (size_t i = 0; i < kRateCount; ++i) {
      const int64_t kA = a->counts[i], kB = b->counts[i];
      const double pA = a->cameras > 0 ? static_cast<double>(kA) / static_cast<double>(a->cameras) : 0;
      const double pB = b->cameras > 0 ? static_cast<double>(kB) / static_cast<double>(b->cameras) : 0;
      rows.push_back({i, kA, kB, pB - pA, stats::DifferenceInterval(kA, a->cameras, kB, b->cameras),
                      stats::CompareProportions(kA, a->cameras, kB, b->cameras)});
    }
    std::stable_sort(rows.begin(), rows.end(), [](const Row& x, const Row& y) { return x.test.p < y.test.p; });
    const bool comparable = a->cameras > 0 && b->cameras > 0;
    auto verdict = [comparable](const Row& row) {
      if (!comparable) return "no camera to compare";
      return row.test.p < 0.05 ? "larger than chance at 5%" : "within chance at 5%";
    };
    if (options.json) {
      auto side = [](const Group& group) {
        return Json{{"build", *group.key},
                    {"fingerprints", group.builds},
                    {"reports", group.reports},
                    {"boots", group.boots},
                    {"cameras", group.cameras}};
      };
      Json json = {
          {"database", options.db}, {"a", side(*a)}, {"b", side(*b)}, {"alpha", 0.05}, {"rates", Json::array()}};
      for (const Row& row : rows) {
        const Rate& rate = kRates[row.rate];
        Json entry = {{"rate", rate.column},
                      {"title", rate.title},
                      {"a", RateJson(rate, row.kA, a->cameras)},
                      {"b", RateJson(rate, row.kB, b->cameras)}};
        entry["a"].erase("title");
        entry["b"].erase("title");
        if (comparable) {
          entry["difference"] = row.difference;
          entry["difference_interval"] = {row.interval.low, row.interval.high};
          entry["test"] = row.test.exact ? "fisher" : "z";
          entry["z"] = row.test.statistic;
          entry["p"] = row.test.p;
          entry["significant"] = row.test.p < 0.05;
        }
        entry["verdict"] = verdict(row);
        json["rates"].push_back(std::move(entry));
      }
      out << json.dump(2) << '\n';
      return 0;
    }
    for (const auto& [letter, group] : {std::pair{"A", &*a}, {"B", &*b}}) {
      out << letter << ": " << *group->key;
      // Named by its build id: the fingerprint it stands for, or how many.
      if (group->builds.size() == 1 && group->builds.front() != *group->key)
        out << " (" << group->builds.front() << ")";
      else if (group->builds.size() > 1)
        out << " (" << group->builds.size() << " fingerprints)";
      out << ": " << Plural(group->reports, "report", "reports") << ", " << Plural(group->boots, "boot", "boots")
          << ", " << Plural(group->cameras, "camera", "cameras") << '\n';
    }
    out << "\nB - A in percentage points with its 95% interval (Newcombe); p: two-sided test of equal proportions,\n"
           "a two-proportion z-test with pooled variance, or Fisher's exact test when an expected count is below 5;\n"
           "most significant first\n\n";
    Table table("lrrrrlrlrll");
    table.Add({"rate", "A", "", "B", "", "B - A", "", "", "p", "test", "verdict"});
    for (const Row& row : rows) {
      const RateText textA = FormatRate(row.kA, a->cameras), textB = FormatRate(row.kB, b->cameras);
      if (!comparable) {
        table.Add({kRates[row.rate].title, Count(row.kA, a->cameras), textA.rate, Count(row.kB, b->cameras), textB.rate,
                   "", "", "", "", "", verdict(row)});
        continue;
      }
      const RateText difference = FormatDifference(row.difference, row.interval);
      char p[32];
      std::snprintf(p, sizeof p, row.test.p >= 0.001 ? "%.3f" : "%.1e", row.test.p);
      table.Add({kRates[row.rate].title, Count(row.kA, a->cameras), textA.rate, Count(row.kB, b->cameras), textB.rate,
                 difference.rate, difference.interval, "", p, row.test.exact ? "Fisher" : "z", verdict(row)});
    }
    table.Print(out, "");
    if (comparable)
      out << "\n"
          << kRateCount << " rates tested at 5% each: with no real change, one of them is still flagged about "
          << std::lround(100 * (1 - std::pow(0.95, static_cast<double>(kRateCount)))) << "% of the time\n";
    return 0;
  });
}

}  // namespace fleet
