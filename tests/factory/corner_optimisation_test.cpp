#include "factory/corner_optimisation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>

#include "factory/grid_corners.h"
#include "factory/nominal_grid.h"
#include "simulation/random.h"
#include "tests/literal/factory_calibration.h"
#include "tests/support/bits.h"

namespace {

using kestrane::CellPoints;
using kestrane::GridCorners;
using kestrane::PlaneAbcd;
using kestrane::PointMatrix3;
using simulation::Random;

constexpr double kReach = 0.5;

GridCorners flat_corners(double x) {
  kestrane::_LASER_PLANE_GRIDS grids{};
  kestrane::NominalRays rays;
  kestrane::build_nominal_grid(grids, rays);
  GridCorners corners;
  EXPECT_TRUE(kestrane::compute_grid_corners(
      rays, kestrane::SectorPlanes(15, PlaneAbcd(1.0, 0.0, 0.0, -x)), corners));
  return corners;
}

CellPoints no_points() { return CellPoints(15, std::vector<PointMatrix3>(50, PointMatrix3(0, 3))); }

using Sheet = std::function<double(double y, double z)>;

// `count` points of a sheet inside cell [i][j], with noise in x.
PointMatrix3 cell_cloud(const GridCorners& corners, std::size_t i, std::size_t j, int count,
                        const Sheet& sheet, double noise, std::uint64_t seed) {
  Random random(seed);
  PointMatrix3 cloud(count, 3);
  for (int n = 0; n < count; ++n) {
    const double u = random.uniform();
    const double z = random.uniform(corners[i][j].z(), corners[i][j + 1].z());
    const double low = corners[i][j].y() / corners[i][j].z() * z;
    const double high = corners[i + 1][j].y() / corners[i + 1][j].z() * z;
    const double y = low + u * (high - low);
    cloud.row(n) << sheet(y, z) + noise * random.gaussian(), y, z;
  }
  return cloud;
}

// All cells of sectors 3 to 11 and depths 5 to 25.
CellPoints clouds_of(const GridCorners& corners, const Sheet& sheet, double noise) {
  CellPoints cells = no_points();
  for (std::size_t i = 3; i <= 11; ++i) {
    for (std::size_t j = 5; j <= 25; ++j) {
      cells[i][j] = cell_cloud(corners, i, j, 60, sheet, noise, 100 * i + j);
    }
  }
  return cells;
}

double rms_error(const GridCorners& corners, const Sheet& sheet) {
  double squares = 0.0;
  int count = 0;
  for (std::size_t i = 3; i <= 12; ++i) {
    for (std::size_t j = 5; j <= 26; ++j) {
      const auto& corner = corners[i][j];
      const double error = corner.x() - sheet(corner.y(), corner.z());
      squares += error * error;
      ++count;
    }
  }
  return std::sqrt(squares / count);
}

void expect_same(const GridCorners& corners, const GridCorners& expected) {
  for (std::size_t i = 0; i < 16; ++i) {
    for (std::size_t k = 0; k < 51; ++k) EXPECT_TRUE(corners[i][k] == expected[i][k]);
  }
}

TEST(CornerOptimisation, LeavesAllCornersWithoutPoints) {
  GridCorners corners = flat_corners(100.0);
  const GridCorners before = corners;
  kestrane::optimize_grid_corners(no_points(), corners);
  expect_same(corners, before);
}

TEST(CornerOptimisation, MovesOnlyTheXOfCornersOfMeasuredCells) {
  GridCorners corners = flat_corners(100.0);
  const GridCorners before = corners;
  CellPoints cells = no_points();
  cells[6][10] = cell_cloud(
      corners, 6, 10, 50, [](double, double) { return 100.2; }, 0.01, 1);
  kestrane::optimize_grid_corners(cells, corners);
  for (std::size_t i = 0; i < 16; ++i) {
    for (std::size_t k = 0; k < 51; ++k) {
      EXPECT_EQ(corners[i][k].y(), before[i][k].y());
      EXPECT_EQ(corners[i][k].z(), before[i][k].z());
      const bool parameter = (i == 6 || i == 7) && (k == 10 || k == 11);
      if (parameter) {
        EXPECT_NE(corners[i][k].x(), 100.0);
      } else {
        EXPECT_EQ(corners[i][k].x(), before[i][k].x());
      }
    }
  }
}

TEST(CornerOptimisation, CarriesACellOntoItsPoints) {
  GridCorners corners = flat_corners(100.0);
  CellPoints cells = no_points();
  cells[6][10] = cell_cloud(
      corners, 6, 10, 60, [](double, double) { return 100.2; }, 0.01, 2);
  kestrane::optimize_grid_corners(cells, corners);
  const double mean =
      (corners[6][10].x() + corners[6][11].x() + corners[7][10].x() + corners[7][11].x()) / 4.0;
  constexpr double kNoiseOfTheMean = 0.01;  // twenty visited points of 0.01 each, with room
  EXPECT_NEAR(mean, 100.2, kNoiseOfTheMean);
}

TEST(CornerOptimisation, NeverMovesACornerFurtherThanItsReach) {
  GridCorners corners = flat_corners(100.0);
  const auto sheet = [](double, double) { return 103.0; };
  kestrane::optimize_grid_corners(clouds_of(corners, sheet, 0.05), corners);
  double furthest = 0.0;
  for (const auto& row : corners) {
    for (const auto& corner : row) furthest = std::max(furthest, std::abs(corner.x() - 100.0));
  }
  EXPECT_LE(furthest, kReach);
  EXPECT_GT(furthest, 0.4);
}

TEST(CornerOptimisation, HelpsOnABowedSheet) {
  const auto sheet = [](double y, double z) {
    return 100.0 + 0.3 * std::sin(z / 150.0) + 0.2 * std::cos(y / 90.0);
  };
  GridCorners corners = flat_corners(100.0);
  const double before = rms_error(corners, sheet);
  kestrane::optimize_grid_corners(clouds_of(corners, sheet, 0.01), corners);
  EXPECT_LT(rms_error(corners, sheet), 0.6 * before);
}

double furthest_apart(const GridCorners& a, const GridCorners& b) {
  double furthest = 0.0;
  for (std::size_t i = 0; i < 16; ++i) {
    for (std::size_t k = 0; k < 51; ++k) {
      furthest = std::max(furthest, (a[i][k] - b[i][k]).cwiseAbs().maxCoeff());
    }
  }
  return furthest;
}

// The first `count` cells of a block of three by three, whose points pull to and fro.
CellPoints quarrelling_cells(const GridCorners& corners, std::size_t count, double noise) {
  CellPoints cells = no_points();
  for (std::size_t n = 0; n < count; ++n) {
    const double x = n % 2 == 0 ? 100.35 : 99.8;
    const std::size_t i = 6 + n / 3;
    const std::size_t j = 10 + n % 3;
    cells[i][j] = cell_cloud(
        corners, i, j, 60, [&](double, double) { return x; }, noise, 5 + n);
  }
  return cells;
}

TEST(CornerOptimisation, TakesTheStepsOfThePlainestForm) {
  // Residuals on both sides of the loss's scale, corners that reach their bounds and others that
  // do not: loss, bounds and weights all leave a trace. Few cells, since over many of them the
  // frozen normals let rounding decide which steps are taken.
  for (const double noise : {0.01, 0.1, 0.3}) {
    for (const std::size_t count : {1u, 2u, 3u, 5u, 9u}) {
      GridCorners corners = flat_corners(100.0);
      literal::FactoryRun expected;
      expected.cell_points = quarrelling_cells(corners, count, noise);
      expected.grid_corners = corners;
      kestrane::optimize_grid_corners(expected.cell_points, corners);
      literal::optimise_corners(expected);
      EXPECT_GT(furthest_apart(corners, flat_corners(100.0)), 0.2);
      constexpr double kRounding = 1e-9;  // a start moved by 1e-13 ends up to 1e-10 away
      EXPECT_LT(furthest_apart(corners, expected.grid_corners), kRounding) << noise << " " << count;
    }
  }
}

TEST(CornerOptimisation, LeavesAllCornersWhenOneCellCannotBeEvaluated) {
  const auto sheet = [](double, double) { return 100.2; };
  const GridCorners before = flat_corners(100.0);

  GridCorners corners = before;
  CellPoints exact = clouds_of(corners, sheet, 0.05);
  exact[2][2] = PointMatrix3(1, 3);  // a single point, exactly on its cell's plane
  exact[2][2] << 100.0, corners[2][2].y(), corners[2][2].z();
  kestrane::optimize_grid_corners(exact, corners);
  expect_same(corners, before);

  CellPoints broken = clouds_of(corners, sheet, 0.05);
  broken[2][2] = PointMatrix3::Constant(4, 3, kestrane_test::kNaN);
  kestrane::optimize_grid_corners(broken, corners);
  expect_same(corners, before);
}

TEST(CornerOptimisation, WritesNothingWhateverComes) {
  const auto sheet = [](double, double) { return 100.2; };
  GridCorners corners = flat_corners(100.0);
  CellPoints broken = clouds_of(corners, sheet, 0.05);
  broken[2][2] = PointMatrix3::Constant(4, 3, kestrane_test::kNaN);
  const CellPoints good = clouds_of(corners, sheet, 0.05);
  GridCorners infinite = corners;
  infinite[6][10].x() = kestrane_test::kInf;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  kestrane::optimize_grid_corners(broken, corners);
  kestrane::optimize_grid_corners(good, corners);
  kestrane::optimize_grid_corners(no_points(), corners);
  kestrane::optimize_grid_corners(good, infinite);
  std::fflush(stdout);
  std::fflush(stderr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
