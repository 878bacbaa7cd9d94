// The statistics of the fleet's rates: a proportion's confidence interval, the
// interval of a difference between two, and the test of whether two builds'
// proportions differ by more than chance.
#pragma once

#include <cstdint>

namespace fleet::stats {

// z of a two-sided 95% interval (the normal distribution's 97.5th percentile).
inline constexpr double kZ95 = 1.959963984540054;

struct Interval {
  double low = 0, high = 1;
};

// The standard normal distribution's CDF.
double NormalCdf(double x);

// Wilson's score interval of k successes in n trials: unlike the normal
// approximation it stays inside [0, 1] and is honest for small k or n
// (2 of 7 gives [0.082, 0.641]). n == 0 gives [0, 1].
Interval Wilson(int64_t k, int64_t n, double z = kZ95);

// The interval of pB - pA from the two Wilson intervals (Newcombe's hybrid
// score method): as well behaved near 0 and 1 as the intervals it is made of.
Interval DifferenceInterval(int64_t kA, int64_t nA, int64_t kB, int64_t nB, double z = kZ95);

// Two-sided z-test of equal proportions with the pooled variance; `z` gets
// the statistic (positive when B's proportion is larger). Both proportions 0
// or both 1 (no variance): z 0, p 1.
double TwoProportionZTest(int64_t kA, int64_t nA, int64_t kB, int64_t nB, double* z = nullptr);

// Fisher's exact test of the 2x2 table {kA, nA-kA; kB, nB-kB}, two-sided:
// the probability, given the margins, of every table no more likely than the
// one observed (hypergeometric, from log-factorials).
double FisherExactTest(int64_t kA, int64_t nA, int64_t kB, int64_t nB);

// Whether the z-test's normal approximation is unsafe: an expected count of
// the table, under equal proportions, below 5.
bool SmallExpectedCount(int64_t kA, int64_t nA, int64_t kB, int64_t nB);

// The test that suits the table: the z-test, or Fisher's exact test when an
// expected count is below 5.
struct TestResult {
  bool exact = false;    // Fisher's exact test
  double statistic = 0;  // the z-test's z (given for Fisher's too, for its sign)
  double p = 1;
};
TestResult CompareProportions(int64_t kA, int64_t nA, int64_t kB, int64_t nB);

}  // namespace fleet::stats
