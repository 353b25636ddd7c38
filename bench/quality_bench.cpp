// What kestrane::quality costs beside the jobs that it prepares and judges.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "bench/silenced_output.h"
#include "kestrane/factory_calib.h"
#include "kestrane/fast_calib.h"
#include "kestrane/quality/factory.h"
#include "kestrane/quality/field.h"
#include "kestrane/quality/refinement.h"
#include "kestrane/quality/screening.h"
#include "quality/factory/plane_figures.h"
#include "quality/frame_ids.h"
#include "simulation/scanner.h"

namespace {

// A bowed sheet's cloud, with a share of points up to 200 off.
simulation::Cloud bench_cloud(int points, double outlier_share) {
  simulation::CloudSettings settings;
  settings.points = points;
  settings.frames = 20;
  settings.outlier_share = outlier_share;
  settings.outlier_reach = 200.0;
  const std::vector<simulation::Sheet> sheets = simulation::make_device({});
  return simulation::measure(sheets[2], settings);
}

void per_point(benchmark::State& state, std::int64_t points) {
  state.SetItemsProcessed(state.iterations() * points);
  state.counters["ns/point"] =
      benchmark::Counter(static_cast<double>(state.iterations() * points) * 1e-9,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void ScreenCloud(benchmark::State& state) {
  const simulation::Cloud cloud =
      bench_cloud(static_cast<int>(state.range(0)), static_cast<double>(state.range(1)) / 100.0);
  for (auto _ : state) benchmark::DoNotOptimize(kestrane::quality::screen_cloud(cloud.points));
  per_point(state, state.range(0));
}
BENCHMARK(ScreenCloud)
    ->ArgNames({"points", "percent_off"})
    ->ArgsProduct({{20000, 100000}, {0, 20}});

// The job itself on the same cloud, without the optimisation.
void PlainJob(benchmark::State& state) {
  simulation::Cloud cloud = bench_cloud(static_cast<int>(state.range(0)), 0.0);
  kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
  calibrator.init();
  for (auto _ : state)
    benchmark::DoNotOptimize(calibrator.factory_calib(0, simulation::record_of(cloud)));
  per_point(state, state.range(0));
}
BENCHMARK(PlainJob)->ArgName("points")->Arg(20000)->Arg(100000);

// All figures of one plane: residuals, outliers, quantiles, poses, origins, seams, coverage.
void FactoryFigures(benchmark::State& state) {
  using namespace kestrane::quality;
  const simulation::Cloud cloud = bench_cloud(static_cast<int>(state.range(0)), 0.0);
  kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
  calibrator.init();
  const JobRun run = run_job(calibrator, cloud.points, false);
  const PlaneTable table(1);
  const Measure measure{table.grids(), fit_band_of(kestrane::LASER_TYPE_STANDARD),
                        BlocksInVolume(table, WorkingVolume{})};
  double rms = 0.0;
  for (auto _ : state) {
    PlaneFigures plane;
    SizeQuantiles device;
    measure_plane(cloud.points, distinct_ids(cloud.points), run, measure, device, plane);
    rms = plane.residuals.rms;
    benchmark::ClobberMemory();
  }
  per_point(state, state.range(0));
  state.counters["rms"] = rms;
}
BENCHMARK(FactoryFigures)->ArgName("points")->Arg(20000)->Arg(100000);

constexpr int kDevicePlanes = 100;
constexpr int kDevicePoints = 20000;

// 100 planes of 20,000 points. A few clouds serve them all in turn, more than the caches hold.
std::vector<std::vector<_KESTRANE_ID_POINT3D>> device_clouds() {
  std::vector<std::vector<_KESTRANE_ID_POINT3D>> clouds;
  simulation::CloudSettings settings;
  settings.points = kDevicePoints;
  settings.frames = 20;
  for (const simulation::Sheet& sheet : simulation::make_device({})) {
    ++settings.seed;
    clouds.push_back(simulation::measure(sheet, settings).points);
  }
  return clouds;
}

std::vector<_KESTRANE_ID_POINT3DS> device_of(
    const std::vector<std::vector<_KESTRANE_ID_POINT3D>>& clouds) {
  const std::vector<_KESTRANE_ID_POINT3DS> few = kestrane::quality::clouds_of(clouds);
  std::vector<_KESTRANE_ID_POINT3DS> device;
  for (std::size_t p = 0; p < kDevicePlanes; ++p) device.push_back(few[p % few.size()]);
  return device;
}

void PlainDevice(benchmark::State& state) {
  const auto clouds = device_clouds();
  const auto device = device_of(clouds);
  kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
  calibrator.init();
  for (auto _ : state) {
    for (int p = 0; p < kDevicePlanes; ++p) {
      benchmark::DoNotOptimize(calibrator.factory_calib(p, device[static_cast<std::size_t>(p)]));
    }
  }
  per_point(state, kDevicePlanes * kDevicePoints);
}
BENCHMARK(PlainDevice)->Unit(benchmark::kMillisecond);

void CalibrateDevice(benchmark::State& state) {
  const auto clouds = device_clouds();
  const auto device = device_of(clouds);
  kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
  calibrator.init();
  kestrane::quality::FactorySettings settings;
  settings.repeatability = state.range(0) != 0;
  double rms = 0.0;
  for (auto _ : state) {
    rms = kestrane::quality::calibrate_factory(calibrator, device, settings).device.rms;
    benchmark::ClobberMemory();
  }
  per_point(state, kDevicePlanes * kDevicePoints);
  state.counters["rms"] = rms;
}
BENCHMARK(CalibrateDevice)->ArgName("repeatability")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void RefinePlane(benchmark::State& state) {
  const simulation::Cloud cloud = bench_cloud(static_cast<int>(state.range(0)), 0.0);
  double rms = 0.0;
  for (auto _ : state) rms = kestrane::quality::refine_plane(cloud.points).cross_validated_rms;
  per_point(state, state.range(0));
  state.counters["rms"] = rms;
}
BENCHMARK(RefinePlane)->ArgName("points")->Arg(20000)->Arg(100000)->Unit(benchmark::kMillisecond);

// On two threads; the processor's time is that of both.
void RefineDevice(benchmark::State& state) {
  const auto few = device_clouds();
  std::vector<kestrane::quality::PointList> clouds;
  for (std::size_t p = 0; p < kDevicePlanes; ++p) clouds.push_back(few[p % few.size()]);
  for (auto _ : state) benchmark::DoNotOptimize(kestrane::quality::refine(clouds, {}, 2));
  per_point(state, kDevicePlanes * kDevicePoints);
}
BENCHMARK(RefineDevice)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

// A device in the field: its stored table, and frames measured since it was knocked.
struct FieldScene {
  kestrane::quality::PlaneTable table;
  std::vector<kestrane::quality::PointList> frames;
};

FieldScene field_scene(int planes) {
  simulation::DeviceSettings device;
  device.planes = planes;
  const std::vector<simulation::Sheet> sheets = simulation::make_device(device);
  FieldScene scene{kestrane::quality::PlaneTable(planes), {}};
  const simulation::Placement knock = simulation::rigid_motion({0, 2e-4, -2e-4}, {0.15, 0, -0.1});
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  for (std::size_t p = 0; p < sheets.size(); ++p) {
    simulation::fill_true_table(sheets[p], {}, scene.table.grids(),
                                scene.table.record().planes[p].block);
    ++settings.seed;
    scene.frames.push_back(simulation::measure(sheets[p], knock, settings).points);
  }
  return scene;
}

std::int64_t points_of(const FieldScene& scene) {
  std::int64_t points = 0;
  for (const auto& list : scene.frames) points += static_cast<std::int64_t>(list.size());
  return points;
}

void PlainField(benchmark::State& state) {
  const SilencedOutput silenced;
  const auto planes = static_cast<int>(state.range(0));
  const FieldScene scene = field_scene(planes);
  kestrane::KESTRANE_LASER_FAST_CALIB job;
  job.init();
  for (auto _ : state) {
    job.set_laser_plane_standard(scene.table.record());
    benchmark::DoNotOptimize(job.fast_calib(scene.frames, 0, planes - 1));
  }
  per_point(state, points_of(scene));
}
BENCHMARK(PlainField)->ArgName("planes")->Arg(8)->Arg(100)->Unit(benchmark::kMillisecond);

void CalibrateField(benchmark::State& state) {
  const SilencedOutput silenced;
  const FieldScene scene = field_scene(static_cast<int>(state.range(0)));
  kestrane::KESTRANE_LASER_FAST_CALIB job;
  job.init();
  double sigma = 0.0;
  for (auto _ : state) {
    sigma = kestrane::quality::calibrate_field(job, scene.table, scene.frames).displacement.sigma;
  }
  per_point(state, points_of(scene));
  state.counters["sigma"] = sigma;
}
BENCHMARK(CalibrateField)->ArgName("planes")->Arg(8)->Arg(100)->Unit(benchmark::kMillisecond);

}  // namespace
