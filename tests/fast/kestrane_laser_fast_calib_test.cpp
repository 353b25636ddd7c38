// The exported classes: order of checks, life cycle, and whole calibrations.
#include <Eigen/Geometry>
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>

#include "fast/frame_filter.h"
#include "fast/interior_planes.h"
#include "fast/residual_measurement.h"
#include "fast/transform_solve.h"
#include "kestrane/fast_calib.h"
#include "simulation/random.h"
#include "tests/fast/engine_access.h"
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_solve.h"
#include "tests/support/starved_heap.h"

namespace {

using namespace fast_support;
using kestrane::KESTRANE_LASER_FAST_CALIB;
using kestrane::KestraneLaserFastCalibrator;

struct Result {
  _KESTRANE_STATUS status;
  _MRV_TRANSFORM transform{};
  double mean = -7, max = -7, deviation = -7;
  std::string report;
  std::string complaints;
};

template <class Calibrator>
void read_result(Calibrator& calibrator, Result& result) {
  EXPECT_EQ(calibrator.get_transform_param(result.transform), KESTRANE_OK);
  EXPECT_EQ(calibrator.get_calib_indicator(result.mean, result.max, result.deviation), KESTRANE_OK);
}

Result calibrate(KESTRANE_LASER_FAST_CALIB& calib, const FrameLists& frames, int first, int last) {
  Result result{};
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  result.status = calib.fast_calib(frames, first, last);
  result.complaints = testing::internal::GetCapturedStderr();
  result.report = testing::internal::GetCapturedStdout();
  read_result(calib, result);
  return result;
}

void expect_transform(const _MRV_TRANSFORM& t, std::array<double, 7> expected) {
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(t.quaternion[i], expected[i]) << i;
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(t.translation[i], expected[4 + i]) << i;
}

// A simulated device, its table, and what it measures after a motion.
struct Device {
  std::vector<simulation::Sheet> sheets;
  fast_scene::Standard standard;

  explicit Device(int planes, std::uint64_t seed = 1)
      : sheets(simulation::make_device({.planes = planes, .seed = seed})), standard(sheets) {}

  FrameLists measured(const simulation::Placement& motion,
                      const simulation::CloudSettings& settings) const {
    return fast_scene::measure_all(sheets, motion, settings);
  }

