// remedium-sim fleet ingest, export and merge over a small fleet of bug reports
// written here: counts per table, a report read once however often the folder
// is ingested, bad reports recorded and passed, a run resumed, the export's
// rows, and parts merged as the Dask driver merges them.
#include "sim/fleet/ingest.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <zip.h>

#include "sim/fleet/db.h"
#include "sim/fleet/fleet.h"
#include "sim/fleet/sha256.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

fs::path Work() {
  const fs::path dir = fs::path(REMEDIUM_FLEET_WORK) / ::testing::UnitTest::GetInstance()->current_test_info()->name();
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
}

std::string Slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// A threadtime line of the library, with -v uid's column.
std::string Lib(int second, int pid, const std::string& message) {
  char head[96];
  std::snprintf(head, sizeof head, "11-23 05:15:%02d.338  1047 %5d %5d I [REMEDIUM]: ", second, pid, pid);
  return head + message + "\n";
}

// One sensor probe attempt of `sensor` on camera 0 with its kernel and CamX results.
std::string Probe(int second, int pid, const std::string& sensor, int kmd, int umd) {
  std::string table;
  for (int i = 0; i < 64; ++i) table += (i ? "," : "") + std::to_string(i == 32 ? kmd : 0);
  return Lib(second, pid, "hook.cpp:93 SensorProbeHook() sensorModuleRetryTimes: 3, sensorModuleNumber: 2") +
         Lib(second, pid,
             "hook.cpp:105 SensorProbeHook() sensor name: " + sensor +
                 ",  sensor type: rear, frequentlyUsedSensor: 0, neverBeenSuccessfullyProbed: 0") +
         Lib(second, pid, "hook.cpp:112 SensorProbeHook() Get camera name:" + sensor + ", probeCount: 0") +
         Lib(second, pid, "hook.cpp:64 ReadSensorProbeResult() read sensor_apply_settings_control: " + table) +
         Lib(second, pid,
             "hook.cpp:152 SensorProbeHook() probe sensor: " + sensor +
                 ", slot id: 0 kmd result: " + std::to_string(kmd) + ", umd result: " + std::to_string(umd));
}

// The bundled sample bug report: camera 0 kept by a bypass on its fifth attempt.
const std::string& BypassLog() {
  static const std::string text = [] {
    const std::string report =
        Slurp(fs::path(REMEDIUM_EXPLAIN_DATA) / "bugreport-vela-AP3A.240905.015.A2-2024-11-23-05-16-02.txt");
    const size_t begin = report.find("--------- beginning of main\n");
    const size_t end = report.find("\n------ ", begin);
    return report.substr(begin, end + 1 - begin);
  }();
  return text;
}

struct Phone {
  char build;  // 'A' or 'B'
  bool bypass;
  int serial;  // makes each report's bytes its own
};

std::string Report(const Phone& phone) {
  const std::string id = phone.build == 'A' ? "AP3A.240905.015.A1" : "AP3A.240905.015.A2";
  const std::string log =
      phone.bypass ? BypassLog()
                   : "--------- beginning of main\n" +
                         Lib(20, 900 + phone.serial, "hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0") +
                         Probe(21, 900 + phone.serial, "imx582_rear", 0, 0);
  return "== dumpstate: 2024-11-23 05:16:02\n"
         "------ SYSTEM LOG (logcat -v threadtime -v printable -v uid -d *:v) ------\n" +
         log + "11-23 05:15:59.000  1000  1512  1690 I ActivityManager: phone " + std::to_string(phone.serial) +
         "\n------ 0.9s was the duration of 'SYSTEM LOG' ------\n"
         "------ SYSTEM PROPERTIES (getprop) ------\n"
         "[ro.build.fingerprint]: [velora/vela/vela:15/" +
         id + "/1123:user/release-keys]\n[ro.build.id]: [" + id +
         "]\n[ro.product.model]: [Vela 5]\n[ro.boot.hardware.revision]: [DVT" + std::to_string(phone.serial % 2) +
         "]\n" + (phone.bypass ? "[vendor.debug.camera.imagesensorstate.0]: [<P:S:100><I:S:100><C:S:100>]\n" : "") +
         "------ 0.0s was the duration of 'SYSTEM PROPERTIES' ------\n";
}

