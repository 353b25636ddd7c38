// One plane's factory calibration, fast beside literal.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <iostream>
#include <map>

#include "factory/engine.h"
#include "simulation/scanner.h"
#include "tests/literal/factory_calibration.h"

namespace {

using kestrane::KestraneLaserFactoryCalibrator;

constexpr double kCornerRounding = 1e-9;

simulation::Cloud& cloud_of(int points) {
  static std::map<int, simulation::Cloud> clouds;
  auto [entry, fresh] = clouds.try_emplace(points);
  if (fresh) {
    simulation::CloudSettings settings;
    settings.points = points;
    settings.outlier_share = 0.01;
    settings.dropped_share = 0.01;
    settings.outside_share = 0.02;
    entry->second = simulation::measure(simulation::make_device({})[3], settings);
  }
  return entry->second;
}

KestraneLaserFactoryCalibrator& engine() {
  static KestraneLaserFactoryCalibrator* instance = [] {
    auto* fresh = new KestraneLaserFactoryCalibrator();
    if (!fresh->init()) std::abort();
    return fresh;
  }();
  return *instance;
}

double rms_of_cells(const kestrane::CellPoints& cells, const kestrane::CellPlanes& planes) {
  double squares = 0.0;
  double count = 0.0;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    for (std::size_t j = 0; j < cells[i].size(); ++j) {
      for (Eigen::Index n = 0; n < cells[i][j].rows(); ++n) {
        const double distance =
            planes[i][j].head<3>().dot(cells[i][j].row(n).transpose()) + planes[i][j][3];
        squares += distance * distance;
        count += 1.0;
      }
    }
  }
  return std::sqrt(squares / count);
}

// Both forms must give the same cells and corners before they are timed.
void check_once(int points) {
  simulation::Cloud& cloud = cloud_of(points);
  literal::FactoryRun expected;
  engine().set_optimize_flag(kestrane::KESTRANE_OPTIM_OFF);
  bool same = literal::calibrate_plane(cloud.points, false, expected) &&
              engine().calibrate_one_plane(0, simulation::record_of(cloud));
  for (std::size_t i = 0; same && i < 16; ++i) {
    for (std::size_t k = 0; same && k < 51; ++k) {
      const auto difference = engine().grid_corners()[i][k] - expected.grid_corners[i][k];
      same = difference.cwiseAbs().maxCoeff() < kCornerRounding;
      if (i < 15 && k < 50) {
        same = same && engine().cell_points()[i][k] == expected.cell_points[i][k];
      }
    }
  }
  if (same) return;
  std::cerr << "factory_bench: the two forms differ at " << points << " points\n";
  std::exit(1);
}

void report(benchmark::State& state, double rms) {
  state.counters["points/s"] = benchmark::Counter(static_cast<double>(state.range(0)),
                                                  benchmark::Counter::kIsIterationInvariantRate);
  state.counters["rms"] = rms;
}

void factory_calib(benchmark::State& state, bool optimise) {
  check_once(static_cast<int>(state.range(0)));
  simulation::Cloud& cloud = cloud_of(static_cast<int>(state.range(0)));
  engine().set_optimize_flag(optimise ? kestrane::KESTRANE_OPTIM_ON : kestrane::KESTRANE_OPTIM_OFF);
  for (auto _ : state) {
    benchmark::DoNotOptimize(engine().calibrate_one_plane(0, simulation::record_of(cloud)));
  }
  report(state, rms_of_cells(engine().cell_points(), engine().cell_planes()));
}

void factory_calib_literal(benchmark::State& state, bool optimise) {
  const simulation::Cloud& cloud = cloud_of(static_cast<int>(state.range(0)));
  double rms = 0.0;
  for (auto _ : state) {
    literal::FactoryRun run;
    benchmark::DoNotOptimize(literal::calibrate_plane(cloud.points, optimise, run));
    state.PauseTiming();
    rms = rms_of_cells(run.cell_points, run.cell_planes);
    state.ResumeTiming();
  }
  report(state, rms);
}

// The literal form's solver shares its work out: time on the clock, and time of all threads as CPU.
void sizes(benchmark::internal::Benchmark* bench) {
  bench->Arg(20000)->Arg(100000)->Arg(1000000);
  bench->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
}

BENCHMARK_CAPTURE(factory_calib, plain, false)->Apply(sizes);
BENCHMARK_CAPTURE(factory_calib_literal, plain, false)->Apply(sizes);
BENCHMARK_CAPTURE(factory_calib, optimised, true)->Apply(sizes);
BENCHMARK_CAPTURE(factory_calib_literal, optimised, true)->Apply(sizes);

}  // namespace
