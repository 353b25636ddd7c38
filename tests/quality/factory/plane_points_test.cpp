#include "quality/factory/plane_points.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kestrane/quality/plane_table.h"
#include "quality/frame_ids.h"
#include "tests/support/bits.h"

namespace {

using kestrane::quality::PlaneTable;
using kestrane::quality::points_on_blocks;
using kestrane_test::kInf;
using kestrane_test::kNaN;

constexpr kestrane::quality::FitBand kBand{100.0, 1000.0};

// A plane x = 100 in every block: -x / 100 + 1 = 0.
std::vector<kestrane::_LASER_TRIPLE> flat_cells(double a = -0.01) {
  return std::vector<kestrane::_LASER_TRIPLE>(750, {{a, 0.0, 0.0}});
}

kestrane::quality::PlanePoints points_of(const std::vector<_KESTRANE_ID_POINT3D>& cloud,
                                         const std::vector<kestrane::_LASER_TRIPLE>& cells) {
  return points_on_blocks(cloud, kestrane::quality::distinct_ids(cloud), cells,
                          PlaneTable().grids(), kBand);
}

TEST(FitBandOf, IsThatOfTheJob) {
  EXPECT_EQ(kestrane::quality::fit_band_of(kestrane::LASER_TYPE_STANDARD).nearest, 100.0);
  EXPECT_EQ(kestrane::quality::fit_band_of(kestrane::LASER_TYPE_FAR).nearest, 220.0);
  EXPECT_EQ(kestrane::quality::fit_band_of(kestrane::LASER_TYPE_FAR).farthest, 1000.0);
}

// (100 + 3 - 100) along x, whichever way the coefficients point.
TEST(PointsOnBlocks, MeasureFromThePlaneTowardsLargerX) {
  const std::vector<_KESTRANE_ID_POINT3D> cloud = {{103.0, 5.0, 300.0, 0}, {98.5, 5.0, 300.0, 1}};
  const auto points = points_of(cloud, flat_cells());
  ASSERT_EQ(points.size(), 2U);
  EXPECT_NEAR(points.residual[0], 3.0, 1e-12);
  EXPECT_NEAR(points.residual[1], -1.5, 1e-12);
  EXPECT_EQ(points.pose[0], 0);
  EXPECT_EQ(points.pose[1], 1);
}

TEST(PointsOnBlocks, MeasureAlongTheNormalOfATiltedPlane) {
  // x = 100 + z / 2, so that the normal is (2, 0, -1) / sqrt(5).
  std::vector<kestrane::_LASER_TRIPLE> cells(750, {{-0.01, 0.0, 0.005}});
  const auto points = points_of({{251.0, 0.0, 300.0, 0}}, cells);
  ASSERT_EQ(points.size(), 1U);
  EXPECT_NEAR(points.residual[0], 2.0 / std::sqrt(5.0), 1e-12);
}

TEST(PointsOnBlocks, TakeTheBlockThatAHostLooksUp) {
  const PlaneTable table;
  const auto points = points_of({{100.0, 0.0, 300.0, 0}, {100.0, 150.0, 421.0, 0}}, flat_cells());
  const auto at = *table.lookup(150.0, 421.0);
  ASSERT_EQ(points.size(), 2U);
  EXPECT_EQ(points.block[0], 7 * 50 + 5);  // the middle line, the sixth depth
  EXPECT_EQ(points.block[1], at.line * 50 + at.cell);
}

TEST(PointsOnBlocks, LeaveOutWhatIsNotFiniteOutsideTheBandOrWithoutABlock) {
  EXPECT_EQ(points_of({{kNaN, 0, 300, 0},
                       {kInf, 0, 300, 0},
                       {100, kNaN, 300, 0},
                       {100, -kInf, 300, 0},
                       {100, 0, kNaN, 0},
                       {100, 0, kInf, 0}},
                      flat_cells())
                .size(),
            0U);
  EXPECT_EQ(
      points_of({{100, 0, 99.9, 0}, {100, 0, 1000.1, 0}, {100, 400, 300, 0}}, flat_cells()).size(),
      0U);
  // Nearer than 123 the look-up has no block, though the band begins at 100.
  EXPECT_EQ(points_of({{100, 0, 110, 0}, {100, 0, 124, 0}, {100, 0, 1000, 0}}, flat_cells()).size(),
            2U);
}

TEST(PointsOnBlocks, BeginWhereTheBandBegins) {
  const std::vector<_KESTRANE_ID_POINT3D> cloud = {
      {100, 0, 219.9, 0}, {100, 0, 220, 0}, {100, 0, 899, 0}, {100, 0, 899.1, 0}};
  const auto points =
      points_on_blocks(cloud, {0}, flat_cells(), PlaneTable().grids(), {220.0, 899.0});
  EXPECT_EQ(points.size(), 2U);
}

TEST(PointsOnBlocks, LeaveOutBlocksWithoutAPlane) {
  for (const double a : {0.0, kNaN, kInf}) {
    EXPECT_EQ(points_of({{100, 0, 300, 0}}, flat_cells(a)).size(), 0U) << a;
  }
  using kestrane::_LASER_TRIPLE;
  const auto count = [](const _LASER_TRIPLE& cell) {
    return points_of({{100, 0, 300, 0}}, std::vector<_LASER_TRIPLE>(750, cell)).size();
  };
  for (const double bad : {kNaN, kInf, -kInf}) {
    EXPECT_EQ(count({{-0.01, bad, 0.0}}), 0U) << bad;
    EXPECT_EQ(count({{-0.01, 0.0, bad}}), 0U) << bad;
  }
  // Three numbers too small to be told from zero are none; one that is large enough suffices.
  EXPECT_EQ(count({{1e-17, -1e-17, 1e-17}}), 0U);
  EXPECT_EQ(count({{1e-17, 0.01, 1e-17}}), 1U);
  EXPECT_EQ(count({{1e-17, 1e-17, -0.01}}), 1U);
}

}  // namespace
