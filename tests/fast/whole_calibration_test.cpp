// Whole calibrations: what is recovered, reported and repeated.
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <thread>

#include "fast/frame_filter.h"
#include "fast/interior_planes.h"
#include "fast/residual_filter.h"
#include "fast/residual_measurement.h"
#include "fast/transform_solve.h"
#include "simulation/random.h"
#include "tests/fast/calibrations.h"
#include "tests/fast/engine_access.h"
#include "tests/literal/fast_solve.h"
#include "tests/support/sanitized.h"

namespace {

using namespace fast_support;

TEST(FastCalibration, RecoversMotionsOverAGrid) {
  Device device(8);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  std::uint64_t seed = 100;
  for (const simulation::Vec3 rotation : {simulation::Vec3{0, 0, 0},
                                          {5e-4, 0, 0},
                                          {0, -1e-3, 0},
                                          {0, 0, 2e-3},
                                          {-3e-4, 8e-4, 5e-4}}) {
    for (const simulation::Vec3 translation : {simulation::Vec3{0, 0, 0}, {0.6, 0.3, -0.5}}) {
      for (const double noise : {0.0, 0.02, 0.1}) {
        for (const double outliers : {0.0, 0.1}) {
          const simulation::Placement truth = simulation::rigid_motion(rotation, translation);
          simulation::CloudSettings settings = simulation::field_cloud_settings();
          settings.points = 800;
          settings.seed = ++seed;
          if (kestrane_test::kSanitized && seed % 7 != 0) continue;
          settings.noise = noise;
          settings.outlier_share = outliers;
          const Result result = calibrate(calib, device.measured(truth, settings), 0, 7);
          ASSERT_EQ(result.status, KESTRANE_OK);
          EXPECT_EQ(result.complaints, "");
          EXPECT_LT(worst_plane_error(device, truth, result.transform), kBow + kNoiseShare * noise)
              << seed << ' ' << noise << ' ' << outliers;
        }
      }
    }
  }
}

TEST(FastCalibration, MapsTheStandardToTheMeasurementAndNotBack) {
  Device device(8);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const simulation::Placement truth = simulation::rigid_motion({0, 0, 0}, {0.5, 0, 0});
  const Result result = calibrate(calib, device.measured(truth), 0, 7);
  constexpr double kNoise = 0.02;
  EXPECT_NEAR(result.transform.translation[0], 0.5, kNoise);
}

TEST(FastCalibration, SurvivesBadFrames) {
  Device device(8);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.points = 800;
  settings.bad_frames = 4;
  const Result result = calibrate(calib, device.measured(kShaken, settings), 0, 7);
  ASSERT_EQ(result.status, KESTRANE_OK);
  EXPECT_LT(worst_plane_error(device, kShaken, result.transform),
            kBow + kNoiseShare * settings.noise);
  EXPECT_LT(result.max, 1.0) << "nothing of a frame 3.0 off is left";
}

TEST(FastCalibration, TakesPlanesOutOfTheMiddleOfTheStandard) {
  Device device(8);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const FrameLists all = device.measured(kShaken);
  const FrameLists part(all.begin() + 3, all.begin() + 7);
  const Result right = calibrate(calib, part, 3, 6);
  EXPECT_EQ(right.status, KESTRANE_OK);
  EXPECT_LT(worst_plane_error(device, kShaken, right.transform), 0.2);
  const Result shifted = calibrate(calib, part, 2, 5);
  EXPECT_GT(worst_plane_error(device, kShaken, shifted.transform), 1.0)
      << "against its neighbours' planes";
}

TEST(FastCalibration, EndsWithTheFiguresOfThePointsThatItKept) {
  Device device(6);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.points = 800;
  settings.outlier_share = 0.05;
  settings.outlier_reach = 1.9;
  const FrameLists frames = device.measured(kShaken, settings);
  const Result result = calibrate(calib, frames, 0, 5);

  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &device.standard.table();
  FrameLists filtered;
  kestrane::filter_frames(frames, *table, 0, filtered);
  PointSets points, kept;
  kestrane::divide_into_interior_planes(filtered, *table->grids, points);
  testing::internal::CaptureStdout();
  Eigen::Matrix4d first;
  kestrane::solve_transform(points, &table, 0, 5, first);
  _MRV_EXTRINSIC_PARAM motion{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) motion.R[3 * i + j] = first(i, j);
    motion.T[i] = first(i, 3);
  }
  ResidualSets residuals(points.size());
  kestrane::measure_residuals(points, *table, 0, motion, residuals);
  kestrane::filter_point_by_residual(points, residuals, kept);
  Eigen::Matrix4d second;
  kestrane::solve_transform(kept, &table, 0, 5, second);
  const std::string report = testing::internal::GetCapturedStdout();
  Eigen::Index before = 0, after = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    before += points[i].cols();
    after += kept[i].cols();
  }
  ASSERT_LT(after, before) << "the residual filter has work to do";
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) motion.R[3 * i + j] = second(i, j);
    motion.T[i] = second(i, 3);
  }
  const auto expected = kestrane::measure_residuals(kept, *table, 0, motion, residuals);
  constexpr double kThreads = 1e-9;  // the solver's threads add up in any order
  EXPECT_NEAR(result.mean, expected.mean, kThreads);
  EXPECT_NEAR(result.max, expected.max, kThreads);
  EXPECT_NEAR(result.deviation, expected.deviation, kThreads);
  EXPECT_EQ(result.report, report) << "both solves start from zero";
}

