// What the factory calibration says of the refinement.
#include "quality/factory/refinement_gain.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kestrane/quality/findings.h"
#include "quality/factory/job.h"
#include "simulation/scanner.h"
#include "tests/support/bits.h"

namespace {

using namespace kestrane::quality;

std::vector<PointList> bowed_clouds(int planes, double bow, int frames) {
  simulation::DeviceSettings device;
  device.planes = planes;
  device.bow = bow;
  simulation::CloudSettings settings;
  settings.points = 8000;
  settings.frames = frames;
  std::vector<PointList> clouds;
  for (const auto& sheet : simulation::make_device(device)) {
    ++settings.seed;
    clouds.push_back(simulation::measure(sheet, settings).points);
  }
  return clouds;
}

FactoryResult calibrate(const std::vector<PointList>& clouds, Refine refine) {
  FactorySettings settings;
  settings.repeatability = false;
  settings.refine = refine;
  return calibrate_factory(clouds_of(clouds), settings);
}

TEST(IsEstimated, SpreadsFourPlanesOverTheDevice) {
  const auto chosen = [](std::size_t planes) {
    std::vector<std::size_t> list;
    for (std::size_t p = 0; p < planes; ++p)
      if (is_estimated(p, planes)) list.push_back(p);
    return list;
  };
  EXPECT_EQ(chosen(1), std::vector<std::size_t>({0}));
  EXPECT_EQ(chosen(4), std::vector<std::size_t>({0, 1, 2, 3}));
  EXPECT_EQ(chosen(5), std::vector<std::size_t>({0, 1, 3, 4}));
  EXPECT_EQ(chosen(100), std::vector<std::size_t>({0, 33, 66, 99}));
}

TEST(CalibrateFactory, RefinesNothingUnlessAsked) {
  const FactoryResult result = calibrate(bowed_clouds(2, 0.5, 20), Refine::kNone);
  EXPECT_EQ(result.refined.table.planes(), 0);
  EXPECT_FALSE(result.planes[0].refinement.has_value());
}

TEST(CalibrateFactory, EstimatesWhatTheRefinementWouldGain) {
  const auto clouds = bowed_clouds(6, 0.5, 20);
  const FactoryResult result = calibrate(clouds, Refine::kEstimate);
  EXPECT_EQ(result.refined.table.planes(), 0);
  for (std::size_t p = 0; p < 6; ++p)
    EXPECT_EQ(result.planes[p].refinement.has_value(), is_estimated(p, 6)) << p;
  const RefinementFigures& gain = *result.planes[0].refinement;
  EXPECT_NEAR(gain.refined_rms, 0.05, 0.003);         // the noise, and little else
  EXPECT_GT(gain.plain_rms, std::hypot(0.05, 0.05));  // noise and bow
  EXPECT_EQ(judge(result).find("refine")->level, Level::kWarn);
  EXPECT_EQ(judge(calibrate(bowed_clouds(2, 0.0, 20), Refine::kEstimate)).find("refine")->level,
            Level::kOk);
}

TEST(CalibrateFactory, HandsOutTheRefinedTableOfAllPlanes) {
  auto clouds = bowed_clouds(3, 0.5, 20);
  clouds[1].clear();
  const FactoryResult result = calibrate(clouds, Refine::kAll);
  ASSERT_EQ(result.refined.table.planes(), 3);
  EXPECT_TRUE(result.refined.table.row_is_empty(1));
  for (const int row : {0, 2}) {
    const RefinedPlane alone = refine_plane(clouds[static_cast<std::size_t>(row)]);
    for (int block = 0; block < 750; ++block)
      for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(
            kestrane_test::same_bits(result.refined.table.cell(row, {block / 50, block % 50}).v[i],
                                     alone.cells[static_cast<std::size_t>(block)].v[i]));
  }
  // The job's own table does not change with it.
  EXPECT_TRUE(result.table == calibrate(clouds, Refine::kNone).table);
}

// By hand: the plain error over two frames, each left out once.
TEST(MeasureGain, LeavesEachGroupOutOfTheJobOnce) {
  const PointList cloud = bowed_clouds(1, 0.5, 2)[0];
  kestrane::KESTRANE_LASER_FAC_CALIB engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  const RefinedPlane refined = refine_plane(cloud);
  const RefinementFigures gain = measure_gain(engine, cloud, cloud, refined);
  const PlaneTable shape(1);
  double squares = 0.0, count = 0.0;
  for (const int frame : {0, 1}) {
    PointList seen, unseen;
    for (const auto& p : cloud) (p.id == frame ? unseen : seen).push_back(p);
    const JobRun run = run_job(engine, seen, false);
    for (const auto& p : unseen) {
      const auto at = shape.lookup(p.y, p.z);
      if (!at) continue;
      const auto x = [&](const auto& cells) {
        const double* v = cells[static_cast<std::size_t>(50 * at->line + at->cell)].v;
        return -(v[1] * p.y + v[2] * p.z + 1.0) / v[0];
      };
      if (std::abs(p.x - x(refined.cells)) > 4.0 * refined.noise) continue;
      squares += std::pow(p.x - x(run.cells), 2);
      count += 1.0;
    }
  }
  EXPECT_NEAR(gain.plain_rms, std::sqrt(squares / count), 1e-12);
  EXPECT_TRUE(
      std::isnan(measure_gain(engine, cloud, bowed_clouds(1, 0.5, 1)[0], refined).plain_rms));
}

}  // namespace
