// A fast calibration, whole and stage by stage, without one of the library's own allocations.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "fast/crossing_frames.h"
#include "fast/frame_filter.h"
#include "fast/interior_planes.h"
#include "fast/residual_filter.h"
#include "fast/residual_measurement.h"
#include "fast/transform_solve.h"
#include "tests/faults/calibration_runs.h"

namespace {

using namespace kestrane;
using faults::expect_cuts_of_a_long_run_leave_nothing_behind;
using faults::expect_every_cut_leaves_nothing_behind;
using faults::Outcome;

// --- Whole runs ---------------------------------------------------------------------------------

TEST(FastFaults, LeaveNothingBehindInACalibration) {
  EXPECT_GT(expect_cuts_of_a_long_run_leave_nothing_behind<faults::FastRun>(), 20);
}

TEST(FastFaults, LeaveNothingBehindInACalibrationWithCoefficients) {
  EXPECT_GT(expect_cuts_of_a_long_run_leave_nothing_behind<faults::CoefficientRun>(), 20);
}

TEST(FastFaults, LeaveNothingBehindInACalibrationOfManyPoints) {
  EXPECT_GT(expect_cuts_of_a_long_run_leave_nothing_behind<faults::LargeFastRun>(), 20);
}

TEST(FastFaults, AreAllOnTheCallingThread) {
  faults::FastRun small;
  EXPECT_EQ(faults::counts_of([&] { small.operate(); }).other_threads, 0);
  faults::LargeFastRun large;
  EXPECT_EQ(faults::counts_of([&] { large.operate(); }).other_threads, 0);
}

// The engine itself, whose caller keeps the lists.
struct EngineRun : faults::CoefficientRun {
  void operate() { EXPECT_EQ(engine.calib_Rt(lists, 0, 1), KESTRANE_OK); }
  Outcome outcome() {
    _MRV_TRANSFORM transform{};
    engine.get_transform_param(transform);
    Outcome numbers(transform.quaternion, transform.quaternion + 4);
    faults::append(numbers, transform.translation, 3);
    return numbers;
  }
};

TEST(FastFaults, LeaveNothingBehindInTheEngine) {
  EXPECT_GT(expect_cuts_of_a_long_run_leave_nothing_behind<EngineRun>(), 20);
}

// --- Stages -------------------------------------------------------------------------------------

// All stages' lists; each stage's routine makes its own results anew.
struct Stages {
  static constexpr long kStays = 0;
  fast_scene::Standard standard{faults::two_sheets()};
  FrameLists lists = faults::field_lists();
  const _LASER_PLANE_BLOCK_INFOS* table = &standard.table();
  FrameLists filtered;
  PointSets points, kept, crossing;
  ResidualSets residuals{2};
  ResidualIndicators figures{};
  Eigen::Matrix4d transform = Eigen::Matrix4d::Zero();
  KestraneLaserFastCalibrator engine;

  Stages() {
    filter();
    divide();
    measure();
  }

  void filter() {
    filtered.clear();
    EXPECT_TRUE(filter_frames(lists, standard.table(), 0, filtered));
  }
  void divide() {
    points.clear();
    divide_into_interior_planes(filtered, standard.grids(), points);
  }
  void measure() {
    figures = measure_residuals(points, standard.table(), 0,
                                {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}}, residuals);
  }
  void reject() { filter_point_by_residual(points, residuals, kept); }
  void solve() { EXPECT_EQ(solve_transform(points, &table, 0, 1, transform), KESTRANE_OK); }
  void select() {
    crossing.clear();
    EXPECT_TRUE(collect_plane_points(lists, crossing));
  }

  Outcome outcome() const {
    Outcome numbers = {figures.mean, figures.max, figures.deviation};
    for (const auto& list : filtered) {
      for (const auto& point : list) numbers.insert(numbers.end(), {point.x, point.y, point.z});
    }
    for (const PointSets* sets : {&points, &kept, &crossing}) {
      for (const PlanePoints& set : *sets) {
        faults::append(numbers, set.data(), static_cast<std::size_t>(set.size()));
      }
    }
    for (const auto& row : residuals) faults::append(numbers, row.data(), row.size());
    faults::append(numbers, transform.data(), 16);
    return numbers;
  }
};

template <auto kStage>
struct Stage : Stages {
  void operate() { std::invoke(kStage, static_cast<Stages&>(*this)); }
};

TEST(FastFaults, LeaveNothingBehindInAnyStage) {
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::filter>>(), 0);
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::divide>>(), 0);
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::measure>>(), 0);
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::reject>>(), 0);
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::solve>>(), 0);
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Stage<&Stages::select>>(), 0);
}

// The engine's own measurement, whose distances the host keeps.
struct Residuals : faults::CoefficientRun {
  PointSets points = PointSets(2, Eigen::Vector3d(120.0, 10.0, 300.0).replicate(1, 9));
  ResidualSets residuals = ResidualSets(2);

  void operate() {
    engine.cal_residual(points, 0, 1, {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}}, residuals);
  }
  Outcome outcome() {
    Outcome numbers(3);
    engine.get_calib_indicator(numbers[0], numbers[1], numbers[2]);
    for (const auto& row : residuals) faults::append(numbers, row.data(), row.size());
    return numbers;
  }
};

TEST(FastFaults, LeaveNothingBehindInTheResiduals) {
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<Residuals>(), 2);
}

}  // namespace
