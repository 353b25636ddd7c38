// Fast calibration: the whole, and its two costly stages alone, each beside a literal form of the
// same work.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "bench/silenced_output.h"
#include "ceres/ceres.h"
#include "fast/frame_filter.h"
#include "fast/interior_planes.h"
#include "fast/residual_measurement.h"
#include "fast/transform_solve.h"
#include "kestrane/buffers.h"
#include "kestrane/fast_calib.h"
#include "simulation/scanner.h"
#include "tests/literal/crossing_frames.h"
#include "tests/literal/fast_solve.h"
#include "tests/literal/plane_fit.h"
#include "tests/support/fast_scene.h"

namespace {

using kestrane::FrameLists;
using kestrane::PointSets;
using kestrane::ResidualSets;

// What the device's shaking may cost the comparison of both forms: two solvers that stop within
// the solver's own tolerance of each other.
constexpr double kSameSolution = 1e-6;

struct Scene {
  std::vector<simulation::Sheet> sheets;
  fast_scene::Standard standard;
  FrameLists frames;

  Scene(int planes, int points, int capture_frames)
      : sheets(simulation::make_device({.planes = planes})), standard(sheets) {
    simulation::CloudSettings settings = simulation::field_cloud_settings();
    settings.points = points;
    settings.frames = capture_frames;
    settings.bad_frames = capture_frames / 10;
    settings.outlier_share = 0.01;
    frames = fast_scene::measure_all(
        sheets, simulation::rigid_motion({3e-4, -2e-4, 4e-4}, {0.15, 0.0, -0.1}), settings);
  }

  PointSets point_sets() const {
    PointSets sets;
    for (const auto& list : frames) {
      kestrane::PlanePoints points(3, static_cast<Eigen::Index>(list.size()));
      for (std::size_t i = 0; i < list.size(); ++i) {
        points.col(static_cast<Eigen::Index>(i)) << list[i].x, list[i].y, list[i].z;
      }
      sets.push_back(points);
    }
    return sets;
  }
};

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "fast_bench: %s\n", what);
  std::exit(1);
}

// The plane fit of the literal form: a literal one too.
void literal_fit(const kestrane::PointMatrix3& cloud, double* plane) {
  literal::PlaneAbcd abcd(plane[0], plane[1], plane[2], plane[3]);
  literal::PlaneFitStats stats{};
  literal::PointMatrix3 inliers;
  literal::fit_plane_robust(cloud, abcd, stats, inliers, {220, 350}, 0);
  for (int i = 0; i < 4; ++i) plane[i] = abcd[i];
}

// --- The whole ---

void require_same_calibration(Scene& scene) {
  kestrane::KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(scene.standard.host());
  const int last = static_cast<int>(scene.frames.size()) - 1;
  require(calib.fast_calib(scene.frames, 0, last) == KESTRANE_OK, "the calibration fails");
  double mean, max, deviation;
  calib.get_calib_indicator(mean, max, deviation);
  _MRV_EXTRINSIC_PARAM motion;
  literal::Indicators expected;
  require(literal::calib_Rt(scene.frames, scene.standard.table(), 0, literal_fit, motion, expected),
          "the literal calibration fails");
  require(std::abs(mean - expected.mean) < kSameSolution &&
              std::abs(deviation - expected.deviation) < kSameSolution,
          "both forms end elsewhere");
}

void BM_FastCalib(benchmark::State& state) {
  const SilencedOutput silenced;
  Scene scene(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), 20);
  require_same_calibration(scene);
  kestrane::KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(scene.standard.host());
  const int last = static_cast<int>(state.range(0)) - 1;
  for (auto _ : state) benchmark::DoNotOptimize(calib.fast_calib(scene.frames, 0, last));
  state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(1));
}

void BM_FastCalibLiteral(benchmark::State& state) {
  const SilencedOutput silenced;
  Scene scene(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), 20);
  for (auto _ : state) {
    const FrameLists copy = scene.frames;  // the exported operation takes its lists by value
    _MRV_EXTRINSIC_PARAM motion;
    literal::Indicators indicators;
    literal::calib_Rt(copy, scene.standard.table(), 0, literal_fit, motion, indicators);
    benchmark::DoNotOptimize(motion);
    benchmark::DoNotOptimize(indicators);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0) * state.range(1));
}

