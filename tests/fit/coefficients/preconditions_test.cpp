// What the host owes: a checked build names the violated precondition before memory is touched.
#include <gtest/gtest.h>

#include "fit/coefficients/coefficient_calibration.h"
#include "kestrane/buffers.h"
#include "tests/files/records_under_test.h"
#include "tests/support/violation.h"

namespace kestrane {
namespace {

using kestrane_test::violation;

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
  EXPECT_DEATH(calibrate(),
               violation("calib", "a coefficient table's count stays within its capacity",
                         "from.plane_count is 3, from.plane_capacity is 2"));
}

TEST_F(CoefficientPreconditionsDeathTest, NamesASourceBeyondItsCarving) {
  source->opt_coeffs->planes[1].count = 17;
  EXPECT_DEATH(calibrate(), violation("calib", "a table has at most its shape's lines",
                                      "table.count is 17, shape.lines is 16"));
  source->opt_coeffs->planes[0].lines[15].count = 52;
  EXPECT_DEATH(calibrate(), violation("calib", "a line has at most its shape's cells",
                                      "count is 52, shape.cells is 51"));
}

TEST_F(CoefficientPreconditionsDeathTest, NamesMoreRangesThanARecordHolds) {
  source->range_count = 21;
  EXPECT_DEATH(calibrate(), violation("calib", "a coefficient record has at most 20 ranges",
                                      "from.range_count is 21"));
}

TEST_F(CoefficientPreconditionsDeathTest, NamesMorePlanesThanADeviceHas) {
  source->plane_count = 101;
  EXPECT_DEATH(calibrate(),
               violation("calib", "a device has at most 100 planes", "source.plane_count is 101"));
}

TEST_F(CoefficientPreconditionsDeathTest, NamesAResultThatIsNotCarved) {
  result->Mbs_factory_to_user = nullptr;
  EXPECT_DEATH(calibrate(), violation("calib", "a coefficient record has its transforms"));
  result->opt_coeffs = nullptr;
  EXPECT_DEATH(calibrate(), violation("calib", "the result record is carved"));
}

TEST_F(CoefficientPreconditionsDeathTest, NamesAMeasuredPlaneWithoutCornersOrCoefficients) {
  indicators.planes[1].lines[3].cells[5].v[1] = 0.25;
  corners.plane_count = 1;
  EXPECT_DEATH(calibrate(), violation("calib", "the corners hold every measured plane",
                                      "plane is 1, corners.plane_count is 1"));
  corners.plane_count = 2;
  source->opt_coeffs->plane_count = 1;
  EXPECT_DEATH(calibrate(), violation("calib", "the coefficients hold every measured plane",
                                      "p is 1, result.opt_coeffs->plane_count is 1"));
}

}  // namespace
}  // namespace kestrane
