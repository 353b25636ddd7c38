// The engine alone: its block, its getters, what a call leaves of the result.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "fast/frame_filter.h"
#include "fast/interior_planes.h"
#include "fast/residual_measurement.h"
#include "kestrane/buffers.h"
#include "tests/fast/calibrations.h"
#include "tests/fast/engine_access.h"
#include "tests/literal/fast_calibration.h"

namespace {

using namespace fast_support;

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

TEST(FastCalibrator, PassesOnARotationThatIsNotANumber) {
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

TEST(FastCalibrator, LeavesTheLastFramesFiguresAfterTheFrameFilter) {
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