// Writes the phones' reports into `dir`, every third one zipped as adb bugreport does.
std::vector<fs::path> WriteFleet(const fs::path& dir, const std::vector<Phone>& phones) {
  fs::create_directories(dir);
  std::vector<fs::path> paths;
  for (const Phone& phone : phones) {
    char name[96];
    std::snprintf(name, sizeof name, "bugreport-vela-%c-2024-11-23-05-16-02", phone.build);
    const std::string text = Report(phone);
    fs::path path = dir / (std::string(name) + "-" + std::to_string(phone.serial));
    if (phone.serial % 3 == 0) {
      path += ".zip";
      int error = 0;
      zip_t* zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
      const std::string member = std::string(name) + ".txt";
      zip_file_add(zip, "main_entry.txt", zip_source_buffer(zip, member.data(), member.size(), 0), 0);
      zip_file_add(zip, member.c_str(), zip_source_buffer(zip, text.data(), text.size(), 0), 0);
      EXPECT_EQ(zip_close(zip), 0);
    } else {
      path += ".txt";
      std::ofstream(path, std::ios::binary) << text;
    }
    paths.push_back(path);
  }
  return paths;
}

// Build A: 8 phones, 2 bypasses; build B: 4 phones, 3 bypasses.
std::vector<Phone> Fleet(int first = 0, int count = 12) {
  std::vector<Phone> phones;
  for (int i = first; i < first + count; ++i) phones.push_back({i < 8 ? 'A' : 'B', i == 1 || i == 5 || i >= 9, i});
  return phones;
}

struct Outcome {
  int status;
  std::string out, err;
};

Outcome Ingest(const fs::path& db, const std::vector<std::string>& paths, int jobs = 0) {
  std::ostringstream out, err;
  fleet::IngestOptions options;
  options.db = db.string();
  options.paths = paths;
  options.jobs = jobs;
  options.progress = "off";
  const int status = fleet::RunIngest(options, out, err);
  return {status, out.str(), err.str()};
}

int64_t Count(const fs::path& db, const std::string& sql) {
  fleet::Db handle(db.string(), fleet::Db::Mode::kReadOnly);
  fleet::Statement statement = handle.Prepare(sql);
  return statement.Step() ? statement.Int(0) : -1;
}

std::vector<nlohmann::json> Export(const fs::path& db) {
  std::ostringstream out, err;
  EXPECT_EQ(fleet::RunExport(db.string(), out, err), 0) << err.str();
  std::vector<nlohmann::json> rows;
  std::istringstream lines(out.str());
  for (std::string line; std::getline(lines, line);) rows.push_back(nlohmann::json::parse(line));
  return rows;
}

// The export without what differs between two databases of the same reports: row ids (each
// replaced by its report's hash and the row's rank within it), the time of ingest and the path.
std::multiset<std::string> Normalised(const std::vector<nlohmann::json>& rows) {
  std::map<std::string, std::map<int64_t, std::string>> key;  // table -> id -> stable key
  std::map<std::string, std::map<std::string, int>> rank;
  const std::map<std::string, std::pair<std::string, std::string>> parent = {
      {"boots", {"report_id", "reports"}},        {"processes", {"boot_id", "boots"}},
      {"cameras", {"process_id", "processes"}},   {"events", {"camera_id", "cameras"}},
      {"notes", {"camera_id", "cameras"}},        {"recorded_state", {"boot_id", "boots"}},
      {"reading_notes", {"report_id", "reports"}}};
  std::multiset<std::string> out;
  for (nlohmann::json row : rows) {  // parents come first, in id order
    const std::string table = row["table"];
    if (table == "files") continue;
    std::string self;
    if (table == "reports") {
      self = row["hash"];
      row.erase("path");
      row.erase("ingested_at");
    } else {
      const auto& [column, of] = parent.at(table);
      const std::string owner = key[of][row[column].get<int64_t>()];
      self = owner + "/" + table + std::to_string(rank[table][owner]++);
      row[column] = owner;
    }
    if (row.contains("id")) {
      key[table][row["id"].get<int64_t>()] = self;
      row["id"] = self;
    }
    out.insert(row.dump());
  }
  return out;
}