// --- The variant for a device with coefficients ---

bool literal_banded_fit(const kestrane::PointMatrix3& cloud, double* plane) {
  literal::PlaneAbcd abcd;
  literal::PlaneFitStats stats{};
  literal::PointMatrix3 inliers;
  if (!literal::fit_plane_robust(cloud, abcd, stats, inliers, {220, 350}, 1)) return false;
  for (int i = 0; i < 4; ++i) plane[i] = abcd[i];
  return true;
}

bool calibrate_literally(const Scene& scene, _MRV_EXTRINSIC_PARAM& motion) {
  literal::PointSets points;
  return literal::collect_plane_points(scene.frames, literal_banded_fit, points) &&
         literal::solve_transform(points, &scene.standard.table(), 0, motion);
}

// An engine and a record with one range over all planes of the scene.
struct CoefficientJob {
  Scene scene;
  int last;
  kestrane::KestraneLaserFastCalibrator engine;
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER coeffs;

  explicit CoefficientJob(int planes) : scene(planes, 4000, 20), last(planes - 1) {
    engine.init();
    engine.set_laser_plane_standard(scene.standard.host());
    coeffs.init(planes);
    kestrane::_COMPENSATOR_COEFFS* record = nullptr;
    coeffs.get_compensator_coeffs(planes, record);
    coeffs.range_count = 1;
    coeffs.range_last[0] = last;
  }

  _KESTRANE_STATUS run() { return engine.calib_Rt(scene.frames, 0, last, 0.0, coeffs, coeffs); }
};

void BM_CoefficientCalib(benchmark::State& state) {
  const SilencedOutput silenced;
  CoefficientJob job(static_cast<int>(state.range(0)));
  require(job.run() == KESTRANE_OK, "the calibration with coefficients fails");
  _MRV_EXTRINSIC_PARAM motion;
  require(calibrate_literally(job.scene, motion), "the literal one with coefficients fails");
  for (int i = 0; i < 9; ++i) {
    require(std::abs(job.coeffs.Mbs_factory_to_user[i] - motion.R[i]) < kSameSolution,
            "both forms with coefficients end elsewhere");
  }
  for (auto _ : state) benchmark::DoNotOptimize(job.run());
  state.SetItemsProcessed(state.iterations() * state.range(0) * 4000);
}

void BM_CoefficientCalibLiteral(benchmark::State& state) {
  const SilencedOutput silenced;
  const Scene scene(static_cast<int>(state.range(0)), 4000, 20);
  for (auto _ : state) {
    _MRV_EXTRINSIC_PARAM motion;
    calibrate_literally(scene, motion);
    benchmark::DoNotOptimize(motion);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0) * 4000);
}

// Where the time of one calibration goes. The counters are in milliseconds: the frame filter, the
// interior planes, and of the first solve building the problem, evaluating it, its linear solves.
void BM_FastCalibSplit(benchmark::State& state) {
  const SilencedOutput silenced;
  Scene scene(static_cast<int>(state.range(0)), 4000, 20);
  const kestrane::_LASER_PLANE_BLOCK_INFOS* standard = &scene.standard.table();
  const auto now = [] { return std::chrono::steady_clock::now(); };
  const auto ms = [](auto a, auto b) {
    return std::chrono::duration<double, std::milli>(b - a).count();
  };
  double frames = 0, planes = 0, building = 0, evaluation = 0, linear = 0, other = 0;
  for (auto _ : state) {
    const auto t0 = now();
    FrameLists filtered;
    kestrane::filter_frames(scene.frames, *standard, 0, filtered);
    const auto t1 = now();
    PointSets points;
    kestrane::divide_into_interior_planes(filtered, *standard->grids, points);
    const auto t2 = now();
    double rotation[3] = {0, 0, 0}, translation[3] = {0, 0, 0};
    const ceres::Solver::Summary summary =
        kestrane::solve_motion(points, &standard, 0, rotation, translation);
    const auto t3 = now();
    frames += ms(t0, t1);
    planes += ms(t1, t2);
    building += ms(t2, t3) - 1e3 * summary.total_time_in_seconds;
    const double evaluating =
        summary.residual_evaluation_time_in_seconds + summary.jacobian_evaluation_time_in_seconds;
    evaluation += 1e3 * evaluating;
    linear += 1e3 * summary.linear_solver_time_in_seconds;
    other +=
        1e3 * (summary.total_time_in_seconds - evaluating - summary.linear_solver_time_in_seconds);
  }
  const auto average = benchmark::Counter::kAvgIterations;
  state.counters["1_frame_filter"] = {frames, average};
  state.counters["2_interior_planes"] = {planes, average};
  state.counters["3_building"] = {building, average};
  state.counters["4_evaluation"] = {evaluation, average};
  state.counters["5_linear_solve"] = {linear, average};
  state.counters["6_solver_rest"] = {other, average};
}

