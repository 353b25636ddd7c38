// What the host owes: a checked build names the violated precondition before memory is touched.
#include <gtest/gtest.h>

#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/factory_calib.h"
#include "simulation/scanner.h"

namespace {

using kestrane::KESTRANE_LASER_FAC_CALIB;

simulation::Cloud cloud() {
  simulation::CloudSettings settings;
  settings.points = 6000;
  return simulation::measure(simulation::make_device({})[0], settings);
}

TEST(FactoryPreconditionsDeathTest, NamesARunBeforeInit) {
  KESTRANE_LASER_FAC_CALIB calib;
  simulation::Cloud points = cloud();
  EXPECT_DEATH(calib.factory_calib(0, simulation::record_of(points)),
               "factory_calib comes after init");
}

TEST(FactoryPreconditionsDeathTest, NamesAPlaneIndexOutsideTheTable) {
  KESTRANE_LASER_FAC_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  simulation::Cloud points = cloud();
  for (const int index : {-1, 100}) {
    EXPECT_DEATH(calib.factory_calib(index, simulation::record_of(points)),
                 "a plane index is 0 to 99");
  }
}

TEST(FactoryPreconditionsDeathTest, NamesANegativePointCount) {
  KESTRANE_LASER_FAC_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  _KESTRANE_ID_POINT3D point{};
  EXPECT_DEATH(calib.factory_calib(0, {&point, -1}), "a point count is not negative");
}

TEST(FactoryPreconditionsDeathTest, NamesATableReadBeforeInitOrBeyondItsPlanes) {
  KESTRANE_LASER_FAC_CALIB calib;
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows(1);
  kestrane::_LASER_PLANE_GRIDS grids{};
  _MRV_LASER_PLANE_BLOCK_INFOS infos{rows.data(), &grids, 0};
  EXPECT_DEATH(calib.get_laser_plane_infos(infos), "get_laser_plane_infos comes after init");
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  infos.plane_count = 101;
  EXPECT_DEATH(calib.get_laser_plane_infos(infos), "a plane count is at most 100");
}

TEST(FactoryPreconditionsDeathTest, NamesIndicatorsOfAFailedRunAndACornerRecordThatIsTooShort) {
  KESTRANE_LASER_FAC_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  simulation::Cloud points = cloud();
  ASSERT_EQ(calib.factory_calib(0, simulation::record_of(points)), KESTRANE_OK);
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
  ASSERT_EQ(indicators.init(2), KESTRANE_OK);
  ASSERT_EQ(corners.init(1), KESTRANE_OK);
  EXPECT_DEATH(calib.get_indicators(1, indicators, corners),
               "a plane index lies inside the corner record");
  points.points.resize(900);  // too few for any sector: the run fails between its stages
  ASSERT_EQ(calib.factory_calib(0, simulation::record_of(points)), KESTRANE_ERR_FAILED);
  EXPECT_DEATH(calib.get_indicators(0, indicators, corners),
               "get_indicators comes after a successful factory_calib");
}

}  // namespace
