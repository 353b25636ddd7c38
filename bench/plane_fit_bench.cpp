// The robust plane fit on one laser sheet: the library's form beside a literal one.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "fit/laser_geometry_fitter.h"
#include "simulation/random.h"
#include "support/literal_plane_fit.h"

namespace {

using kestrane::DepthBand;
using kestrane::LaserGeometryFitter;
using kestrane::PlaneAbcd;
using kestrane::PlaneFitStats;
using kestrane::PointMatrix3;

constexpr DepthBand kBand{100, 1000};
constexpr double kNoise = 0.05;         // standard deviation along x
constexpr double kOutlierShare = 0.02;  // points anywhere within kOutlierReach of the sheet
constexpr double kOutlierReach = 20.0;
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
  PlaneFitStats stats;
  PointMatrix3 inliers;
};

bool fast_fit(const PointMatrix3& points, std::int32_t mode, Result& result) {
  LaserGeometryFitter fitter;
  fitter.set_params(false, 0, 0.0, 0.0);
  return fitter.fit_plane_robust(points, result.plane, result.stats, result.inliers, kBand, mode);
}

bool literal_fit(const PointMatrix3& points, std::int32_t mode, Result& result) {
  return literal::fit_plane_robust(points, result.plane, result.stats, result.inliers, kBand, mode);
}

double relative(double value, double reference) {
  return std::abs(value - reference) / std::abs(reference);
}

// The largest relative difference of the figures; ends the program where the rows differ.
double checked_difference(const PointMatrix3& points, std::int32_t mode) {
  Result fast, slow;
  if (!fast_fit(points, mode, fast) || !literal_fit(points, mode, slow) ||
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
  const double difference = checked_difference(points, 0);
  return clouds.emplace(count, Cloud{std::move(points), difference}).first->second;
}

template <bool (*Fit)(const PointMatrix3&, std::int32_t, Result&)>
void fit_sheet(benchmark::State& state) {
  const Cloud& cloud = cloud_of_size(state.range(0));
  double residual = 0.0;
  for (auto _ : state) {
    Result result;
    benchmark::DoNotOptimize(Fit(cloud.points, 0, result));
    benchmark::DoNotOptimize(result.inliers.data());
    residual = result.stats.std_distance;
  }
  state.counters["points/s"] = benchmark::Counter(static_cast<double>(cloud.points.rows()),
                                                  benchmark::Counter::kIsIterationInvariantRate);
  state.counters["residual"] = residual;
  state.counters["difference"] = cloud.difference;
}

BENCHMARK(fit_sheet<literal_fit>)
    ->Name("fit_plane_robust/literal")
    ->Unit(benchmark::kMillisecond)
    ->Arg(20000)
    ->Arg(100000)
    ->Arg(500000);
BENCHMARK(fit_sheet<fast_fit>)
    ->Name("fit_plane_robust/fast")
    ->Unit(benchmark::kMillisecond)
    ->Arg(20000)
    ->Arg(100000)
    ->Arg(500000);

}  // namespace
