#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "fit/plane_fit.h"
#include "fit/rejection.h"
#include "fit/working_rows.h"
#include "tests/fit/plane_clouds.h"
#include "tests/literal/plane_fit.h"

namespace {

using namespace plane_clouds;
using kestrane::filter_by_distance;
using kestrane::filter_by_sigma;
using kestrane::plane_signed_distances;
using kestrane::StreamedPlane;
using kestrane::WorkingRows;

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

// The plane x = 10 with a unit normal.
const PlaneAbcd kAtTen(1.0, 0.0, 0.0, -10.0);

PointMatrix3 rows_at(const std::vector<double>& xs) {
  PointMatrix3 points(xs.size(), 3);
  for (std::size_t i = 0; i < xs.size(); ++i) {
    points.row(static_cast<Eigen::Index>(i)) << xs[i], static_cast<double>(i), 0.5;
  }
  return points;
}

PointMatrix3 copy_of(const WorkingRows& working) {
  return Eigen::Map<const PointMatrix3>(working.rows().xyz, working.rows().count, 3);
}

class WorkingRowsThatRunShort : public testing::TestWithParam<int> {};

TEST_P(WorkingRowsThatRunShort, KeepAllRowsAndSumsAsTheyWere) {
  std::vector<double> xs(700, 20.0);
  for (int i = 0; i < GetParam(); ++i) xs[static_cast<std::size_t>(299 + 170 * i)] = 10.0;
  const PointMatrix3 points = rows_at(xs);
  WorkingRows working(points);
  const double sum_of_x = working.sums().x;
  EXPECT_FALSE(working.reject_beyond(kAtTen, 2.5, 3));
  EXPECT_TRUE(same(copy_of(working), points));
  EXPECT_EQ(working.sums().x, sum_of_x);
}

INSTANTIATE_TEST_SUITE_P(WithNoneOneOrTwoLeft, WorkingRowsThatRunShort, testing::Values(0, 1, 2));

// 700 distances of 10 lie far below the band about their sum.
TEST(WorkingRows, KeepAllRowsWhereASigmaBandHoldsNone) {
  const PointMatrix3 points = rows_at(std::vector<double>(700, 20.0));
  WorkingRows working(points);
  const double sum_of_x = working.sums().x;
  EXPECT_FALSE(working.reject_beyond_sigmas(kAtTen, 0.5, 3));
  EXPECT_EQ(working.reject_beyond_sigmas(StreamedPlane{kAtTen, 1e-9, 1e-9}, 0.5, 3), false);
  EXPECT_TRUE(same(copy_of(working), points));
  EXPECT_EQ(working.sums().x, sum_of_x);
}

TEST(WorkingRows, PassARejectionThatLeavesExactlyTheFewest) {
  WorkingRows working(rows_at({20.0, 10.0, 11.0, 0.0, 9.0}));
  EXPECT_TRUE(working.reject_beyond(kAtTen, 2.5, 3));
  EXPECT_EQ(working.rows().count, 3);
  EXPECT_EQ(working.sums().x, 30.0);
  EXPECT_EQ(working.sums().y, 1.0 + 2.0 + 4.0);
  EXPECT_EQ(working.sums().z, 1.5);
}

// Planes that do not go through the middle of the cloud, so that the sum of distances counts.
TEST(WorkingRows, KeepWhatTheFiltersKeepForAnyPlane) {
  Random random(41);
  for (int run = 0; run < 300; ++run) {
    const PointMatrix3 points = scattered(random, 1 + random.index(700));
    const PlaneAbcd plane(random.gaussian(), random.gaussian(), random.gaussian(),
                          0.02 * random.gaussian());
    std::vector<double> distances;
    plane_signed_distances(points, plane, distances);
    const double limit = random.uniform(0.0, 1.0);
    PointMatrix3 near, expected;
    filter_by_distance(points, distances, limit, near);
    WorkingRows working(points);
    EXPECT_TRUE(working.reject_beyond(plane, limit, 0));
    EXPECT_EQ(copy_of(working), near) << run;

    plane_signed_distances(near, plane, distances);
    const double k = random.uniform(0.1, 1.2);
    filter_by_sigma(near, distances, k, expected);
    EXPECT_TRUE(working.reject_beyond_sigmas(plane, k, 0));
    EXPECT_EQ(copy_of(working), expected) << run;
  }
}

TEST(WorkingRows, GiveBackNoRowsWhenNoneIsLeft) {
  WorkingRows working(rows_at({20.0, 20.0}));
  EXPECT_TRUE(working.reject_beyond(kAtTen, 2.5, 0));
  EXPECT_EQ(working.release().rows(), 0);
}

TEST(WorkingRows, RejectBySigmasAsTheFilterDoes) {
  Random random(3);
  for (int run = 0; run < 200; ++run) {
    const PointMatrix3 points = box_cloud(random, 3 + random.index(1500),
                                          {random_rotation(random), {50.0, 20.0, 1.0}, {9, 8, 7}});
    const PlaneAbcd plane(0.6, 0.0, 0.8, random.uniform(-20.0, 20.0));
    std::vector<double> distances;
    literal::plane_signed_distances(points, plane, distances);
    PointMatrix3 expected;
    literal::filter_by_sigma(points, distances, 1.5, expected);
    WorkingRows working(points);
    const bool enough = working.reject_beyond_sigmas(plane, 1.5, 3);
    ASSERT_EQ(enough, expected.rows() >= 3);
    ASSERT_TRUE(same(working.release(), enough ? expected : points));
  }
}

// A plane that is known to a hundredth judges rows that lie further than that from a bound.
TEST(WorkingRows, RejectByAStreamedPlaneOnlyWhereNoRowIsInDoubt) {
  const StreamedPlane plane{kAtTen, 0.01, 0.0};
  for (const double x : {12.495, 12.505, 7.495, 7.505, 12.5}) {
    const PointMatrix3 points = rows_at({x, 10.0, 11.0, 30.0, 9.0});
    WorkingRows working(points);
    EXPECT_EQ(working.reject_beyond(plane, 2.5, 3), std::nullopt) << x;
    EXPECT_TRUE(same(copy_of(working), points));
  }
  for (const auto& [x, rows] : {std::pair{12.48, 4}, {12.52, 3}, {7.52, 4}, {7.48, 3}}) {
    WorkingRows working(rows_at({x, 10.0, 11.0, 30.0, 9.0}));
    EXPECT_EQ(working.reject_beyond(plane, 2.5, 3), true) << x;
    EXPECT_EQ(working.rows().count, rows);
  }
  WorkingRows short_of_rows(rows_at({10.0, 10.0, 30.0, 30.0}));
  EXPECT_EQ(short_of_rows.reject_beyond(plane, 2.5, 3), false);
  EXPECT_EQ(short_of_rows.rows().count, 4);
}

// Distances 0, 0, 0, 0, 0, 0, 0, 0, h and -h: the sum is 0 and sigma is h / sqrt(5). At k = 2 both
// outer rows go; a k of sqrt(5) puts the bounds upon them.
TEST(WorkingRows, RejectBySigmasOfAStreamedPlaneOnlyWhereNoRowIsInDoubt) {
  std::vector<double> xs(8, 10.0);
  xs.insert(xs.end(), {14.0, 6.0});
  const PointMatrix3 points = rows_at(xs);
  const double k = std::sqrt(5.0);
  for (const auto& [factor, plane] : {std::pair{k, StreamedPlane{kAtTen, 1e-9, 0.0}},
                                      {0.999 * k, StreamedPlane{kAtTen, 2e-3, 0.0}},
                                      {1.001 * k, StreamedPlane{kAtTen, 2e-3, 0.0}},
                                      {0.999 * k, StreamedPlane{kAtTen, 0.0, 5e-3}}}) {
    WorkingRows working(points);
    EXPECT_EQ(working.reject_beyond_sigmas(plane, factor, 3), std::nullopt) << factor;
    EXPECT_TRUE(same(copy_of(working), points));
  }
  for (const auto& [factor, rows] : {std::pair{0.999 * k, 8}, {1.001 * k, 10}, {2.0, 8}}) {
    WorkingRows working(points);
    EXPECT_EQ(working.reject_beyond_sigmas(StreamedPlane{kAtTen, 1e-5, 1e-5}, factor, 3), true);
    EXPECT_EQ(working.rows().count, rows) << factor;
  }
}

// A band about the plain sum of its distances, and the row that lies nearest to a bound.
struct Band {
  double sum = 0.0;
  double sigma = 0.0;
  double margin = 0.0;

