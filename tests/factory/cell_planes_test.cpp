#include "factory/cell_planes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <vector>

#include "factory/grid_corners.h"
#include "factory/nominal_grid.h"
#include "fit/plane_fit.h"
#include "simulation/random.h"

namespace {

using kestrane::CellPoints;
using kestrane::GridCorners;
using kestrane::PlaneAbcd;
using kestrane::PointMatrix3;
using simulation::Random;

kestrane::NominalRays nominal_rays() {
  kestrane::_LASER_PLANE_GRIDS grids{};
  kestrane::NominalRays rays;
  kestrane::build_nominal_grid(grids, rays);
  return rays;
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

GridCorners corners_on(const kestrane::SectorPlanes& planes) {
  GridCorners corners;
  EXPECT_TRUE(kestrane::compute_grid_corners(nominal_rays(), planes, corners));
  return corners;
}

TEST(CellPlanes, RunThroughFourCornersOfOnePlane) {
  const PlaneAbcd plane(0.98, 0.05, -0.1, 160.0);
  const auto corners = corners_on(kestrane::SectorPlanes(15, plane));
  const CellPoints cells(15, std::vector<PointMatrix3>(50, PointMatrix3(0, 3)));
  kestrane::CellPlanes planes;
  kestrane::fit_cell_planes(cells, corners, planes);
  ASSERT_EQ(planes.size(), 15u);
  const double length = plane.head<3>().norm();
  for (const auto& row : planes) {
    ASSERT_EQ(row.size(), 50u);
    for (const PlaneAbcd& fitted : row) {
      // The normal points away from the origin as the corners see it; here that is -x.
      const PlaneAbcd expected = -plane / length;
      constexpr double kRelative = 1e-11;  // a cell 10 wide, seen from 1500 away
      EXPECT_LT((fitted - expected).cwiseAbs().maxCoeff(), kRelative * std::abs(expected[3]));
    }
  }
}

TEST(CellPlanes, HaveTheBitsOfAFitWithStatistics) {
  GridCorners corners = corners_on(kestrane::SectorPlanes(15, PlaneAbcd(0.98, 0.05, -0.1, 160.0)));
  Random random(12);
  for (auto& ray : corners) {
    for (auto& corner : ray) corner.x() += random.uniform(-0.5, 0.5);
  }
  const CellPoints cells(15, std::vector<PointMatrix3>(50, PointMatrix3(0, 3)));
  kestrane::CellPlanes planes;
  kestrane::fit_cell_planes(cells, corners, planes);
  PointMatrix3 matrix(4, 3);
  for (std::size_t i = 0; i < 15; ++i) {
    for (std::size_t j = 0; j < 50; ++j) {
      kestrane::gather_cell_corners(corners, i, j, matrix);
      PlaneAbcd expected;
      kestrane::PlaneFitStats stats{};
      ASSERT_TRUE(kestrane::fit_plane_svd(matrix, expected, stats));
      EXPECT_TRUE(planes[i][j] == expected) << i << " " << j;
    }
  }
}

TEST(CellPlanes, TakeAtLeastThreeCorners) {
  PointMatrix3 corners(3, 3);
  corners << 5.0, 0.0, 300.0, 5.0, 1.0, 300.0, 5.0, 0.0, 301.0;  // of x = 5
  PlaneAbcd plane = PlaneAbcd::Zero();
  EXPECT_TRUE(kestrane::fit_corners(corners, plane));
  EXPECT_NEAR(std::abs(plane[3]), 5.0, 1e-12);
  plane.setZero();
  for (const Eigen::Index few : {2, 1, 0}) {
    EXPECT_FALSE(kestrane::fit_corners(corners.topRows(few), plane)) << few;
    EXPECT_EQ(plane, PlaneAbcd::Zero());
  }
}

TEST(CellPlanes, BlendTheTwoSectorsOfACell) {
  kestrane::SectorPlanes sectors(15, PlaneAbcd(1.0, 0.0, 0.0, -100.0));
  sectors[8] = PlaneAbcd(1.0, 0.0, 0.0, -102.0);
  const auto corners = corners_on(sectors);
  const CellPoints cells(15, std::vector<PointMatrix3>(50, PointMatrix3(0, 3)));
  kestrane::CellPlanes planes;
  kestrane::fit_cell_planes(cells, corners, planes);
  // Cell [7][20] has two corners at x = 100 and two at x = 102: halfway across it x is 101.
  const Eigen::Vector3d middle =
      (corners[7][20] + corners[7][21] + corners[8][20] + corners[8][21]) / 4.0;
  EXPECT_DOUBLE_EQ(middle.x(), 101.0);
  const PlaneAbcd& plane = planes[7][20];
  constexpr double kRounding = 1e-10;
  EXPECT_NEAR(plane.head<3>().dot(middle) + plane[3], 0.0, kRounding);
}

TEST(CellPlanes, KeepSilentAndSucceedOnCornersThatCoincide) {
  const GridCorners corners(16, std::vector<Eigen::Vector3d>(51, Eigen::Vector3d(1.0, 2.0, 3.0)));
  const CellPoints cells(15, std::vector<PointMatrix3>(50, PointMatrix3(0, 3)));
  kestrane::CellPlanes planes;
  testing::internal::CaptureStdout();
  kestrane::fit_cell_planes(cells, corners, planes);
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_NEAR(planes[14][49].head<3>().norm(), 1.0, 1e-15);
}

TEST(CellPlanes, TakeTheirShapeFromTheCells) {
  CellPoints cells(2, std::vector<PointMatrix3>(3, PointMatrix3(0, 3)));
  kestrane::CellPlanes planes;
  testing::internal::CaptureStdout();
  kestrane::fit_cell_planes(cells, numbered_corners(), planes);
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  ASSERT_EQ(planes.size(), 2u);
  EXPECT_EQ(planes[1].size(), 3u);
}

TEST(FailedCells, AreNamedByFanAndDepthOneALine) {
  kestrane::CellMarks fitted(15, std::vector<bool>(50, true));
  fitted[2][49] = false;
  fitted[14][0] = false;
  testing::internal::CaptureStdout();
  kestrane::report_failed_cells(fitted);
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "fit_failed_plane_index:[y:2,z:49]\nfit_failed_plane_index:[y:14,z:0]\n");
}

// A full disk after standard output, and a host that wants its streams to throw.
[[noreturn]] void report_to_a_full_device() {
  if (std::freopen("/dev/full", "w", stdout) == nullptr) std::_Exit(2);
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  std::cout.exceptions(std::ios::badbit | std::ios::failbit);
  try {
    kestrane::report_failed_cells(kestrane::CellMarks(15, std::vector<bool>(50, false)));
  } catch (...) {
    std::_Exit(1);
  }
  std::_Exit(std::ferror(stdout) != 0 ? 0 : 3);
}

TEST(FailedCellsDeathTest, ThrowNothingWhereStandardOutputIsFull) {
  EXPECT_EXIT(report_to_a_full_device(), testing::ExitedWithCode(0), "");
}

}  // namespace