TEST(FastCalibration, AgreesWithTheLiteralCalibration) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    Device device(5, seed);
    KESTRANE_LASER_FAST_CALIB calib;
    calib.init();
    calib.set_laser_plane_standard(device.standard.host());
    simulation::CloudSettings settings = simulation::field_cloud_settings();
    settings.points = 600;
    settings.seed = seed;
    settings.bad_frames = 2;
    settings.outlier_share = 0.05;
    const FrameLists frames = device.measured(kShaken, settings);
    const Result result = calibrate(calib, frames, 0, 4);
    _MRV_EXTRINSIC_PARAM motion;
    literal::Indicators indicators;
    EXPECT_TRUE(
        literal::calib_Rt(frames, device.standard.table(), 0, fit_by_library, motion, indicators));
    constexpr double kThreads = 1e-9;  // the solver's threads add up in any order
    EXPECT_NEAR(result.mean, indicators.mean, kThreads);
    EXPECT_NEAR(result.max, indicators.max, kThreads);
    EXPECT_NEAR(result.deviation, indicators.deviation, kThreads);
  }
}

TEST(FastCalibration, RepeatsItsResultForTheSameInput) {
  Device device(6);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const FrameLists frames = device.measured(kShaken);
  const Result first = calibrate(calib, frames, 0, 5);
  // Where the planes come to lie is repeated to rounding, enlarged by the solver's iterations: its
  // threads add up in any order. On one thread all bits are the same.
  constexpr double kThreads = 1e-9;
  for (int run = 0; run < 5; ++run) {
    const Result again = calibrate(calib, frames, 0, 5);
    EXPECT_EQ(again.status, first.status);
    EXPECT_NEAR(again.mean, first.mean, kThreads);
    EXPECT_NEAR(again.max, first.max, kThreads);
    EXPECT_NEAR(again.deviation, first.deviation, kThreads);
    EXPECT_NEAR(again.transform.translation[0], first.transform.translation[0], 1e-7);
    EXPECT_EQ(again.report, first.report);
  }
}

// Frames of which the last one begins with two points at x = `odd` and survives. Bucket 1 is empty:
// frame 0 is not a number and takes the limit with it; frame 2 at position 1 is rejected; frame 3
// at position 2 is spared, since bucket 2 is rejected already.
List frames_with_survivor(double odd) {
  List list;
  add_frame(list, 0, kNaN);
  add_frame(list, 2, 1);
  add_frame(list, 3, odd, 2);
  for (int i = 0; i < 12; ++i) {
    list.push_back({129.0, -12.0 + 2.0 * i, 230.0 + 10.0 * ((i * 5) % 12), 3});
  }
  return list;
}

TEST(FastCalibration, FailsWithTheIdentityWhereTheLastSolveGivesNothing) {
  fast_scene::Standard standard = flat_standard(1);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(standard.host());
  const Result failed = calibrate(calib, {frames_with_survivor(kNaN)}, 0, 0);
  EXPECT_EQ(failed.status, KESTRANE_ERR_SOLVE_FAILED);
  EXPECT_EQ(failed.complaints, "");
  expect_transform(failed.transform, {0, 0, 0, 1, 0, 0, 0});
  expect_same(failed.mean, kNaN);
  EXPECT_EQ(failed.max, 1.0) << "measured with the identity";
}

