// remedium-sim fleet summary and compare over databases of known counts, and
// the statistics under them against published values.
#include "sim/fleet/query.h"

#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "sim/fleet/stats.h"
#include "tests/fleet/query_test_db.h"

namespace fleet {
namespace {

using testing::FillAB;
using ::testing::HasSubstr;
using testing::kBuildA;
using testing::kBuildB;
using testing::TestDb;

void ExpectInterval(stats::Interval interval, double low, double high) {
  EXPECT_NEAR(interval.low, low, 5e-5);
  EXPECT_NEAR(interval.high, high, 5e-5);
}

TEST(Stats, IntervalsAndTestsMatchPublishedValues) {
  // Wilson's score interval of 2 of 7 (Newcombe 1998, table I); at 0 of n
  // and n of n a bound is exact.
  ExpectInterval(stats::Wilson(2, 7), 0.0822, 0.6411);
  ExpectInterval(stats::Wilson(0, 40), 0, 0.0876);
  EXPECT_EQ(stats::Wilson(0, 40).low, 0.0);
  EXPECT_EQ(stats::Wilson(40, 40).high, 1.0);
  // 56/70 - 48/80 by the hybrid score method (Newcombe 1998, method 10).
  ExpectInterval(stats::DifferenceInterval(48, 80, 56, 70), 0.0524, 0.3339);

  // 15 of 50 against 25 of 50: z = 2.041, p = 0.0412 (chi-squared 4.167,
  // no continuity correction); no variance at all: p = 1.
  double z = 0;
  EXPECT_NEAR(stats::TwoProportionZTest(15, 50, 25, 50, &z), 0.04123, 5e-5);
  EXPECT_NEAR(z, 2.0412, 5e-4);
  EXPECT_EQ(stats::TwoProportionZTest(0, 30, 0, 40, &z), 1.0);
  // Fisher's lady tasting tea (3 of 4 cups against 1 of 4: p = 0.4857) both
  // ways round, an unbalanced table and two more enumerated exactly, one
  // whose observed table is the likeliest (p = 1, not above it).
  for (auto [kA, nA, kB, nB, p] : {std::tuple{3, 4, 1, 4, 0.485714},
                                   {1, 4, 3, 4, 0.485714},
                                   {0, 10, 5, 12, 0.0396446},
                                   {2, 40, 10, 40, 0.025204},
                                   {1, 6, 1, 6, 1.0}})
    EXPECT_NEAR(stats::FisherExactTest(kA, nA, kB, nB), p, 5e-6) << kA << "/" << nA << " " << kB << "/" << nB;
  // Expected counts of 6 and 34 a row: the z-test; below 5: Fisher's.
  EXPECT_FALSE(stats::CompareProportions(2, 40, 10, 40).exact);
  EXPECT_TRUE(stats::CompareProportions(0, 10, 5, 12).exact);
}

TEST(Format, RatesShowTheirIntervalsToUsefulDecimals) {
  // Down to 100,000 cameras, where only decimals tell anything.
  for (auto [k, n, text] :
       {std::tuple{2, 7, "29% [8%, 64%]"}, {0, 40, "0.0% [0.0%, 8.8%]"}, {1430, 100000, "1.43% [1.36%, 1.51%]"}})
    EXPECT_EQ(FormatRate(k, n).rate + " " + FormatRate(k, n).interval, text);
  EXPECT_EQ(FormatRate(3, 0).rate, "n/a");
  EXPECT_EQ(FormatDifference(-0.0, {-0.005, 0.005}).rate, "+0.0 pp");
}

struct Output {
  int status;
  std::string out, err;
};

Output Summary(const std::string& db, const std::string& by = "build", bool json = false) {
  std::ostringstream out, err;
  return {RunSummary({db, by, json}, out, err), out.str(), err.str()};
}

Output Compare(const std::string& db, const std::string& a, const std::string& b, bool json = false) {
  std::ostringstream out, err;
  return {RunCompare({db, a, b, json}, out, err), out.str(), err.str()};
}

nlohmann::json Json(const Output& output) { return nlohmann::json::parse(output.out); }

TEST(Summary, CountsRatesAndIntervalsByBuild) {
  TestDb db("summary.sqlite");
  FillAB(db);
  const Output run = Summary(db.path());
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_THAT(run.out, HasSubstr("40 reports (and 1 rejected, not counted), 40 boots, 80 cameras; by build"));
  EXPECT_THAT(run.out, HasSubstr("build " + kBuildA + " (AP3A.240905.015.A2)\n  20 reports, 20 boots, 40 cameras"));
  // Aligned across the groups.
  EXPECT_THAT(run.out, HasSubstr("    bypass taken            2/40    5%  [1%, 17%]\n"));
  EXPECT_THAT(run.out, HasSubstr("    bypass taken           10/40   25%  [14%, 40%]\n"));
  EXPECT_THAT(run.out, HasSubstr("    kernel retry            0/40  0.0%  [0.0%, 8.8%]\n"));
  EXPECT_THAT(run.out, HasSubstr("    camera lost             3/40    8%  [3%, 20%]\n"));
  // The signatures: B's 10 bypasses and A's 2 first, the rejected report's
  // and the camera-less line's not counted.
  const std::string top = "  cameras  reports  signature\n       12       12  " + testing::kBypass +
                          "\n                      e.g. /reports/a/bugreport-0.zip\n        3        3  " +
                          testing::kLost;
  EXPECT_THAT(run.out, HasSubstr(top));

  const auto json = Json(Summary(db.path(), "build", true));
  EXPECT_EQ(json["cameras"], 80);
  EXPECT_EQ(json["rejected"], 1);
  ASSERT_EQ(json["groups"].size(), 2u);
  const auto& b = json["groups"][1];
  EXPECT_EQ(b["build_id"], "AP3A.241005.015");
  EXPECT_EQ(b["rates"]["bypass_taken"]["count"], 10);
  EXPECT_DOUBLE_EQ(b["rates"]["bypass_taken"]["rate"].get<double>(), 0.25);
  ExpectInterval({b["rates"]["bypass_taken"]["interval"][0], b["rates"]["bypass_taken"]["interval"][1]}, 0.14187,
                 0.40194);
  EXPECT_EQ(json["signatures"][0]["examples"].size(), 5u);
  EXPECT_EQ(json["signatures"][1]["example"], "/reports/b/bugreport-0.zip");
}

TEST(Summary, GroupsByCameraAndReportColumns) {
  TestDb db("groups.sqlite");
  FillAB(db);
  // A report with no camera counts for its model and hardware, not for any module.
  db.Report(kBuildA, "AP3A.240905.015.A2", "/reports/a/silent.zip", "ok", "Vela Pro", "EVT");
  // By slot, the camera id stands in where the slot is NULL (B's front camera).
  auto groups = Json(Summary(db.path(), "slot", true))["groups"];
  ASSERT_EQ(groups.size(), 2u);
  EXPECT_EQ(groups[1]["group"], "1");
  EXPECT_EQ(groups[1]["cameras"], 40);
  EXPECT_EQ(groups[1]["reports"], 40);
  EXPECT_EQ(groups[1]["rates"]["lost"]["count"], 3);
  groups = Json(Summary(db.path(), "module", true))["groups"];
  ASSERT_EQ(groups.size(), 2u);
  EXPECT_EQ(groups[0]["group"], "s5k3p9_front");
  EXPECT_EQ(groups[1]["rates"]["bypass_taken"]["count"], 12);
  groups = Json(Summary(db.path(), "model", true))["groups"];
  ASSERT_EQ(groups.size(), 2u);
  EXPECT_EQ(groups[1]["group"], "Vela Pro");
  EXPECT_EQ(groups[1]["reports"], 1);
  EXPECT_EQ(groups[1]["rates"]["lost"]["rate"], nullptr);
  EXPECT_THAT(Summary(db.path(), "hw").out, HasSubstr("hw EVT\n  1 report, 1 boot, 0 cameras\n\nhw MP\n"));
}

TEST(Summary, RefusesWhatIsNotAFleetDatabaseInOneLine) {
  const std::string text = testing::WorkPath("not-a-database.txt");
  std::ofstream(text) << "--------- beginning of main\n";
  TestDb other("other.sqlite");
  other.Exec("DROP TABLE cameras");
  for (const std::string& path :
       {testing::WorkPath("missing.sqlite"), text, other.path(), std::string(REMEDIUM_FLEET_WORK)}) {
    const Output run = Summary(path);
    EXPECT_EQ(run.status, 2) << path;
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, HasSubstr("remedium-sim fleet summary: " + path + ": "));
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  }
  EXPECT_THAT(Summary(text).err, HasSubstr("not a fleet database"));
  EXPECT_THAT(Summary(other.path()).err, HasSubstr("not a fleet database (no such table: cameras)"));
  EXPECT_FALSE(std::filesystem::exists(testing::WorkPath("missing.sqlite")));

