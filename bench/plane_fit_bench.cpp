// The robust plane fit on one laser sheet: the library's form beside a literal one.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <utility>
#include <vector>

#include "fit/laser_geometry_fitter.h"
#include "fit/plane_fit.h"
#include "fit/row_kernel.h"
#include "fit/streamed_fit.h"
#include "simulation/random.h"
#include "tests/literal/plane_fit.h"

namespace {

using kestrane::DepthBand;
using kestrane::LaserGeometryFitter;
using kestrane::PlaneAbcd;
using kestrane::PlaneFitStats;
using kestrane::PointMatrix3;
using kestrane::RowVectors;

constexpr DepthBand kBand{100, 1000};
constexpr double kNoise = 0.05;         // standard deviation along x
constexpr double kOutlierShare = 0.02;  // points anywhere within kOutlierReach of the sheet
constexpr double kOutlierReach = 20.0;
constexpr int kCells = 750;           // local planes of one laser plane
constexpr double kAgreement = 1e-12;  // of the two forms, relative to the size of a figure

// A tilted sheet of nearly constant x in the fan, some of it outside the depth band.
PointMatrix3 sheet(Eigen::Index count) {
  simulation::Random random(static_cast<std::uint64_t>(count));
  PointMatrix3 points(count, 3);
  for (Eigen::Index i = 0; i < count; ++i) {
    const double z = random.uniform(90.0, 1010.0);
    const double y = random.uniform(-0.577, 0.577) * z;
    double x = 60.0 + 0.02 * y + 0.15 * z + kNoise * random.gaussian();
    if (random.uniform() < kOutlierShare) x += random.uniform(-kOutlierReach, kOutlierReach);
    points.row(i) << x, y, z;
  }
  return points;
}

struct Result {
  PlaneAbcd plane;
  PlaneFitStats stats{};
  PointMatrix3 inliers;
};

bool fast_fit(const PointMatrix3& points, Result& result) {
  LaserGeometryFitter fitter;
  fitter.set_params(false, 0, 0.0, 0.0);
  return fitter.fit_plane_robust(points, result.plane, result.stats, result.inliers, kBand, 0);
}

bool literal_fit(const PointMatrix3& points, Result& result) {
  return literal::fit_plane_robust(points, result.plane, result.stats, result.inliers, kBand, 0);
}

bool hand_over(kestrane::RobustFit fit, Result& result) {
  if (!fit.complete) return false;
  result = {fit.fit->plane, fit.fit->stats, std::move(fit.inliers)};
  return true;
}

template <RowVectors kVectors>
bool vector_fit(const PointMatrix3& points, Result& result) {
  return hand_over(kestrane::fit_in_band(points, kBand, kestrane::Wanted::kAll, kVectors), result);
}

// What a fit costs where none of its rejections can be decided by bounds.
bool decomposed_fit(const PointMatrix3& points, Result& result) {
  return hand_over(kestrane::fit_in_band_by_decomposition(points, kBand), result);
}

double relative(double value, double reference) {
  return std::abs(value - reference) / std::abs(reference);
}

// The largest relative difference of the figures; ends the program where the rows differ.
double checked_difference(const PointMatrix3& points) {
  Result fast, slow;
  if (!fast_fit(points, fast) || !literal_fit(points, slow) ||
      fast.inliers.rows() != slow.inliers.rows() || fast.inliers != slow.inliers) {
    std::fprintf(stderr, "plane_fit_bench: the two forms keep different rows\n");
    std::abort();
  }
  const double worst = std::max({relative(fast.stats.max_distance, slow.stats.max_distance),
                                 relative(fast.stats.mean_distance, slow.stats.mean_distance),
                                 relative(fast.stats.std_distance, slow.stats.std_distance),
                                 (fast.plane.head<3>() - slow.plane.head<3>()).norm(),
                                 relative(fast.plane[3], slow.plane[3])});
  if (!(worst <= kAgreement)) {
    std::fprintf(stderr, "plane_fit_bench: the two forms differ by %g\n", worst);
    std::abort();
  }
  return worst;
}

struct Cloud {
  PointMatrix3 points;
  double difference;
};

const Cloud& cloud_of_size(Eigen::Index count) {
  static std::map<Eigen::Index, Cloud> clouds;
  const auto found = clouds.find(count);
  if (found != clouds.end()) return found->second;
  PointMatrix3 points = sheet(count);
  const double difference = checked_difference(points);
  return clouds.emplace(count, Cloud{std::move(points), difference}).first->second;
}

template <bool (*Fit)(const PointMatrix3&, Result&)>
void fit_sheet(benchmark::State& state) {
  const Cloud& cloud = cloud_of_size(state.range(0));
  double residual = 0.0;
  for (auto _ : state) {
    Result result;
    benchmark::DoNotOptimize(Fit(cloud.points, result));
    benchmark::DoNotOptimize(result.inliers.data());
    residual = result.stats.std_distance;
  }
  state.counters["points/s"] = benchmark::Counter(static_cast<double>(cloud.points.rows()),
                                                  benchmark::Counter::kIsIterationInvariantRate);
  state.counters["residual"] = residual;
  state.counters["difference"] = cloud.difference;
}

// The corners of the cells of one laser plane: four rows each, and only the plane is wanted.
std::vector<PointMatrix3> cells() {
  simulation::Random random(1);
  std::vector<PointMatrix3> all;
  for (int i = 0; i < kCells; ++i) {
    const double z = random.uniform(150.0, 1500.0);
    const double y = random.uniform(-0.577, 0.577) * z;
    PointMatrix3 corners(4, 3);
    corners << 0.0, y, z, 0.0, y + 40.0, z, 0.0, y, z + 27.0, 0.0, y + 41.0, z + 27.0;
    for (int k = 0; k < 4; ++k) {
      corners(k, 0) = 60.0 + 0.15 * corners(k, 2) + kNoise * random.gaussian();
    }
    all.push_back(corners);
  }
  return all;
}

bool fast_svd(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats& stats) {
  return kestrane::fit_plane_svd(points, plane, stats);
}

bool literal_svd(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats& stats) {
  return literal::fit_plane_svd(points, plane, stats);
}

template <bool (*Fit)(const PointMatrix3&, PlaneAbcd&, PlaneFitStats&)>
void fit_cells(benchmark::State& state) {
  const std::vector<PointMatrix3> all = cells();
  for (const PointMatrix3& corners : all) {
    Result fast, slow;
    if (!fast_svd(corners, fast.plane, fast.stats) ||
        !literal_svd(corners, slow.plane, slow.stats) || fast.plane != slow.plane) {
      std::fprintf(stderr, "plane_fit_bench: the two forms give a cell different planes\n");
      std::abort();
    }
  }
  for (auto _ : state) {
    for (const PointMatrix3& corners : all) {
      Result result;
      benchmark::DoNotOptimize(Fit(corners, result.plane, result.stats));
      benchmark::DoNotOptimize(result);
    }
  }
  state.counters["fits/s"] =
      benchmark::Counter(kCells, benchmark::Counter::kIsIterationInvariantRate);
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->Arg(20000)->Arg(100000)->Arg(500000)->Arg(1000000)->Unit(benchmark::kMillisecond);
}

// The AVX2 body only where the processor has it.
[[maybe_unused]] const bool kRegistered = [] {
  benchmark::RegisterBenchmark("fit_plane_robust/literal", fit_sheet<literal_fit>)->Apply(sizes);
  benchmark::RegisterBenchmark("fit_plane_robust/fast", fit_sheet<fast_fit>)->Apply(sizes);
  benchmark::RegisterBenchmark("fit_plane_robust/baseline_vectors",
                               fit_sheet<vector_fit<RowVectors::kBaseline>>)
      ->Apply(sizes);
  if (kestrane::best_row_vectors() == RowVectors::kAvx2) {
    benchmark::RegisterBenchmark("fit_plane_robust/avx2", fit_sheet<vector_fit<RowVectors::kAvx2>>)
        ->Apply(sizes);
  }
  benchmark::RegisterBenchmark("fit_plane_robust/decomposed", fit_sheet<decomposed_fit>)
      ->Apply(sizes);
  return true;
}();

BENCHMARK(fit_cells<literal_svd>)->Name("fit_plane_svd/literal/four_rows");
BENCHMARK(fit_cells<fast_svd>)->Name("fit_plane_svd/fast/four_rows");

}  // namespace
