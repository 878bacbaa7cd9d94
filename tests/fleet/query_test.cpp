// remedium-sim fleet summary and compare over databases of known counts, and
// the statistics under them against published values.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "sim/fleet/query.h"
#include "sim/fleet/stats.h"
#include "tests/fleet/query_test_db.h"

namespace fleet {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using testing::FillAB;
using testing::kBuildA;
using testing::kBuildB;
using testing::TestDb;

TEST(Stats, IntervalsMatchPublishedValues) {
  // Wilson's score interval: 2 of 7 (Newcombe 1998, table I).
  stats::Interval w = stats::Wilson(2, 7);
  EXPECT_NEAR(w.low, 0.0822, 5e-5);
  EXPECT_NEAR(w.high, 0.6411, 5e-5);
  // No success: the lower bound is 0 exactly, the upper one is not.
  w = stats::Wilson(0, 40);
  EXPECT_EQ(w.low, 0.0);
  EXPECT_NEAR(w.high, 0.0876, 5e-5);
  w = stats::Wilson(40, 40);
  EXPECT_EQ(w.high, 1.0);
  w = stats::Wilson(0, 0);
  EXPECT_EQ(w.low, 0.0);
  EXPECT_EQ(w.high, 1.0);
  // The difference 56/70 - 48/80 by the hybrid score method (Newcombe 1998,
  // method 10): [0.0524, 0.3339].
  const stats::Interval d = stats::DifferenceInterval(48, 80, 56, 70);
  EXPECT_NEAR(d.low, 0.0524, 5e-5);
  EXPECT_NEAR(d.high, 0.3339, 5e-5);
}

TEST(Stats, TestsOfEqualProportionsMatchKnownValues) {
  // 15 of 50 against 25 of 50: z = 2.041, p = 0.0412 (chi-squared 4.167 without continuity correction).
  double z = 0;
  EXPECT_NEAR(stats::TwoProportionZTest(15, 50, 25, 50, &z), 0.04123, 5e-5);
  EXPECT_NEAR(z, 2.0412, 5e-4);
  EXPECT_NEAR(stats::TwoProportionZTest(25, 50, 15, 50, &z), 0.04123, 5e-5);
  EXPECT_LT(z, 0);
  // No variance at all: nothing to tell apart.
  EXPECT_EQ(stats::TwoProportionZTest(0, 30, 0, 40, &z), 1.0);
  EXPECT_EQ(z, 0.0);
  EXPECT_NEAR(stats::NormalCdf(1.959963984540054), 0.975, 1e-9);

  // Fisher's lady tasting tea: 3 of 4 cups against 1 of 4, two-sided p = 0.4857.
  EXPECT_NEAR(stats::FisherExactTest(3, 4, 1, 4), 0.48571, 5e-6);
  EXPECT_NEAR(stats::FisherExactTest(1, 4, 3, 4), 0.48571, 5e-6);
  // An unbalanced table (enumerated exactly): 0 of 10 against 5 of 12.
  EXPECT_NEAR(stats::FisherExactTest(0, 10, 5, 12), 0.0396446, 5e-7);
  // The observed table is the likeliest: p is 1, not above it.
  EXPECT_NEAR(stats::FisherExactTest(1, 6, 1, 6), 1.0, 1e-12);
  EXPECT_NEAR(stats::FisherExactTest(2, 40, 10, 40), 0.025204, 5e-6);

  // Expected counts of 6 and 34 a row: the z-test; 2 of a row: Fisher's.
  EXPECT_FALSE(stats::CompareProportions(2, 40, 10, 40).exact);
  const stats::TestResult small = stats::CompareProportions(0, 10, 5, 12);
  EXPECT_TRUE(small.exact);
  EXPECT_NEAR(small.p, 0.0396446, 5e-7);
  EXPECT_GT(small.statistic, 0);
}

TEST(Format, RatesShowTheirIntervalsToUsefulDecimals) {
  RateText text = FormatRate(2, 7);
  EXPECT_EQ(text.rate + " " + text.interval, "29% [8%, 64%]");
  text = FormatRate(0, 40);
  EXPECT_EQ(text.rate + " " + text.interval, "0.0% [0.0%, 8.8%]");
  // 100,000 cameras: a narrow interval needs decimals to mean anything.
  text = FormatRate(1430, 100000);
  EXPECT_EQ(text.rate + " " + text.interval, "1.43% [1.36%, 1.51%]");
  EXPECT_EQ(FormatRate(3, 0).rate, "n/a");
  text = FormatDifference(-0.0, {-0.005, 0.005});
  EXPECT_EQ(text.rate, "+0.0 pp");
}

struct Output {
  int status;
  std::string out, err;
};

Output Summary(const std::string& db, const std::string& by = "build", bool json = false) {
  std::ostringstream out, err;
  const int status = RunSummary({db, by, json}, out, err);
  return {status, out.str(), err.str()};
}

Output Compare(const std::string& db, const std::string& a, const std::string& b, bool json = false) {
  std::ostringstream out, err;
  const int status = RunCompare({db, a, b, json}, out, err);
  return {status, out.str(), err.str()};
}

TEST(Summary, CountsRatesAndIntervalsByBuild) {
  TestDb db("summary.sqlite");
  FillAB(db);
  Output run = Summary(db.path());
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
  EXPECT_THAT(run.out, HasSubstr("  cameras  reports  signature\n"
                                 "       12       12  " + testing::kBypass + "\n"
                                 "                      e.g. /reports/a/bugreport-0.zip\n"
                                 "        3        3  " + testing::kLost + "\n"));

  run = Summary(db.path(), "build", true);
  ASSERT_EQ(run.status, 0);
  const auto json = nlohmann::json::parse(run.out);
  EXPECT_EQ(json["cameras"], 80);
  EXPECT_EQ(json["rejected"], 1);
  ASSERT_EQ(json["groups"].size(), 2u);
  const auto& b = json["groups"][1];
  EXPECT_EQ(b["group"], kBuildB);
  EXPECT_EQ(b["build_id"], "AP3A.241005.015");
  EXPECT_EQ(b["rates"]["bypass_taken"]["count"], 10);
  EXPECT_DOUBLE_EQ(b["rates"]["bypass_taken"]["rate"].get<double>(), 0.25);
  EXPECT_NEAR(b["rates"]["bypass_taken"]["interval"][0].get<double>(), 0.14187, 5e-5);
  EXPECT_NEAR(b["rates"]["bypass_taken"]["interval"][1].get<double>(), 0.40194, 5e-5);
  EXPECT_EQ(json["signatures"][0]["cameras"], 12);
  EXPECT_EQ(json["signatures"][0]["examples"].size(), 5u);
  EXPECT_EQ(json["signatures"][1]["example"], "/reports/b/bugreport-0.zip");
}

TEST(Summary, GroupsByCameraAndReportColumns) {
  TestDb db("groups.sqlite");
  FillAB(db);
  // A report with no camera counts for its model, not for any module.
  db.Report(kBuildA, "AP3A.240905.015.A2", "/reports/a/silent.zip", "ok", "Vela Pro", "EVT");
  // Slot: the camera id stands in where the slot is NULL (B's front camera).
  Output run = Summary(db.path(), "slot", true);
  ASSERT_EQ(run.status, 0) << run.err;
  auto json = nlohmann::json::parse(run.out);
  ASSERT_EQ(json["groups"].size(), 2u);
  EXPECT_EQ(json["groups"][1]["group"], "1");
  EXPECT_EQ(json["groups"][1]["cameras"], 40);
  EXPECT_EQ(json["groups"][1]["reports"], 40);
  EXPECT_EQ(json["groups"][1]["rates"]["lost"]["count"], 3);
  run = Summary(db.path(), "module", true);
  json = nlohmann::json::parse(run.out);
  ASSERT_EQ(json["groups"].size(), 2u);
  EXPECT_EQ(json["groups"][0]["group"], "s5k3p9_front");
  EXPECT_EQ(json["groups"][1]["rates"]["bypass_taken"]["count"], 12);
  run = Summary(db.path(), "model", true);
  json = nlohmann::json::parse(run.out);
  ASSERT_EQ(json["groups"].size(), 2u);
  EXPECT_EQ(json["groups"][1]["group"], "Vela Pro");
  EXPECT_EQ(json["groups"][1]["reports"], 1);
  EXPECT_EQ(json["groups"][1]["cameras"], 0);
  EXPECT_EQ(json["groups"][1]["rates"]["lost"]["rate"], nullptr);
  run = Summary(db.path(), "hw");
  EXPECT_THAT(run.out, HasSubstr("hw EVT\n  1 report, 1 boot, 0 cameras\n\nhw MP\n"));
}

TEST(Summary, RefusesWhatIsNotAFleetDatabaseInOneLine) {
  const std::string text = testing::WorkPath("not-a-database.txt");
  std::ofstream(text) << "--------- beginning of main\n";
  TestDb other("other.sqlite");
  other.Exec("DROP TABLE cameras");
  for (const std::string& path : {testing::WorkPath("missing.sqlite"), text, other.path(),
                                  std::string(REMEDIUM_FLEET_WORK)}) {
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
  Output run = Summary(empty.path());
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, empty.path() + ": no report to summarise: the database is empty\n");
  run = Summary(empty.path(), "module", true);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(nlohmann::json::parse(run.out)["groups"].size(), 0u);
}

TEST(Compare, FindsTheBypassRateLargerThanChance) {
  TestDb db("compare.sqlite");
  FillAB(db);
  // By build id for A, by fingerprint for B.
  Output run = Compare(db.path(), "AP3A.240905.015.A2", kBuildB, true);
  ASSERT_EQ(run.status, 0) << run.err;
  const auto json = nlohmann::json::parse(run.out);
  EXPECT_EQ(json["a"]["fingerprints"][0], kBuildA);
  EXPECT_EQ(json["a"]["cameras"], 40);
  EXPECT_EQ(json["b"]["reports"], 20);
  // Most significant first: the two flags B raised 10 times, then its 3 lost cameras.
  const auto& rates = json["rates"];
  ASSERT_EQ(rates.size(), std::size(kRates));
  EXPECT_EQ(rates[0]["rate"], "first_probe_failed");
  const auto& bypass = rates[1];
  EXPECT_EQ(bypass["rate"], "bypass_taken");
  EXPECT_EQ(bypass["a"]["count"], 2);
  EXPECT_EQ(bypass["b"]["count"], 10);
  EXPECT_DOUBLE_EQ(bypass["difference"].get<double>(), 0.2);
  EXPECT_NEAR(bypass["difference_interval"][0].get<double>(), 0.04212, 5e-5);
  EXPECT_NEAR(bypass["difference_interval"][1].get<double>(), 0.35619, 5e-5);
  EXPECT_EQ(bypass["test"], "z");
  EXPECT_NEAR(bypass["z"].get<double>(), 2.5049, 5e-4);
  EXPECT_NEAR(bypass["p"].get<double>(), 0.012249, 5e-6);
  EXPECT_EQ(bypass["verdict"], "larger than chance at 5%");
  // 0 of 40 against 3 of 40: expected counts of 1.5, so Fisher's, p = 0.2405.
  const auto& lost = rates[2];
  EXPECT_EQ(lost["rate"], "lost");
  EXPECT_EQ(lost["test"], "fisher");
  EXPECT_NEAR(lost["p"].get<double>(), 0.24051, 5e-5);
  EXPECT_EQ(lost["verdict"], "within chance at 5%");
  EXPECT_EQ(rates[6]["p"], 1.0);

  run = Compare(db.path(), kBuildA, kBuildB);
  ASSERT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("A: " + kBuildA + ": 20 reports, 20 boots, 40 cameras\n"));
  EXPECT_THAT(run.out, HasSubstr("bypass taken           2/40    5%  10/40   25%  +20 pp  [+4, +36]    0.012  z"
                                 "       larger than chance at 5%\n"));
  EXPECT_THAT(run.out, HasSubstr("camera lost            0/40"));
  EXPECT_THAT(run.out, HasSubstr("Fisher  within chance at 5%\n"));
}

TEST(Compare, NamesABuildWithoutReports) {
  TestDb db("compare-missing.sqlite");
  FillAB(db);
  Output run = Compare(db.path(), kBuildA, "AP4A.250105.002");
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "remedium-sim fleet compare: " + db.path() +
                         ": no report of build \"AP4A.250105.002\" (neither a fingerprint nor a build id of a told "
                         "report)\n");
  // Only rejected reports: no report either.
  db.Report("velora/x:15/AP4A.250105.002/1:user/release-keys", "AP4A.250105.002", "/r.zip", "rejected");
  EXPECT_EQ(Compare(db.path(), "AP4A.250105.002", kBuildA).status, 2);
  EXPECT_EQ(Compare(testing::WorkPath("missing.sqlite"), kBuildA, kBuildB).status, 2);
}

}  // namespace
}  // namespace fleet
