#include "quality/factory/residual_histogram.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <vector>

#include "simulation/random.h"

namespace {

using kestrane::quality::bins_for;
using kestrane::quality::ResidualHistogram;
using kestrane::quality::ResidualSums;

ResidualHistogram of(const std::vector<double>& residuals) {
  ResidualSums sums;
  for (const double residual : residuals) sums.add(residual);
  ResidualHistogram histogram = bins_for(sums);
  for (const double residual : residuals) kestrane::quality::count(residual, histogram);
  return histogram;
}

std::int64_t inside(const ResidualHistogram& histogram) {
  return std::accumulate(histogram.counts.begin(), histogram.counts.end(), std::int64_t{0});
}

TEST(ResidualHistogram, HasEmptyBinsAndNoBoundsWithoutResiduals) {
  const ResidualHistogram histogram = of({});
  EXPECT_TRUE(std::isnan(histogram.low));
  EXPECT_TRUE(std::isnan(histogram.width));
  EXPECT_EQ(histogram.counts, std::vector<std::int64_t>(80, 0));
}

// 49 residuals of 1/4 and as many of -1/4: an RMS of exactly 1/4, bins of a fortieth, and each
// value at a bound.
TEST(ResidualHistogram, ReachesFourRmsToEitherSideInTenthsOfIt) {
  std::vector<double> residuals(49, 0.25);
  residuals.insert(residuals.end(), 49, -0.25);
  const ResidualHistogram histogram = of(residuals);
  EXPECT_EQ(histogram.low, -1.0);
  EXPECT_EQ(histogram.width, 0.25 / 10.0);
  EXPECT_EQ(histogram.counts[30], 49);
  EXPECT_EQ(histogram.counts[50], 49);
  EXPECT_EQ(inside(histogram), 98);
}

// One of 64 and 63 of 0: an RMS of 8, so that the one lies beyond 32.
TEST(ResidualHistogram, CountsWhatLiesBeyondItsBins) {
  std::vector<double> residuals(64, 0.0);
  residuals[7] = 64.0;
  ResidualHistogram histogram = of(residuals);
  EXPECT_EQ(histogram.low, -32.0);
  EXPECT_EQ(histogram.above, 1);
  EXPECT_EQ(histogram.below, 0);
  EXPECT_EQ(histogram.counts[40], 63);
  residuals[7] = -64.0;
  histogram = of(residuals);
  EXPECT_EQ(histogram.above, 0);
  EXPECT_EQ(histogram.below, 1);
}

TEST(ResidualHistogram, HasABinForResidualsThatAreAllZero) {
  const ResidualHistogram histogram = of(std::vector<double>(5, 0.0));
  EXPECT_EQ(histogram.width, 0.0);
  EXPECT_EQ(histogram.counts[40], 5);
}

// Squares beyond the largest number: nothing may become a place in the bins.
TEST(ResidualHistogram, IsEmptyWhereTheRmsIsNotFinite) {
  const ResidualHistogram histogram = of({1e200, -1e200, 1.0});
  EXPECT_TRUE(std::isnan(histogram.width));
  EXPECT_EQ(inside(histogram) + histogram.below + histogram.above, 0);
}

// Each bin by a count of its own between its bounds.
TEST(ResidualHistogram, HoldsWhatLiesBetweenTheBoundsOfItsBins) {
  simulation::Random random(3);
  std::vector<double> residuals;
  residuals.reserve(20000);
  for (int i = 0; i < 20000; ++i) residuals.push_back(0.07 * random.gaussian() + 0.02);
  const ResidualHistogram histogram = of(residuals);
  ASSERT_EQ(histogram.counts.size(), 80U);
  for (std::size_t b = 0; b < 80; ++b) {
    const double from = histogram.low + static_cast<double>(b) * histogram.width;
    std::int64_t expected = 0;
    for (const double residual : residuals) {
      if (residual >= from && residual < from + histogram.width) ++expected;
    }
    EXPECT_EQ(histogram.counts[b], expected) << "bin " << b;
  }
  EXPECT_EQ(inside(histogram) + histogram.below + histogram.above, 20000);
}

}  // namespace