  FrameLists measured(const simulation::Placement& motion, int points = 800) const {
    simulation::CloudSettings settings = simulation::field_cloud_settings();
    settings.points = points;
    return measured(motion, settings);
  }
};

const simulation::Placement kShaken =
    simulation::rigid_motion({3e-4, -2e-4, 4e-4}, {0.2, 0.1, -0.15});

// --- Facade ---

TEST(FastCalib, IsNotCopyConstructible) {
  EXPECT_FALSE(std::is_copy_constructible_v<KESTRANE_LASER_FAST_CALIB>);
  EXPECT_FALSE(std::is_copy_constructible_v<KestraneLaserFastCalibrator>);
  EXPECT_EQ(sizeof(KESTRANE_LASER_FAST_CALIB), sizeof(void*));
}

TEST(FastCalib, TestsTheListsBeforeTheEngine) {
  KESTRANE_LASER_FAST_CALIB calib;
  EXPECT_EQ(calib.fast_calib({}, 0, 0), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(calib.fast_calib(FrameLists(1), 0, 0), KESTRANE_ERR_NOT_READY);
  EXPECT_EQ(calib.fast_calib(FrameLists(3), 0, 0), KESTRANE_ERR_NOT_READY) << "before the count";
}

TEST(FastCalib, StartsWithZerosAndAHalfTurn) {
  KESTRANE_LASER_FAST_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  Result fresh{};
  read_result(calib, fresh);
  EXPECT_EQ(fresh.mean, 0.0);
  EXPECT_EQ(fresh.max, 0.0);
  EXPECT_EQ(fresh.deviation, 0.0);
  expect_transform(fresh.transform, {1, 0, 0, 0, 0, 0, 0});
}

TEST(FastCalib, RefusesAWrongNumberOfListsWithTheDiagonalSetAlready) {
  fast_scene::Standard standard = flat_standard(4);
  KESTRANE_LASER_FAST_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  ASSERT_EQ(calib.set_laser_plane_standard(standard.host()), KESTRANE_OK);
  const Result refused = calibrate(calib, FrameLists(2, List(3, {130, 0, 300, 0})), 0, 2);
  EXPECT_EQ(refused.status, KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(refused.report, "") << "before any work";
  EXPECT_EQ(refused.mean, 0.0);
  EXPECT_EQ(refused.max, 0.0);
  expect_transform(refused.transform, {0, 0, 0, 1, 0, 0, 0});
}

TEST(FastCalib, SetsTheDiagonalAloneBeforeItRefusesTheNumberOfLists) {
  kestrane::KestraneLaserFastCalibrator engine_alone;
  ASSERT_EQ(engine_alone.init(), KESTRANE_OK);
  EXPECT_EQ(engine_alone.calib_Rt(FrameLists(2), 0, 2), KESTRANE_ERR_COUNT_MISMATCH);
  const _MRV_EXTRINSIC_PARAM& extrinsic = engine_alone.*member(engine_access::Extrinsic{});
  for (int i = 0; i < 9; ++i) EXPECT_EQ(extrinsic.R[i], i % 4 == 0 ? 1.0 : 0.0) << i;
  for (const double t : extrinsic.T) EXPECT_EQ(t, 0.0);
}

// Every init leaves its block behind, so a starved process runs out of memory for another one.
void run_out_of_blocks() {
  KESTRANE_LASER_FAST_CALIB calib;
  starved::starve_heap();
  _KESTRANE_STATUS status = KESTRANE_OK;
  for (int i = 0; i < 1000 && status == KESTRANE_OK; ++i) status = calib.init();
  const bool reported = status == KESTRANE_ERR_NO_MEMORY;
  const bool empty = calib.fast_calib(FrameLists(1), 0, 0) == KESTRANE_ERR_NOT_READY;
  std::_Exit(reported && empty ? 0 : 1);
}

TEST(FastCalibDeathTest, IsLeftWithoutAnEngineByAnInitThatFindsNoMemory) {
  if (!starved::kHeapCanRunOut) GTEST_SKIP() << "the sanitizer owns the heap";
  EXPECT_EXIT(run_out_of_blocks(), testing::ExitedWithCode(0), "");
}

TEST(FastCalib, CountsListsWithoutOverflow) {
  KESTRANE_LASER_FAST_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  constexpr int kLowest = std::numeric_limits<int>::min();
  constexpr int kHighest = std::numeric_limits<int>::max();
  EXPECT_EQ(calib.fast_calib(FrameLists(1), kHighest, kLowest), KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(calib.fast_calib(FrameLists(1), kLowest, kHighest), KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(calib.fast_calib(FrameLists(1), 0, kHighest), KESTRANE_ERR_COUNT_MISMATCH);
}

TEST(FastCalib, KeepsTheLastResultThroughARefusedCall) {
  Device device(4);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const Result before = calibrate(calib, device.measured(kShaken), 0, 3);
  ASSERT_EQ(before.status, KESTRANE_OK);
  const Result after = calibrate(calib, FrameLists(1), 0, 3);
  EXPECT_EQ(after.status, KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(after.mean, before.mean);
  EXPECT_EQ(after.max, before.max);
  EXPECT_EQ(after.deviation, before.deviation);
  EXPECT_EQ(after.transform.translation[0], before.transform.translation[0]);
}

TEST(FastCalib, NeedsTheStandardAgainAfterASecondInit) {
  Device device(4);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const FrameLists frames = device.measured(kShaken);
  ASSERT_GT(calibrate(calib, frames, 0, 3).max, 0.0);
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  Result fresh{};
  read_result(calib, fresh);
  EXPECT_EQ(fresh.max, 0.0) << "starts from nothing";
  const Result without = calibrate(calib, frames, 0, 3);
  EXPECT_EQ(without.status, KESTRANE_OK);
  EXPECT_EQ(without.max, -1000.0) << "no cell holds a plane";
  calib.set_laser_plane_standard(device.standard.host());
  EXPECT_GT(calibrate(calib, frames, 0, 3).max, 0.0);
}

TEST(FastCalib, SharesTheEngineOnAssignment) {
  Device device(4);
  KESTRANE_LASER_FAST_CALIB owner;
  owner.init();
  owner.set_laser_plane_standard(device.standard.host());
  // Never destroyed: only one of the two may be.
  alignas(KESTRANE_LASER_FAST_CALIB) unsigned char place[sizeof(KESTRANE_LASER_FAST_CALIB)];
  auto& sharer = *new (place) KESTRANE_LASER_FAST_CALIB();
  sharer = owner;
  const Result result = calibrate(sharer, device.measured(kShaken), 0, 3);
  EXPECT_EQ(result.status, KESTRANE_OK);
  Result seen{};
  read_result(owner, seen);
  EXPECT_EQ(seen.mean, result.mean);
}

TEST(FastCalib, LeavesTheStandardAndTheListsOfTheHostAlone) {
  Device device(4);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  device.standard.fill(0, {{7, 7, 7}});
  device.standard.fill(1, {{7, 7, 7}});
  const FrameLists frames = device.measured(kShaken);
  const Result result = calibrate(calib, frames, 0, 3);
  EXPECT_LT(result.mean, 0.1) << "the copy counts";
  const FrameLists again = device.measured(kShaken);
  for (std::size_t f = 0; f < frames.size(); ++f) expect_same(frames[f], again[f]);
}

// --- Engine ---

TEST(FastCalibrator, ReportsTheSizeOfItsBlock) {
  KestraneLaserFastCalibrator engine;
  EXPECT_EQ((engine.*member(engine_access::AllocBufSize{}))(nullptr, false), 1955840);
  EXPECT_EQ((engine.*member(engine_access::AllocBufSize{}))(nullptr, false), 1955840);
  EXPECT_EQ(engine.*member(engine_access::Standard{}), nullptr);
}

TEST(FastCalibrator, CarvesTheBlockThatItTakes) {
  KestraneLaserFastCalibrator engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  void* block = engine.*member(engine_access::Buffer{});
  EXPECT_NE(block, nullptr);
  EXPECT_EQ(static_cast<void*>(engine.*member(engine_access::Standard{})), block);
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  EXPECT_NE(engine.*member(engine_access::Buffer{}), block) << "the first block stays allocated";
}

TEST(FastCalibrator, CarvesABlockOfTheCallers) {
  KestraneLaserFastCalibrator engine;
  std::vector<unsigned char> block(1955840, 0);
  EXPECT_EQ((engine.*member(engine_access::AllocBufSize{}))(block.data(), true), 1955840);
  EXPECT_EQ(static_cast<void*>(engine.*member(engine_access::Standard{})), block.data());
}

// An engine with a standard, its transform set to a rotation.
_MRV_TRANSFORM transform_of(const Eigen::Matrix3d& R, const Eigen::Vector3d& t) {
  KestraneLaserFastCalibrator engine;
  _MRV_EXTRINSIC_PARAM& extrinsic = engine.*member(engine_access::Extrinsic{});
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) extrinsic.R[3 * i + j] = R(i, j);
    extrinsic.T[i] = t[i];
  }
  _MRV_TRANSFORM out;
  EXPECT_EQ(engine.get_transform_param(out), KESTRANE_OK);
  return out;
}

TEST(FastCalibrator, HandsOutAUnitQuaternionInTheOrderXYZW) {
  const Eigen::Matrix3d quarter_about_z =
      (Eigen::Matrix3d() << 0, -1, 0, 1, 0, 0, 0, 0, 1).finished();
  const _MRV_TRANSFORM t = transform_of(quarter_about_z, {1, 2, 3});
  constexpr double kRounding = 1e-15;
  EXPECT_EQ(t.quaternion[0], 0.0);
  EXPECT_EQ(t.quaternion[1], 0.0);
  EXPECT_NEAR(t.quaternion[2], std::sqrt(0.5), kRounding);
  EXPECT_NEAR(t.quaternion[3], std::sqrt(0.5), kRounding);
  EXPECT_EQ(t.translation[0], 1.0);
  EXPECT_EQ(t.translation[1], 2.0);
  EXPECT_EQ(t.translation[2], 3.0);
}

TEST(FastCalibrator, NormalisesTheQuaternionOfAMatrixThatIsNoRotation) {
  const _MRV_TRANSFORM t = transform_of(4.0 * Eigen::Matrix3d::Identity(), {0, 0, 0});
  expect_transform(t, {0, 0, 0, 1, 0, 0, 0});
}

TEST(FastCalibrator, PassesARotationThatIsNoNumberOn) {
  const _MRV_TRANSFORM t = transform_of(Eigen::Matrix3d::Constant(kNaN), {0, 0, 0});
  for (const double q : t.quaternion) expect_same(q, std::abs(q) == 0 ? q : kNaN);
  EXPECT_TRUE(std::isnan(t.quaternion[0]) || std::isnan(t.quaternion[3]));
}

// An engine whose every number of the result is set, by measuring and by hand.
void fill_result(KestraneLaserFastCalibrator& engine) {
  fast_scene::Standard standard = flat_standard(1);
  engine.set_laser_plane_standard(standard.host());
  ResidualSets residuals(1);
  engine.cal_residual({columns({{129, 0, 300}, {131, 0, 300}})}, 0, 0, literal::identity(),
                      residuals);
  _MRV_EXTRINSIC_PARAM& extrinsic = engine.*member(engine_access::Extrinsic{});
  for (int i = 0; i < 9; ++i) extrinsic.R[i] = 20.0 + i;
  for (int i = 0; i < 3; ++i) extrinsic.T[i] = 40.0 + i;
}

// `diagonal` aside, what `fill_result` has left.
void expect_filled_result(KestraneLaserFastCalibrator& engine, bool diagonal_is_one = false) {
  const _MRV_EXTRINSIC_PARAM& extrinsic = engine.*member(engine_access::Extrinsic{});
  for (int i = 0; i < 9; ++i) {
    EXPECT_EQ(extrinsic.R[i], diagonal_is_one && i % 4 == 0 ? 1.0 : 20.0 + i) << i;
  }
  for (int i = 0; i < 3; ++i) EXPECT_EQ(extrinsic.T[i], 40.0 + i) << i;
  double mean, max, deviation;
  engine.get_calib_indicator(mean, max, deviation);
  EXPECT_EQ(mean, 2.0);
  EXPECT_EQ(max, 3.0);
  EXPECT_EQ(deviation, 0.5);
}

TEST(FastCalibrator, SetsTheDiagonalAndNothingElseBeforeItRefuses) {
  KestraneLaserFastCalibrator engine;
  engine.init();
  fill_result(engine);
  EXPECT_EQ(engine.calib_Rt(FrameLists(2), 0, 2), KESTRANE_ERR_COUNT_MISMATCH);
  expect_filled_result(engine, true);
}

TEST(FastCalibrator, KeepsItsResultThroughAnInitAndANewStandard) {
  KestraneLaserFastCalibrator engine;
  engine.init();
  fill_result(engine);
  fast_scene::Standard standard = flat_standard(2);
  EXPECT_EQ(engine.set_laser_plane_standard(standard.host()), KESTRANE_OK);
  expect_filled_result(engine);
  EXPECT_EQ(engine.init(), KESTRANE_OK);
  expect_filled_result(engine);
}

TEST(FastCalibrator, KeepsItsResultThroughTheVariantWithCoefficients) {
  Device device(2);
  KestraneLaserFastCalibrator engine;
  engine.init();
  fill_result(engine);
  engine.set_laser_plane_standard(device.standard.host());
  kestrane::_LASER_PLANE_GRID_OPT_COEFFS_INFOS table{};
  std::vector<double> slots(1200);
  kestrane::_COMPENSATOR_COEFFS in{}, out{};
  in.opt_coeffs = out.opt_coeffs = &table;
  in.plane_count = 5;
  in.range_count = 2;
  in.range_first[1] = 0;
  in.range_last[1] = 1;
  out.plane_count = 7;
  out.plane_capacity = 9;
  out.range_count = 3;
  for (int r = 0; r < 20; ++r) out.range_first[r] = out.range_last[r] = 50 + r;
  out.Mbs_factory_to_user = slots.data();
  kestrane::_COMPENSATOR_COEFFS before = out;
  testing::internal::CaptureStdout();
  EXPECT_EQ(engine.calib_Rt(FrameLists(3), 0, 1, 0.0, in, out), KESTRANE_ERR_COUNT_MISMATCH);
  expect_filled_result(engine);
  EXPECT_EQ(engine.calib_Rt(device.measured(kShaken), 0, 1, 0.0, in, out), KESTRANE_OK);
  testing::internal::GetCapturedStdout();
  expect_filled_result(engine);
  EXPECT_EQ(std::memcmp(&out, &before, sizeof(out)), 0) << "the slots alone are written";
}

TEST(FastCalibrator, GoesThroughWithoutAnyList) {
  KestraneLaserFastCalibrator engine;
  engine.init();
  fill_result(engine);
  testing::internal::CaptureStdout();
  EXPECT_EQ(engine.calib_Rt(FrameLists{}, 5, 4), KESTRANE_OK);
  testing::internal::GetCapturedStdout();
  Result result{};
  read_result(engine, result);
  expect_transform(result.transform, {0, 0, 0, 1, 0, 0, 0});
  expect_same(result.mean, kNaN);
  EXPECT_EQ(result.max, -1000.0);
  expect_same(result.deviation, kNaN);
}

TEST(FastCalibrator, CountsThePlanesOfResidualsFromTheFirst) {
  KestraneLaserFastCalibrator engine;
  engine.init();
  fast_scene::Standard standard = flat_standard(3);
  standard.fill(2, {{-0.00390625, 0, 0}});  // x = 256
  engine.set_laser_plane_standard(standard.host());
  ResidualSets residuals(3, std::vector<double>(3, 9.0));
  for (const int last : {-5, 2, 1000000}) {  // not read
    engine.cal_residual({columns({{128, 0, 300}}), columns({{128, 0, 300}})}, 1, last,
                        literal::identity(), residuals);
    EXPECT_EQ(residuals[0], (std::vector<double>{0}));
    EXPECT_EQ(residuals[1], (std::vector<double>{128}));
    EXPECT_EQ(residuals[2], (std::vector<double>{9, 9, 9}));
  }
}

TEST(FastCalibrator, MeasuresAndHandsOutTheThreeFigures) {
  KestraneLaserFastCalibrator engine;
  engine.init();
  fast_scene::Standard standard = flat_standard(1);
  engine.set_laser_plane_standard(standard.host());
  ResidualSets residuals(1);
  engine.cal_residual({columns({{129, 0, 300}, {131, 0, 300}})}, 0, 0, literal::identity(),
                      residuals);
  double mean, max, deviation;
  EXPECT_EQ(engine.get_calib_indicator(mean, max, deviation), KESTRANE_OK);
  EXPECT_EQ(mean, 2.0);
  EXPECT_EQ(max, 3.0);
  EXPECT_EQ(deviation, 0.5);
  EXPECT_EQ(residuals[0], (std::vector<double>{1, 3}));
}

TEST(FastCalibrator, LeavesTheLastFramesFiguresBehindTheFrameFilter) {
  KestraneLaserFastCalibrator engine;
  engine.init();
  fast_scene::Standard standard = flat_standard(2);
  engine.set_laser_plane_standard(standard.host());
  const auto filter = member(engine_access::FilterPointByFrame{});
  FrameLists filtered;
  List list;
  add_frame(list, 0, 1);
  add_frame(list, 1, 4);
  (engine.*filter)({list, {}}, 0, 1, filtered);
  double mean, max, deviation;
  engine.get_calib_indicator(mean, max, deviation);
  EXPECT_EQ(mean, 4.0);
  EXPECT_EQ(ids(filtered[0]), (std::vector<std::int32_t>{0}));
  (engine.*filter)({{}, {}}, 0, 1, filtered);
  engine.get_calib_indicator(mean, max, deviation);
  EXPECT_EQ(mean, 4.0) << "nothing was measured";
}

TEST(FastCalibrator, DividesByTheBoundsOfItsStandard) {
  KestraneLaserFastCalibrator engine;
  engine.init();
  fast_scene::Standard standard = flat_standard(1);
  engine.set_laser_plane_standard(standard.host());
  PointSets points;
  (engine.*member(engine_access::DivideInteriorPlanes{}))({{{1, 0, 300, 0}, {2, 0, 2000, 0}}},
                                                          points);
  ASSERT_EQ(points.size(), 1u);
  EXPECT_EQ(points[0].cols(), 1);
}

// --- First overload ---

// x of the sheet where the recovered transform puts it against where it lies, over the volume.
double worst_plane_error(const Device& device, const simulation::Placement& truth,
                         const _MRV_TRANSFORM& found) {
  const Eigen::Quaterniond q(found.quaternion[3], found.quaternion[0], found.quaternion[1],
                             found.quaternion[2]);
  const Eigen::Matrix3d R = q.toRotationMatrix();
  simulation::Placement placement;
  for (int i = 0; i < 9; ++i) placement.R[i] = R(i / 3, i % 3);
  placement.t = {found.translation[0], found.translation[1], found.translation[2]};
  double worst = 0;
  for (const simulation::Sheet& sheet : device.sheets) {
    for (double z = 230; z <= 340; z += 22) {
      for (double slope = -0.5; slope <= 0.5; slope += 0.25) {
        const double off = simulation::sheet_x(sheet, truth, slope * z, z) -
                           simulation::sheet_x(sheet, placement, slope * z, z);
        worst = std::max(worst, std::abs(off));
      }
    }
  }
  return worst;
}

// The table's cells are flat where the sheets are bowed: up to 0.7 micrometres times 2 inside a
// cell, of which the fit of six numbers keeps little.
constexpr double kBow = 2e-3;

// Of the points' noise, with a residual per second point of 8 x 800: sqrt(6 / 3200) of one sigma in
// the middle, a few times that at the rim, and three sigmas of it.
constexpr double kNoiseShare = 0.3;

TEST(FastCalibration, RecoversMotionsOverAGrid) {
  Device device(8);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  std::uint64_t seed = 100;
  for (const simulation::Vec3 rotation : {simulation::Vec3{0, 0, 0},
                                          {5e-4, 0, 0},
                                          {0, -1e-3, 0},
                                          {0, 0, 2e-3},
                                          {-3e-4, 8e-4, 5e-4}}) {
    for (const simulation::Vec3 translation : {simulation::Vec3{0, 0, 0}, {0.6, 0.3, -0.5}}) {
      for (const double noise : {0.0, 0.02, 0.1}) {
        for (const double outliers : {0.0, 0.1}) {
          const simulation::Placement truth = simulation::rigid_motion(rotation, translation);
          simulation::CloudSettings settings = simulation::field_cloud_settings();
          settings.points = 800;
          settings.seed = ++seed;
          settings.noise = noise;
          settings.outlier_share = outliers;
          const Result result = calibrate(calib, device.measured(truth, settings), 0, 7);
          ASSERT_EQ(result.status, KESTRANE_OK);
          EXPECT_EQ(result.complaints, "");
          EXPECT_LT(worst_plane_error(device, truth, result.transform), kBow + kNoiseShare * noise)
              << seed << ' ' << noise << ' ' << outliers;
        }
      }
    }
  }
}

TEST(FastCalibration, MapsTheStandardToTheMeasurementAndNotBack) {
  Device device(8);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const simulation::Placement truth = simulation::rigid_motion({0, 0, 0}, {0.5, 0, 0});
  const Result result = calibrate(calib, device.measured(truth), 0, 7);
  constexpr double kNoise = 0.02;
  EXPECT_NEAR(result.transform.translation[0], 0.5, kNoise);
}

TEST(FastCalibration, SurvivesBadFrames) {
  Device device(8);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.points = 800;
  settings.bad_frames = 4;
  const Result result = calibrate(calib, device.measured(kShaken, settings), 0, 7);
  ASSERT_EQ(result.status, KESTRANE_OK);
  EXPECT_LT(worst_plane_error(device, kShaken, result.transform),
            kBow + kNoiseShare * settings.noise);
  EXPECT_LT(result.max, 1.0) << "nothing of a frame 3.0 off is left";
}

TEST(FastCalibration, TakesPlanesOutOfTheMiddleOfTheStandard) {
  Device device(8);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const FrameLists all = device.measured(kShaken);
  const FrameLists part(all.begin() + 3, all.begin() + 7);
  const Result right = calibrate(calib, part, 3, 6);
  EXPECT_EQ(right.status, KESTRANE_OK);
  EXPECT_LT(worst_plane_error(device, kShaken, right.transform), 0.2);
  const Result shifted = calibrate(calib, part, 2, 5);
  EXPECT_GT(worst_plane_error(device, kShaken, shifted.transform), 1.0)
      << "against its neighbours' planes";
}

TEST(FastCalibration, EndsWithTheFiguresOfThePointsThatItKept) {
  Device device(6);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.points = 800;
  settings.outlier_share = 0.05;
  settings.outlier_reach = 1.9;
  const FrameLists frames = device.measured(kShaken, settings);
  const Result result = calibrate(calib, frames, 0, 5);

  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &device.standard.table();
  FrameLists filtered;
  kestrane::filter_frames(frames, *table, 0, filtered);
  PointSets points, kept;
  kestrane::divide_into_interior_planes(filtered, *table->grids, points);
  testing::internal::CaptureStdout();
  Eigen::Matrix4d first;
  kestrane::solve_transform(points, &table, 0, 5, first);
  _MRV_EXTRINSIC_PARAM motion{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) motion.R[3 * i + j] = first(i, j);
    motion.T[i] = first(i, 3);
  }
  ResidualSets residuals(points.size());
  kestrane::measure_residuals(points, *table, 0, motion, residuals);
  kestrane::filter_point_by_residual(points, residuals, kept);
  Eigen::Matrix4d second;
  kestrane::solve_transform(kept, &table, 0, 5, second);
  const std::string report = testing::internal::GetCapturedStdout();
  Eigen::Index before = 0, after = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    before += points[i].cols();
    after += kept[i].cols();
  }
  ASSERT_LT(after, before) << "the residual filter has work to do";
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) motion.R[3 * i + j] = second(i, j);
    motion.T[i] = second(i, 3);
  }
  const auto expected = kestrane::measure_residuals(kept, *table, 0, motion, residuals);
  constexpr double kThreads = 1e-9;  // the solver's threads add up in any order
  EXPECT_NEAR(result.mean, expected.mean, kThreads);
  EXPECT_NEAR(result.max, expected.max, kThreads);
  EXPECT_NEAR(result.deviation, expected.deviation, kThreads);
  EXPECT_EQ(result.report, report) << "both solves start from zero";
}

