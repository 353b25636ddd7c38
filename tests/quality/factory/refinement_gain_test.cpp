// What the factory calibration says of the refinement.
#include "quality/factory/refinement_gain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <vector>

#include "kestrane/quality/findings.h"
#include "quality/factory/job.h"
#include "quality/frame_ids.h"
#include "simulation/scanner.h"
#include "tests/quality/factory/device_runs.h"
#include "tests/support/bits.h"

namespace {

using namespace kestrane::quality;
using kestrane_test::kInf;
using kestrane_test::kNaN;

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

// x of the plane of a point's block; not a number without one.
double x_at(const std::vector<kestrane::_LASER_TRIPLE>& cells, const _KESTRANE_ID_POINT3D& p) {
  const auto at = PlaneTable(1).lookup(p.y, p.z);
  if (!at) return kNaN;
  const double* v = cells[static_cast<std::size_t>(50 * at->line + at->cell)].v;
  const auto is_tiny = [](double value) { return std::abs(value) < 2e-16; };
  if (v[0] == 0.0 || !std::isfinite(v[0] + v[1] + v[2]) || std::all_of(v, v + 3, is_tiny))
    return kNaN;
  return -(v[1] * p.y + v[2] * p.z + 1.0) / v[0];
}

// The plain error, each of up to 20 frames of the job's cloud left out once.
double plain_rms(kestrane::KESTRANE_LASER_FAC_CALIB& engine, const PointList& given,
                 const PointList& job, const RefinedPlane& refined) {
  double squares = 0.0, count = 0.0;
  for (const std::int32_t frame : distinct_ids(job)) {
    PointList seen;
    std::copy_if(job.begin(), job.end(), std::back_inserter(seen),
                 [&](const auto& p) { return p.id != frame; });
    const JobRun run = run_job(engine, seen, false);
    for (const auto& p : given) {
      if (p.id != frame || !(std::abs(p.x - x_at(refined.cells, p)) <= 4.0 * refined.noise))
        continue;
      if (std::isnan(x_at(run.cells, p))) continue;
      squares += std::pow(p.x - x_at(run.cells, p), 2);
      count += 1.0;
    }
  }
  return std::sqrt(squares / count);
}

TEST(MeasureGain, LeavesEachGroupOutOfTheJobOnce) {
  const PointList cloud = bowed_clouds(1, 0.5, 2)[0];
  kestrane::KESTRANE_LASER_FAC_CALIB engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  const RefinedPlane refined = refine_plane(cloud);
  const RefinementFigures gain = measure_gain(engine, cloud, cloud, refined);
  EXPECT_NEAR(gain.plain_rms, plain_rms(engine, cloud, cloud, refined), 1e-12);
  EXPECT_TRUE(
      std::isnan(measure_gain(engine, cloud, bowed_clouds(1, 0.5, 1)[0], refined).plain_rms));
}

// A narrow strip about the axis of the fan, x = 120 + 0.01 y - 0.25 z but for 0.1 this way and
// that, and a refinement that has found just that plane.
class MeasureGainOnAStrip : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(engine_.init(), KESTRANE_OK);
    refined_.cells.assign(750, {{-1.0 / 120.0, 0.01 / 120.0, -0.25 / 120.0}});
    refined_.noise = 0.05;
    refined_.cross_validated_rms = 0.07;
    refined_.plane_only = true;
  }

  static PointList strip(const std::vector<std::int32_t>& frames, int points = 220) {
    PointList list;
    for (const std::int32_t frame : frames) {
      for (int i = 0; i < points; ++i) {
        const double z = 160.0 + 800.0 * i / points;
        const double y = z * 0.03 * (i % 7 - 3) / 3.0;
        const double error = 0.1 * std::sin(static_cast<double>(37 * i + 5 * frame));
        list.push_back({120.0 + 0.01 * y - 0.25 * z + error, y, z, frame});
      }
    }
    return list;
  }

  void expect_by_hand(const PointList& given, const PointList& job) {
    const double expected = plain_rms(engine_, given, job, refined_);
    ASSERT_GT(expected, 0.01);
    const RefinementFigures gain = measure_gain(engine_, given, job, refined_);
    EXPECT_NEAR(gain.plain_rms, expected, 1e-12 * expected);
    EXPECT_EQ(gain.refined_rms, 0.07);
    EXPECT_TRUE(gain.plane_only);
  }

  kestrane::KESTRANE_LASER_FAC_CALIB engine_;
  RefinedPlane refined_;
};

// The cloud as measured has frames that the screening took out of the job's.
TEST_F(MeasureGainOnAStrip, LooksAtTheFramesOfTheJobAlone) {
  PointList given = strip({-3, 1, 2, 4, 6, 8});
  for (auto& point : given) {
    if (point.id == -3 || point.id == 2 || point.id == 6 || point.id == 8) point.x += 0.15;
  }
  expect_by_hand(given, strip({1, 4, 5}));
}

TEST_F(MeasureGainOnAStrip, LooksAtPointsThatTheRefinementHasNearAlone) {
  PointList given = strip({0, 1});
  given[10].x += 0.5;
  given[20].x = kNaN;
  given[30].z = 90.0;  // no block
  expect_by_hand(given, strip({0, 1}));
}

