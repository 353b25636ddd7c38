// The repeatability that one calibration tells against how far calibrations really scatter.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/factory.h"
#include "simulation/scanner.h"
#include "tests/quality/factory/device_runs.h"
#include "tests/support/sanitized.h"

namespace {

using kestrane::quality::FactoryResult;
using kestrane::quality::FactorySettings;
using kestrane::quality::PointList;

struct Study {
  double told;     // mean over the seeds of the plane's figure
  double scatter;  // root mean square over the blocks of the standard deviation over the seeds
};

// Along the normal: one sheet's blocks tilt alike to a few parts in a thousand.
double along_normal(const FactoryResult& result) {
  const double* v = result.table.cell(0, {7, 10}).v;
  return std::abs(v[0]) / std::hypot(v[0], v[1], v[2]);
}

Study study(std::uint64_t seeds, bool optimise, double frame_noise) {
  kestrane::KESTRANE_LASER_FAC_CALIB engine;
  EXPECT_EQ(engine.init(), KESTRANE_OK);
  simulation::CloudSettings cloud;
  cloud.points = 20000;
  cloud.frames = 20;
  cloud.frame_noise = frame_noise;
  FactorySettings settings;
  settings.optimise = optimise;
  std::vector<std::vector<double>> xs;
  std::vector<std::vector<bool>> measured;
  Study result{};
  double normal = 1.0;
  for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
    const std::vector<PointList> clouds = device_runs::clouds_of_device(1, 0.4, seed, cloud);
    const FactoryResult run =
        calibrate_factory(engine, kestrane::quality::clouds_of(clouds), settings);
    result.told += run.planes[0].repeatability / static_cast<double>(seeds);
    xs.push_back(device_runs::xs_of(run));
    measured.push_back(device_runs::measured_in(run));
    normal = along_normal(run);
  }
  const std::vector<bool> blocks = device_runs::measured_in_all(measured);
  const std::vector<double> mean = device_runs::mean_of(xs);
  double variance = 0.0;
  double count = 0.0;
  for (std::size_t b = 0; b < blocks.size(); ++b) {
    if (!blocks[b]) continue;
    count += 1.0;
    for (const std::vector<double>& run : xs) {
      variance += (run[b] - mean[b]) * (run[b] - mean[b]) / static_cast<double>(seeds - 1);
    }
  }
  result.scatter = normal * std::sqrt(variance / count);
  return result;
}

constexpr double kAgreement = 0.15;

TEST(RepeatabilityOverManySeeds, IsTheScatterOfTheBlocks) {
  const Study plain = study(40, false, 0.0);
  RecordProperty("told", std::to_string(plain.told));
  RecordProperty("scatter", std::to_string(plain.scatter));
  EXPECT_NEAR(plain.told, plain.scatter, kAgreement * plain.scatter);
}

TEST(RepeatabilityOverManySeeds, SeesErrorsThatAFrameHasInCommon) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  const Study framed = study(60, false, 0.05);
  const Study plain = study(40, false, 0.0);
  EXPECT_NEAR(framed.told, framed.scatter, kAgreement * framed.scatter);
  EXPECT_GT(framed.told, 1.2 * plain.told);
}

TEST(RepeatabilityOverManySeeds, SeesWhatTheOptimisationAdds) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  const Study optimised = study(12, true, 0.0);
  EXPECT_NEAR(optimised.told, optimised.scatter, kAgreement * optimised.scatter);
}

}  // namespace