TEST(FastCalibration, AgreesWithTheLiteralCalibration) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    Device device(5, seed);
    KESTRANE_LASER_FAST_CALIB calib;
    calib.init();
    calib.set_laser_plane_standard(device.standard.host());
    simulation::CloudSettings settings = simulation::field_cloud_settings();
    settings.points = 600;
    settings.seed = seed;
    settings.bad_frames = 2;
    settings.outlier_share = 0.05;
    const FrameLists frames = device.measured(kShaken, settings);
    const Result result = calibrate(calib, frames, 0, 4);
    _MRV_EXTRINSIC_PARAM motion;
    literal::Indicators indicators;
    EXPECT_TRUE(
        literal::calib_Rt(frames, device.standard.table(), 0, fit_by_library, motion, indicators));
    constexpr double kThreads = 1e-9;  // the solver's threads add up in any order
    EXPECT_NEAR(result.mean, indicators.mean, kThreads);
    EXPECT_NEAR(result.max, indicators.max, kThreads);
    EXPECT_NEAR(result.deviation, indicators.deviation, kThreads);
  }
}

TEST(FastCalibration, RepeatsItsResultForTheSameInput) {
  Device device(6);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const FrameLists frames = device.measured(kShaken);
  const Result first = calibrate(calib, frames, 0, 5);
  // Where the planes come to lie is repeated to rounding, enlarged by the solver's iterations: its
  // threads add up in any order. On one thread all bits are the same.
  constexpr double kThreads = 1e-9;
  for (int run = 0; run < 5; ++run) {
    const Result again = calibrate(calib, frames, 0, 5);
    EXPECT_EQ(again.status, first.status);
    EXPECT_NEAR(again.mean, first.mean, kThreads);
    EXPECT_NEAR(again.max, first.max, kThreads);
    EXPECT_NEAR(again.deviation, first.deviation, kThreads);
    EXPECT_NEAR(again.transform.translation[0], first.transform.translation[0], 1e-7);
    EXPECT_EQ(again.report, first.report);
  }
}

