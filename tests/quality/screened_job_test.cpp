// What the factory job makes of screened clouds with faults, against the same clouds without.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/screening.h"
#include "simulation/random.h"
#include "simulation/scanner.h"
#include "tests/support/bits.h"
#include "tests/support/sanitized.h"

namespace {

using kestrane::quality::Block;
using kestrane::quality::FanPlace;
using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;
using kestrane::quality::screen_cloud;
using kestrane::quality::ScreenedCloud;

constexpr int kSeeds = kestrane_test::seeds_to_draw(20);
constexpr int kPoints = 12000;
constexpr std::size_t kCells = PlaneTable::kLines * PlaneTable::kCells;

// x at the middle of every cell that at least 10 clean points of every seed lie in.
using CellXs = std::vector<double>;

kestrane::KESTRANE_LASER_FAC_CALIB& job() {
  static kestrane::KESTRANE_LASER_FAC_CALIB instance;
  static const _KESTRANE_STATUS ready = instance.init();
  EXPECT_EQ(ready, KESTRANE_OK);
  return instance;
}

CellXs calibrate(PointList points) {
  EXPECT_EQ(job().factory_calib(0, {points.data(), static_cast<std::int32_t>(points.size())}),
            KESTRANE_OK);
  PlaneTable table(1);
  _MRV_LASER_PLANE_BLOCK_INFOS record = table.record();
  job().get_laser_plane_infos(record);
  CellXs xs;
  for (std::int32_t j = 0; j < PlaneTable::kLines; ++j) {
    for (std::int32_t k = 0; k < PlaneTable::kCells; ++k) {
      const FanPlace middle = table.block_middle({j, k});
      xs.push_back(table.x_at(0, middle.y, middle.z));
    }
  }
  return xs;
}

// Clean clouds of one sheet, what the job makes of them, and how far that scatters.
struct CleanRuns {
  std::vector<PointList> clouds;
  std::vector<CellXs> xs;
  std::vector<bool> measured;
  double e;  // 99.9 % quantile of |x - mean of the clean runs|
};

std::vector<bool> measured_cells(const std::vector<PointList>& clouds) {
  const PlaneTable table(1);
  std::vector<bool> measured(kCells, true);
  for (const PointList& cloud : clouds) {
    std::vector<int> points(kCells, 0);
    for (const auto& point : cloud) {
      const std::optional<Block> at = table.lookup(point.y, point.z);
      if (at) ++points[static_cast<std::size_t>(at->line * PlaneTable::kCells + at->cell)];
    }
    for (std::size_t c = 0; c < kCells; ++c) measured[c] = measured[c] && points[c] >= 10;
  }
  return measured;
}

CleanRuns run_clean(const simulation::Sheet& sheet) {
  CleanRuns runs;
  for (int seed = 0; seed < kSeeds; ++seed) {
    simulation::CloudSettings settings;
    settings.points = kPoints;
    settings.frames = 20;
    settings.seed = static_cast<std::uint64_t>(seed) + 1;
    runs.clouds.push_back(simulation::measure(sheet, settings).points);
    runs.xs.push_back(calibrate(runs.clouds.back()));
  }
  runs.measured = measured_cells(runs.clouds);
  std::vector<double> errors;
  for (std::size_t c = 0; c < kCells; ++c) {
    if (!runs.measured[c]) continue;
    double mean = 0.0;
    for (const CellXs& xs : runs.xs) mean += xs[c] / kSeeds;
    for (const CellXs& xs : runs.xs) errors.push_back(std::abs(xs[c] - mean));
  }
  std::sort(errors.begin(), errors.end());
  runs.e = errors[static_cast<std::size_t>(0.999 * static_cast<double>(errors.size()))];
  return runs;
}

const CleanRuns& clean_runs(std::size_t plane) {
  static std::map<std::size_t, CleanRuns> known;
  const auto [entry, fresh] = known.try_emplace(plane);
  if (fresh) entry->second = run_clean(simulation::make_device({})[plane]);
  return entry->second;
}

using Fault = std::function<void(PointList&, simulation::Random&)>;
using kestrane_test::kInf;

// The largest change of a measured cell over all seeds, in units of e.
double largest_change(std::size_t plane, const Fault& fault) {
  const CleanRuns& runs = clean_runs(plane);
  double largest = 0.0;
  for (std::size_t seed = 0; seed < kSeeds; ++seed) {
    simulation::Random random(seed + 1000);
    PointList cloud = runs.clouds[seed];
    fault(cloud, random);
    const ScreenedCloud screened = screen_cloud(cloud);
    EXPECT_EQ(screened.refused, "");
    const CellXs xs = calibrate(screened.points);
    for (std::size_t c = 0; c < kCells; ++c) {
      if (!runs.measured[c]) continue;
      const double change = std::abs(xs[c] - runs.xs[seed][c]) / runs.e;
      largest = std::max(largest, change <= largest ? largest : change);
      if (std::isnan(change)) largest = std::numeric_limits<double>::infinity();
    }
  }
  return largest;
}

void expect_harmless(const Fault& fault) {
  for (const std::size_t plane : {std::size_t{0}, std::size_t{5}})
    EXPECT_LE(largest_change(plane, fault), 3.0) << "plane " << plane;
}

Fault one_point_off(double distance) {
  return [distance](PointList& cloud, simulation::Random& random) {
    cloud[static_cast<std::size_t>(random.index(kPoints))].x += distance;
  };
}

Fault share_off(double share) {
  return [share](PointList& cloud, simulation::Random& random) {
    for (auto& point : cloud) {
      if (random.uniform() < share) point.x += random.uniform(-200.0, 200.0);
    }
  };
}

TEST(ScreenedJob, ChangesNothingOnCleanClouds) {
  EXPECT_EQ(largest_change(0, [](PointList&, simulation::Random&) {}), 0.0);
}

TEST(ScreenedJob, OutlivesOnePoint50Off) { expect_harmless(one_point_off(50.0)); }
TEST(ScreenedJob, OutlivesOnePoint281Off) { expect_harmless(one_point_off(281.0)); }
TEST(ScreenedJob, OutlivesOnePoint649Off) { expect_harmless(one_point_off(-649.0)); }

TEST(ScreenedJob, OutlivesAFewInAThousandOff) { expect_harmless(share_off(0.002)); }
TEST(ScreenedJob, Outlives1PercentOff) { expect_harmless(share_off(0.01)); }
TEST(ScreenedJob, Outlives5PercentOff) { expect_harmless(share_off(0.05)); }
TEST(ScreenedJob, Outlives10PercentOff) { expect_harmless(share_off(0.1)); }
TEST(ScreenedJob, Outlives20PercentOff) { expect_harmless(share_off(0.2)); }

TEST(ScreenedJob, OutlivesASecondReflection) {
  expect_harmless([](PointList& cloud, simulation::Random& random) {
    for (auto& point : cloud) {
      if (random.uniform() < 0.2) point.x += 15.0;
    }
  });
}

TEST(ScreenedJob, OutlivesCoordinatesThatAreNotFinite) {
  for (const int coordinate : {0, 1, 2}) {
    expect_harmless([coordinate](PointList& cloud, simulation::Random& random) {
      for (const double value : {std::numeric_limits<double>::quiet_NaN(), kInf, -kInf}) {
        auto& point = cloud[static_cast<std::size_t>(random.index(kPoints))];
        (coordinate == 0 ? point.x : coordinate == 1 ? point.y : point.z) = value;
      }
    });
  }
}

// The job alone does not outlive these faults; the tests above would show it.
TEST(ScreenedJob, IsNeeded) {
  const CleanRuns& runs = clean_runs(0);
  simulation::Random random(1000);
  PointList cloud = runs.clouds[0];
  share_off(0.05)(cloud, random);
  const CellXs xs = calibrate(cloud);
  double largest = 0.0;
  for (std::size_t c = 0; c < kCells; ++c) {
    if (runs.measured[c]) largest = std::max(largest, std::abs(xs[c] - runs.xs[0][c]) / runs.e);
  }
  EXPECT_GT(largest, 100.0);
}

}  // namespace
