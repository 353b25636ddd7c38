// What the host owes: a checked build names the violated precondition before memory is touched.
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_calibration.h"
#include "tests/support/violation.h"

namespace {

using kestrane_test::violation;

using namespace fast_support;
using kestrane::KESTRANE_LASER_FAST_CALIB;
using kestrane::KestraneLaserFastCalibrator;

TEST(FastPreconditionsDeathTest, NamesAFacadeWithoutAnEngine) {
  fast_scene::Standard standard = flat_standard(1);
  KESTRANE_LASER_FAST_CALIB calib;
  _MRV_TRANSFORM transform;
  double mean, max, deviation;
  EXPECT_DEATH(calib.set_laser_plane_standard(standard.host()),
               "set_laser_plane_standard comes after init");
  EXPECT_DEATH(calib.get_transform_param(transform), "get_transform_param comes after init");
  EXPECT_DEATH(calib.get_calib_indicator(mean, max, deviation),
               "get_calib_indicator comes after init");
}

TEST(FastPreconditionsDeathTest, NamesAnEngineWithoutABlock) {
  fast_scene::Standard standard = flat_standard(1);
  KestraneLaserFastCalibrator engine;
  ResidualSets residuals(1);
  EXPECT_DEATH(engine.set_laser_plane_standard(standard.host()),
               "set_laser_plane_standard comes after init");
  EXPECT_DEATH(engine.calib_Rt({List{}}, 0, 0), "calib_Rt comes after init");
  EXPECT_DEATH(
      engine.cal_residual({columns({{128, 0, 300}})}, 0, 0, literal::identity(), residuals),
      "cal_residual comes after init");
}

TEST(FastPreconditionsDeathTest, NamesAStandardBeyondTheBlock) {
  fast_scene::Standard standard = flat_standard(1);
  KESTRANE_LASER_FAST_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  _MRV_LASER_PLANE_BLOCK_INFOS host = standard.host();
  host.plane_count = 101;
  EXPECT_DEATH(calib.set_laser_plane_standard(host),
               violation("set_laser_plane_standard", "a standard has at most 100 planes",
                         "infos.plane_count is 101"));
  host.plane_count = 1;
  host.planes[0].block.lines[14].count = 51;
  EXPECT_DEATH(calib.set_laser_plane_standard(host),
               violation("set_laser_plane_standard", "a line has at most its shape's cells",
                         "count is 51, shape.cells is 50"));
  host.planes[0].block.count = 16;
  EXPECT_DEATH(calib.set_laser_plane_standard(host),
               violation("set_laser_plane_standard", "a table has at most its shape's lines",
                         "table.count is 16, shape.lines is 15"));
  host.grids = nullptr;
  EXPECT_DEATH(calib.set_laser_plane_standard(host),
               violation("set_laser_plane_standard", "a standard has its grid record"));
}

TEST(FastPreconditionsDeathTest, NamesAPlaneOutsideTheTable) {
  fast_scene::Standard standard = flat_standard(1);
  KESTRANE_LASER_FAST_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  calib.set_laser_plane_standard(standard.host());
  List list;
  add_frame(list, 0, 1.0);
  for (const int plane : {-1, 100}) {
    EXPECT_DEATH(calib.fast_calib({list}, plane, plane), "a plane number is 0 to 99");
  }
}

// A list on both sides of x = 128, which its own plane crosses.
List crossing_list() {
  List list;
  for (int i = 0; i < 8; ++i) {
    const double x = i % 2 == 0 ? 128.25 : 127.75;
    list.push_back({x, (i / 4) * 40.0 - 20.0, 230.0 + 100.0 * ((i / 2) % 2), 1});
  }
  return list;
}

TEST(FastPreconditionsDeathTest, NamesWhatTheVariantWithCoefficientsLacks) {
  fast_scene::Standard standard = flat_standard(1);
  KestraneLaserFastCalibrator engine;
  kestrane::_LASER_PLANE_GRID_OPT_COEFFS_INFOS table{};
  kestrane::_COMPENSATOR_COEFFS coeffs{};
  coeffs.opt_coeffs = &table;
  coeffs.plane_count = coeffs.range_count = 1;
  coeffs.range_last[0] = 1;
  const fast_support::FrameLists lists = {crossing_list(), crossing_list()};
  EXPECT_DEATH(engine.calib_Rt(lists, 0, 1, 0.0, coeffs, coeffs), "calib_Rt comes after init");
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  engine.set_laser_plane_standard(standard.host());
  EXPECT_DEATH(engine.calib_Rt(lists, 0, 1, 0.0, coeffs, coeffs),
               "a coefficient record has its transforms");
  // A plane without a slot, whose cells no point falls on.
  std::vector<double> store(1200);
  coeffs.Mbs_factory_to_user = store.data();
  coeffs.range_first[0] = -1;
  coeffs.range_last[0] = 0;
  EXPECT_DEATH(engine.calib_Rt(lists, -1, 0, 0.0, coeffs, coeffs), "a plane number is 0 to 99");
}

TEST(FastPreconditionsDeathTest, NamesMissingResidualRows) {
  fast_scene::Standard standard = flat_standard(1);
  KestraneLaserFastCalibrator engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  ResidualSets residuals;
  EXPECT_DEATH(
      engine.cal_residual({columns({{128, 0, 300}})}, 0, 0, literal::identity(), residuals),
      violation("cal_residual", "there is a residual row per point matrix",
                "residuals.size() is 0, points.size() is 1"));
}

}  // namespace