// Frames of which the last one begins with two points at x = `odd` and survives. Bucket 1 is empty:
// frame 0 is no number and takes the limit with it; frame 2 at position 1 is rejected; frame 3 at
// position 2 is spared, since bucket 2 is rejected already.
List frames_with_survivor(double odd) {
  List list;
  add_frame(list, 0, kNaN);
  add_frame(list, 2, 1);
  add_frame(list, 3, odd, 2);
  for (int i = 0; i < 12; ++i) {
    list.push_back({129.0, -12.0 + 2.0 * i, 230.0 + 10.0 * ((i * 5) % 12), 3});
  }
  return list;
}

TEST(FastCalibration, FailsWithTheIdentityWhereTheLastSolveGivesNothing) {
  fast_scene::Standard standard = flat_standard(1);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(standard.host());
  const Result failed = calibrate(calib, {frames_with_survivor(kNaN)}, 0, 0);
  EXPECT_EQ(failed.status, KESTRANE_ERR_SOLVE_FAILED);
  EXPECT_EQ(failed.complaints, "");
  expect_transform(failed.transform, {0, 0, 0, 1, 0, 0, 0});
  expect_same(failed.mean, kNaN);
  EXPECT_EQ(failed.max, 1.0) << "measured with the identity";
}

TEST(FastCalibration, GoesOnWithTheIdentityWhereTheFirstSolveGivesNothing) {
  fast_scene::Standard standard = flat_standard(1);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(standard.host());
  // The residual filter drops the infinite points, so that the second solve can be had.
  const Result result = calibrate(calib, {frames_with_survivor(kInf)}, 0, 0);
  EXPECT_EQ(result.complaints, "");
  EXPECT_EQ(result.report.find("Termination: FAILURE"),
            result.report.find('\n') - std::string("Termination: FAILURE").size());
  ASSERT_EQ(result.status, KESTRANE_OK) << result.report;
  constexpr double kSolver = 1e-3;
  EXPECT_NEAR(result.max, 0.0, kSolver);
}

