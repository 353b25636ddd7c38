// Whole runs: against the plainest form of the same work, and against the simulated truth.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "factory/engine.h"
#include "simulation/scanner.h"
#include "tests/literal/factory_calibration.h"

namespace {

using kestrane::KestraneLaserFactoryCalibrator;

// Two decompositions of one cloud differ by rounding; corners lie up to 1500 from the scanner.
constexpr double kCornerRounding = 1e-9;

simulation::Cloud measured(const simulation::Sheet& sheet, int points, std::uint64_t seed) {
  simulation::CloudSettings settings;
  settings.points = points;
  settings.seed = seed;
  settings.noise = 0.05;
  settings.outlier_share = 0.01;
  settings.dropped_share = 0.01;
  settings.outside_share = 0.02;
  return simulation::measure(sheet, settings);
}

std::vector<simulation::Sheet> sheets() {
  simulation::DeviceSettings settings;
  settings.planes = 5;
  return simulation::make_device(settings);
}

// Root mean square of the distance in x between each measured cell's plane and the sheet, in the
// middle of the cell: what a host that looks the cell up gets wrong.
template <class Corners, class Cells, class Planes>
double cell_rms(const Corners& corners, const Cells& cells, const Planes& planes,
                const simulation::Sheet& sheet) {
  double squares = 0.0;
  int count = 0;
  for (std::size_t i = 0; i < 15; ++i) {
    for (std::size_t j = 0; j < 50; ++j) {
      if (cells[i][j].rows() == 0) continue;
      const Eigen::Vector3d middle =
          (corners[i][j] + corners[i][j + 1] + corners[i + 1][j] + corners[i + 1][j + 1]) / 4.0;
      const auto& p = planes[i][j];
      const double x = -(p[1] * middle[1] + p[2] * middle[2] + p[3]) / p[0];
      const double error = x - simulation::sheet_x(sheet, middle[1], middle[2]);
      squares += error * error;
      ++count;
    }
  }
  return std::sqrt(squares / count);
}

double cell_rms(const KestraneLaserFactoryCalibrator& engine, const simulation::Sheet& sheet) {
  return cell_rms(engine.grid_corners(), engine.cell_points(), engine.cell_planes(), sheet);
}

TEST(WholeRun, MatchesThePlainestFormOfTheSameWork) {
  std::uint64_t seed = 1;
  for (const simulation::Sheet& sheet : sheets()) {
    simulation::Cloud cloud = measured(sheet, 15000, seed++);
    literal::FactoryRun expected;
    ASSERT_TRUE(literal::calibrate_plane(cloud.points, false, expected));
    KestraneLaserFactoryCalibrator engine;
    ASSERT_TRUE(engine.init());
    ASSERT_TRUE(engine.calibrate_one_plane(0, simulation::record_of(cloud)));

    for (std::size_t i = 0; i < 15; ++i) {
      for (std::size_t j = 0; j < 50; ++j) {
        // The same sectors, the same inliers, the same depth cells.
        ASSERT_EQ(engine.cell_points()[i][j].rows(), expected.cell_points[i][j].rows());
        EXPECT_TRUE(engine.cell_points()[i][j] == expected.cell_points[i][j]);
      }
    }
    for (std::size_t i = 0; i < 16; ++i) {
      for (std::size_t k = 0; k < 51; ++k) {
        const auto difference = engine.grid_corners()[i][k] - expected.grid_corners[i][k];
        EXPECT_LT(difference.cwiseAbs().maxCoeff(), kCornerRounding);
      }
    }
    const auto& row = engine.plane_table().planes[0];
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_NEAR(row.laser_plane_R[i], expected.laser_plane_R[i], kCornerRounding);
    }
    for (std::size_t j = 0; j < 15; ++j) {
      for (std::size_t k = 0; k < 50; ++k) {
        for (std::size_t i = 0; i < 3; ++i) {
          EXPECT_NEAR(row.block.lines[j].cells[k].v[i], expected.table[j][k][i], kCornerRounding);
        }
      }
    }
  }
}

TEST(WholeRun, OptimisesAsWellAsThePlainestForm) {
  std::uint64_t seed = 11;
  for (const simulation::Sheet& sheet : sheets()) {
    simulation::Cloud cloud = measured(sheet, 40000, seed++);
    literal::FactoryRun expected;
    ASSERT_TRUE(literal::calibrate_plane(cloud.points, true, expected));
    KestraneLaserFactoryCalibrator engine;
    ASSERT_TRUE(engine.init());
    engine.set_optimize_flag(kestrane::KESTRANE_OPTIM_ON);
    ASSERT_TRUE(engine.calibrate_one_plane(0, simulation::record_of(cloud)));
    // The solver's path depends on rounding: the whole is judged, not single corners.
    constexpr double kSpread = 0.2;
    const double ours = cell_rms(engine, sheet);
    const double theirs =
        cell_rms(expected.grid_corners, expected.cell_points, expected.cell_planes, sheet);
    EXPECT_NEAR(ours / theirs, 1.0, kSpread);
  }
}

TEST(WholeRun, FollowsABowedSheetBetterWithTheOptimisation) {
  for (const simulation::Sheet& sheet : sheets()) {
    simulation::Cloud cloud = measured(sheet, 100000, 77);
    KestraneLaserFactoryCalibrator engine;
    ASSERT_TRUE(engine.init());
    ASSERT_TRUE(engine.calibrate_one_plane(0, simulation::record_of(cloud)));
    const double before = cell_rms(engine, sheet);
    engine.set_optimize_flag(kestrane::KESTRANE_OPTIM_ON);
    ASSERT_TRUE(engine.calibrate_one_plane(0, simulation::record_of(cloud)));
    const double after = cell_rms(engine, sheet);
    EXPECT_LT(after, before);
  }
}

TEST(WholeRun, GivesTheSameBitsAgainWithoutTheOptimisation) {
  const simulation::Sheet sheet = sheets()[2];
  simulation::Cloud cloud = measured(sheet, 20000, 5);
  KestraneLaserFactoryCalibrator first;
  KestraneLaserFactoryCalibrator second;
  ASSERT_TRUE(first.init());
  ASSERT_TRUE(second.init());
  ASSERT_TRUE(first.calibrate_one_plane(0, simulation::record_of(cloud)));
  ASSERT_TRUE(second.calibrate_one_plane(5, simulation::record_of(cloud)));
  for (int j = 0; j < 15; ++j) {
    for (int k = 0; k < 50; ++k) {
      for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(first.plane_table().planes[0].block.lines[j].cells[k].v[i],
                  second.plane_table().planes[5].block.lines[j].cells[k].v[i]);
      }
    }
  }
}

}  // namespace
