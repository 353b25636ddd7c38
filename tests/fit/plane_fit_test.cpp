#include "fit/plane_fit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "fit/distance_stats.h"
#include "fit/streamed_fit.h"
#include "tests/fit/plane_clouds.h"
#include "tests/literal/plane_fit.h"

namespace {

using namespace plane_clouds;
using kestrane::fit_plane_svd;
using kestrane::plane_signed_distances;
using kestrane::rows_of;
using kestrane::streamed_plane_fit;

// A few roundings of coordinates of size ten.
constexpr double kRounding = 1e-14;
constexpr double kDoubleEpsilon = 2.220446049250313e-16;

Result fit(const PointMatrix3& points) {
  Result result;
  EXPECT_TRUE(fit_plane_svd(points, result.plane, result.stats));
  return result;
}

Result literal_fit(const PointMatrix3& points) {
  Result result;
  EXPECT_TRUE(literal::fit_plane_svd(points, result.plane, result.stats));
  return result;
}

bool is_streamed(const PointMatrix3& points) { return streamed_plane_fit(points).has_value(); }

class TooFewRows : public testing::TestWithParam<int> {};

TEST_P(TooFewRows, AreRefusedWithNothingWritten) {
  Result result;
  EXPECT_FALSE(fit_plane_svd(PointMatrix3::Ones(GetParam(), 3), result.plane, result.stats));
  EXPECT_TRUE(same(result, Result{}));
}

INSTANTIATE_TEST_SUITE_P(FitPlaneSvd, TooFewRows, testing::Values(0, 1, 2));

TEST(FitPlaneSvd, PassesThroughThreePoints) {
  const PointMatrix3 points = cloud({{3.0, 0.0, 0.0}, {0.0, 3.0, 0.0}, {0.0, 0.0, 3.0}});
  const Result result = fit(points);
  const double third = 1.0 / std::sqrt(3.0);
  EXPECT_LE((result.plane - PlaneAbcd(third, third, third, -3.0 * third)).norm(), kRounding);
  EXPECT_LE(result.stats.max_distance, kRounding);
  EXPECT_LE(result.stats.mean_distance, kRounding);
  EXPECT_LE(result.stats.std_distance, kRounding);
}

// Four points of the plane x = 5 and two pairs that stand 1 and 3 off it on both sides: distances
// 0, 0, 0, 0, 1, 1, 3, 3 with mean 1 and squares 4 + 0 + 8 about it.
TEST(FitPlaneSvd, DividesTheDeviationByTheNumberOfPoints) {
  const PointMatrix3 points = cloud({{5, 90, 0},
                                     {5, -90, 0},
                                     {5, 0, 70},
                                     {5, 0, -70},
                                     {6, 0, 0},
                                     {4, 0, 0},
                                     {8, 0, 0},
                                     {2, 0, 0}});
  const Result result = fit(points);
  EXPECT_LE((result.plane - PlaneAbcd(1.0, 0.0, 0.0, -5.0)).norm(), kRounding);
  EXPECT_NEAR(result.stats.max_distance, 3.0, kRounding);
  EXPECT_NEAR(result.stats.mean_distance, 1.0, kRounding);
  EXPECT_NEAR(result.stats.std_distance, std::sqrt(12.0 / 8.0), kRounding);
}

TEST(FitPlaneSvd, PointsItsNormalAwayFromTheOrigin) {
  Random random(1);
  for (const double x : {-40.0, 40.0}) {
    for (const Eigen::Index count : {5, 63, 64, 3000}) {
      const Eigen::Vector3d centre(x, 7.0, -3.0);
      const PointMatrix3 points =
          box_cloud(random, count, {Eigen::Matrix3d::Identity(), {0.01, 30.0, 20.0}, centre});
      const Result result = fit(points);
      EXPECT_GT(result.plane[0] * x, 0.0) << count;
      EXPECT_LT(result.plane[3], 0.0) << count;
    }
  }
}

// A sheet through the origin's neighbourhood: the side with more points decides, not the centroid.
TEST(FitPlaneSvd, CountsPointsForItsDirectionRatherThanTheirMean) {
  Random random(2);
  for (const Eigen::Index count : {60, 4000}) {
    PointMatrix3 points =
        box_cloud(random, count, {Eigen::Matrix3d::Identity(), {0.3, 80.0, 80.0}, {0.0, 0.0, 0.0}});
    for (Eigen::Index i = 0; i < count; ++i) {
      const bool few = i % 4 == 0;
      points(i, 0) = few ? -1.2 : 0.3 + 0.1 * std::abs(points(i, 0));
    }
    EXPECT_LT(points.col(0).mean(), 0.0);
    EXPECT_GT(fit(points).plane[0], 0.0) << count;
  }
}

// The plane x = 0 holds the origin: every dot product is zero, none is positive, so the sign that
// the decomposition gave is turned. One point in front of it is not enough to stop that.
TEST(FitPlaneSvd, CountsAZeroDotProductAsNotPositive) {
  Random random(14);
  for (const Eigen::Index count : {8, 200}) {
    PointMatrix3 points = scattered(random, count);
    points.col(0).setZero();
    const Result expected = literal_fit(points);
    EXPECT_TRUE(same(fit(points), expected)) << count;
    const Eigen::Vector3d raw =
        literal::third_right_vector(points.rowwise() - Eigen::RowVector3d(points.colwise().mean()));
    EXPECT_EQ(expected.plane[0], -raw[0]);
  }
}

// Every point and its mirror image: as many positive dot products as others.
TEST(FitPlaneSvd, LeavesTheSignOfTheDecompositionInATie) {
  Random random(3);
  for (int run = 0; run < 200; ++run) {
    const Eigen::Index half = 2 + random.index(400);
    const Box box{random_rotation(random), {80.0, 60.0, 2.0}, {0.0, 0.0, 0.0}};
    const PointMatrix3 front = box_cloud(random, half, box);
    PointMatrix3 points(2 * half, 3);
    points << front, -front;
    EXPECT_FALSE(is_streamed(points));
    EXPECT_TRUE(same(fit(points), literal_fit(points))) << run;
  }
}

// Each point with its images in y and z, so that the normal lies along x: most of the points are
// within rounding of the plane through the origin and could fall on either side of it.
TEST(FitPlaneSvd, LeavesTheSignToTheDecompositionWhenRoundingCouldTurnIt) {
  Random random(4);
  PointMatrix3 points(1000, 3);
  for (Eigen::Index i = 0; i < points.rows(); i += 4) {
    const double y = random.uniform(1.0, 80.0);
    const double z = random.uniform(1.0, 60.0);
    const double x = i < 400 ? (i % 8 == 0 ? 1.0 : -1.0) : 1e-15 * random.gaussian();
    points.middleRows(i, 4) << x, y, z, x, -y, z, x, y, -z, x, -y, -z;
  }
  EXPECT_FALSE(is_streamed(points));
  EXPECT_TRUE(same(fit(points), literal_fit(points)));
}

PointMatrix3 short_cloud(Random& random) {
  Box box{random_rotation(random), {0, 0, 0}, {0, 0, 0}};
  for (int k = 0; k < 3; ++k) {
    box.spreads[k] = random.index(7) == 0 ? 0.0 : std::pow(10.0, random.uniform(-3.0, 3.0));
    box.centre[k] = random.uniform(-500.0, 500.0);
  }
  PointMatrix3 points = box_cloud(random, 3 + random.index(61), box);
  if (random.index(5) == 0) points = points.array().round();
  if (random.index(5) == 0) points *= std::pow(10.0, random.uniform(-150.0, 150.0));
  if (random.index(9) == 0)
    points(random.index(3), random.index(3)) = random.index(2) ? kNaN : -kInf;
  return points;
}

TEST(FitPlaneSvd, EqualsItsLiteralFormToTheLastBitForShortClouds) {
  Random random(5);
  for (int run = 0; run < 10000; ++run) {
    const PointMatrix3 points = short_cloud(random);
    ASSERT_TRUE(same(fit(points), literal_fit(points))) << run << '\n' << points;
  }
}

PointMatrix3 long_cloud(Random& random) {
  const double width = std::pow(10.0, random.uniform(1.0, 2.5));
  const double thickness = width * std::pow(10.0, random.uniform(-2.5, -0.5));
  const Eigen::Vector3d centre(random.uniform(-400, 400), random.uniform(-400, 400), 600.0);
  const Box box{random_rotation(random), {150.0, width, thickness}, centre};
  return box_cloud(random, 64 + random.index(5000), box);
}

TEST(FitPlaneSvd, EqualsItsLiteralFormToRoundingForLongClouds) {
  Random random(6);
  int streamed = 0;
  for (int run = 0; run < 300; ++run) {
    const PointMatrix3 points = long_cloud(random);
    if (is_streamed(points)) ++streamed;
    ASSERT_TRUE(same_to_rounding(fit(points), literal_fit(points))) << run;
  }
  EXPECT_GE(streamed, 290);
}

TEST(FitPlaneSvd, EqualsItsLiteralFormToRoundingForAHundredThousandPoints) {
  Random random(8);
  const PointMatrix3 points = sheet_cloud(random, 100000, {});
  EXPECT_TRUE(is_streamed(points));
  EXPECT_TRUE(same_to_rounding(fit(points), literal_fit(points)));
}

TEST(FitPlaneSvd, StreamsFrom64RowsOn) {
  Random random(7);
  const PointMatrix3 points = sheet_cloud(random, 65, {});
  EXPECT_TRUE(same(fit(points.topRows(63)), literal_fit(points.topRows(63))));
  for (const Eigen::Index count : {64, 65}) {
    const auto streamed = streamed_plane_fit(points.topRows(count));
    ASSERT_TRUE(streamed) << count;
    EXPECT_TRUE(same(fit(points.topRows(count)).plane, streamed->plane)) << count;
    EXPECT_TRUE(same(fit(points.topRows(count)).stats, streamed->stats)) << count;
  }
}

// Distances that are alike leave a deviation that is small beside their mean: sums about a guess
// would have lost its digits.
TEST(FitPlaneSvd, KeepsTheDigitsOfADeviationThatIsSmallBesideTheMean) {
  Random random(23);
  for (const double uneven : {1e-2, 1e-4, 1e-5}) {
    PointMatrix3 points(4000, 3);
    for (Eigen::Index i = 0; i < points.rows(); ++i) {
      const double side = i % 2 == 0 ? 2.0 : -2.0;
      points.row(i) << 50.0 + side + uneven * random.uniform(-1.0, 1.0),
          random.uniform(-90.0, 90.0), random.uniform(100.0, 300.0);
    }
    const Result result = fit(points);
    const Result expected = literal_fit(points);
    ASSERT_TRUE(is_streamed(points));
    EXPECT_LT(expected.stats.std_distance, 0.05 * expected.stats.mean_distance);
    // The rounding of the distances themselves, beside the deviation.
    const double rounding = 1e-10 + 1e-13 / uneven;
    EXPECT_NEAR(result.stats.std_distance / expected.stats.std_distance, 1.0, rounding) << uneven;
    EXPECT_NEAR(result.stats.mean_distance / expected.stats.mean_distance, 1.0, 1e-12);
  }
}

// Three fifths of the rows lie two above the plane, the others three below it: the side is certain,
// and d is nothing but rounding.
TEST(FitPlaneSvd, LeavesAPlaneThroughTheOriginToTheDecomposition) {
  Random random(19);
  const Eigen::Matrix3d axes = random_rotation(random);
  PointMatrix3 points = box_cloud(random, 1000, {axes, {80.0, 60.0, 0.1}, {0.0, 0.0, 0.0}});
  const Eigen::RowVector3d normal = axes.col(2).transpose();
  points.topRows(600).rowwise() += 2.0 * normal;
  points.bottomRows(400).rowwise() -= 3.0 * normal;
  const Eigen::RowVector3d mean = points.colwise().mean();
  EXPECT_TRUE(is_streamed(points.rowwise() - (mean - 1e-6 * normal)));
  points.rowwise() -= mean;
  EXPECT_FALSE(is_streamed(points));
  EXPECT_TRUE(same(fit(points), literal_fit(points)));
}

// Each point with its image in x: the normal lies in the plane of y and z but for rounding.
TEST(FitPlaneSvd, LeavesAPlaneAlongTheXAxisToTheDecomposition) {
  Random random(20);
  PointMatrix3 half = box_cloud(random, 500, {Eigen::Matrix3d::Identity(), {80, 60, 2}, {0, 9, 9}});
  half.col(2) += 0.3 * half.col(1);
  PointMatrix3 points(1000, 3);
  points << half, half;
  points.bottomRows(500).col(0) *= -1.0;
  EXPECT_FALSE(is_streamed(points));
  EXPECT_TRUE(same(fit(points), literal_fit(points)));
  points.col(0) += 1e-6 * points.col(1) + 1e-6 * points.col(2);
  EXPECT_TRUE(is_streamed(points));
}

// Half of the rows at x = 3, half at x = -1: d is far from 0, and no side has more rows.
TEST(FitPlaneSvd, LeavesATieOfTheSidesToTheDecomposition) {
  Random random(22);
  PointMatrix3 points =
      box_cloud(random, 1000, {Eigen::Matrix3d::Identity(), {0.0, 80.0, 60.0}, {0, 0, 0}});
  points.col(0).head(500).setConstant(3.0);
  points.col(0).tail(500).setConstant(-1.0);
  EXPECT_FALSE(is_streamed(points));
  points(999, 0) = 3.0;
  EXPECT_TRUE(is_streamed(points));
}

// A tiny sheet far from the origin, mirrored so that its normal is x to the last bit. Rounding at
// that distance is larger than its thickness, unless it stands off along x.
PointMatrix3 far_sheet(double x, double y, double z) {
  Random random(19);
  PointMatrix3 points(400, 3);
  for (Eigen::Index i = 0; i < 200; ++i) {
    const double off = random.uniform(2.5e-6, 3.5e-6);
    const double across = random.uniform(-0.1, 0.1), along = random.uniform(-0.1, 0.1);
    points.row(2 * i) << x + off, y + across, z + along;
    points.row(2 * i + 1) << x - off, y + across, z + along;
  }
  return points;
}

TEST(FitPlaneSvd, LeavesASideThatRoundingCouldTurnToTheDecomposition) {
  EXPECT_FALSE(is_streamed(far_sheet(0.0, 1e6, 0.0)));
  EXPECT_FALSE(is_streamed(far_sheet(0.0, 0.0, 1e6)));
  EXPECT_TRUE(is_streamed(far_sheet(1.0, 1e6, 0.0)));
  EXPECT_TRUE(is_streamed(far_sheet(1.0, 0.0, 1e6)));
}

class DegenerateClouds : public testing::TestWithParam<int> {};

TEST_P(DegenerateClouds, GetTheDecompositionOfTheWholeCloud) {
  Random random(10);
  const Eigen::Index count = GetParam();
  const Eigen::Matrix3d axes = random_rotation(random);
  const Eigen::Vector3d centre(100.0, 20.0, 500.0);
  for (const Eigen::Vector3d& spreads :
       {Eigen::Vector3d(90.0, 0.0, 0.0), Eigen::Vector3d(90.0, 60.0, 0.0),
        Eigen::Vector3d(90.0, 1e-7, 1e-9), Eigen::Vector3d(0.0, 0.0, 0.0),
        Eigen::Vector3d(90.0, 1.0, 1.0 - 1e-9), Eigen::Vector3d(90.0, 60.0, 1e-6)}) {
    for (const Box& box :
         {Box{axes, spreads, centre}, Box{Eigen::Matrix3d::Identity(), spreads, centre}}) {
      const PointMatrix3 points = box_cloud(random, count, box);
      const Result result = fit(points);
      EXPECT_TRUE(same(result, literal_fit(points))) << spreads.transpose();
      EXPECT_NEAR(result.plane.head<3>().norm(), 1.0, kRounding);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(FitPlaneSvd, DegenerateClouds, testing::Values(3, 8, 9, 63, 64, 3000));

// The line's direction is in the plane, and so is its every point.
TEST(FitPlaneSvd, PutsAPlaneThroughALine) {
  const Eigen::Vector3d direction = Eigen::Vector3d(1.0, 2.0, -2.0) / 3.0;
  PointMatrix3 points(100, 3);
  for (Eigen::Index i = 0; i < 100; ++i) {
    points.row(i) =
        (Eigen::Vector3d(3.0, 4.0, 5.0) + 0.1 * static_cast<double>(i) * direction).transpose();
  }
  const Result result = fit(points);
  EXPECT_NEAR(result.plane.head<3>().norm(), 1.0, kRounding);
  EXPECT_NEAR(result.plane.head<3>().dot(direction), 0.0, kRounding);
  EXPECT_LE(result.stats.max_distance, kRounding);
}

class ExtremeScales : public testing::TestWithParam<double> {};

TEST_P(ExtremeScales, GiveWhatTheLiteralFormGives) {
  Random random(11);
  for (const Eigen::Index count : {5, 64, 1000}) {
    const PointMatrix3 points =
        GetParam() * box_cloud(random, count, {random_rotation(random), {9, 6, 0.4}, {5, 50, 20}});
    EXPECT_TRUE(same_to_rounding(fit(points), literal_fit(points))) << count;
  }
}

INSTANTIATE_TEST_SUITE_P(FitPlaneSvd, ExtremeScales,
                         testing::Values(1e-150, 1e-120, 1e-308, 1e120, 1e150, 1e160, 1e305));

TEST(FitPlaneSvd, EqualsItsLiteralFormFarFromTheOrigin) {
  Random random(12);
  for (const double offset : {1e5, 1e8, 1e11}) {
    const Eigen::Vector3d centre(offset, -offset, 0.5 * offset);
    const PointMatrix3 points =
        box_cloud(random, 2000, {random_rotation(random), {90.0, 60.0, 1.0}, centre});
    const Result expected = literal_fit(points);
    EXPECT_TRUE(same_to_rounding(fit(points), expected, offset)) << offset;
  }
}

class PointsThatAreNotFinite : public testing::TestWithParam<int> {};

TEST_P(PointsThatAreNotFinite, MakeEveryFigureNaN) {
  Random random(15);
  for (int column = 0; column < 3; ++column) {
    for (const double odd : {kNaN, kInf, -kInf}) {
      PointMatrix3 points = scattered(random, GetParam());
      points(GetParam() / 2, column) = odd;
      const Result result = fit(points);
      EXPECT_TRUE(result.plane.array().isNaN().all());
      EXPECT_TRUE(std::isnan(result.stats.max_distance));
      EXPECT_TRUE(std::isnan(result.stats.mean_distance));
      EXPECT_TRUE(std::isnan(result.stats.std_distance));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(FitPlaneSvd, PointsThatAreNotFinite, testing::Values(3, 8, 9, 64, 1000));

TEST(FitPlaneSvd, TurnsSumsThatOverflowIntoNaN) {
  Random random(16);
  for (const Eigen::Index count : {4, 100}) {
    PointMatrix3 points = scattered(random, count);
    points.col(1).setConstant(1.7e308);
    EXPECT_TRUE(fit(points).plane.array().isNaN().all());
  }
}

TEST(DistanceStats, TakeAPlaneWhoseNormalIsNotOfUnitLength) {
  const PointMatrix3 points = cloud({{1.0, 0.0, 0.0}, {-3.0, 5.0, 0.0}});
  const PlaneFitStats stats =
      kestrane::distance_stats(rows_of(points), {0.0, 0.0, 0.0}, {4.0, 0.0, 0.0, 0.0});
  EXPECT_TRUE(same(stats, PlaneFitStats{3.0, 2.0, 1.0}));
}

TEST(DistanceStats, LeaveANormalOfLengthZeroAlone) {
  const PointMatrix3 points = cloud({{1.0, 0.0, 0.0}, {-3.0, 5.0, 0.0}});
  EXPECT_TRUE(same(kestrane::distance_stats(rows_of(points), {0, 0, 0}, {0, 0, 0, 1}),
                   PlaneFitStats{0.0, 0.0, 0.0}));
}

std::vector<double> distances_of(const PointMatrix3& points, const PlaneAbcd& plane) {
  std::vector<double> distances(9, 77.0);
  plane_signed_distances(points, plane, distances);
  return distances;
}

TEST(PlaneSignedDistances, ResizeTheirListToTheRows) {
  EXPECT_EQ(distances_of(PointMatrix3(0, 3), {1, 0, 0, -2}).size(), 0u);
  EXPECT_EQ(distances_of(PointMatrix3::Zero(20, 3), {1, 0, 0, -2}).size(), 20u);
}

const PointMatrix3& three_points() {
  static const PointMatrix3 points = cloud({{5.0, 1.0, 2.0}, {2.0, 9.0, 9.0}, {-1.0, 0.0, 0.0}});
  return points;
}

void expect_near(const std::vector<double>& actual, const std::vector<double>& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) EXPECT_NEAR(actual[i], expected[i], kRounding);
}

// d negative: the rescaled first component is, so the plane is turned and grows with x.
TEST(PlaneSignedDistances, GrowAlongTheFirstComponentMadeNonNegative) {
  expect_near(distances_of(three_points(), {1.0, 0.0, 0.0, -2.0}), {3.0, 0.0, -3.0});
  expect_near(distances_of(three_points(), {-1.0, 0.0, 0.0, 2.0}), {3.0, 0.0, -3.0});
}

TEST(PlaneSignedDistances, GrowAlongTheFirstComponentOfThePlaneOnTheOtherSide) {
  expect_near(distances_of(three_points(), {1.0, 0.0, 0.0, 2.0}), {7.0, 4.0, 1.0});
  expect_near(distances_of(three_points(), {-1.0, 0.0, 0.0, -2.0}), {7.0, 4.0, 1.0});
}

// No first component, nothing to turn: the sign is that of d.
TEST(PlaneSignedDistances, TakeTheirSignFromDWithoutAFirstComponent) {
  expect_near(distances_of(three_points(), {0.0, 1.0, 0.0, -2.0}), {1.0, -7.0, 2.0});
  expect_near(distances_of(three_points(), {0.0, 1.0, 0.0, 2.0}), {3.0, 11.0, 2.0});
}

TEST(PlaneSignedDistances, ShiftAPlaneThroughTheOriginByTheGuard) {
  const std::vector<double> distances = distances_of(three_points(), {1.0, 0.0, 0.0, 0.0});
  EXPECT_EQ(distances[0], 5.0);
  const std::vector<double> at_origin = distances_of(cloud({{0, 0, 0}}), {1.0, 0.0, 0.0, 0.0});
  EXPECT_EQ(at_origin[0], kDoubleEpsilon);
}

TEST(PlaneSignedDistances, AreNotNumbersWhereTheGuardCancelsD) {
  for (const double distance : distances_of(three_points(), {1.0, 0.0, 0.0, -kDoubleEpsilon})) {
    EXPECT_TRUE(std::isnan(distance));
  }
}

TEST(PlaneSignedDistances, EqualTheirLiteralFormToTheLastBit) {
  static const double kAwkward[] = {kNaN,  kInf,    -kInf,           0.0,   -0.0,
                                    1e300, -1e-300, -kDoubleEpsilon, 5e-324};
  Random random(13);
  const auto draw = [&random] {
    if (random.index(40) == 0) return kAwkward[random.index(9)];
    return random.uniform(-1.0, 1.0) * std::pow(10.0, random.uniform(-3.0, 3.0));
  };
  for (int run = 0; run < 5000; ++run) {
    const PlaneAbcd plane(draw(), draw(), draw(), draw());
    PointMatrix3 points(1 + random.index(40), 3);
    for (Eigen::Index i = 0; i < points.size(); ++i) points.data()[i] = draw();
    std::vector<double> actual, expected;
    plane_signed_distances(points, plane, actual);
    literal::plane_signed_distances(points, plane, expected);
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i) {
      ASSERT_TRUE(same_bits(actual[i], expected[i])) << run << ": " << plane.transpose();
    }
  }
}

TEST(PlaneCloudMatchers, TellEqualBitsFromEqualValues) {
  EXPECT_TRUE(same_bits(kNaN, -kNaN));
  EXPECT_FALSE(same_bits(0.0, -0.0));
  EXPECT_FALSE(same_bits(1.0, kNaN));
  EXPECT_FALSE(same(PlaneAbcd(1, 2, 3, 4), PlaneAbcd(1, 2, 3, 5)));
  EXPECT_FALSE(same(PlaneFitStats{1, 2, 3}, PlaneFitStats{1, 2, 4}));
  EXPECT_FALSE(same(cloud({{1, 2, 3}}), cloud({{1, 2, 4}})));
  EXPECT_FALSE(same(cloud({{1, 2, 3}}), cloud({{1, 2, 3}, {1, 2, 3}})));
  EXPECT_TRUE(same(Result{}, Result{}));
}

}  // namespace
