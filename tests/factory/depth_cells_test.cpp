#include "factory/depth_cells.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "factory/nominal_grid.h"
#include "simulation/random.h"

namespace {

using kestrane::CellPoints;
using kestrane::GridCorners;
using kestrane::PlaneAbcd;
using kestrane::PointMatrix3;
using simulation::Random;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

kestrane::NominalRays nominal_rays() {
  kestrane::_LASER_PLANE_GRIDS grids{};
  kestrane::NominalRays rays;
  kestrane::build_nominal_grid(grids, rays);
  return rays;
}

// The band of the single point (1, 2, z) in the first of 15 sectors.
int band_of(double z) {
  kestrane::SectorClouds sectors(15, PointMatrix3(0, 3));
  sectors[0] = PointMatrix3(1, 3);
  sectors[0] << 1.0, 2.0, z;
  CellPoints cells;
  kestrane::split_sector_points_by_depth(sectors, 50, 150.0, 1500.0, cells);
  int band = -1;
  for (std::size_t j = 0; j < cells[0].size(); ++j) {
    if (cells[0][j].rows() == 1) band = band == -1 ? static_cast<int>(j) : -2;
  }
  return band;
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

TEST(DepthBands, TakeTheLowerBoundAndLeaveTheUpperOne) {
  EXPECT_EQ(band_of(150.0), 0);
  EXPECT_EQ(band_of(std::nextafter(177.0, 0.0)), 0);
  EXPECT_EQ(band_of(177.0), 1);
  EXPECT_EQ(band_of(1473.0), 49);
  EXPECT_EQ(band_of(std::nextafter(1473.0, 0.0)), 48);
}

TEST(DepthBands, CollectNearPointsInTheFirstBand) {
  EXPECT_EQ(band_of(149.9), 0);
  EXPECT_EQ(band_of(123.0), 0);
  EXPECT_EQ(band_of(100.0), 0);
  EXPECT_EQ(band_of(-1e300), 0);
  EXPECT_EQ(band_of(-kInf), 0);
}

TEST(DepthBands, CollectFarPointsInTheLastBand) {
  EXPECT_EQ(band_of(1500.0), 49);
  EXPECT_EQ(band_of(2000.0), 49);
  EXPECT_EQ(band_of(1e300), 49);
  EXPECT_EQ(band_of(kInf), 49);
}

TEST(DepthBands, PutADepthThatIsNotANumberIntoTheFirstBand) { EXPECT_EQ(band_of(kNaN), 0); }

TEST(DepthBands, GiveFifteenRowsOfFiftyAlsoWithoutPoints) {
  CellPoints cells(3);
  kestrane::split_sector_points_by_depth(kestrane::SectorClouds(15, PointMatrix3(0, 3)), 50, 150.0,
                                         1500.0, cells);
  ASSERT_EQ(cells.size(), 15u);
  for (const auto& row : cells) {
    ASSERT_EQ(row.size(), 50u);
    for (const auto& cell : row) EXPECT_EQ(cell.rows(), 0);
  }
}

TEST(DepthBands, KeepEveryPointOnceAndInOrder) {
  Random random(3);
  kestrane::SectorClouds sectors;
  for (int s = 0; s < 15; ++s) {
    PointMatrix3 cloud(200, 3);
    for (int i = 0; i < 200; ++i) cloud.row(i) << i, s, random.uniform(50.0, 1700.0);
    sectors.push_back(cloud);
  }
  CellPoints cells;
  kestrane::split_sector_points_by_depth(sectors, 50, 150.0, 1500.0, cells);
  for (std::size_t s = 0; s < 15; ++s) {
    Eigen::Index rows = 0;
    for (std::size_t j = 0; j < 50; ++j) {
      const PointMatrix3& cell = cells[s][j];
      rows += cell.rows();
      for (Eigen::Index i = 0; i < cell.rows(); ++i) {
        const double z = cell(i, 2);
        const int band = std::min(std::max(static_cast<int>((z - 150.0) / 27.0), 0), 49);
        EXPECT_EQ(band, static_cast<int>(j));
        EXPECT_EQ(cell(i, 1), static_cast<double>(s));
        EXPECT_EQ(z, sectors[s](static_cast<Eigen::Index>(cell(i, 0)), 2));
        if (i > 0) {
          EXPECT_LT(cell(i - 1, 0), cell(i, 0));
        }
      }
    }
    EXPECT_EQ(rows, 200);
  }
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

}  // namespace
