// What kestrane::quality costs beside the jobs that it stands in front of and behind.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/screening.h"
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

}  // namespace