TEST(FastCalibration, GoesThroughWithoutASurvivingPoint) {
  fast_scene::Standard standard = flat_standard(2);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(standard.host());
  List perfect;
  for (int id = 0; id < 4; ++id) add_frame(perfect, id, 0.0, 5);
  for (const FrameLists& frames :
       {FrameLists(2), FrameLists{perfect, perfect}, FrameLists{{}, perfect},
        FrameLists{{{kNaN, kNaN, kNaN, 0}}, {}}}) {
    const Result result = calibrate(calib, frames, 0, 1);
    EXPECT_EQ(result.status, KESTRANE_OK);
    EXPECT_EQ(result.complaints, "");
    expect_transform(result.transform, {0, 0, 0, 1, 0, 0, 0});
    expect_same(result.mean, kNaN);
    EXPECT_EQ(result.max, -1000.0);
    expect_same(result.deviation, kNaN);
  }
}

TEST(FastCalibration, WritesTwoReportsAndNothingElse) {
  Device device(4);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const Result result = calibrate(calib, device.measured(kShaken), 0, 3);
  EXPECT_EQ(std::count(result.report.begin(), result.report.end(), '\n'), 2);
  EXPECT_EQ(result.report.rfind("Ceres Solver Report: ", 0), 0u);
  EXPECT_NE(result.report.find("\nCeres Solver Report: "), std::string::npos);
  EXPECT_EQ(result.complaints, "");
}