  Band(const std::vector<double>& distances, double k) {
    for (const double d : distances) sum += d;
    double squares = 0.0;
    for (const double d : distances) squares += (d - sum) * (d - sum);
    sigma = std::sqrt(squares / static_cast<double>(distances.size()));
    margin = kInf;
    for (const double d : distances)
      for (const double bound : {sum - k * sigma, sum + k * sigma})
        margin = std::min(margin, std::abs(d - bound));
  }
};

bool decides(const PointMatrix3& points, double doubt, double sum_doubt, double k) {
  WorkingRows working(points);
  return working.reject_beyond_sigmas(StreamedPlane{kAtTen, doubt, sum_doubt}, k, 0).has_value();
}

// Distances whose sum is small beside their deviation, and rows near the one bound or the other.
TEST(WorkingRows, AddTheDoubtsOfDistancesAndSumUpToTheNearestRow) {
  Random random(4);
  for (int run = 0; run < 300; ++run) {
    std::vector<double> xs;
    double rest = random.uniform(-20.0, 20.0);
    for (int i = 0; i < 40; ++i) {
      xs.push_back(10.0 + 50.0 * random.gaussian());
      rest -= xs.back() - 10.0;
    }
    xs.push_back(10.0 + rest);
    const PointMatrix3 points = rows_at(xs);
    std::vector<double> distances;
    plane_signed_distances(points, kAtTen, distances);
    const double k = random.uniform(0.5, 2.0);
    const Band band(distances, k);
    const double doubt = band.margin / (1.0 + k);
    EXPECT_TRUE(decides(points, 0.999 * doubt, 0.0, k)) << run;
    EXPECT_FALSE(decides(points, 1.001 * doubt, 0.0, k)) << run;
    // s + k s (|sum| + s) / sigma = margin, solved for the doubt s of the sum.
    const double b = 1.0 + k * std::abs(band.sum) / band.sigma;
    const double a = k / band.sigma;
    const double sum_doubt = 2.0 * band.margin / (b + std::sqrt(b * b + 4.0 * a * band.margin));
    if (std::abs(band.sum) + sum_doubt > band.sigma) continue;
    EXPECT_TRUE(decides(points, 0.0, 0.999 * sum_doubt, k)) << run;
    EXPECT_FALSE(decides(points, 0.0, 1.001 * sum_doubt, k)) << run;
  }
}

// A bound passes a row at a few millionths of what the rounding of such a sum amounts to.
TEST(WorkingRows, TakeTheRoundingOfTheDeviationForADoubt) {
  Random random(5);
  std::vector<double> xs;
  for (int i = 0; i < 10000; ++i) xs.push_back(1e6 * random.gaussian());
  const PointMatrix3 points = rows_at(xs);
  std::vector<double> distances;
  plane_signed_distances(points, kAtTen, distances);
  const Band band(distances, 1.0);
  const double at_row = std::abs(distances[77] - band.sum) / band.sigma;
  EXPECT_FALSE(decides(points, 0.0, 0.0, at_row * (1.0 + 1e-13)));
  EXPECT_TRUE(decides(points, 0.0, 0.0, at_row * (1.0 + 1e-10)));
}

}  // namespace
