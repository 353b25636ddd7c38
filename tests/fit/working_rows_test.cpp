#include "fit/working_rows.h"

#include <gtest/gtest.h>

#include <vector>

#include "fit/plane_fit.h"
#include "tests/fit/plane_clouds.h"
#include "tests/literal/plane_fit.h"

namespace {

using namespace plane_clouds;
using kestrane::filter_by_distance;
using kestrane::filter_by_sigma;
using kestrane::plane_signed_distances;
using kestrane::WorkingRows;

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

}  // namespace