TEST(FastCalibration, StaysOffStandardErrorWhateverThePointsAre) {
  Device device(3);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  const simulation::Sheet& sheet = device.sheets[0];
  device.standard.cell(0, 7, 5).v[0] = 0.0;
  calib.set_laser_plane_standard(device.standard.host());
  for (const double bad : {kNaN, kInf, -kInf, 1e308, 1e155, -1e-308}) {
    FrameLists frames = device.measured(kShaken, 300);
    frames[0].push_back({bad, 0, 300, 3});
    frames[0].push_back({simulation::sheet_x(sheet, 0, 300), bad, 300, 4});
    frames[1].push_back({simulation::sheet_x(sheet, 0, 300), 0, bad, 5});
    frames[2].insert(frames[2].begin(), {bad, bad, bad, 6});
    EXPECT_EQ(calibrate(calib, frames, 0, 2).complaints, "") << bad;
  }
}

TEST(FastCalibration, WorksOnTwoDevicesInTwoThreads) {
  // One sheet alone is a degenerate problem, over which the solver would complain.
  Device several(4, 1);
  Device single(1, 2);
  const FrameLists several_frames = several.measured(kShaken, 400);
  const FrameLists single_frames = single.measured(kShaken, 400);
  const auto mean_of = [](Device& device, const FrameLists& frames) {
    KESTRANE_LASER_FAST_CALIB calib;
    calib.init();
    calib.set_laser_plane_standard(device.standard.host());
    double mean = 0, max = 0, deviation = 0;
    for (int run = 0; run < 5; ++run) {
      calib.fast_calib(frames, 0, static_cast<int>(frames.size()) - 1);
      calib.get_calib_indicator(mean, max, deviation);
    }
    return mean;
  };
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const double several_alone = mean_of(several, several_frames);
  const double single_alone = mean_of(single, single_frames);
  double several_beside = 0, single_beside = 0;
  std::thread other([&] { single_beside = mean_of(single, single_frames); });
  several_beside = mean_of(several, several_frames);
  other.join();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::GetCapturedStdout();
  constexpr double kThreads = 1e-6;  // a degenerate problem enlarges the solver's rounding
  EXPECT_NEAR(several_beside, several_alone, kThreads);
  EXPECT_NEAR(single_beside, single_alone, kThreads);
}

// --- Second overload ---

// Coefficient records that pass all checks, with slots that show what was written.
struct Coefficients {
  kestrane::_LASER_PLANE_GRID_OPT_COEFFS_INFOS table{};
  std::vector<double> slots = std::vector<double>(1200, -7.0);
  kestrane::_COMPENSATOR_COEFFS in{};
  kestrane::_COMPENSATOR_COEFFS out{};

  Coefficients(int first, int last) {
    in.opt_coeffs = out.opt_coeffs = &table;
    in.plane_count = out.plane_count = 1;
    in.range_count = 1;
    in.range_first[0] = first;
    in.range_last[0] = last;
    out.Mbs_factory_to_user = slots.data();
  }

  bool untouched() const { return slots == std::vector<double>(1200, -7.0); }
};

class CoefficientSolve : public testing::Test {
 protected:
  CoefficientSolve() : device_(5), frames_(device_.measured(kShaken)) {
    engine_.init();
    engine_.set_laser_plane_standard(device_.standard.host());
  }

