// Small fleet databases for the summary, comparison and report tests, made
// with plain SQL over the schema so that every count is known.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "sim/fleet/fleet.h"

namespace fleet::testing {

inline std::string WorkPath(const std::string& name) {
  std::filesystem::create_directories(REMEDIUM_FLEET_WORK);
  return std::string(REMEDIUM_FLEET_WORK) + "/" + name;
}

class TestDb {
 public:
  explicit TestDb(const std::string& name) : path_(WorkPath(name)) {
    std::filesystem::remove(path_);
    EXPECT_EQ(sqlite3_open(path_.c_str(), &db_), SQLITE_OK);
    // A test's database need not survive a power cut: no sync per insert.
    Exec("PRAGMA synchronous = OFF; PRAGMA journal_mode = MEMORY");
    Exec(kSchema);
  }
  ~TestDb() { sqlite3_close(db_); }
  TestDb(const TestDb&) = delete;
  TestDb& operator=(const TestDb&) = delete;
  const std::string& path() const { return path_; }

  void Exec(const std::string& sql) {
    char* error = nullptr;
    EXPECT_EQ(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK) << (error ? error : "") << sql;
    sqlite3_free(error);
  }

  // A report with one boot and one camera process; returns the process.
  int64_t Report(const std::string& build, const std::string& buildId, const std::string& path,
                 const std::string& status = "ok", const std::string& model = "Vela", const std::string& hw = "MP") {
    ++reports_;
    Exec("INSERT INTO reports (id, hash, path, status, build, build_id, model, hw, ingested_at) VALUES (" +
         std::to_string(reports_) + ", 'h" + std::to_string(reports_) + "', " + Quote(path) + ", " + Quote(status) +
         ", " + Quote(build) + ", " + Quote(buildId) + ", " + Quote(model) + ", " + Quote(hw) + ", 'now')");
    Exec("INSERT INTO boots (id, report_id, ordinal, previous) VALUES (" + std::to_string(reports_) + ", " +
         std::to_string(reports_) + ", 1, 0)");
    Exec("INSERT INTO processes (id, boot_id, pid) VALUES (" + std::to_string(reports_) + ", " +
         std::to_string(reports_) + ", 1000)");
    return reports_;
  }

  // A camera of a process; `flags` has bit i set for kRates[i]. Camera -1 is a NULL camera.
  void Camera(int64_t process, int camera, std::optional<int> slot, const std::string& sensor, unsigned flags = 0,
              const std::string& signature = "") {
    std::string columns = "process_id, camera, slot, sensor, attempts, incomplete, signature", values;
    values = std::to_string(process) + ", " + (camera < 0 ? "NULL" : std::to_string(camera)) + ", " +
             (slot ? std::to_string(*slot) : "NULL") + ", " + Quote(sensor) + ", 1, 0, " +
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

  std::string path_;
  sqlite3* db_ = nullptr;
  int64_t reports_ = 0;
};

inline constexpr unsigned Flag(const char* column) {
  for (size_t i = 0; i < std::size(kRates); ++i)
    if (std::string_view(kRates[i].column) == column) return 1u << i;
  return 0;
}

inline const std::string kBuildA = "velora/vela/vela:15/AP3A.240905.015.A2/12:user/release-keys";
inline const std::string kBuildB = "velora/vela/vela:15/AP3A.241005.015/31:user/release-keys";
inline const std::string kBypass = "slot 0: imx582_rear -19 > s5kgm2_rear bypass";
inline const std::string kLost = "slot 1: s5k3p9_front -110 x3 lost <&>";

// Builds A and B, 20 reports of one process and two cameras each (40
// cameras a build): A's rear camera took a bypass in 2 reports, B's in 10;
// B lost its front camera in 3. Around them what must not count: a rejected
// report, a camera line without a camera id.
inline void FillAB(TestDb& db) {
  for (int i = 0; i < 20; ++i) {
    const int64_t a = db.Report(kBuildA, "AP3A.240905.015.A2", "/reports/a/bugreport-" + std::to_string(i) + ".zip");
    db.Camera(a, 0, 0, "s5kgm2_rear", i < 2 ? Flag("bypass_taken") | Flag("first_probe_failed") : 0,
              i < 2 ? kBypass : "");
    db.Camera(a, 1, 1, "s5k3p9_front");
  }
  for (int i = 0; i < 20; ++i) {
    const int64_t b = db.Report(kBuildB, "AP3A.241005.015", "/reports/b/bugreport-" + std::to_string(i) + ".zip");
    db.Camera(b, 0, 0, "s5kgm2_rear", i < 10 ? Flag("bypass_taken") | Flag("first_probe_failed") : 0,
              i < 10 ? kBypass : "");
    db.Camera(b, 1, std::nullopt, "s5k3p9_front", i < 3 ? Flag("lost") : 0, i < 3 ? kLost : "");
  }
  const int64_t rejected = db.Report(kBuildB, "AP3A.241005.015", "/reports/b/broken.zip", "rejected");
  db.Camera(rejected, 0, 0, "s5kgm2_rear", Flag("bypass_taken"), kBypass);
  db.Camera(1, -1, std::nullopt, "", Flag("lost"), kLost);
}

}  // namespace fleet::testing