// --- Residual measurement ---

void require_same_residuals(const Scene& scene, const PointSets& points) {
  ResidualSets residuals(points.size());
  ResidualSets expected(points.size());
  literal::Indicators indicators;
  const _MRV_EXTRINSIC_PARAM identity = literal::identity();
  const auto measured =
      kestrane::measure_residuals(points, scene.standard.table(), 0, identity, residuals);
  literal::cal_residual(points, scene.standard.table(), 0, identity, expected, indicators);
  require(residuals == expected && measured.mean == indicators.mean &&
              measured.deviation == indicators.deviation && measured.max == indicators.max,
          "residuals differ from the literal form");
}

void BM_CalResidual(benchmark::State& state) {
  const Scene scene(50, 4000, 20);
  const PointSets points = scene.point_sets();
  require_same_residuals(scene, points);
  ResidualSets residuals(points.size());
  const _MRV_EXTRINSIC_PARAM identity = literal::identity();
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        kestrane::measure_residuals(points, scene.standard.table(), 0, identity, residuals));
  }
  state.SetItemsProcessed(state.iterations() * 200000);
}

void BM_CalResidualLiteral(benchmark::State& state) {
  const Scene scene(50, 4000, 20);
  const PointSets points = scene.point_sets();
  ResidualSets residuals(points.size());
  literal::Indicators indicators;
  for (auto _ : state) {
    literal::cal_residual(points, scene.standard.table(), 0, literal::identity(), residuals,
                          indicators);
    benchmark::DoNotOptimize(indicators);
  }
  state.SetItemsProcessed(state.iterations() * 200000);
}

// --- Frame filter, 40 planes, 200 capture frames ---

void require_same_frames(const Scene& scene) {
  FrameLists filtered;
  FrameLists expected;
  literal::Indicators indicators;
  kestrane::filter_frames(scene.frames, scene.standard.table(), 0, filtered);
  literal::filter_point_by_frame(scene.frames, scene.standard.table(), 0, expected, indicators);
  for (std::size_t f = 0; f < filtered.size(); ++f) {
    require(filtered[f].size() == expected[f].size(), "the frame filter keeps other points");
  }
}

void BM_FrameFilter(benchmark::State& state) {
  const Scene scene(40, 4000, 200);
  require_same_frames(scene);
  for (auto _ : state) {
    FrameLists filtered;
    kestrane::filter_frames(scene.frames, scene.standard.table(), 0, filtered);
    benchmark::DoNotOptimize(filtered);
  }
  state.SetItemsProcessed(state.iterations() * 160000);
}

void BM_FrameFilterLiteral(benchmark::State& state) {
  const Scene scene(40, 4000, 200);
  for (auto _ : state) {
    FrameLists filtered;
    literal::Indicators indicators;
    literal::filter_point_by_frame(scene.frames, scene.standard.table(), 0, filtered, indicators);
    benchmark::DoNotOptimize(filtered);
  }
  state.SetItemsProcessed(state.iterations() * 160000);
}

BENCHMARK(BM_FastCalib)
    ->Args({10, 4000})
    ->Args({40, 4000})
    ->Args({100, 2000})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(BM_FastCalibLiteral)
    ->Args({10, 4000})
    ->Args({40, 4000})
    ->Args({100, 2000})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(BM_CoefficientCalib)
    ->Arg(40)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(BM_CoefficientCalibLiteral)
    ->Arg(40)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(BM_FastCalibSplit)
    ->Arg(10)
    ->Arg(40)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(BM_CalResidual)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CalResidualLiteral)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FrameFilter)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FrameFilterLiteral)->Unit(benchmark::kMillisecond);

}  // namespace
