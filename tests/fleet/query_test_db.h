// Small fleet databases for the summary, comparison and report tests, made
// with plain SQL over the schema so that every count is known.
#pragma once

#include <sqlite3.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "sim/fleet/fleet.h"

namespace fleet::testing {

inline std::string WorkPath(const std::string& name) {
  std::filesystem::create_directories(REMEDIUM_FLEET_WORK);
  return std::string(REMEDIUM_FLEET_WORK) + "/" + name;
}

inline unsigned Flag(std::string_view column) {
  for (size_t i = 0; i < std::size(kRates); ++i)
    if (kRates[i].column == column) return 1u << i;
  return 0;
}

class TestDb {
 public:
  explicit TestDb(const std::string& name) : m_path(WorkPath(name)) {
    std::filesystem::remove(m_path);
    EXPECT_EQ(sqlite3_open(m_path.c_str(), &m_db), SQLITE_OK);
    // A test's database need not survive a power cut: no sync per insert.
    Exec(std::string("PRAGMA synchronous = OFF; PRAGMA journal_mode = MEMORY;") + kSchema);
  }
  ~TestDb() { sqlite3_close(m_db); }
  const std::string& path() const { return m_path; }

  void Exec(const std::string& sql) {
    char* error = nullptr;
    EXPECT_EQ(sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK) << (error ? error : "") << sql;
    sqlite3_free(error);
  }

  // A report with one boot and one camera process, whose id (the process's
  // as well) it returns.
  int Report(const std::string& build, const std::string& buildId, const std::string& path,
             const std::string& status = "ok", const std::string& model = "Vela", const std::string& hw = "MP") {
    const std::string id = std::to_string(++m_reports);
    Exec("INSERT INTO reports (id, hash, path, status, build, build_id, model, hw, ingested_at) VALUES (" + id +
         ", 'h" + id + "', " + Quote(path) + ", " + Quote(status) + ", " + Quote(build) + ", " + Quote(buildId) + ", " +
         Quote(model) + ", " + Quote(hw) + ", 'now'); INSERT INTO boots (id, report_id, ordinal, previous) " +
         "VALUES (" + id + ", " + id + ", 1, 0); INSERT INTO processes (id, boot_id, pid) VALUES (" + id + ", " + id +
         ", 1000)");
    return m_reports;
  }

  // A camera (-1: NULL) of a process, with kRates[i]'s flag where `flags` has bit i.
  void Camera(int process, int camera, int slot, const std::string& sensor, unsigned flags = 0,
              const std::string& signature = "") {
    std::string columns = "process_id, camera, slot, sensor, attempts, incomplete, signature";
    std::string values = std::to_string(process) + ", " + (camera < 0 ? "NULL" : std::to_string(camera)) + ", " +
                         (slot < 0 ? "NULL" : std::to_string(slot)) + ", " + Quote(sensor) + ", 1, 0, " +
                         (signature.empty() ? "NULL" : Quote(signature));
    for (size_t i = 0; i < std::size(kRates); ++i) {
      columns += std::string(", ") + kRates[i].column;
      values += (flags >> i) & 1 ? ", 1" : ", 0";
    }
    Exec("INSERT INTO cameras (" + columns + ") VALUES (" + values + ")");
  }

 private:
  static std::string Quote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("''") : std::string(1, c);
    return quoted + "'";
  }

  std::string m_path;
  sqlite3* m_db = nullptr;
  int m_reports = 0;
};

inline const std::string kBuildA = "velora/vela/vela:15/AP3A.240905.015.A2/12:user/release-keys";
inline const std::string kBuildB = "velora/vela/vela:15/AP3A.241005.015/31:user/release-keys";
inline const std::string kBypass = "slot 0: imx582_rear -19 > s5kgm2_rear bypass";
inline const std::string kLost = "slot 1: s5k3p9_front -110 x3 lost <&>";

// Builds A and B, 20 reports of two cameras each (40 cameras a build): A's
// rear camera took a bypass in 2 reports, B's in 10; B lost its front camera
// (slot NULL) in 3. And what must not count: a rejected report, a camera line
// without a camera id.
inline void FillAB(TestDb& db) {
  const unsigned bypass = Flag("bypass_taken") | Flag("first_probe_failed");
  for (int i = 0; i < 40; ++i) {
    const bool b = i >= 20;
    const int n = i % 20;
    const int report = db.Report(b ? kBuildB : kBuildA, b ? "AP3A.241005.015" : "AP3A.240905.015.A2",
                                 "/reports/" + std::string(b ? "b" : "a") + "/bugreport-" + std::to_string(n) + ".zip");
    const bool bypassed = n < (b ? 10 : 2), lost = b && n < 3;
    db.Camera(report, 0, 0, "s5kgm2_rear", bypassed ? bypass : 0, bypassed ? kBypass : "");
    db.Camera(report, 1, b ? -1 : 1, "s5k3p9_front", lost ? Flag("lost") : 0, lost ? kLost : "");
  }
  db.Camera(db.Report(kBuildB, "AP3A.241005.015", "/reports/b/broken.zip", "rejected"), 0, 0, "s5kgm2_rear", bypass,
            kBypass);
  db.Camera(1, -1, -1, "", Flag("lost"), kLost);
}

}  // namespace fleet::testing
