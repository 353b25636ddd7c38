#include "fit/laser_geometry_fitter.h"

#include <gtest/gtest.h>

#include <limits>

#include "fit/plane_fit.h"
#include "tests/fit/plane_clouds.h"
#include "tests/literal/plane_fit.h"

namespace {

using namespace plane_clouds;
using kestrane::fit_plane_svd;
using kestrane::LaserGeometryFitter;

constexpr DepthBand kBand{100, 1000};
constexpr std::int32_t kSinglePass = 2;

bool robust(const PointMatrix3& points, Result& result, DepthBand band, std::int32_t mode) {
  LaserGeometryFitter fitter;
  fitter.set_params(false, 0, 0.0, 0.0);
  return fitter.fit_plane_robust(points, result.plane, result.stats, result.inliers, band, mode);
}

bool literally(const PointMatrix3& points, Result& result, DepthBand band, std::int32_t mode) {
  return literal::fit_plane_robust(points, result.plane, result.stats, result.inliers, band, mode);
}

Result plain_fit(const PointMatrix3& points) {
  Result result;
  EXPECT_TRUE(fit_plane_svd(points, result.plane, result.stats));
  return result;
}

void expect_refused_untouched(const PointMatrix3& points, DepthBand band, std::int32_t mode) {
  Result result;
  EXPECT_FALSE(robust(points, result, band, mode));
  EXPECT_TRUE(same(result, Result{}));
}

// A wall of points at x = 10 over a grid of y and z in the band.
PointMatrix3 wall(int side) {
  PointMatrix3 points(side * side, 3);
  for (int i = 0; i < side * side; ++i) points.row(i) << 10.0, 20.0 * (i % side), 200.0 + i / side;
  return points;
}

TEST(FitPlaneRobust, RefusesFewerThanThreeRowsOnBothRoads) {
  for (const Eigen::Index count : {0, 1, 2}) {
    for (const std::int32_t mode : {0, 1, kSinglePass}) {
      expect_refused_untouched(PointMatrix3::Constant(count, 3, 500.0), kBand, mode);
    }
  }
}

TEST(FitPlaneRobust, RefusesFewerThanThreeRowsInTheBand) {
  PointMatrix3 points = wall(10);
  points.col(2).setConstant(99.0);
  expect_refused_untouched(points, kBand, 0);
  points(5, 2) = 500.0;
  points(70, 2) = 600.0;
  expect_refused_untouched(points, kBand, 0);
  points(71, 2) = 600.0;
  Result result;
  EXPECT_TRUE(robust(points, result, kBand, 0));
  EXPECT_EQ(result.inliers.rows(), 3);
}

TEST(FitPlaneRobust, RefusesAnInvertedBand) { expect_refused_untouched(wall(10), {1000, 100}, 0); }

TEST(FitPlaneRobust, CountsBothBoundsOfTheBandIn) {
  const PointMatrix3 points = cloud({{1, 0, 100.0},
                                     {1, 5, 1000.0},
                                     {1, 9, 500.0},
                                     {1, 9, std::nextafter(100.0, 0.0)},
                                     {1, 9, std::nextafter(1000.0, 2000.0)},
                                     {1, 9, kInf},
                                     {1, 9, -kInf}});
  Result result;
  EXPECT_TRUE(robust(points, result, kBand, 0));
  EXPECT_TRUE(same(result.inliers, points.topRows(3)));
}

TEST(FitPlaneRobust, KeepsOnlyOneDepthInABandOfEqualBounds) {
  PointMatrix3 points = wall(20);
  Result result;
  EXPECT_TRUE(robust(points, result, {205, 205}, 0));
  ASSERT_EQ(result.inliers.rows(), 20);
  EXPECT_TRUE((result.inliers.col(2).array() == 205.0).all());
}

TEST(FitPlaneRobust, ReadsBandBoundsOverTheWholeRangeOfTheirType) {
  Random random(12);
  const PointMatrix3 points = 1e9 * scattered(random, 100);
  Result result;
  EXPECT_FALSE(robust(points, result, {2147483647, -2147483647 - 1}, 0));
  Result all, expected;
  EXPECT_EQ(robust(points, all, {-2147483647 - 1, 2147483647}, 0),
            literally(points, expected, {-2147483647 - 1, 2147483647}, 0));
}

// A NaN depth stays in the band, its NaN distances keep every row, and nothing fails.
TEST(FitPlaneRobust, KeepsARowWhoseDepthIsNaNAndGivesNaN) {
  for (const int side : {3, 20}) {
    PointMatrix3 points = wall(side);
    points(4, 2) = kNaN;
    points(7, 2) = 50.0;
    Result result, expected;
    EXPECT_TRUE(robust(points, result, kBand, 0));
    EXPECT_EQ(result.inliers.rows(), side * side - 1);
    EXPECT_TRUE(result.plane.array().isNaN().all());
    EXPECT_TRUE(std::isnan(result.stats.max_distance));
    EXPECT_TRUE(std::isnan(result.stats.std_distance));
    EXPECT_TRUE(literally(points, expected, kBand, 0));
    EXPECT_TRUE(same(result.inliers, expected.inliers));
  }
}

TEST(FitPlaneRobust, KeepsEveryRowBesideAnInfiniteOneOnBothRoads) {
  PointMatrix3 points = wall(20);
  points(4, 1) = kInf;
  for (const std::int32_t mode : {0, kSinglePass}) {
    Result result;
    EXPECT_TRUE(robust(points, result, kBand, mode));
    EXPECT_TRUE(same(result.inliers, points));
    EXPECT_TRUE(result.plane.array().isNaN().all());
  }
}

// Two walls ten apart: the plane between them is five from every point of both. `between` more
// points stand on that plane.
PointMatrix3 two_walls(int side, int between) {
  const PointMatrix3 one = wall(side);
  PointMatrix3 points(2 * one.rows() + between, 3);
  points.topRows(one.rows()) = one;
  points.middleRows(one.rows(), one.rows()) = one;
  points.middleRows(one.rows(), one.rows()).col(0).setConstant(20.0);
  for (int i = 0; i < between; ++i)
    points.bottomRows(between).row(i) << 15.0, 3.0 * i, 201.0 + i * i;
  points.col(2) = 20.0 * (points.col(2).array() - 200.0) + 200.0;
  return points;
}

class RejectionThatLeavesTooFew : public testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(RejectionThatLeavesTooFew, FailsAndLeavesTheFirstFitInPlaneAndStats) {
  const auto [side, between] = GetParam();
  PointMatrix3 points = two_walls(side, between);
  Result expected = plain_fit(points);
  ASSERT_NEAR(std::abs(expected.plane[0]), 1.0, 1e-2);
  points.conservativeResize(points.rows() + 1, Eigen::NoChange);
  points.row(points.rows() - 1) << 900.0, 900.0, 50.0;  // out of the band, in no fit
  Result result;
  EXPECT_FALSE(robust(points, result, kBand, 0));
  EXPECT_TRUE(same_to_rounding(result, expected));
  EXPECT_TRUE(same(result.inliers, expected.inliers));
}

INSTANTIATE_TEST_SUITE_P(FitPlaneRobust, RejectionThatLeavesTooFew,
                         testing::Combine(testing::Values(4, 20), testing::Values(0, 1, 2)));

TEST(FitPlaneRobust, GoesOnWithThreeRowsAfterARejection) {
  Result result;
  EXPECT_TRUE(robust(two_walls(20, 3), result, kBand, 0));
  EXPECT_EQ(result.inliers.rows(), 3);
  EXPECT_TRUE((result.inliers.col(0).array() == 15.0).all());
}

TEST(FitPlaneRobust, GivesAPlaneThroughThreePoints) {
  const PointMatrix3 points = cloud({{10, 0, 200}, {11, 50, 300}, {12, -20, 900}});
  for (const std::int32_t mode : {0, kSinglePass}) {
    Result result;
    EXPECT_TRUE(robust(points, result, kBand, mode));
    EXPECT_TRUE(same(result.inliers, points));
    EXPECT_LE(result.stats.max_distance, 1e-12);
  }
}

TEST(FitPlaneRobust, TakesTheBandedRoadForEveryModeButTwo) {
  Random random(1);
  const PointMatrix3 points = sheet_cloud(random, 500, {});
  Result banded;
  ASSERT_TRUE(robust(points, banded, kBand, 0));
  ASSERT_LT(banded.inliers.rows(), 480);
  for (const std::int32_t mode : {-1, 1, 3, -2, std::numeric_limits<std::int32_t>::min(),
                                  std::numeric_limits<std::int32_t>::max()}) {
    Result result;
    EXPECT_TRUE(robust(points, result, kBand, mode));
    EXPECT_TRUE(same(result, banded)) << mode;
  }
  Result single;
  EXPECT_TRUE(robust(points, single, kBand, kSinglePass));
  EXPECT_FALSE(same(single, banded));
}

TEST(FitPlaneRobust, HandsOutTheFigureOfExactlyItsInliersOnTheBandedRoad) {
  Random random(2);
  for (const Eigen::Index count : {40, 5000}) {
    Result result;
    ASSERT_TRUE(robust(sheet_cloud(random, count, {}), result, kBand, 0));
    const Result again = plain_fit(result.inliers);
    EXPECT_TRUE(same_to_rounding(result, again));
  }
}

TEST(FitPlaneRobust, KeepsPlaneAndStatisticsOfAllPointsOnTheSinglePass) {
  Random random(3);
  for (const Eigen::Index count : {40, 5000}) {
    PointMatrix3 points = sheet_cloud(random, count, {});
    points(3, 0) += 500.0;
    points(5, 2) = -7.0;  // no band on this road
    Result result;
    ASSERT_TRUE(robust(points, result, {5, 5}, kSinglePass));
    const Result all = plain_fit(points);
    EXPECT_TRUE(same_to_rounding(result, all));
    EXPECT_LT(result.inliers.rows(), count);
  }
}

TEST(FitPlaneRobust, RejectsNothingOfFourPointsOnTheSinglePass) {
  Random random(4);
  for (int run = 0; run < 2000; ++run) {
    const PointMatrix3 points = 100.0 * scattered(random, 4);
    Result result, expected;
    ASSERT_TRUE(robust(points, result, kBand, kSinglePass));
    ASSERT_TRUE(literally(points, expected, kBand, kSinglePass));
    ASSERT_TRUE(same(result, expected));
    ASSERT_EQ(result.inliers.rows(), 4);
  }
}

TEST(FitPlaneRobust, LeavesItsPointsAsTheyAre) {
  Random random(5);
  const PointMatrix3 points = sheet_cloud(random, 1000, {});
  const PointMatrix3 copy = points;
  Result result;
  EXPECT_TRUE(robust(points, result, kBand, 0));
  EXPECT_TRUE(same(points, copy));
}

TEST(FitPlaneRobust, MayWriteItsInliersOverItsPoints) {
  Random random(6);
  for (const std::int32_t mode : {0, kSinglePass}) {
    Result result, apart;
    result.inliers = sheet_cloud(random, 1000, {});
    ASSERT_TRUE(robust(result.inliers, apart, kBand, mode));
    ASSERT_TRUE(robust(result.inliers, result, kBand, mode));
    EXPECT_TRUE(same(result, apart));
  }
}

TEST(FitPlaneRobust, RecoversASheetFromNoiseAndOutliers) {
  Random random(7);
  const Sheet sheet{
      .offset = 60.0, .along_y = 0.02, .along_z = 0.15, .noise = 0.05, .outliers = 0.03};
  Result result;
  ASSERT_TRUE(robust(sheet_cloud(random, 50000, sheet), result, kBand, 0));
  PlaneAbcd truth(1.0, -sheet.along_y, -sheet.along_z, -sheet.offset);
  truth /= truth.head<3>().norm();
  constexpr double kTilt = 2e-5;    // noise over the spread, over the root of the points, twice 5
  constexpr double kOffset = 1e-2;  // the same at a depth of 500
  EXPECT_LE((result.plane.head<3>() - truth.head<3>()).norm(), kTilt);
  EXPECT_NEAR(result.plane[3], truth[3], kOffset);
  EXPECT_NEAR(result.stats.std_distance, 0.03, 0.01);
}

Sheet any_sheet(Random& random) {
  return {random.uniform(-200.0, 200.0), random.uniform(-0.3, 0.3), random.uniform(-0.5, 0.5),
          std::pow(10.0, random.uniform(-1.0, 0.5)), random.uniform(0.0, 0.3)};
}

TEST(FitPlaneRobust, EqualsItsLiteralFormToTheLastBitForShortClouds) {
  Random random(8);
  for (int run = 0; run < 4000; ++run) {
    const PointMatrix3 points = sheet_cloud(random, 3 + random.index(60), any_sheet(random));
    const std::int32_t mode = random.index(4);
    Result result, expected;
    ASSERT_EQ(robust(points, result, kBand, mode), literally(points, expected, kBand, mode));
    ASSERT_TRUE(same(result, expected)) << run;
  }
}

TEST(FitPlaneRobust, EqualsItsLiteralFormForLongClouds) {
  Random random(9);
  for (int run = 0; run < 200; ++run) {
    const PointMatrix3 points = sheet_cloud(random, 100 + random.index(6000), any_sheet(random));
    const std::int32_t mode = random.index(4);
    Result result, expected;
    ASSERT_TRUE(robust(points, result, kBand, mode));
    ASSERT_TRUE(literally(points, expected, kBand, mode));
    ASSERT_TRUE(same(result.inliers, expected.inliers)) << run;
    ASSERT_TRUE(same_to_rounding(result, expected)) << run;
  }
}

TEST(FitPlaneRobust, EqualsItsLiteralFormForAHundredThousandPoints) {
  Random random(10);
  for (const double noise : {0.02, 0.2}) {
    const PointMatrix3 points = sheet_cloud(random, 100000, {.noise = noise});
    Result result, expected;
    ASSERT_TRUE(robust(points, result, kBand, 0));
    ASSERT_TRUE(literally(points, expected, kBand, 0));
    EXPECT_TRUE(same(result.inliers, expected.inliers)) << noise;
    EXPECT_TRUE(same_to_rounding(result, expected)) << noise;
  }
}

TEST(FitPlaneRobust, EqualsItsLiteralFormForFlatCloudsWithoutNoise) {
  Random random(11);
  for (const Eigen::Index count : {50, 3000}) {
    const PointMatrix3 points = sheet_cloud(random, count, {.noise = 0.0, .outliers = 0.0});
    Result result, expected;
    EXPECT_TRUE(robust(points, result, kBand, 0));
    EXPECT_TRUE(literally(points, expected, kBand, 0));
    EXPECT_TRUE(same(result, expected)) << count;
  }
}

}  // namespace
