#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/factory.h"
#include "simulation/host_table.h"
#include "simulation/scanner.h"
#include "tests/literal/factory_figures.h"
#include "tests/quality/factory/device_runs.h"
#include "tests/support/bits.h"

namespace {

using kestrane::quality::calibrate_factory;
using kestrane::quality::FactoryResult;
using kestrane::quality::FactorySettings;
using kestrane::quality::Origin;
using kestrane::quality::PlaneFigures;
using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;
using kestrane_test::kInf;

constexpr double kRounding = 1e-9;  // x of a plane from its coefficients, at a distance of 1000

struct DeviceCloud {
  std::vector<simulation::Sheet> sheets;
  std::vector<PointList> clouds;
};

DeviceCloud device_of(int planes, const simulation::CloudSettings& cloud, double bow = 0.4) {
  simulation::DeviceSettings settings;
  settings.planes = planes;
  settings.bow = bow;
  DeviceCloud device{simulation::make_device(settings), {}};
  for (int p = 0; p < planes; ++p) {
    simulation::CloudSettings own = cloud;
    own.seed = cloud.seed * 100 + static_cast<std::uint64_t>(p);
    device.clouds.push_back(
        simulation::measure(device.sheets[static_cast<std::size_t>(p)], own).points);
  }
  return device;
}

simulation::CloudSettings framed(int points = 8000) {
  simulation::CloudSettings settings;
  settings.points = points;
  settings.frames = 20;
  return settings;
}

FactorySettings plain_settings() {
  FactorySettings settings;
  settings.repeatability = false;
  return settings;
}

FactoryResult calibrate(const std::vector<PointList>& clouds,
                        const FactorySettings& settings = {}) {
  return calibrate_factory(kestrane::quality::clouds_of(clouds), settings);
}

void expect_equal_figures(const kestrane::quality::ResidualFigures& found,
                          const literal::Figures& expected) {
  EXPECT_EQ(static_cast<std::size_t>(found.points), expected.points);
  if (expected.points == 0) {
    EXPECT_TRUE(std::isnan(found.rms));
    return;
  }
  EXPECT_NEAR(found.rms, expected.rms, kRounding);
  EXPECT_NEAR(found.bias, expected.bias, kRounding);
  EXPECT_NEAR(found.q95, expected.q95, kRounding);
  EXPECT_NEAR(found.q99, expected.q99, kRounding);
  EXPECT_NEAR(found.max, expected.max, kRounding);
}

literal::Scene scene_of(const FactoryResult& result, int plane, const PointList& cloud) {
  literal::Scene scene;
  scene.cloud = cloud;
  for (int b = 0; b < 750; ++b) {
    scene.cells.push_back(result.table.cell(plane, {b / 50, b % 50}));
    scene.indicators.push_back(result.indicators[static_cast<std::size_t>(750 * plane + b)]);
  }
  scene.grids = result.table.grids();
  scene.band_near = 100.0;
  scene.band_far = 1000.0;
  return scene;
}

// --- refusals -----------------------------------------------------------------------------------

// What a host is told that asks for what it may not.
std::string told_of(const std::vector<_KESTRANE_ID_POINT3DS>& clouds) {
  try {
    calibrate_factory(clouds);
  } catch (const std::invalid_argument& refused) {
    return refused.what();
  }
  return "nothing";
}

TEST(CalibrateFactory, RefusesWhatAHostMayNotAskFor) {
  EXPECT_EQ(told_of({}), "no clouds");
  EXPECT_EQ(told_of(std::vector<_KESTRANE_ID_POINT3DS>(101)),
            "a device has at most 100 planes, not 101");
  EXPECT_EQ(told_of(std::vector<_KESTRANE_ID_POINT3DS>(100)), "nothing");
  EXPECT_EQ(told_of({{nullptr, 0}, {nullptr, 3}}), "the cloud of plane 1 has no points array");
  EXPECT_EQ(told_of({{nullptr, -1}, {nullptr, 0}}), "the cloud of plane 0 has a negative count");
  FactorySettings settings;
  for (const double gross : {0.0, -1.0, kInf, std::numeric_limits<double>::quiet_NaN()}) {
    settings.gross = gross;
    EXPECT_THROW(calibrate_factory({{nullptr, 0}}, settings), std::invalid_argument);
  }
  settings = {};
  settings.volume = kestrane::quality::WorkingVolume{300.0, 200.0, 30.0};
  EXPECT_THROW(calibrate_factory({{nullptr, 0}}, settings), std::invalid_argument);
}

TEST(CalibrateFactory, IsRefusedWithAReasonWhereNoPlaneIsLeft) {
  const FactoryResult result = calibrate({{}, {}});
  EXPECT_EQ(result.refused, "no plane could be calibrated: no points");
  EXPECT_EQ(result.table.planes(), 0);
  EXPECT_TRUE(result.indicators.empty());
  EXPECT_TRUE(result.corners.empty());
  ASSERT_EQ(result.planes.size(), 2U);
  EXPECT_EQ(result.planes[0].status, KESTRANE_ERR_INVALID_PARAM);
}

TEST(CalibrateFactory, SaysWhetherAllPlanesAreRefusedForTheSameReason) {
  const PointList few(5, {100.0, 0.0, 300.0, 0});
  EXPECT_EQ(calibrate({{}, few}).refused,
            "no plane could be calibrated: no points (plane 0; other planes for other reasons)");
  EXPECT_EQ(calibrate({few, few}).refused,
            "no plane could be calibrated: no sector has 200 points (5 of 5 points are left)");
}

TEST(CalibrateFactory, TellsMetresFromMillimetres) {
  DeviceCloud device = device_of(1, framed());
  for (auto& point : device.clouds[0]) {
    point.x /= 1000.0;
    point.y /= 1000.0;
    point.z /= 1000.0;
  }
  EXPECT_NE(calibrate(device.clouds).refused.find("metres"), std::string::npos);
}

TEST(CalibrateFactory, LeavesAFailedPlaneEmptyAndTheOthersAsTheyAre) {
  DeviceCloud device = device_of(4, framed());
  const FactoryResult whole = calibrate(device.clouds);
  device.clouds[1].clear();
  device.clouds[2].resize(150);
  const FactoryResult part = calibrate(device.clouds);
  EXPECT_EQ(part.refused, "");
  EXPECT_EQ(part.planes[1].reason, "no points");
  EXPECT_EQ(part.planes[2].status, KESTRANE_ERR_FAILED);
  EXPECT_NE(part.planes[2].reason, "");
  for (int p = 0; p < 4; ++p) {
    const bool failed = p == 1 || p == 2;
    EXPECT_EQ(part.table.row_is_empty(p), failed);
    const auto row = static_cast<std::size_t>(p);
    EXPECT_EQ(std::isnan(part.corners[816 * row].v[0]), failed);
    EXPECT_EQ(std::isnan(part.indicators[750 * row].v[0]), failed);
    for (int b = 0; b < 750; ++b) {
      for (int i = 0; i < 3; ++i) {
        const kestrane::quality::Block at{b / 50, b % 50};
        EXPECT_EQ(part.table.cell(p, at).v[i], failed ? 0.0 : whole.table.cell(p, at).v[i]);
      }
    }
    EXPECT_EQ(part.table.whole_plane(p)[0], failed ? 0.0 : whole.table.whole_plane(p)[0]);
    EXPECT_EQ(part.planes[row].blocks.empty(), failed);
    if (!failed) {
      EXPECT_EQ(part.planes[row].residuals.rms, whole.planes[row].residuals.rms);
    }
  }
}

// Unscreened, an infinite y makes a plane whose every number is not one, with a status of success.
TEST(CalibrateFactory, CallsAPlaneWithoutNumbersAFailure) {
  DeviceCloud device = device_of(2, framed());
  device.clouds[0][17].y = kInf;
  FactorySettings raw = plain_settings();
  raw.screen = false;
  const FactoryResult result = calibrate(device.clouds, raw);
  EXPECT_EQ(result.planes[0].status, KESTRANE_ERR_FAILED);
  EXPECT_TRUE(result.table.row_is_empty(0));
  EXPECT_EQ(result.table.whole_plane(0)[0], 0.0);
  EXPECT_FALSE(result.table.row_is_empty(1));
}

TEST(CalibrateFactory, StopsWhereTheCallbackThrows) {
  const DeviceCloud device = device_of(3, framed());
  struct Stop {};
  int calls = 0;
  const auto stop = [&](std::int32_t plane, _KESTRANE_STATUS status) {
    EXPECT_EQ(plane, calls++);
    EXPECT_EQ(status, KESTRANE_OK);
    if (plane == 1) throw Stop();
  };
  EXPECT_THROW(
      calibrate_factory(kestrane::quality::clouds_of(device.clouds), plain_settings(), stop), Stop);
  EXPECT_EQ(calls, 2);
}

// --- the job ------------------------------------------------------------------------------------

TEST(CalibrateFactory, HandsOutWhatTheJobMakesOfTheSamePoints) {
  DeviceCloud device = device_of(3, framed());
  for (const bool optimise : {false, true}) {
    FactorySettings settings;
    settings.optimise = optimise;
    const FactoryResult result = calibrate(device.clouds, settings);
    kestrane::KESTRANE_LASER_FAC_CALIB job;
    ASSERT_EQ(job.init(), KESTRANE_OK);
    job.set_optimize_flag(optimise ? kestrane::KESTRANE_OPTIM_ON : kestrane::KESTRANE_OPTIM_OFF);
    for (int p = 0; p < 3; ++p) {
      PointList& cloud = device.clouds[static_cast<std::size_t>(p)];
      ASSERT_EQ(job.factory_calib(p, {cloud.data(), static_cast<std::int32_t>(cloud.size())}),
                KESTRANE_OK);
    }
    PlaneTable expected(3);
    auto record = expected.record();
    ASSERT_EQ(job.get_laser_plane_infos(record), KESTRANE_OK);
    EXPECT_TRUE(result.table == expected) << optimise;
  }
}

TEST(CalibrateFactory, GivesTheSameResultFromAUsedEngine) {
  const DeviceCloud device = device_of(2, framed());
  const DeviceCloud other = device_of(5, framed(4000), 0.1);
  kestrane::KESTRANE_LASER_FAC_CALIB engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  FactorySettings far = plain_settings();
  far.type = kestrane::LASER_TYPE_FAR;
  far.optimise = true;
  calibrate_factory(engine, kestrane::quality::clouds_of(other.clouds), far);
  const FactoryResult result =
      calibrate_factory(engine, kestrane::quality::clouds_of(device.clouds));
  const FactoryResult expected = calibrate(device.clouds);
  EXPECT_TRUE(result.table == expected.table);
  EXPECT_EQ(result.device.rms, expected.device.rms);
  EXPECT_EQ(result.planes[1].repeatability, expected.planes[1].repeatability);
}

// --- several engines --------------------------------------------------------------------------

std::vector<kestrane::KESTRANE_LASER_FAC_CALIB*> ready(
    std::vector<kestrane::KESTRANE_LASER_FAC_CALIB>& engines) {
  std::vector<kestrane::KESTRANE_LASER_FAC_CALIB*> addresses;
  for (auto& engine : engines) {
    EXPECT_EQ(engine.init(), KESTRANE_OK);
    addresses.push_back(&engine);
  }
  return addresses;
}

TEST(CalibrateFactory, GivesTheSameBitsFromAnyNumberOfEngines) {
  DeviceCloud device = device_of(6, framed());
  device.clouds[2].clear();
  const auto clouds = kestrane::quality::clouds_of(device.clouds);
  FactorySettings settings;
  settings.optimise = true;
  const FactoryResult expected = calibrate_factory(clouds, settings);
  std::vector<kestrane::KESTRANE_LASER_FAC_CALIB> engines(3);
  const FactoryResult found = calibrate_factory(ready(engines), clouds, settings);
  EXPECT_TRUE(found.table == expected.table);
  EXPECT_EQ(found.device.points, expected.device.points);
  EXPECT_EQ(found.device.rms, expected.device.rms);
  EXPECT_EQ(found.device.bias, expected.device.bias);
  EXPECT_EQ(found.device.q95, expected.device.q95);
  EXPECT_EQ(found.device.q99, expected.device.q99);
  EXPECT_EQ(found.device.max, expected.device.max);
  for (std::size_t p = 0; p < 6; ++p) {
    EXPECT_EQ(found.planes[p].status, expected.planes[p].status) << p;
    EXPECT_EQ(found.planes[p].reason, expected.planes[p].reason) << p;
    if (p == 2) continue;
    EXPECT_EQ(found.planes[p].repeatability, expected.planes[p].repeatability) << p;
    EXPECT_EQ(found.planes[p].optimisation.corner_moves,
              expected.planes[p].optimisation.corner_moves)
        << p;
  }
}

// A plane is reported when it is done, and not before.
TEST(CalibrateFactory, ReportsPlanesInOrderOnTheCallingThread) {
  const DeviceCloud device = device_of(6, framed(4000));
  std::vector<kestrane::KESTRANE_LASER_FAC_CALIB> engines(3);
  std::vector<std::int32_t> reported;
  const auto caller = std::this_thread::get_id();
  calibrate_factory(ready(engines), kestrane::quality::clouds_of(device.clouds), plain_settings(),
                    [&](std::int32_t plane, _KESTRANE_STATUS status) {
                      EXPECT_EQ(std::this_thread::get_id(), caller);
                      EXPECT_EQ(status, KESTRANE_OK);
                      reported.push_back(plane);
                    });
  EXPECT_EQ(reported, (std::vector<std::int32_t>{0, 1, 2, 3, 4, 5}));
}

// Screened and as they are, which makes another table of clouds with outliers.
TEST(CalibrateFactory, AddsUpWhatSeveralEnginesHaveDone) {
  simulation::CloudSettings cloud = framed(4000);
  cloud.outlier_share = 0.02;
  DeviceCloud device = device_of(12, cloud);
  device.clouds[7].clear();
  const auto clouds = kestrane::quality::clouds_of(device.clouds);
  for (const bool screen : {true, false}) {
    FactorySettings settings = plain_settings();
    settings.screen = screen;
    std::vector<kestrane::KESTRANE_LASER_FAC_CALIB> engines(3);
    const FactoryResult expected = calibrate_factory(clouds, settings);
    const FactoryResult found = calibrate_factory(ready(engines), clouds, settings);
    EXPECT_TRUE(found.table == expected.table) << screen;
    EXPECT_EQ(found.planes[0].screening.dropped.gross > 0, screen);
    EXPECT_EQ(found.planes[7].reason, "no points");
    EXPECT_EQ(found.device.points, expected.device.points);
    EXPECT_EQ(found.device.q95, expected.device.q95);
    EXPECT_EQ(found.device.q99, expected.device.q99);
    EXPECT_EQ(found.device.max, expected.device.max);
    EXPECT_EQ(found.histogram.counts, expected.histogram.counts);
  }
}

TEST(CalibrateFactory, StopsAllEnginesWhereTheCallbackThrows) {
  const DeviceCloud device = device_of(40, framed(2000));
  std::vector<kestrane::KESTRANE_LASER_FAC_CALIB> engines(2);
  struct Stop {};
  int calls = 0;
  EXPECT_THROW(calibrate_factory(ready(engines), kestrane::quality::clouds_of(device.clouds),
                                 plain_settings(),
                                 [&](std::int32_t, _KESTRANE_STATUS) {
                                   ++calls;
                                   throw Stop();
                                 }),
               Stop);
  EXPECT_EQ(calls, 1);
}

TEST(CalibrateFactory, RefusesNoEngineAndANullOne) {
  const DeviceCloud device = device_of(1, framed(2000));
  const auto clouds = kestrane::quality::clouds_of(device.clouds);
  using Engines = std::vector<kestrane::KESTRANE_LASER_FAC_CALIB*>;
  EXPECT_THROW(calibrate_factory(Engines{}, clouds), std::invalid_argument);
  EXPECT_THROW(calibrate_factory(Engines{nullptr}, clouds), std::invalid_argument);
}

TEST(CalibrateFactory, TakesTheBandOfTheLaserType) {
  const DeviceCloud device = device_of(1, framed());
  FactorySettings far = plain_settings();
  far.type = kestrane::LASER_TYPE_FAR;
  const FactoryResult result = calibrate(device.clouds, far);
  EXPECT_EQ(result.volume.depth_near, 220.0);
  EXPECT_EQ(result.planes[0].blocks[7 * 50].residuals.points, 0);  // depths 150 to 177
  EXPECT_GT(result.planes[0].blocks[7 * 50 + 4].residuals.points, 0);
}

// Unscreened, so that the job has to choose the points of its band by itself.
TEST(CalibrateFactory, TellsTheJobItsLaserType) {
  DeviceCloud device = device_of(1, framed(), 2.0);
  PointList& cloud = device.clouds[0];
  FactorySettings settings = plain_settings();
  settings.screen = false;
  settings.type = kestrane::LASER_TYPE_FAR;
  kestrane::KESTRANE_LASER_FAC_CALIB job;
  ASSERT_EQ(job.init(), KESTRANE_OK);
  job.set_laser_type(kestrane::LASER_TYPE_FAR);
  ASSERT_EQ(job.factory_calib(0, {cloud.data(), static_cast<std::int32_t>(cloud.size())}),
            KESTRANE_OK);
  PlaneTable expected(1);
  auto record = expected.record();
  ASSERT_EQ(job.get_laser_plane_infos(record), KESTRANE_OK);
  EXPECT_TRUE(calibrate(device.clouds, settings).table == expected);
}

// --- figures ------------------------------------------------------------------------------------

// Points exactly on a tilted sheet: the table is the sheet, and nothing is left.
TEST(FactoryFigures, VanishOnATiltedSheetWithoutNoise) {
  simulation::CloudSettings exact = framed();
  exact.noise = 0.0;
  const DeviceCloud device = device_of(1, exact, 0.0);
  const FactoryResult result = calibrate(device.clouds);
  const PlaneFigures& plane = result.planes[0];
  EXPECT_LT(plane.residuals.max, kRounding);
  EXPECT_LT(plane.seam, kRounding);
  EXPECT_LT(plane.repeatability, kRounding);
  EXPECT_EQ(plane.outliers, 0);
  EXPECT_EQ(plane.sigma, 1e-9);
}

TEST(FactoryFigures, EqualAPlainTranscription) {
  simulation::CloudSettings cloud = framed(12000);
  cloud.frames = 25;
  cloud.first_frame = -7;
  cloud.frame_stride = 3;
  cloud.frame_noise = 0.03;
  cloud.outlier_share = 0.01;
  cloud.outlier_reach = 2.0;  // too near to be screened
  cloud.outside_share = 0.02;
  cloud.bad_frames = 1;
  cloud.bad_frame_shift = 1.0;
  cloud.fan_low_degrees = -21.0;
  const DeviceCloud device = device_of(3, cloud);
  FactorySettings settings = plain_settings();
  settings.screen = false;
  const FactoryResult result = calibrate(device.clouds, settings);
  std::vector<double> pooled;
  for (int p = 0; p < 3; ++p) {
    SCOPED_TRACE(p);
    const auto row = static_cast<std::size_t>(p);
    const PlaneFigures& plane = result.planes[row];
    const literal::Scene scene = scene_of(result, p, device.clouds[row]);
    const std::vector<literal::Valid> valid = literal::valid_points(scene);
    const literal::Middle middle = literal::middle_of(literal::residuals_of(valid));
    EXPECT_NEAR(plane.median, middle.m, kRounding);
    EXPECT_NEAR(plane.sigma, middle.sigma, kRounding);
    EXPECT_EQ(static_cast<std::size_t>(plane.valid), valid.size());
    const std::vector<double> all = literal::kept(valid, middle, -1);
    EXPECT_EQ(static_cast<std::size_t>(plane.outliers), valid.size() - all.size());
    EXPECT_GT(plane.outliers, 0);
    expect_equal_figures(plane.residuals, literal::figures(all));
    pooled.insert(pooled.end(), all.begin(), all.end());

    std::vector<literal::Source> sources;
    for (int b = 0; b < 750; ++b) sources.push_back(literal::source(scene, valid, middle, b));
    std::vector<double> seams;
    double measured = 0.0;
    double in_volume = 0.0;
    bool borrowed = false;
    for (int b = 0; b < 750; ++b) {
      SCOPED_TRACE(b);
      const auto& block = plane.blocks[static_cast<std::size_t>(b)];
      expect_equal_figures(block.residuals, literal::figures(literal::kept(valid, middle, b)));
      EXPECT_EQ(static_cast<int>(block.origin), sources[static_cast<std::size_t>(b)]);
      const double seam = literal::seam(scene, sources, b);
      ASSERT_EQ(std::isnan(block.seam), std::isnan(seam));
      if (!std::isnan(seam)) {
        EXPECT_NEAR(block.seam, seam, kRounding);
        seams.push_back(seam);
      }
      // Depths 150 + 27 (k + 0.5) up to 1000.
      if (b % 50 > 30) continue;
      in_volume += 1.0;
      measured += sources[static_cast<std::size_t>(b)] == literal::kMeasured ? 1.0 : 0.0;
      borrowed = borrowed || sources[static_cast<std::size_t>(b)] == literal::kBorrowed;
    }
    EXPECT_NEAR(plane.seam, literal::quantile(seams, 95), kRounding);
    EXPECT_NEAR(plane.median_seam, literal::median(seams), kRounding);
    EXPECT_EQ(plane.coverage, measured / in_volume);
    EXPECT_EQ(plane.borrowed_in_volume, borrowed);
    EXPECT_TRUE(borrowed);

    const literal::Poses poses = literal::poses(valid);
    EXPECT_NEAR(plane.within_poses, poses.within, kRounding);
    EXPECT_NEAR(plane.between_poses, poses.between, kRounding);
    ASSERT_EQ(plane.poses.size(), poses.medians.size());
    for (const auto& pose : plane.poses) {
      EXPECT_NEAR(pose.median, poses.medians.at(pose.frame), kRounding);
      EXPECT_EQ(pose.off, poses.off.at(pose.frame));
    }
  }
  expect_equal_figures(result.device, literal::figures(pooled));
}

TEST(FactoryFigures, AreOfWhatTheScreeningLeaves) {
  simulation::CloudSettings cloud = framed();
  cloud.outlier_share = 0.02;
  cloud.outlier_reach = 200.0;
  const DeviceCloud device = device_of(1, cloud);
  const FactoryResult result = calibrate(device.clouds);
  const PlaneFigures& plane = result.planes[0];
  EXPECT_GT(plane.screening.dropped.gross, 100);
  EXPECT_EQ(plane.screening.kept + plane.screening.dropped.all(), 8000);
  EXPECT_LE(plane.valid, plane.screening.kept);
  EXPECT_LT(plane.outlier_share(), 0.01);
}

// Residuals of the transcription differ in their last digits, so that one beside a bound may count
// in the bin beside it.
void expect_histogram_of(const kestrane::quality::ResidualHistogram& histogram,
                         const std::vector<double>& residuals, double rms) {
  constexpr std::int64_t kBesideABound = 2;
  EXPECT_EQ(histogram.low, -4.0 * rms);
  std::int64_t all = histogram.below + histogram.above;
  for (std::size_t b = 0; b < histogram.counts.size(); ++b) {
    const double from = histogram.low + static_cast<double>(b) * histogram.width;
    const auto expected = std::count_if(residuals.begin(), residuals.end(), [&](double residual) {
      return residual >= from && residual < from + histogram.width;
    });
    EXPECT_LE(std::abs(histogram.counts[b] - expected), kBesideABound) << "bin " << b;
    all += histogram.counts[b];
  }
  EXPECT_EQ(all, static_cast<std::int64_t>(residuals.size()));
}

// The device's quantiles come from a second look at the clouds, which has to leave out what the
// first left out: points that were screened although the table has them near, and outliers.
TEST(FactoryFigures, OfTheDeviceAreThoseOfAllPlanesTogether) {
  simulation::CloudSettings cloud = framed();
  cloud.outlier_share = 0.05;
  cloud.outlier_reach = 5.0;
  cloud.dropped_share = 0.01;
  cloud.outside_share = 0.02;
  DeviceCloud device =
      device_of(4, cloud, 2.0);  // a bow that the table misses, and the screening not
  device.clouds[2].resize(100);
  FactorySettings settings = plain_settings();
  settings.gross = 0.01;  // the limit follows the scatter of the points
  const FactoryResult result = calibrate(device.clouds, settings);
  kestrane::quality::CloudSettings screening;
  screening.gross = 0.01;
  std::vector<double> pooled;
  for (const int p : {0, 1, 3}) {
    const auto row = static_cast<std::size_t>(p);
    const PointList kept = kestrane::quality::screen_cloud(device.clouds[row], screening).points;
    const auto valid = literal::valid_points(scene_of(result, p, kept));
    const auto all = literal::kept(valid, literal::middle_of(literal::residuals_of(valid)), -1);
    pooled.insert(pooled.end(), all.begin(), all.end());
  }
  EXPECT_NE(result.planes[2].reason, "");
  expect_equal_figures(result.device, literal::figures(pooled));
  expect_histogram_of(result.histogram, pooled, result.device.rms);
}

std::int64_t counted(const kestrane::quality::ResidualHistogram& histogram) {
  return std::accumulate(histogram.counts.begin(), histogram.counts.end(),
                         histogram.below + histogram.above);
}

// Points that the job leaves out lie on the table's blocks all the same, and without the screening
// nothing else has taken them out before the second look: nearer and farther than the band, and
// with an x that is not a number.
TEST(FactoryFigures, CountEachResidualOnceInTheSecondLook) {
  simulation::CloudSettings cloud = framed();
  cloud.depth_low = 130.0;
  cloud.depth_high = 1400.0;
  cloud.dropped_share = 0.02;
  DeviceCloud device = device_of(2, cloud, 0.0);
  for (PointList& list : device.clouds) {
    for (auto& point : list) {
      // A little off, and no outliers.
      if (point.z < 220.0 || point.z > 1000.0) point.x += 0.1;
    }
  }
  FactorySettings settings = plain_settings();
  settings.screen = false;
  settings.type = kestrane::LASER_TYPE_FAR;
  const FactoryResult result = calibrate(device.clouds, settings);
  ASSERT_EQ(result.refused, "");
  EXPECT_GT(result.device.points, 4000);
  EXPECT_EQ(counted(result.histogram), result.device.points);
  std::vector<double> pooled;
  for (int p = 0; p < 2; ++p) {
    literal::Scene scene = scene_of(result, p, device.clouds[static_cast<std::size_t>(p)]);
    scene.band_near = 220.0;
    const auto valid = literal::valid_points(scene);
    const auto all = literal::kept(valid, literal::middle_of(literal::residuals_of(valid)), -1);
    pooled.insert(pooled.end(), all.begin(), all.end());
  }
  expect_equal_figures(result.device, literal::figures(pooled));
}

TEST(FactoryFigures, LeaveOutPointsOnBlocksWithoutAPlane) {
  DeviceCloud device = device_of(1, framed());
  device_runs::tilt_middle(device.clouds[0], [](const auto&) { return true; });
  FactorySettings settings = plain_settings();
  settings.screen = false;
  const FactoryResult result = calibrate(device.clouds, settings);
  ASSERT_EQ(result.refused, "");
  std::int64_t without = 0;
  for (const auto& point : device.clouds[0]) {
    const auto at = result.table.lookup(point.y, point.z);
    if (at && point.z <= 1000.0 && result.table.is_empty(0, *at)) ++without;
  }
  EXPECT_GT(without, 100);
  EXPECT_EQ(counted(result.histogram), result.device.points);
  const auto valid = literal::valid_points(scene_of(result, 0, device.clouds[0]));
  EXPECT_EQ(result.planes[0].valid, static_cast<std::int64_t>(valid.size()));
}

// A cloud along one line fixes no sheet, and none of its points is gross; the job takes it.
TEST(FactoryFigures, AreOfAllPointsWhereTheScreeningHasNoSheet) {
  PointList line;
  for (int i = 0; i < 400; ++i) {
    const double z = 200.0 + 1.5 * i;
    line.push_back({120.0 - 0.25 * z, 0.01 * z, z, i / 100});
  }
  line[7].x = kestrane_test::kNaN;
  const FactoryResult result = calibrate({line}, plain_settings());
  ASSERT_EQ(result.refused, "");
  EXPECT_EQ(result.planes[0].screening.kept, 399);
  EXPECT_EQ(result.device.points, 399);
  EXPECT_EQ(counted(result.histogram), 399);
}

// A bad frame of 0.8 among 20: found, and no other.
TEST(FactoryFigures, NameAPlantedBadFrameAndNoOther) {
  DeviceCloud device = device_of(1, framed());
  for (auto& point : device.clouds[0]) {
    if (point.id == 13) point.x += 0.8;
  }
  const FactoryResult result = calibrate(device.clouds);
  for (const auto& pose : result.planes[0].poses) EXPECT_EQ(pose.off, pose.frame == 13);
}

// --- repeatability ------------------------------------------------------------------------------

// The halves are what a host would get from the frames of even and of odd rank; ranks count frames,
// not numbers.
TEST(Repeatability, ComparesTheTablesOfEvenAndOddFrames) {
  simulation::CloudSettings cloud = framed();
  cloud.first_frame = 5;
  cloud.frame_stride = 4;
  const DeviceCloud device = device_of(1, cloud);
  std::vector<PointList> halves(2);
  for (const auto& point : device.clouds[0]) {
    halves[static_cast<std::size_t>((point.id - 5) / 4 % 2)].push_back(point);
  }
  const FactoryResult whole = calibrate(device.clouds);
  const FactoryResult split = calibrate(halves, plain_settings());
  double squares = 0.0;
  int blocks = 0;
  for (int b = 0; b < 750; ++b) {
    const auto& block = whole.planes[0].blocks[static_cast<std::size_t>(b)];
    EXPECT_EQ(std::isnan(block.repeatability), block.origin != Origin::kMeasured);
    if (block.origin != Origin::kMeasured) continue;
    const kestrane::quality::Block at{b / 50, b % 50};
    const auto middle = whole.table.block_middle(at);
    const double* v = whole.table.cell(0, at).v;
    const double n_x = std::abs(v[0]) / std::hypot(v[0], v[1], v[2]);
    const double expected = 0.5 * n_x *
                            std::abs(literal::x_of(split.table.cell(0, at), middle.y, middle.z) -
                                     literal::x_of(split.table.cell(1, at), middle.y, middle.z));
    EXPECT_NEAR(block.repeatability, expected, kRounding) << b;
    squares += expected * expected;
    ++blocks;
  }
  EXPECT_NEAR(whole.planes[0].repeatability, std::sqrt(squares / blocks), kRounding);
}

TEST(Repeatability, NeedsFourFrames) {
  for (const int frames : {3, 4}) {
    simulation::CloudSettings cloud = framed();
    cloud.frames = frames;
    const FactoryResult result = calibrate(device_of(1, cloud).clouds);
    EXPECT_EQ(std::isnan(result.planes[0].repeatability), frames == 3) << frames;
  }
}

TEST(Repeatability, IsNotDeterminedWhereAHalfFails) {
  // 3200 points: 210 a sector, and 105 in the halves.
  simulation::CloudSettings cloud = framed(3400);
  const FactoryResult result = calibrate(device_of(1, cloud).clouds);
  EXPECT_EQ(result.planes[0].reason, "");
  EXPECT_TRUE(std::isnan(result.planes[0].repeatability));
}

TEST(Repeatability, IsNotDeterminedWhereOneHalfFails) {
  for (const int thin : {0, 1}) {
    DeviceCloud device = device_of(1, framed(12000));
    PointList& cloud = device.clouds[0];
    int left = 0;
    cloud.erase(
        std::remove_if(cloud.begin(), cloud.end(),
                       [&](const auto& point) { return point.id % 2 == thin && left++ % 30 != 0; }),
        cloud.end());
    const FactoryResult result = calibrate(device.clouds);
    EXPECT_EQ(result.planes[0].reason, "");
    EXPECT_TRUE(std::isnan(result.planes[0].repeatability)) << thin;
    EXPECT_TRUE(std::isnan(result.planes[0].blocks[7 * 50 + 5].repeatability)) << thin;
  }
}

// Three sectors; of those frames that are thinned about the axis, the middle one gets a plane that
// leaves the blocks beside it none in that half. In the whole the other frames outweigh it.
TEST(Repeatability, LeavesOutBlocksWithoutAPlaneInAHalf) {
  simulation::CloudSettings narrow = framed(12000);
  narrow.fan_low_degrees = -5.9;
  narrow.fan_high_degrees = 5.9;
  for (const int tilted : {0, 1}) {
    SCOPED_TRACE(tilted);
    DeviceCloud device = device_of(1, narrow);
    PointList& cloud = device.clouds[0];
    const auto is_thinned = [&](const auto& point) { return point.id % 2 == tilted; };
    int middle = 0;
    cloud.erase(std::remove_if(cloud.begin(), cloud.end(),
                               [&](const auto& point) {
                                 return is_thinned(point) && std::abs(point.y) < 0.036 * point.z &&
                                        middle++ % 9 != 0;
                               }),
                cloud.end());
    device_runs::tilt_middle(cloud, is_thinned);
    std::vector<PointList> halves(2);
    for (const auto& point : cloud) halves[static_cast<std::size_t>(point.id % 2)].push_back(point);
    FactorySettings settings;
    settings.screen = false;
    const FactoryResult whole = calibrate(device.clouds, settings);
    settings.repeatability = false;
    const FactoryResult split = calibrate(halves, settings);
    int without = 0;
    for (std::size_t b = 0; b < 750; ++b) {
      const auto& block = whole.planes[0].blocks[b];
      if (block.origin != Origin::kMeasured) continue;
      const auto line = static_cast<std::int32_t>(b / 50);
      const bool empty = split.table.is_empty(tilted, {line, static_cast<std::int32_t>(b % 50)});
      EXPECT_EQ(std::isnan(block.repeatability), empty) << b;
      without += empty ? 1 : 0;
    }
    EXPECT_GT(without, 10);
    EXPECT_TRUE(std::isfinite(whole.planes[0].repeatability));
  }
}

// A sheet across the axis, whose planes have a part in y and z that cannot be told from zero.
TEST(Repeatability, IsDeterminedForAFlatSheet) {
  simulation::CloudSettings exact = framed(12000);
  exact.noise = 0.0;
  const simulation::Sheet flat = {128.0, 0.0, 0.0, 0.0, 0.0};
  PointList cloud = simulation::measure(flat, exact).points;
  // Sectors whose points have no distance at all would count as empty.
  for (std::size_t i = 0; i < cloud.size(); i += 7) cloud[i].x += i % 2 == 0 ? 1e-11 : -1e-11;
  const FactoryResult result = calibrate({cloud});
  const PlaneFigures& plane = result.planes[0];
  const double* abc = result.table.cell(0, {7, 10}).v;
  EXPECT_LT(std::max(std::abs(abc[1]), std::abs(abc[2])), 2e-16);
  EXPECT_LT(plane.repeatability, kRounding);
  for (const auto& block : plane.blocks) {
    EXPECT_EQ(std::isnan(block.repeatability), block.origin != Origin::kMeasured);
  }
}

TEST(Repeatability, LeavesOutSectorsThatAHalfBorrows) {
  // The even frames see half of the fan alone.
  DeviceCloud device = device_of(1, framed(16000));
  PointList& cloud = device.clouds[0];
  cloud.erase(std::remove_if(cloud.begin(), cloud.end(),
                             [](const auto& point) { return point.id % 2 == 0 && point.y < 0.0; }),
              cloud.end());
  const FactoryResult result = calibrate(device.clouds);
  const auto& blocks = result.planes[0].blocks;
  for (std::size_t b = 0; b < 750; ++b) {
    if (blocks[b].origin != Origin::kMeasured) continue;
    if (b / 50 == 7) continue;  // the axis runs through it
    EXPECT_EQ(std::isnan(blocks[b].repeatability), b / 50 < 7) << b;
  }
}

TEST(Repeatability, IsNotMeasuredWhereItIsNotAskedFor) {
  const FactoryResult result = calibrate(device_of(1, framed()).clouds, plain_settings());
  EXPECT_TRUE(std::isnan(result.planes[0].repeatability));
}

// --- optimisation -------------------------------------------------------------------------------

TEST(OptimisationFigures, CompareWithTheRunWithoutIt) {
  const DeviceCloud device = device_of(2, framed(20000));
  FactorySettings settings = plain_settings();
  const FactoryResult off = calibrate(device.clouds, settings);
  settings.optimise = true;
  const FactoryResult on = calibrate(device.clouds, settings);
  for (std::size_t p = 0; p < 2; ++p) {
    const auto& figures = on.planes[p].optimisation;
    ASSERT_EQ(figures.corner_moves.size(), 816U);
    double largest = 0.0;
    int at_bound = 0;
    for (std::size_t c = 0; c < 816; ++c) {
      const double move = on.corners[816 * p + c].v[0] - off.corners[816 * p + c].v[0];
      EXPECT_EQ(figures.corner_moves[c], move);
      largest = std::max(largest, std::abs(move));
      at_bound += std::abs(move) >= 0.4999 ? 1 : 0;
    }
    EXPECT_EQ(figures.largest_move, largest);
    EXPECT_GT(largest, 0.0);
    EXPECT_EQ(figures.at_bound, at_bound);
    EXPECT_EQ(figures.rms_without, off.planes[p].residuals.rms);
    EXPECT_EQ(figures.median_seam_without, off.planes[p].median_seam);
    EXPECT_LT(on.planes[p].residuals.rms, figures.rms_without);
    EXPECT_GT(on.planes[p].median_seam, figures.median_seam_without);
  }
  EXPECT_TRUE(off.planes[0].optimisation.corner_moves.empty());
}

}  // namespace