TEST(FleetFacts, Sha256KnownVectorsInAnyPieces) {
  EXPECT_EQ(fleet::Sha256().HexDigest(), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  const std::string text = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
  for (const size_t piece : {1ul, 7ul, 55ul, 56ul, 64ul}) {
    fleet::Sha256 hash;
    for (size_t at = 0; at < text.size(); at += piece) hash.Update(std::string_view(text).substr(at, piece));
    EXPECT_EQ(hash.HexDigest(), "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1") << piece;
  }
  fleet::Sha256 million;
  for (int i = 0; i < 1000; ++i) million.Update(std::string(1000, 'a'));
  EXPECT_EQ(million.HexDigest(), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(FleetFacts, FlagsSignatureAndTimeOfAReport) {
  const fs::path dir = Work();
  explain::StorySink sink;
  std::string error;
  ASSERT_TRUE(explain::ReadInput(WriteFleet(dir, {{'B', true, 1}})[0].string(), sink, &error)) << error;
  const explain::Story story = sink.Finish();
  const fleet::CameraFacts facts = fleet::FactsOf(story.boots.at(0).processes.at(0).cameras.at(0));
  EXPECT_TRUE(facts.firstProbeFailed && facts.bypassTaken && facts.forcedEeprom);
  EXPECT_FALSE(facts.kernelRetry || facts.hiddenInit || facts.hiddenConfig || facts.lost || facts.incomplete);
  EXPECT_EQ(facts.signature, "slot 0: imx582_rear kmd -19 > s5kgm2_rear kmd -110 x3 > s5kgm2_rear bypass");

  // A camera whose only attempt fails is lost.
  explain::StorySink lost;
  const std::string log =
      Lib(1, 700, "hook.cpp:17 GetStaticCapsHook() camera id: 0, slot id: 0") + Probe(1, 700, "ov13b_rear", -110, 1);
  ASSERT_TRUE(explain::ReadInputBytes("lost.txt", log, lost, &error)) << error;
  const fleet::CameraFacts lostFacts = fleet::FactsOf(lost.Finish().boots.at(0).processes.at(0).cameras.at(0));
  EXPECT_TRUE(lostFacts.firstProbeFailed && lostFacts.lost);
  EXPECT_EQ(lostFacts.signature, "slot 0: ov13b_rear kmd -110");

  EXPECT_EQ(fleet::TimeFromName("x/bugreport-vela-AP3A.240905.015.A2-2024-11-23-05-16-02.zip!bugreport-vela.txt"),
            "2024-11-23 05:16:02");
  EXPECT_EQ(fleet::TimeFromName("bugreport-2024-11-23.txt"), std::nullopt);
  EXPECT_EQ(fleet::TimeFromName("logcat-2024-11-23-05-16-02.txt"), std::nullopt);
}

TEST(FleetIngest, CountsPerTableAndRejectedReportsPassed) {
  const fs::path dir = Work(), db = dir / "fleet.sqlite";
  WriteFleet(dir / "reports", Fleet());
  std::ofstream(dir / "reports" / "notes.txt") << "not a log at all\n";
  fs::create_directories(dir / "reports" / "more");
  std::ofstream(dir / "reports" / "more" / "photos.zip") << "PK\x03\x04 cut short";
  std::ofstream(dir / "reports" / "more" / "readme.md") << "not read: neither .zip nor .txt\n";

  const Outcome run = Ingest(db, {(dir / "reports").string()});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "14 reports: 12 ingested, 0 already in the database, 2 rejected\n");
  EXPECT_EQ(Count(db, "SELECT COUNT(*) FROM reports WHERE status = 'ok' AND report_time = '2024-11-23 05:16:02'"), 12);
  EXPECT_EQ(Count(db,
                  "SELECT COUNT(*) FROM reports WHERE status = 'rejected' AND reason LIKE '%notes.txt: not a "
                  "logcat%'"),
            1);
  EXPECT_EQ(Count(db, "SELECT COUNT(*) FROM reports WHERE status = 'rejected' AND reason LIKE '%photos.zip: %zip%'"),
            1);
  EXPECT_EQ(Count(db, "SELECT COUNT(*) FROM boots"), 12);
  EXPECT_EQ(Count(db, "SELECT COUNT(*) FROM processes"), 12);
  EXPECT_EQ(Count(db, "SELECT COUNT(*) FROM cameras"), 12);
  EXPECT_EQ(Count(db, "SELECT COUNT(*) FROM events"), 5 * 11 + 7 * 1);
  EXPECT_EQ(Count(db, "SELECT COUNT(*) FROM notes WHERE note = 'EEPROM success forced'"), 5);
  EXPECT_EQ(Count(db, "SELECT COUNT(*) FROM recorded_state"), 5 * 3);
  // Per build: 8 phones on A with 2 bypasses, 4 on B with 3.
  const std::string perBuild =
      "SELECT SUM(c.bypass_taken) FROM cameras c JOIN processes p ON c.process_id = p.id "
      "JOIN boots b ON p.boot_id = b.id JOIN reports r ON b.report_id = r.id WHERE "
      "r.build_id = ";
  EXPECT_EQ(Count(db, perBuild + "'AP3A.240905.015.A1'"), 2);
  EXPECT_EQ(Count(db, perBuild + "'AP3A.240905.015.A2'"), 3);
  EXPECT_EQ(Count(db,
                  "SELECT COUNT(*) FROM reports WHERE model = 'Vela 5' AND hw = 'DVT1' AND build LIKE "
                  "'velora/vela/vela:15/AP3A.240905.015.A_/1123:user/release-keys'"),
            6);
  EXPECT_EQ(Count(db,
                  "SELECT COUNT(*) FROM cameras WHERE signature = 'slot 0: imx582_rear ok' AND "
                  "first_probe_failed = 0 AND lost = 0 AND summary = 'camera 0 (slot 0): imx582_rear kept on "
                  "attempt 1'"),
            7);
}

TEST(FleetIngest, AReportIsReadOnceAndAnInterruptedRunResumes) {
  const fs::path dir = Work(), db = dir / "fleet.sqlite", reports = dir / "reports";
  const std::vector<fs::path> paths = WriteFleet(reports, Fleet(0, 12));
  // A run that stopped after 6 reports, as a kill between commits leaves it; the next run goes on.
  std::vector<std::string> half;
  for (size_t i = 0; i < 6; ++i) half.push_back(paths[i].string());
  EXPECT_EQ(Ingest(db, half, 1).out, "6 reports: 6 ingested, 0 already in the database, 0 rejected\n");
  EXPECT_EQ(Ingest(db, {reports.string()}, 2).out, "12 reports: 6 ingested, 6 already in the database, 0 rejected\n");
  EXPECT_EQ(Count(db, "SELECT COUNT(*) FROM reports"), 12);
  EXPECT_EQ(Count(db, "SELECT COUNT(*) FROM cameras"), 12);

  // Five new reports in the folder: only they are read.
  WriteFleet(reports, Fleet(12, 5));
  EXPECT_EQ(Ingest(db, {reports.string()}).out, "17 reports: 5 ingested, 12 already in the database, 0 rejected\n");
  // The same bytes under another name or another time are the same report (by hash) ...
  fs::copy_file(paths[0], reports / "copy.txt");
  fs::last_write_time(paths[1], fs::last_write_time(paths[1]) + std::chrono::seconds(5));
  EXPECT_EQ(Ingest(db, {reports.string()}).out, "18 reports: 0 ingested, 18 already in the database, 0 rejected\n");
  // ... and a file with the size and time recorded for its path is not read at all: changed in place
  // with its time put back, it stays the report it was.
  const auto time = fs::last_write_time(paths[2]);
  std::string bytes = Slurp(paths[2]);
  bytes.back() = '\n' == bytes.back() ? ' ' : '\n';
  std::ofstream(paths[2], std::ios::binary) << bytes;
  fs::last_write_time(paths[2], time);
  EXPECT_EQ(Ingest(db, {paths[2].string()}).out, "1 report: 0 ingested, 1 already in the database, 0 rejected\n");
  fs::last_write_time(paths[2], time + std::chrono::seconds(1));
  EXPECT_EQ(Ingest(db, {paths[2].string()}).out, "1 report: 1 ingested, 0 already in the database, 0 rejected\n");
  EXPECT_EQ(Count(db, "SELECT COUNT(*) FROM reports"), 18);
}

TEST(FleetIngest, BadCommandLinesAndDatabasesAreOneLine) {
  const fs::path dir = Work();
  std::ofstream(dir / "not-a-db.sqlite") << std::string(4096, 'x');
  const Outcome foreign = Ingest(dir / "not-a-db.sqlite", {dir.string()});
  EXPECT_EQ(foreign.status, 2);
  EXPECT_THAT(foreign.err, HasSubstr("not-a-db.sqlite: file is not a database\n"));
  const Outcome missing = Ingest(dir / "fleet.sqlite", {(dir / "nowhere").string()});
  EXPECT_EQ(missing.status, 2);
  EXPECT_THAT(missing.err, HasSubstr("nowhere: no such file or folder\n"));
  const Outcome folder = Ingest(dir / "no" / "such" / "fleet.sqlite", {dir.string()});
  EXPECT_EQ(folder.status, 2);
  EXPECT_THAT(folder.err, HasSubstr("fleet.sqlite: unable to open database file\n"));
  std::ostringstream out, err;
  EXPECT_EQ(fleet::RunExport((dir / "absent.sqlite").string(), out, err), 2);
  EXPECT_FALSE(fs::exists(dir / "absent.sqlite"));
}

TEST(FleetExport, RowsParseAndMatchTheTablesAndMergedPartsEqualOneIngest) {
  const fs::path dir = Work(), whole = dir / "whole.sqlite";
  const std::vector<fs::path> paths = WriteFleet(dir / "reports", Fleet());
  std::ofstream(dir / "reports" / "junk.txt") << "junk\n";
  ASSERT_EQ(Ingest(whole, {(dir / "reports").string()}).status, 0);

  const std::vector<nlohmann::json> rows = Export(whole);
  std::map<std::string, int64_t> perTable;
  for (const nlohmann::json& row : rows) ++perTable[row.at("table").get<std::string>()];
  for (const char* table : fleet::kTables) {
    EXPECT_EQ(perTable[table], Count(whole, std::string("SELECT COUNT(*) FROM ") + table)) << table;
  }
  EXPECT_EQ(rows.front().at("table"), "reports");
  EXPECT_EQ(rows.front().at("reason"), nullptr);

  // Three parts (as three cluster workers write them), one overlapping another, merged.
  std::vector<std::string> parts;
  const std::vector<std::vector<size_t>> shares = {{0, 1, 2, 3, 4}, {4, 5, 6, 7, 8}, {9, 10, 11}};
  for (size_t p = 0; p < shares.size(); ++p) {
    std::vector<std::string> mine;
    for (const size_t i : shares[p]) mine.push_back(paths[i].string());
    if (p == 2) mine.push_back((dir / "reports" / "junk.txt").string());
    parts.push_back((dir / ("part" + std::to_string(p) + ".sqlite")).string());
    ASSERT_EQ(Ingest(parts.back(), mine).status, 0);
  }
  std::ostringstream out, err;
  ASSERT_EQ(fleet::RunMerge((dir / "merged.sqlite").string(), parts, out, err), 0) << err.str();
  EXPECT_EQ(out.str(), "3 parts: 13 reports merged, 1 already in the database\n");
  EXPECT_EQ(Normalised(Export(dir / "merged.sqlite")), Normalised(rows));
  // A part merged again adds nothing.
  out.str("");
  ASSERT_EQ(fleet::RunMerge((dir / "merged.sqlite").string(), {parts[0]}, out, err), 0) << err.str();
  EXPECT_EQ(out.str(), "1 part: 0 reports merged, 5 already in the database\n");
  EXPECT_EQ(Count(dir / "merged.sqlite", "SELECT COUNT(*) FROM events"), Count(whole, "SELECT COUNT(*) FROM events"));
}

}  // namespace
