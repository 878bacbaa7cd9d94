#include "sim/fleet/stats.h"

#include <algorithm>
#include <cmath>

namespace fleet::stats {

double NormalCdf(double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); }

Interval Wilson(int64_t k, int64_t n, double z) {
  if (n <= 0) return {0, 1};
  const double nn = static_cast<double>(n);
  const double p = static_cast<double>(k) / nn;
  const double z2 = z * z;
  const double centre = (p + z2 / (2 * nn)) / (1 + z2 / nn);
  const double half = z / (1 + z2 / nn) * std::sqrt(p * (1 - p) / nn + z2 / (4 * nn * nn));
  // At k == 0 or k == n one bound is exactly 0 or 1; rounding must not move it.
  return {k == 0 ? 0.0 : std::max(0.0, centre - half), k == n ? 1.0 : std::min(1.0, centre + half)};
}

Interval DifferenceInterval(int64_t kA, int64_t nA, int64_t kB, int64_t nB, double z) {
  if (nA <= 0 || nB <= 0) return {-1, 1};
  const double pA = static_cast<double>(kA) / static_cast<double>(nA);
  const double pB = static_cast<double>(kB) / static_cast<double>(nB);
  const Interval a = Wilson(kA, nA, z), b = Wilson(kB, nB, z);
  const double d = pB - pA;
  return {d - std::hypot(pB - b.low, a.high - pA), d + std::hypot(b.high - pB, pA - a.low)};
}

double TwoProportionZTest(int64_t kA, int64_t nA, int64_t kB, int64_t nB, double* z) {
  if (z) *z = 0;
  if (nA <= 0 || nB <= 0) return 1;
  const double na = static_cast<double>(nA), nb = static_cast<double>(nB);
  const double pooled = static_cast<double>(kA + kB) / (na + nb);
  const double se = std::sqrt(pooled * (1 - pooled) * (1 / na + 1 / nb));
  if (!(se > 0)) return 1;
  const double statistic = (static_cast<double>(kB) / nb - static_cast<double>(kA) / na) / se;
  if (z) *z = statistic;
  return std::min(1.0, std::erfc(std::fabs(statistic) / std::sqrt(2.0)));
}

namespace {

double LogChoose(int64_t n, int64_t k) {
  return std::lgamma(static_cast<double>(n) + 1) - std::lgamma(static_cast<double>(k) + 1) -
         std::lgamma(static_cast<double>(n - k) + 1);
}

}  // namespace

double FisherExactTest(int64_t kA, int64_t nA, int64_t kB, int64_t nB) {
  if (nA <= 0 || nB <= 0) return 1;
  // Rows: A and B; columns: with and without the flag. Given the margins the
  // table is fixed by its top-left cell x, hypergeometric.
  const int64_t column = kA + kB, total = nA + nB;
  const int64_t lowest = std::max<int64_t>(0, column - nB), highest = std::min(nA, column);
  const double denominator = LogChoose(total, column);
  auto logP = [&](int64_t x) { return LogChoose(nA, x) + LogChoose(nB, column - x) - denominator; };
  const double observed = logP(kA);
  // Tables as likely as the observed one, within rounding, count as well.
  const double limit = observed + 1e-7;
  double p = 0;
  for (int64_t x = lowest; x <= highest; ++x) {
    const double l = logP(x);
    if (l <= limit) p += std::exp(l);
  }
  return std::min(1.0, p);
}

bool SmallExpectedCount(int64_t kA, int64_t nA, int64_t kB, int64_t nB) {
  if (nA <= 0 || nB <= 0) return true;
  const double total = static_cast<double>(nA + nB);
  const double with = static_cast<double>(kA + kB), without = total - with;
  for (double row : {static_cast<double>(nA), static_cast<double>(nB)})
    if (row * with / total < 5 || row * without / total < 5) return true;
  return false;
}

TestResult CompareProportions(int64_t kA, int64_t nA, int64_t kB, int64_t nB) {
  TestResult result;
  if (SmallExpectedCount(kA, nA, kB, nB)) {
    result.exact = true;
    result.p = FisherExactTest(kA, nA, kB, nB);
    // The direction still shows in the statistic's sign for readers of JSON.
    TwoProportionZTest(kA, nA, kB, nB, &result.statistic);
  } else {
    result.p = TwoProportionZTest(kA, nA, kB, nB, &result.statistic);
  }
  return result;
}

}  // namespace fleet::stats