// One block of the refined table without a plane, and a point that would lie on it all the same.
TEST_F(MeasureGainOnAStrip, LeavesBlocksOutThatHaveNoRefinedPlane) {
  const double a = -1.0 / 120.0;
  const double c = -0.25 / 120.0;
  const double tiny = 1e-17;
  const Block at = *PlaneTable(1).lookup(0.0, 256.0);
  const auto block = static_cast<std::size_t>(50 * at.line + at.cell);
  struct Broken {
    kestrane::_LASER_TRIPLE cell;
    double x;
  };
  const double rest = tiny * 256.0 + 1.0;
  for (const Broken& broken :
       {Broken{{{kNaN, 0.0, c}}, 56.0}, Broken{{{a, kNaN, c}}, 56.0},
        Broken{{{a, 0.0, kNaN}}, 56.0}, Broken{{{a, kInf, c}}, 56.0},
        Broken{{{-kInf, 0.0, c}}, 0.0}, Broken{{{0.0, 0.0, -1.0 / 256.0}}, 56.0},  // zero over zero
        Broken{{{tiny, tiny, tiny}}, -rest / tiny},
        Broken{{{-0.01, 0.0, 0.0}}, 100.0},  // a plane, like the others
        Broken{{{tiny, 0.01, 0.0}}, -1.0 / tiny},
        Broken{{{tiny, 0.0, 0.01}}, -(0.01 * 256.0 + 1.0) / tiny}}) {
    SCOPED_TRACE(testing::Message()
                 << broken.cell.v[0] << " " << broken.cell.v[1] << " " << broken.cell.v[2]);
    refined_.cells[block] = broken.cell;
    PointList given = strip({0, 1});
    given.push_back({broken.x, 0.0, 256.0, 1});
    expect_by_hand(given, strip({0, 1}));
  }
}

// Blocks beside the middle that have no plane in the job's table.
TEST_F(MeasureGainOnAStrip, LeavesBlocksOutThatTheJobHasNoPlaneFor) {
  PointList cloud = strip({0, 1}, 400);
  const PointList middle = cloud;
  for (const double slope : {-0.07, 0.14}) {
    PointList beside = middle;
    for (auto& point : beside) {
      point.y += slope * point.z;
      point.x += 0.01 * slope * point.z;
    }
    cloud.insert(cloud.end(), beside.begin(), beside.end());
  }
  PointList job = cloud;
  device_runs::tilt_middle(job, [](const auto&) { return true; });
  const JobRun run = run_job(engine_, job, false);
  const auto is_lost = [&](const auto& p) {
    return !std::isnan(x_at(refined_.cells, p)) && std::isnan(x_at(run.cells, p));
  };
  EXPECT_GT(std::count_if(cloud.begin(), cloud.end(), is_lost), 100);
  expect_by_hand(cloud, job);
}

// Frame 1 alone is too little for a sector.
TEST_F(MeasureGainOnAStrip, IsNotDeterminedWhereTheJobFailsOnAGroup) {
  PointList cloud = strip({0});
  const PointList few = strip({1}, 100);
  cloud.insert(cloud.end(), few.begin(), few.end());
  const RefinementFigures gain = measure_gain(engine_, cloud, cloud, refined_);
  EXPECT_TRUE(std::isnan(gain.plain_rms));
  EXPECT_EQ(gain.refined_rms, 0.07);
}

TEST_F(MeasureGainOnAStrip, IsNotDeterminedWhereTheRefinementRefuses) {
  refined_.refused = "nothing to be refined";
  const RefinementFigures gain = measure_gain(engine_, strip({0, 1}), strip({0, 1}), refined_);
  EXPECT_EQ(gain.refused, "nothing to be refined");
  EXPECT_TRUE(std::isnan(gain.refined_rms));
  EXPECT_TRUE(std::isnan(gain.plain_rms));
  EXPECT_FALSE(gain.plane_only);
}

// One frame is one group, without which nothing is left; of no frames there is none.
TEST_F(MeasureGainOnAStrip, NeedsTwoFrames) {
  EXPECT_TRUE(std::isnan(measure_gain(engine_, strip({0}), strip({0}), refined_).plain_rms));
  EXPECT_TRUE(std::isnan(measure_gain(engine_, strip({0}), {}, refined_).plain_rms));
}

// --- few points ---------------------------------------------------------------------------------

// Six planes of one narrow strip each: enough for a job, and soon refined.
std::vector<PointList> narrow_clouds() {
  simulation::CloudSettings settings;
  settings.points = 300;
  settings.frames = 3;
  settings.depth_low = 400.0;
  settings.depth_high = 450.0;
  settings.fan_low_degrees = -1.8;
  settings.fan_high_degrees = 1.8;
  simulation::DeviceSettings device;
  device.planes = 6;
  std::vector<PointList> clouds;
  for (const auto& sheet : simulation::make_device(device))
    clouds.push_back(simulation::measure(sheet, settings).points);
  return clouds;
}

TEST(RefinementOfADevice, IsOfThePlanesThatWereAskedFor) {
  const std::vector<PointList> clouds = narrow_clouds();
  const FactoryResult none = calibrate(clouds, Refine::kNone);
  const FactoryResult estimate = calibrate(clouds, Refine::kEstimate);
  const FactoryResult all = calibrate(clouds, Refine::kAll);
  ASSERT_EQ(none.refused, "");
  EXPECT_EQ(none.refined.table.planes(), 0);
  EXPECT_EQ(estimate.refined.table.planes(), 0);
  EXPECT_TRUE(estimate.refined.planes.empty());
  ASSERT_EQ(all.refined.table.planes(), 6);
  ASSERT_EQ(all.refined.planes.size(), 6U);
  for (std::size_t p = 0; p < 6; ++p) {
    EXPECT_FALSE(none.planes[p].refinement.has_value());
    EXPECT_EQ(estimate.planes[p].refinement.has_value(), is_estimated(p, 6)) << p;
    ASSERT_TRUE(all.planes[p].refinement.has_value());
    EXPECT_EQ(all.planes[p].refinement->refused, "");
    EXPECT_FALSE(all.refined.table.row_is_empty(static_cast<std::int32_t>(p)));
    EXPECT_EQ(all.refined.planes[p].cells.size(), 750U);
  }
}

}  // namespace