  _KESTRANE_STATUS solve(const FrameLists& frames, int first, int last, Coefficients& coeffs,
                         double distance = 0.0) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const _KESTRANE_STATUS status =
        engine_.calib_Rt(frames, first, last, distance, coeffs.in, coeffs.out);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    report_ = testing::internal::GetCapturedStdout();
    return status;
  }

  Device device_;
  FrameLists frames_;
  KestraneLaserFastCalibrator engine_;
  std::string report_;
};

TEST_F(CoefficientSolve, WritesTheTransformIntoEverySlotOfTheRange) {
  Coefficients coeffs(0, 4);
  ASSERT_EQ(solve(frames_, 0, 4, coeffs), KESTRANE_OK);
  EXPECT_EQ(std::count(report_.begin(), report_.end(), '\n'), 1) << "one solve";
  for (std::size_t i = 0; i < 60; ++i) {
    EXPECT_EQ(coeffs.slots[i], coeffs.slots[i % 12]) << i;
    EXPECT_NE(coeffs.slots[i], -7.0);
  }
  for (std::size_t i = 60; i < 1200; ++i) EXPECT_EQ(coeffs.slots[i], -7.0);

  Eigen::Matrix3d R = Eigen::Map<Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(coeffs.slots.data());
  const Eigen::Quaterniond q(R);
  const _MRV_TRANSFORM found = {{q.x(), q.y(), q.z(), q.w()},
                                {coeffs.slots[9], coeffs.slots[10], coeffs.slots[11]}};
  EXPECT_LT(worst_plane_error(device_, kShaken, found), kBow + kNoiseShare * 0.05);
}

TEST_F(CoefficientSolve, AddressesSlotsByTheAbsolutePlane) {
  Coefficients coeffs(2, 4);
  const FrameLists part(frames_.begin() + 2, frames_.end());
  ASSERT_EQ(solve(part, 2, 4, coeffs), KESTRANE_OK);
  EXPECT_EQ(coeffs.slots[23], -7.0);
  EXPECT_NE(coeffs.slots[24], -7.0);
  EXPECT_NE(coeffs.slots[59], -7.0);
  EXPECT_EQ(coeffs.slots[60], -7.0);
}

TEST_F(CoefficientSolve, LeavesTransformAndIndicatorsOfTheEngineAlone) {
  Coefficients coeffs(0, 4);
  ASSERT_EQ(solve(frames_, 0, 4, coeffs), KESTRANE_OK);
  Result after{};
  read_result(engine_, after);
  expect_transform(after.transform, {1, 0, 0, 0, 0, 0, 0});
  EXPECT_EQ(after.mean, 0.0);
  EXPECT_EQ(after.max, 0.0);
}

TEST_F(CoefficientSolve, ChecksInItsOrder) {
  // Everything is wrong, and mended in the order in which it is looked at.
  Coefficients coeffs(0, 1);
  coeffs.in.plane_count = 0;
  coeffs.in.opt_coeffs = nullptr;
  coeffs.out.plane_count = 0;
  coeffs.out.opt_coeffs = nullptr;
  coeffs.in.range_count = 20;
  coeffs.in.range_first[0] = 77;
  const FrameLists bad_lists(2);
  EXPECT_EQ(solve(FrameLists(3), 0, 0, coeffs), KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(solve(FrameLists(1), 0, 0, coeffs), KESTRANE_ERR_EMPTY_RANGE);
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_INVALID_PARAM);
  coeffs.in.plane_count = 1;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_NULL_POINTER);
  coeffs.in.opt_coeffs = &coeffs.table;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_INVALID_PARAM);
  coeffs.out.plane_count = 1;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_NULL_POINTER);
  coeffs.out.opt_coeffs = &coeffs.table;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_INVALID_PARAM);
  coeffs.in.range_count = 0;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_RANGE_UNKNOWN);
  coeffs.in.range_count = 1;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_RANGE_UNKNOWN);
  coeffs.in.range_first[0] = 0;
  EXPECT_EQ(solve(bad_lists, 0, 1, coeffs), KESTRANE_ERR_FIT_FAILED) << "empty lists";
  EXPECT_TRUE(coeffs.untouched());
  EXPECT_EQ(report_, "");
}

