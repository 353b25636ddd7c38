// A factory calibration, whole and stage by stage, without one of the library's own allocations.
#include <gtest/gtest.h>

#include <functional>
#include <utility>
#include <vector>

#include "factory/cell_indicators.h"
#include "factory/cell_planes.h"
#include "factory/corner_optimisation.h"
#include "factory/depth_cells.h"
#include "factory/fan_sectors.h"
#include "factory/grid_corners.h"
#include "factory/nominal_grid.h"
#include "fit/plane_fit.h"
#include "tests/faults/calibration_runs.h"

namespace {

using namespace kestrane;
using faults::expect_cuts_of_a_long_run_leave_nothing_behind;
using faults::expect_every_cut_leaves_nothing_behind;
using faults::Outcome;

class FactoryFaults : public testing::Test {};

// --- Whole runs ---------------------------------------------------------------------------------

TEST_F(FactoryFaults, LeaveNothingBehindInARun) {
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<faults::FactoryRun<KESTRANE_OPTIM_OFF>>(), 50);
}

TEST_F(FactoryFaults, LeaveNothingBehindInAnOptimisedRun) {
  EXPECT_GT(expect_cuts_of_a_long_run_leave_nothing_behind<faults::FactoryRun<KESTRANE_OPTIM_ON>>(),
            50);
}

// So every one of them can be refused: here, or while the solver works (solver_faults_test.cpp).
TEST_F(FactoryFaults, MeetEveryAllocationOnTheCallingThread) {
  faults::FactoryRun<KESTRANE_OPTIM_ON> run;
  const faults::Counts counts = faults::counts_of([&] { run.operate(); });
  EXPECT_GT(counts.solve, 1000);
  EXPECT_EQ(counts.other_threads, 0);
}

// A run that is cut leaves the plane's row of the table as the run before wrote it.
TEST_F(FactoryFaults, LeaveTheRowOfTheTableAsItWas) {
  fast_scene::Standard table(3);
  _MRV_LASER_PLANE_BLOCK_INFOS host = table.host();
  faults::FactoryRun<KESTRANE_OPTIM_OFF> run;
  run.operate();
  const Outcome first = run.outcome();
  for (auto& point : run.cloud.points) point.x += 1.0;
  bool cut = true;
  for (long n = 1; cut; ++n) {
    cut = faults::run_cut(faults::Place::kOwn, n, [&] { run.operate(); }) == faults::Ending::kThrew;
    ASSERT_EQ(run.calib.get_laser_plane_infos(host), KESTRANE_OK);
    Outcome row;
    for (int j = 0; j < 15; ++j) faults::append(row, table.cell(2, j, 0).v, 150);
    faults::append(row, host.planes[2].laser_plane_R, 3);
    const Outcome before(first.end() - static_cast<std::ptrdiff_t>(row.size()), first.end());
    EXPECT_EQ(static_cast<bool>(faults::same_bits(row, before)), cut) << "allocation " << n;
  }
}

struct Indicators : faults::FactoryRun<KESTRANE_OPTIM_OFF> {
  LASER_PLANE_INDICATOR_MANAGER indicators;
  LASER_PLANE_GRID_CORNERS_MANAGER corners;

  Indicators() {
    EXPECT_EQ(indicators.init(1), KESTRANE_OK);
    EXPECT_EQ(corners.init(1), KESTRANE_OK);
    FactoryRun::operate();
  }
  void operate() { EXPECT_EQ(calib.get_indicators(0, indicators, corners), KESTRANE_OK); }
  Outcome outcome() const {
    Outcome numbers;
    for (int j = 0; j < 15; ++j) {
      faults::append(numbers, indicators.planes[0].lines[j].cells[0].v, 150);
      faults::append(numbers, corners.planes[0].lines[j].cells[0].v, 153);
    }
    return numbers;
  }
};

TEST_F(FactoryFaults, LeaveNothingBehindInTheIndicators) {
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Indicators>(), 15);
}

TEST_F(FactoryFaults, CannotReachTheCopyOfTheTable) {
  faults::FactoryRun<KESTRANE_OPTIM_OFF> run;
  run.operate();
  fast_scene::Standard table(3);
  _MRV_LASER_PLANE_BLOCK_INFOS host = table.host();
  EXPECT_EQ(faults::counts_of([&] { run.calib.get_laser_plane_infos(host); }).own, 0);
}