TEST(FastCalibration, GoesOnWithTheIdentityWhereTheFirstSolveGivesNothing) {
  fast_scene::Standard standard = flat_standard(1);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(standard.host());
  // The residual filter drops the infinite points, so that the second solve can be had.
  const Result result = calibrate(calib, {frames_with_survivor(kInf)}, 0, 0);
  EXPECT_EQ(result.complaints, "");
  EXPECT_EQ(result.report.find("Termination: FAILURE"),
            result.report.find('\n') - std::string("Termination: FAILURE").size());
  ASSERT_EQ(result.status, KESTRANE_OK) << result.report;
  constexpr double kSolver = 1e-3;
  EXPECT_NEAR(result.max, 0.0, kSolver);
}

TEST(FastCalibration, GoesThroughWithoutASurvivingPoint) {
  fast_scene::Standard standard = flat_standard(2);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(standard.host());
  List perfect;
  for (int id = 0; id < 4; ++id) add_frame(perfect, id, 0.0, 5);
  for (const FrameLists& frames :
       {FrameLists(2), FrameLists{perfect, perfect}, FrameLists{{}, perfect},
        FrameLists{{{kNaN, kNaN, kNaN, 0}}, {}}}) {
    const Result result = calibrate(calib, frames, 0, 1);
    EXPECT_EQ(result.status, KESTRANE_OK);
    EXPECT_EQ(result.complaints, "");
    expect_transform(result.transform, {0, 0, 0, 1, 0, 0, 0});
    expect_same(result.mean, kNaN);
    EXPECT_EQ(result.max, -1000.0);
    expect_same(result.deviation, kNaN);
  }
}

TEST(FastCalibration, WritesTwoReportsAndNothingElse) {
  Device device(4);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const Result result = calibrate(calib, device.measured(kShaken), 0, 3);
  EXPECT_EQ(std::count(result.report.begin(), result.report.end(), '\n'), 2);
  EXPECT_EQ(result.report.rfind("Ceres Solver Report: ", 0), 0u);
  EXPECT_NE(result.report.find("\nCeres Solver Report: "), std::string::npos);
  EXPECT_EQ(result.complaints, "");
}

TEST(FastCalibration, StaysOffStandardErrorWhateverThePointsAre) {
  Device device(3);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  const simulation::Sheet& sheet = device.sheets[0];
  device.standard.cell(0, 7, 5).v[0] = 0.0;
  calib.set_laser_plane_standard(device.standard.host());
  for (const double bad : {kNaN, kInf, -kInf, 1e308, 1e155, -1e-308}) {
    FrameLists frames = device.measured(kShaken, 300);
    frames[0].push_back({bad, 0, 300, 3});
    frames[0].push_back({simulation::sheet_x(sheet, 0, 300), bad, 300, 4});
    frames[1].push_back({simulation::sheet_x(sheet, 0, 300), 0, bad, 5});
    frames[2].insert(frames[2].begin(), {bad, bad, bad, 6});
    EXPECT_EQ(calibrate(calib, frames, 0, 2).complaints, "") << bad;
  }
}

TEST(FastCalibration, WorksOnTwoDevicesInTwoThreads) {
  // One sheet alone is a degenerate problem, over which the solver would complain.
  Device several(4, 1);
  Device single(1, 2);
  const FrameLists several_frames = several.measured(kShaken, 400);
  const FrameLists single_frames = single.measured(kShaken, 400);
  const auto mean_of = [](Device& device, const FrameLists& frames) {
    KESTRANE_LASER_FAST_CALIB calib;
    calib.init();
    calib.set_laser_plane_standard(device.standard.host());
    double mean = 0, max = 0, deviation = 0;
    for (int run = 0; run < 5; ++run) {
      calib.fast_calib(frames, 0, static_cast<int>(frames.size()) - 1);
      calib.get_calib_indicator(mean, max, deviation);
    }
    return mean;
  };
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const double several_alone = mean_of(several, several_frames);
  const double single_alone = mean_of(single, single_frames);
  double several_beside = 0, single_beside = 0;
  std::thread other([&] { single_beside = mean_of(single, single_frames); });
  several_beside = mean_of(several, several_frames);
  other.join();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::GetCapturedStdout();
  constexpr double kThreads = 1e-6;  // a degenerate problem enlarges the solver's rounding
  EXPECT_NEAR(several_beside, several_alone, kThreads);
  EXPECT_NEAR(single_beside, single_alone, kThreads);
}

}  // namespace
