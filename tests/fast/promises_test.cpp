// What the host promises: a checked build names the broken promise before memory is touched.
#include "fast_support.h"
#include "support/fast_literal.h"

namespace {

using namespace fast_support;
using kestrane::KESTRANE_LASER_FAST_CALIB;
using kestrane::KestraneLaserFastCalibrator;

TEST(FastPromisesDeathTest, NamesAFacadeWithoutAnEngine) {
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

TEST(FastPromisesDeathTest, NamesAnEngineWithoutABlock) {
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

TEST(FastPromisesDeathTest, NamesAStandardBeyondTheBlock) {
  fast_scene::Standard standard = flat_standard(1);
  KESTRANE_LASER_FAST_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  _MRV_LASER_PLANE_BLOCK_INFOS host = standard.host();
  host.plane_count = 101;
  EXPECT_DEATH(calib.set_laser_plane_standard(host), "at most 100 planes");
  host.plane_count = 1;
  host.planes[0].block.lines[14].count = 51;
  EXPECT_DEATH(calib.set_laser_plane_standard(host), "at most 50 cells a line");
  host.planes[0].block.count = 16;
  EXPECT_DEATH(calib.set_laser_plane_standard(host), "at most 15 lines a plane");
}

TEST(FastPromisesDeathTest, NamesAPlaneOutsideTheTable) {
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

TEST(FastPromisesDeathTest, NamesMissingResidualRows) {
  fast_scene::Standard standard = flat_standard(1);
  KestraneLaserFastCalibrator engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  ResidualSets residuals;
  EXPECT_DEATH(
      engine.cal_residual({columns({{128, 0, 300}})}, 0, 0, literal::identity(), residuals),
      "a residual row per point matrix");
}

}  // namespace