  TestDb empty("empty.sqlite");
  EXPECT_EQ(Summary(empty.path()).out, empty.path() + ": no report to summarise: the database is empty\n");
  EXPECT_EQ(Json(Summary(empty.path(), "module", true))["groups"].size(), 0u);
}

TEST(Compare, FindsTheBypassRateLargerThanChance) {
  TestDb db("compare.sqlite");
  FillAB(db);
  // By build id for A, by fingerprint for B.
  const auto json = Json(Compare(db.path(), "AP3A.240905.015.A2", kBuildB, true));
  EXPECT_EQ(json["a"]["fingerprints"][0], kBuildA);
  EXPECT_EQ(json["a"]["cameras"], 40);
  // Most significant first: the two flags B raised 10 times, then its 3 lost cameras.
  const auto& rates = json["rates"];
  ASSERT_EQ(rates.size(), std::size(kRates));
  EXPECT_EQ(rates[0]["rate"], "first_probe_failed");
  const auto& bypass = rates[1];
  EXPECT_EQ(bypass["rate"], "bypass_taken");
  EXPECT_EQ(bypass["b"]["count"], 10);
  EXPECT_DOUBLE_EQ(bypass["difference"].get<double>(), 0.2);
  ExpectInterval({bypass["difference_interval"][0], bypass["difference_interval"][1]}, 0.04212, 0.35619);
  EXPECT_EQ(bypass["test"], "z");
  EXPECT_NEAR(bypass["z"].get<double>(), 2.5049, 5e-4);
  EXPECT_NEAR(bypass["p"].get<double>(), 0.012249, 5e-6);
  EXPECT_EQ(bypass["verdict"], "larger than chance at 5%");
  // 0 of 40 against 3 of 40: expected counts of 1.5, so Fisher's, p = 0.2405.
  const auto& lost = rates[2];
  EXPECT_EQ(lost["test"], "fisher");
  EXPECT_NEAR(lost["p"].get<double>(), 0.24051, 5e-5);
  EXPECT_EQ(lost["verdict"], "within chance at 5%");
  EXPECT_EQ(rates[6]["p"], 1.0);

  const Output run = Compare(db.path(), kBuildA, kBuildB);
  ASSERT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("A: " + kBuildA + ": 20 reports, 20 boots, 40 cameras\n"));
  EXPECT_THAT(run.out, HasSubstr("bypass taken           2/40    5%  10/40   25%  +20 pp  [+4, +36]    0.012  z"
                                 "       larger than chance at 5%\n"));
  EXPECT_THAT(run.out, HasSubstr("Fisher  within chance at 5%\n"));

  // A build without a told report (here: only a rejected one) ends it in one line.
  db.Report("velora/x:15/AP4A.250105.002/1:user/release-keys", "AP4A.250105.002", "/r.zip", "rejected");
  const Output missing = Compare(db.path(), kBuildA, "AP4A.250105.002");
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.out, "");
  EXPECT_EQ(missing.err, "remedium-sim fleet compare: " + db.path() +
                             ": no report of build \"AP4A.250105.002\" (neither a fingerprint nor a build id of a "
                             "told report)\n");
}

}  // namespace
}  // namespace fleet
