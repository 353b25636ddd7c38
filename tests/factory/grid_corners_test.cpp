#include "factory/grid_corners.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "factory/nominal_grid.h"
#include "simulation/random.h"
#include "tests/support/bits.h"

namespace {

using kestrane::GridCorners;
using kestrane::PlaneAbcd;
using kestrane::PointMatrix3;
using simulation::Random;

using kestrane_test::kNaN;

kestrane::NominalRays nominal_rays() {
  kestrane::_LASER_PLANE_GRIDS grids{};
  kestrane::NominalRays rays;
  kestrane::build_nominal_grid(grids, rays);
  return rays;
}

kestrane::SectorPlanes distinct_planes() {
  Random random(11);
  kestrane::SectorPlanes planes;
  for (int s = 0; s < 15; ++s) {
    planes.emplace_back(0.9 + 0.01 * s, random.uniform(-0.1, 0.1), random.uniform(-0.1, 0.1),
                        random.uniform(-200.0, 200.0));
  }
  return planes;
}

TEST(CornerGrid, LiftsEveryRayOntoTheSectorThatStartsOnIt) {
  const auto rays = nominal_rays();
  const auto planes = distinct_planes();
  GridCorners corners;
  ASSERT_TRUE(kestrane::compute_grid_corners(rays, planes, corners));
  ASSERT_EQ(corners.size(), 16u);
  for (std::size_t i = 0; i < 16; ++i) {
    ASSERT_EQ(corners[i].size(), 51u);
    const PlaneAbcd& p = planes[i == 15 ? 14 : i];
    for (std::size_t k = 0; k < 51; ++k) {
      const double y = rays[i][k].y;
      const double z = rays[i][k].z;
      EXPECT_EQ(corners[i][k].x(), -((y * p[1] + z * p[2] + p[3]) / p[0]));
      EXPECT_EQ(corners[i][k].y(), y);
      EXPECT_EQ(corners[i][k].z(), z);
    }
  }
}

TEST(CornerGrid, StopsAtTheFirstRayWhosePlaneHasNoA) {
  auto planes = distinct_planes();
  planes[4][0] = 2.2204e-16;  // just below the limit
  planes[9][0] = 0.0;
  GridCorners corners;
  EXPECT_FALSE(kestrane::compute_grid_corners(nominal_rays(), planes, corners));
  EXPECT_EQ(corners.size(), 4u);
}

TEST(CornerGrid, TakesAnAOfExactlyTheLimit) {
  auto planes = distinct_planes();
  planes[4][0] = -2.220446049250313e-16;
  GridCorners corners;
  EXPECT_TRUE(kestrane::compute_grid_corners(nominal_rays(), planes, corners));
}

TEST(CornerGrid, RefusesFifteenEmptyPlanes) {
  GridCorners corners;
  EXPECT_FALSE(kestrane::compute_grid_corners(
      nominal_rays(), kestrane::SectorPlanes(15, PlaneAbcd::Zero()), corners));
  EXPECT_TRUE(corners.empty());
}

TEST(CornerGrid, PassesAPlaneThatIsNotANumberOn) {
  kestrane::SectorPlanes planes(15, PlaneAbcd::Constant(kNaN));
  GridCorners corners;
  ASSERT_TRUE(kestrane::compute_grid_corners(nominal_rays(), planes, corners));
  EXPECT_TRUE(std::isnan(corners[7][7].x()));
}

GridCorners numbered_corners() {
  GridCorners corners(16, std::vector<Eigen::Vector3d>(51));
  for (int i = 0; i < 16; ++i) {
    for (int k = 0; k < 51; ++k) {
      corners[static_cast<std::size_t>(i)][static_cast<std::size_t>(k)] =
          Eigen::Vector3d(100 * i + k, i, k);
    }
  }
  return corners;
}

TEST(CellCorners, ComeInTheOrderDepthFirst) {
  for (PointMatrix3 matrix : {PointMatrix3(0, 3), PointMatrix3(4, 3), PointMatrix3(9, 3)}) {
    kestrane::gather_cell_corners(numbered_corners(), 3, 7, matrix);
    ASSERT_EQ(matrix.rows(), 4);
    EXPECT_EQ(matrix(0, 0), 307.0);
    EXPECT_EQ(matrix(1, 0), 308.0);
    EXPECT_EQ(matrix(2, 0), 407.0);
    EXPECT_EQ(matrix(3, 0), 408.0);
    EXPECT_EQ(matrix(3, 1), 4.0);
    EXPECT_EQ(matrix(3, 2), 8.0);
  }
}

}  // namespace
