#include "fit/rejection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tests/fit/plane_clouds.h"
#include "tests/literal/plane_fit.h"

namespace {

using namespace plane_clouds;
using kestrane::filter_by_distance;
using kestrane::filter_by_sigma;

constexpr double kAnyLimit = 1.0;
constexpr double kTwoSigmas = 2.0;

// Rows that carry their number.
PointMatrix3 numbered(std::size_t count) {
  PointMatrix3 rows(count, 3);
  for (Eigen::Index i = 0; i < rows.rows(); ++i) rows.row(i).setConstant(static_cast<double>(i));
  return rows;
}

std::vector<int> numbers(const PointMatrix3& rows) {
  std::vector<int> list;
  for (Eigen::Index i = 0; i < rows.rows(); ++i) list.push_back(static_cast<int>(rows(i, 0)));
  return list;
}

std::vector<int> kept_by_distance(const std::vector<double>& distances, double limit) {
  PointMatrix3 kept;
  filter_by_distance(numbered(distances.size()), distances, limit, kept);
  return numbers(kept);
}

std::vector<int> kept_by_sigma(const std::vector<double>& distances, double k) {
  PointMatrix3 kept = numbered(7);
  filter_by_sigma(numbered(distances.size()), distances, k, kept);
  return numbers(kept);
}

using Rows = std::vector<int>;

std::vector<double> awkward_distances(Random& random, int count) {
  static const double kAwkward[] = {kNaN, kInf, -kInf, 0.0, -0.0, 1e300, -1e300, 1e-310};
  std::vector<double> distances;
  for (int i = 0; i < count; ++i) {
    const bool odd = random.uniform() < 0.002;
    distances.push_back(odd ? kAwkward[random.index(8)] : 2.0 * random.gaussian());
  }
  return distances;
}

TEST(FilterByDistance, LeavesKeptAloneWithoutRows) {
  PointMatrix3 kept = numbered(2);
  filter_by_distance(PointMatrix3(0, 3), {1.0}, kAnyLimit, kept);
  EXPECT_EQ(numbers(kept), (Rows{0, 1}));
}

TEST(FilterByDistance, LeavesKeptAloneWithoutDistances) {
  PointMatrix3 kept = numbered(2);
  filter_by_distance(numbered(5), {}, kAnyLimit, kept);
  EXPECT_EQ(numbers(kept), (Rows{0, 1}));
}

TEST(FilterByDistance, KeepsADistanceEqualToTheLimitOnBothSides) {
  const double beyond = std::nextafter(2.5, 3.0);
  EXPECT_EQ(kept_by_distance({2.5, beyond, -2.5, -beyond, 0.0}, 2.5), (Rows{0, 2, 4}));
}

TEST(FilterByDistance, KeepsAPointWhoseDistanceIsNaNAndDropsAnInfiniteOne) {
  EXPECT_EQ(kept_by_distance({kNaN, kInf, -kInf, 9.0}, 2.5), (Rows{0}));
}

TEST(FilterByDistance, KeepsEverythingForALimitThatIsNaN) {
  EXPECT_EQ(kept_by_distance({1.0, kInf}, kNaN), (Rows{0, 1}));
}

TEST(FilterByDistance, EmptiesKeptWhenEveryRowIsBeyond) {
  PointMatrix3 kept = numbered(4);
  filter_by_distance(numbered(3), {5.0, -5.0, 5.0}, 2.5, kept);
  EXPECT_EQ(kept.rows(), 0);
}

TEST(FilterByDistance, ThinsInPlace) {
  PointMatrix3 points = numbered(5);
  filter_by_distance(points, {0.0, 9.0, 0.0, 9.0, 0.0}, 2.5, points);
  EXPECT_EQ(numbers(points), (Rows{0, 2, 4}));
}

TEST(FilterByDistance, WalksOnlyAsFarAsTheDistancesGo) {
  PointMatrix3 kept;
  filter_by_distance(numbered(5), {0.0, 0.0}, 2.5, kept);
  EXPECT_EQ(numbers(kept), (Rows{0, 1}));
}

TEST(FilterBySigma, EmptiesKeptWithoutDistances) {
  PointMatrix3 kept = numbered(2);
  filter_by_sigma(numbered(5), {}, kTwoSigmas, kept);
  EXPECT_EQ(kept.rows(), 0);
}

// Six distances of 1: the sum is 6, each lies 5 from it, so sigma is 5. A band about their mean
// would keep all of them for every k.
TEST(FilterBySigma, CentresItsBandOnThePlainSum) {
  const std::vector<double> ones(6, 1.0);
  EXPECT_EQ(kept_by_sigma(ones, 1.0), (Rows{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(kept_by_sigma(ones, 0.99), Rows{});
}

// Distances 4, 4, 4, -11 sum to 1: V = 27 + 144, sigma = 6.54. With k = 1.5 the band is
// 1 +- 9.81, while one about the mean 0.25 would reach from -9.5 to 10.
TEST(FilterBySigma, MovesItsBandByTheWholeSum) {
  EXPECT_EQ(kept_by_sigma({4.0, 4.0, 4.0, -11.0}, 1.5), (Rows{0, 1, 2}));
  // The band is 1 +- 12.1; about 0.25 it would end at 12.33.
  EXPECT_EQ(kept_by_sigma({4.0, 4.0, 4.0, -11.0}, 1.85), (Rows{0, 1, 2, 3}));
}

// Sum 1, deviations 0, 0, 0 and -3: sigma is 1.5 and the band reaches from -2 to 4, without
// rounding.
TEST(FilterBySigma, KeepsADistanceOnEitherBound) {
  EXPECT_EQ(kept_by_sigma({1.0, 1.0, 1.0, -2.0}, kTwoSigmas), (Rows{0, 1, 2, 3}));
  EXPECT_EQ(kept_by_sigma({-1.0, -1.0, -1.0, 2.0}, kTwoSigmas), (Rows{0, 1, 2, 3}));
  EXPECT_EQ(kept_by_sigma({1.0, 1.0, 1.0, -2.0}, 1.999), (Rows{0, 1, 2}));
  EXPECT_EQ(kept_by_sigma({-1.0, -1.0, -1.0, 2.0}, 1.999), (Rows{0, 1, 2}));
}

TEST(FilterBySigma, RejectsNothingOfAtMostFourDistancesWithinTwoSigmas) {
  Random random(1);
  for (int run = 0; run < 20000; ++run) {
    std::vector<double> distances;
    const int count = 1 + random.index(4);
    for (int i = 0; i < count; ++i) distances.push_back(random.uniform(-100.0, 100.0));
    EXPECT_EQ(static_cast<int>(kept_by_sigma(distances, kTwoSigmas).size()), count);
  }
}

// Sum 1, deviations 0 four times and -4: sigma is 1.789, twice it is less than 4.
TEST(FilterBySigma, CanRejectOneOfFiveDistances) {
  EXPECT_EQ(kept_by_sigma({1.0, 1.0, -3.0, 1.0, 1.0}, kTwoSigmas), (Rows{0, 1, 3, 4}));
}

TEST(FilterBySigma, KeepsAPointWhoseDistanceIsNaN) {
  EXPECT_EQ(kept_by_sigma({0.0, kNaN, 1e9, 0.0, 0.0, 0.0}, kTwoSigmas), (Rows{0, 1, 2, 3, 4, 5}));
}

TEST(FilterBySigma, ThinsInPlace) {
  PointMatrix3 points = numbered(5);
  filter_by_sigma(points, {1.0, 1.0, -3.0, 1.0, 1.0}, kTwoSigmas, points);
  EXPECT_EQ(numbers(points), (Rows{0, 1, 3, 4}));
}

TEST(Filters, KeepTheRowsThatTheirLiteralFormsKeep) {
  Random random(2);
  for (int run = 0; run < 3000; ++run) {
    const std::vector<double> distances = awkward_distances(random, 1 + random.index(400));
    const PointMatrix3 points = numbered(distances.size());
    const double factor = random.uniform(0.0, 3.0);
    PointMatrix3 kept, expected;
    filter_by_distance(points, distances, factor, kept);
    literal::filter_by_distance(points, distances, factor, expected);
    ASSERT_TRUE(same(kept, expected)) << run;
    filter_by_sigma(points, distances, factor, kept);
    literal::filter_by_sigma(points, distances, factor, expected);
    ASSERT_TRUE(same(kept, expected)) << run;
  }
}

}  // namespace