TEST_F(CoefficientSolve, RefusesEachFaultAloneToo) {
  const auto with = [&](const std::function<void(Coefficients&)>& spoil) {
    Coefficients coeffs(0, 4);
    spoil(coeffs);
    const _KESTRANE_STATUS status = solve(frames_, 0, 4, coeffs);
    EXPECT_TRUE(status == KESTRANE_OK || coeffs.untouched());
    return status;
  };
  EXPECT_EQ(with([](auto&) {}), KESTRANE_OK);
  EXPECT_EQ(with([](auto& c) { c.in.plane_count = 0; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.in.plane_count = -3; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.in.opt_coeffs = nullptr; }), KESTRANE_ERR_NULL_POINTER);
  EXPECT_EQ(with([](auto& c) { c.out.plane_count = 0; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.out.plane_count = -3; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.out.opt_coeffs = nullptr; }), KESTRANE_ERR_NULL_POINTER);
  EXPECT_EQ(with([](auto& c) { c.in.range_count = 20; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.in.range_count = 2000000000; }), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(with([](auto& c) { c.in.range_count = 0; }), KESTRANE_ERR_RANGE_UNKNOWN);
  EXPECT_EQ(with([](auto& c) { c.in.range_count = -1; }), KESTRANE_ERR_RANGE_UNKNOWN);
  EXPECT_EQ(with([](auto& c) { c.in.range_last[0] = 5; }), KESTRANE_ERR_RANGE_UNKNOWN);
}

TEST_F(CoefficientSolve, FindsTheRangeInTheLastOfNineteenEntries) {
  Coefficients coeffs(0, 4);
  for (int r = 0; r < 20; ++r) {
    coeffs.in.range_first[r] = coeffs.in.range_last[r] = 90;
  }
  coeffs.in.range_first[18] = 0;
  coeffs.in.range_last[18] = 4;
  coeffs.in.range_count = 18;
  EXPECT_EQ(solve(frames_, 0, 4, coeffs), KESTRANE_ERR_RANGE_UNKNOWN) << "not in use";
  coeffs.in.range_count = 19;
  EXPECT_EQ(solve(frames_, 0, 4, coeffs), KESTRANE_OK);
}

TEST_F(CoefficientSolve, WantsBothEndsInOneEntry) {
  Coefficients coeffs(0, 3);
  coeffs.in.range_count = 2;
  coeffs.in.range_first[1] = 1;
  coeffs.in.range_last[1] = 4;
  EXPECT_EQ(solve(frames_, 0, 4, coeffs), KESTRANE_ERR_RANGE_UNKNOWN);
}

TEST_F(CoefficientSolve, RefusesARangeOfOnePlane) {
  Coefficients coeffs(2, 2);
  EXPECT_EQ(solve({frames_[2]}, 2, 2, coeffs), KESTRANE_ERR_EMPTY_RANGE);
}

TEST_F(CoefficientSolve, TakesARangeWithoutPlanesForAnyOther) {
  Coefficients coeffs(0, 4);
  EXPECT_EQ(solve({}, 3, 2, coeffs), KESTRANE_ERR_RANGE_UNKNOWN);
  Coefficients listed(3, 2);
  EXPECT_EQ(solve({}, 3, 2, listed), KESTRANE_OK);
  EXPECT_TRUE(listed.untouched());
}

TEST_F(CoefficientSolve, CountsListsWithoutOverflow) {
  Coefficients coeffs(0, 4);
  constexpr int kLowest = std::numeric_limits<int>::min();
  constexpr int kHighest = std::numeric_limits<int>::max();
  EXPECT_EQ(solve({}, kLowest, kHighest, coeffs), KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(solve(FrameLists(1), kHighest, kLowest, coeffs), KESTRANE_ERR_COUNT_MISMATCH);
}

TEST_F(CoefficientSolve, WritesNothingIfOneListFails) {
  Coefficients coeffs(0, 4);
  FrameLists frames = frames_;
  frames[4].clear();
  EXPECT_EQ(solve(frames, 0, 4, coeffs), KESTRANE_ERR_FIT_FAILED);
  EXPECT_TRUE(coeffs.untouched());
  frames = frames_;
  frames[3].resize(2);
  EXPECT_EQ(solve(frames, 0, 4, coeffs), KESTRANE_ERR_FIT_FAILED);
  EXPECT_TRUE(coeffs.untouched());
  EXPECT_EQ(report_, "");
}

TEST_F(CoefficientSolve, DoesNotReadTheDistance) {
  Coefficients plain(0, 4);
  ASSERT_EQ(solve(frames_, 0, 4, plain), KESTRANE_OK);
  constexpr double kThreads = 1e-7;  // the solver's threads add up in any order
  for (const double distance : {-5.0, 1e300, kNaN}) {
    Coefficients coeffs(0, 4);
    ASSERT_EQ(solve(frames_, 0, 4, coeffs, distance), KESTRANE_OK);
    for (std::size_t i = 0; i < 12; ++i) EXPECT_NEAR(coeffs.slots[i], plain.slots[i], kThreads);
  }
}

TEST_F(CoefficientSolve, WritesTheIdentityWhereTheSolveGivesNothing) {
  Coefficients coeffs(0, 4);
  FrameLists frames = frames_;
  // Shallow: not part of the fit. One point of its frame: hardly changes the shares.
  for (auto& point : frames[0]) {
    if (point.id == frames[0][0].id) {
      frames[0].insert(frames[0].begin(), {kNaN, 0, 180, point.id});
      break;
    }
  }
  EXPECT_EQ(solve(frames, 0, 4, coeffs), KESTRANE_OK);
  const std::vector<double> identity = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
  for (std::size_t i = 0; i < 60; ++i) EXPECT_EQ(coeffs.slots[i], identity[i % 12]);
  EXPECT_NE(report_.find("FAILURE"), std::string::npos);
}

// --- Coefficients ---

TEST(FastCalibrator, CalibratesCoefficientsWithoutAnInit) {
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
  kestrane::LASER_PLANE_GRID_OPT_COEFFS_MANAGER old_lines, new_lines;
  indicators.init(1);
  corners.init(1);
  old_lines.init(1);
  new_lines.init(1);
  std::vector<double> slots(1200, -7.0);
  kestrane::_COMPENSATOR_COEFFS source{}, result{};
  source.opt_coeffs = &old_lines;
  result.opt_coeffs = &new_lines;
  source.plane_count = 1;
  result.Mbs_factory_to_user = slots.data();
  old_lines.planes[0].lines[2].cells[3] = {{0.0, 1.0, -5.0}};
  corners.planes[0].lines[2].cells[3] = {{5.005, 0, 0}};
  KestraneLaserFastCalibrator engine;
  ASSERT_EQ(engine.calib(indicators, corners, 31.0, source, result), KESTRANE_OK);
  EXPECT_EQ(new_lines.planes[0].lines[2].cells[3].v[2], -5.0) << "no block was measured";
  EXPECT_EQ(slots[0], 1.0);
  EXPECT_EQ(slots[12], -7.0);
  indicators.planes[0].lines[2].cells[3].v[1] = 0.1;
  ASSERT_EQ(engine.calib(indicators, corners, 31.0, source, result), KESTRANE_OK);
  // Ten samples at 5 and one at 5.005 in the middle of them: the line moves by an eleventh.
  const double* line = new_lines.planes[0].lines[2].cells[3].v;
  constexpr double kRounding = 1e-9;
  EXPECT_NEAR(-(line[0] * 31.0 + line[2]) / line[1], 5.0 + 0.005 / 11, kRounding);
  indicators.plane_count = 0;
  EXPECT_EQ(engine.calib(indicators, corners, 31.0, source, result), KESTRANE_ERR_INVALID_PARAM);
}

}  // namespace
