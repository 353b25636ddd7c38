// What the host owes: a checked build names the violated precondition before memory is touched.
#include <gtest/gtest.h>

#include "fit/coefficient_calibration.h"
#include "kestrane/buffers.h"
#include "tests/files/records_under_test.h"

namespace kestrane {
namespace {

class CoefficientPreconditionsDeathTest : public testing::Test {
 protected:
  CoefficientPreconditionsDeathTest() {
    EXPECT_EQ(indicators.init(2), KESTRANE_OK);
    EXPECT_EQ(corners.init(2), KESTRANE_OK);
  }

  void calibrate() { calibrate_coefficients(indicators, corners, 24.0, *source, *result); }

  LASER_PLANE_INDICATOR_MANAGER indicators;
  LASER_PLANE_GRID_CORNERS_MANAGER corners;
  Coefficients source{2, 2, 1};
  Coefficients result{2, 2, 2};
};

TEST_F(CoefficientPreconditionsDeathTest, NamesASourceWithMoreRowsThanItHolds) {
  source->opt_coeffs->plane_count = 3;
  EXPECT_DEATH(calibrate(), "a coefficient table's count stays within its capacity");
}

TEST_F(CoefficientPreconditionsDeathTest, NamesASourceBeyondItsCarving) {
  source->opt_coeffs->planes[1].count = 17;
  EXPECT_DEATH(calibrate(), "a coefficient table has at most 16 lines");
  source->opt_coeffs->planes[0].lines[15].count = 52;
  EXPECT_DEATH(calibrate(), "a coefficient line has at most 51 cells");
}

TEST_F(CoefficientPreconditionsDeathTest, NamesMoreRangesThanARecordHolds) {
  source->range_count = 21;
  EXPECT_DEATH(calibrate(), "a coefficient record has at most 20 ranges");
}

TEST_F(CoefficientPreconditionsDeathTest, NamesMorePlanesThanADeviceHas) {
  source->plane_count = 101;
  EXPECT_DEATH(calibrate(), "a device has at most 100 planes");
}

TEST_F(CoefficientPreconditionsDeathTest, NamesAResultThatIsNotCarved) {
  result->Mbs_factory_to_user = nullptr;
  EXPECT_DEATH(calibrate(), "a coefficient record has its transforms");
  result->opt_coeffs = nullptr;
  EXPECT_DEATH(calibrate(), "the result record is carved");
}

TEST_F(CoefficientPreconditionsDeathTest, NamesAMeasuredPlaneWithoutCornersOrCoefficients) {
  indicators.planes[1].lines[3].cells[5].v[1] = 0.25;
  corners.plane_count = 1;
  EXPECT_DEATH(calibrate(), "the corners hold every measured plane");
  corners.plane_count = 2;
  source->opt_coeffs->plane_count = 1;
  EXPECT_DEATH(calibrate(), "the coefficients hold every measured plane");
}

}  // namespace
}  // namespace kestrane