// --- Stages -------------------------------------------------------------------------------------

PointMatrix3 matrix_of(const simulation::Cloud& cloud) {
  PointMatrix3 matrix(static_cast<Eigen::Index>(cloud.points.size()), 3);
  Eigen::Index row = 0;
  for (const auto& point : cloud.points) matrix.row(row++) << point.x, point.y, point.z;
  return matrix;
}

// All stages' lists; each stage's routine empties its own results and makes them anew.
struct Stages {
  static constexpr long kStays = 0;
  PointMatrix3 points = matrix_of(faults::small_cloud());
  _LASER_PLANE_GRIDS grids{};
  NominalRays rays;
  FanDividers dividers;
  PlaneAbcd plane = PlaneAbcd::Zero();
  Eigen::Vector3d apex = Eigen::Vector3d::Zero();
  SectorClouds clouds, sector_points;
  SectorPlanes planes;
  CellPoints cell_points;
  GridCorners corners;
  CellPlanes cell_planes;
  CellIndicators indicators;

  Stages() {
    PlaneFitStats stats{};
    EXPECT_TRUE(fit_plane_svd(points, plane, stats));
    make_grid();
    split_sectors();
    fit_sectors();
    split_cells();
    lift_corners();
    fit_cells();
  }

  void make_grid() {
    rays = NominalRays();
    dividers = FanDividers();
    build_nominal_grid(grids, rays);
    build_fan_dividers(dividers);
  }
  void split_sectors() { split_points_by_fan_sector(plane, dividers, points, clouds, apex); }
  void fit_sectors() { fit_sector_planes(LASER_TYPE_STANDARD, clouds, planes, sector_points); }
  void split_cells() {
    split_sector_points_by_depth(sector_points, 50, 150.0, 1500.0, cell_points);
  }
  void lift_corners() {
    corners.clear();
    EXPECT_TRUE(compute_grid_corners(rays, planes, corners));
  }
  void fit_cells() {
    cell_planes.clear();
    fit_cell_planes(cell_points, corners, cell_planes);
  }
  void measure() { indicators = compute_cell_indicators(cell_points, cell_planes); }

  Outcome outcome() const {
    Outcome numbers(grids.grid_z, grids.grid_z + 51);
    for (const auto& ray : rays) {
      for (const NominalPosition& position : ray) numbers.insert(numbers.end(), {position.y});
    }
    for (const auto& normal : dividers) numbers.push_back(normal.z());
    for (const SectorClouds* list : {&clouds, &sector_points}) append_all(numbers, *list);
    for (const auto& row : cell_points) append_all(numbers, row);
    for (const auto& sector : planes) faults::append(numbers, sector.data(), 4);
    for (const auto& row : corners) {
      for (const auto& corner : row) faults::append(numbers, corner.data(), 3);
    }
    for (const auto& row : cell_planes) {
      for (const auto& cell : row) faults::append(numbers, cell.data(), 4);
    }
    for (const auto& row : indicators) {
      for (const auto& cell : row) faults::append(numbers, cell.v, 3);
    }
    return numbers;
  }

  static void append_all(Outcome& numbers, const std::vector<PointMatrix3>& list) {
    for (const PointMatrix3& matrix : list) {
      faults::append(numbers, matrix.data(), static_cast<std::size_t>(matrix.size()));
    }
  }
};

template <auto kStage>
struct Stage : Stages {
  void operate() { std::invoke(kStage, static_cast<Stages&>(*this)); }
};

TEST_F(FactoryFaults, LeaveNothingBehindInAnyStage) {
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::make_grid>>(), 0);
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::split_sectors>>(), 0);
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::fit_sectors>>(), 0);
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::split_cells>>(), 0);
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::lift_corners>>(), 0);
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::fit_cells>>(), 0);
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::measure>>(), 0);
}

// The corners move in place: a cut must find them where they were, or a second run would start
// elsewhere.
struct Optimisation : Stages {
  void operate() { optimize_grid_corners(cell_points, corners); }
};

TEST_F(FactoryFaults, LeaveTheCornersWhereTheyWereWhenAProblemCannotBeBuilt) {
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Optimisation>(), 10);
}

}  // namespace
