// The fan, the scale and the order of work, seen in the tables that come out.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "kestrane/compensator.h"
#include "tests/compensation/compensated_tables.h"
#include "tests/compensation/scanner_table.h"
#include "tests/support/bits.h"

namespace {

using kestrane::KESTRANE_LASER_COMPENSATOR;
using kestrane_test::bits_of;
using kestrane_test::compensate_literally;
using kestrane_test::compensated;
using kestrane_test::Condition;
using kestrane_test::count_differences;
using kestrane_test::flat_table;
using kestrane_test::kAcross;
using kestrane_test::kExtrinsic;
using kestrane_test::kInf;
using kestrane_test::kNaN;
using kestrane_test::kWarm;
using kestrane_test::load;
using kestrane_test::result_of;
using kestrane_test::same_bits;
using kestrane_test::scanner_table;
using kestrane_test::turn_of;
using simulation::HostTable;

// --- cases worked by hand

TEST(Compensate, MovesASheetOutByItsThermalGrowth) {
  HostTable table = flat_table(1);
  const Condition param{.temperature = 30.0, .temperature_ref = 20.0, .scale_per_degree = 0.001};
  HostTable result = compensated(table, param, 0, 1, kAcross);
  EXPECT_DOUBLE_EQ(result.abc(0, 0, 0)[0], -1.0 / 101.0);
  EXPECT_EQ(result.abc(0, 0, 0)[1], 0.0);
  EXPECT_EQ(result.abc(0, 0, 0)[2], 0.0);
}

TEST(Compensate, TurnsASheetOneStepFromTheCentre) {
  HostTable table = flat_table(3);
  const Condition param{.temperature = 30.0,
                        .temperature_ref = 20.0,
                        .temperature_spread = 0.001,
                        .scale_per_degree = 0.001};
  HostTable result = compensated(table, param, 0, 3, kAcross);
  constexpr double kRounding = 1e-16;  // a value of 1e-4 out of sums of size 1
  for (const int step : {-1, 0, 1}) {
    EXPECT_DOUBLE_EQ(result.abc(1 + step, 3, 9)[0], -1.0 / 101.0);
    EXPECT_EQ(result.abc(1 + step, 3, 9)[1], 0.0);
    EXPECT_NEAR(result.abc(1 + step, 3, 9)[2], step * -std::tan(0.01) / 101.0, kRounding);
  }
}

TEST(Compensate, GivesBackEachCellUpToRoundingWithoutACondition) {
  HostTable table = scanner_table(10, 15);
  HostTable result = compensated(table, {}, 0, 10);
  constexpr double kRounding = 1e-15;  // of components up to 0.012, rescaled by sums of size 1
  for (std::int32_t p = 0; p < 10; ++p) {
    for (int n = 0; n < HostTable::kLines * HostTable::kCells; ++n) {
      for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(result.abc(p, 0, n)[i], table.abc(p, 0, n)[i], kRounding);
      }
    }
  }
}

TEST(Compensate, LeavesEmptyCellsAsTheyAre) {
  HostTable table = flat_table(1);
  double* plus = table.abc(0, 2, 10);
  plus[0] = 0.0;
  plus[1] = 3.5;
  plus[2] = kInf;
  double* minus = table.abc(0, 2, 11);
  minus[0] = -0.0;
  minus[1] = std::bit_cast<double>(0x7ff4000000000001u);
  minus[2] = -1e-3;
  HostTable result = compensated(table, kWarm, 0, 1);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(bits_of(result.abc(0, 2, 10)[i]), bits_of(plus[i]));
    EXPECT_EQ(bits_of(result.abc(0, 2, 11)[i]), bits_of(minus[i]));
  }
  EXPECT_NE(result.abc(0, 2, 12)[0], -0.01);
}

// A cell of (1e-31, 0, -0.01) is the depth z = 100; its reference point (0, 0, 100) turns with it.
TEST(Compensate, WorksOnACellWhoseFirstComponentIsTinyButNotZero) {
  HostTable table(3);
  table.fill(-0.01, 0.0, -0.01);
  for (std::int32_t p = 0; p < 3; ++p) table.abc(p, 0, 0)[0] = 1e-31;
  const _MRV_EXTRINSIC_PARAM along{{}, {50.0, 0.0, 50.0}};
  const Condition param{.temperature = 1.0, .temperature_spread = 0.25};
  HostTable result = compensated(table, param, 0, 3, along);
  const double* cell = result.abc(2, 0, 0);
  // n = (0.01 sin, 0, -0.01 cos) of 0.25 and the turned point (pivot (50, 0, 50)).
  const double s = std::sin(0.25);
  const double c = std::cos(0.25);
  const double x = c * -50.0 - s * 50.0 + 50.0;
  const double z = s * -50.0 + c * 50.0 + 50.0;
  const double d = -(0.01 * s * x - 0.01 * c * z);
  EXPECT_DOUBLE_EQ(cell[0], 0.01 * s / d);
  EXPECT_DOUBLE_EQ(cell[2], -0.01 * c / d);
}

TEST(Compensate, GivesValuesThatAreNotNumbersWithoutATranslation) {
  HostTable table = flat_table(1);
  table.abc(0, 0, 1)[0] = 0.0;
  HostTable result = compensated(table, kWarm, 0, 1, {});
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(std::isnan(result.abc(0, 0, 0)[i]));
    EXPECT_EQ(result.abc(0, 0, 1)[i], 0.0);
  }
}

TEST(Compensate, GivesValuesThatAreNotNumbersForAPlaneAlongTheTranslation) {
  HostTable table = flat_table(2);
  double* whole = table.row(1).laser_plane_R;
  whole[0] = 0.0;
  whole[1] = 1.0;  // T is (100, 0, 0): T . p is 0
  HostTable result = compensated(table, kWarm, 0, 2, kAcross);
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(std::isnan(result.abc(0, 0, 0)[i]));
    EXPECT_TRUE(std::isnan(result.abc(1, 0, 0)[i]));
  }
}

// --- the band of temperatures

TEST(Compensate, ScalesOnlyInsideTheBandOfTemperatures) {
  HostTable table = scanner_table(2, 16);
  for (const double t : {-20.0, 100.0, -20.5, 250.0, kInf, -kInf}) {
    const Condition with{.temperature = t, .temperature_ref = 20.0, .scale_per_degree = 0.001};
    _KESTRANE_COMPENSATE_PARAM without = with;
    without.scale_per_degree = 0.0;
    HostTable scaled = compensated(table, with, 0, 2);
    HostTable plain = compensated(table, without, 0, 2);
    EXPECT_EQ(count_differences(scaled, plain), 0) << t;
  }
  for (const double t : {std::nextafter(-20.0, 0.0), std::nextafter(100.0, 0.0)}) {
    const Condition with{.temperature = t, .temperature_ref = 20.0, .scale_per_degree = 0.001};
    HostTable flat = flat_table(1);
    HostTable scaled = compensated(flat, with, 0, 1, kAcross);
    const double growth = 1.0 + 0.001 * (t - 20.0);
    EXPECT_DOUBLE_EQ(scaled.abc(0, 0, 0)[0], -0.01 / growth) << t;
  }
}

TEST(Compensate, TurnsByTheTemperatureOutsideTheBandToo) {
  constexpr double kRounding = 1e-12;  // of angles up to 1
  for (const double t : {-20.0, 100.0, -45.0, 130.0}) {
    HostTable table = flat_table(3);
    const Condition param{.temperature = t, .temperature_ref = 20.0, .temperature_spread = 1e-3};
    HostTable result = compensated(table, param, 0, 3, kAcross);
    EXPECT_NEAR(turn_of(result, 2), 1e-3 * (t - 20.0), kRounding) << t;
    EXPECT_NEAR(turn_of(result, 0), -1e-3 * (t - 20.0), kRounding) << t;
  }
}

// --- the fan

constexpr double kAngleRounding = 1e-12;  // of angles up to 0.1

TEST(SetCompensateParam, OpensTenPlanesAboutPlaneFive) {
  HostTable table = flat_table(10);
  const Condition param{.temperature = 1.0, .temperature_spread = 0.01};
  HostTable result = compensated(table, param, 0, 10, kAcross);
  for (std::int32_t p = 0; p < 10; ++p) {
    EXPECT_NEAR(turn_of(result, p), (p - 5) * 0.01, kAngleRounding) << "plane " << p;
  }
  EXPECT_EQ(turn_of(result, 5), 0.0);
}

TEST(SetCompensateParam, OpensAnOddNumberOfPlanesAboutTheMiddleOne) {
  HostTable table = flat_table(12);
  const Condition param{.temperature = 1.0, .temperature_spread = 0.01};
  HostTable result = compensated(table, param, 3, 10, kAcross);
  for (std::int32_t p = 3; p < 10; ++p) {
    EXPECT_NEAR(turn_of(result, p), (p - 6) * 0.01, kAngleRounding) << "plane " << p;
  }
  for (const std::int32_t p : {0, 2, 10, 11}) EXPECT_EQ(result.abc(p, 0, 0)[0], -0.01);
}

TEST(SetCompensateParam, LeavesASinglePlaneUnturned) {
  HostTable table = flat_table(8);
  const Condition param{.temperature = 1.0, .temperature_spread = 0.01};
  HostTable result = compensated(table, param, 7, 8, kAcross);
  EXPECT_EQ(turn_of(result, 7), 0.0);
}

TEST(SetCompensateParam, TurnsByTheGainedSecondReading) {
  HostTable table = flat_table(4);
  const Condition param{.drift = 7.0, .drift_ref = 5.0, .drift_gain = 3.0, .drift_spread = 0.002};
  HostTable result = compensated(table, param, 0, 4, kAcross);
  for (std::int32_t p = 0; p < 4; ++p) {
    EXPECT_NEAR(turn_of(result, p), (p - 2) * 0.002 * 3.0 * 2.0, kAngleRounding) << "plane " << p;
  }
}

TEST(SetCompensateParam, KeepsTheAnglesOfPlanesOutsideItsRange) {
  HostTable table = flat_table(10);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table, kAcross);
  const Condition param{.temperature = 1.0, .temperature_spread = 0.01};
  compensator.set_compensate_param(param, 0, 6);
  compensator.set_compensate_param(param, 4, 8);
  compensator.compensate(0, 10);
  HostTable result = result_of(compensator, 10);
  for (std::int32_t p = 0; p < 4; ++p) {
    EXPECT_NEAR(turn_of(result, p), (p - 3) * 0.01, kAngleRounding) << "plane " << p;
  }
  for (std::int32_t p = 4; p < 8; ++p) {
    EXPECT_NEAR(turn_of(result, p), (p - 6) * 0.01, kAngleRounding) << "plane " << p;
  }
  for (std::int32_t p = 8; p < 10; ++p) EXPECT_EQ(turn_of(result, p), 0.0) << "plane " << p;
}

TEST(SetCompensateParam, ChangesNoAngleForARangeWithoutPlanes) {
  HostTable table = flat_table(5);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table, kAcross);
  Condition param{.temperature = 1.0, .temperature_spread = 0.01};
  compensator.set_compensate_param(param, 0, 5);
  param.temperature = 2.0;
  param.temperature_spread = 0.05;
  EXPECT_EQ(compensator.set_compensate_param(param, 3, 3), KESTRANE_OK);
  EXPECT_EQ(compensator.set_compensate_param(param, 4, 1), KESTRANE_OK);
  EXPECT_EQ(compensator.set_compensate_param(param, std::numeric_limits<std::int32_t>::max(),
                                             std::numeric_limits<std::int32_t>::min()),
            KESTRANE_OK);
  compensator.compensate(0, 5);
  HostTable result = result_of(compensator, 5);
  for (std::int32_t p = 0; p < 5; ++p) {  // the new temperature at the old spread
    EXPECT_NEAR(turn_of(result, p), (p - 2) * 0.01 * 2.0, kAngleRounding) << "plane " << p;
  }
}

TEST(SetCompensateParam, LeavesAPlaneThatWasInNoFanToTheScaleAlone) {
  HostTable table = flat_table(3);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table, kAcross);
  const Condition param{.temperature = 10.0, .temperature_spread = 0.01, .scale_per_degree = 0.01};
  compensator.set_compensate_param(param, 0, 0);
  compensator.compensate(0, 3);
  HostTable result = result_of(compensator, 3);
  for (std::int32_t p = 0; p < 3; ++p) {
    EXPECT_DOUBLE_EQ(result.abc(p, 0, 0)[0], -0.01 / 1.1);
    EXPECT_EQ(turn_of(result, p), 0.0);
  }
}

TEST(SetCompensateParam, MayComeBeforeTheExtrinsicMatrix) {
  HostTable table = scanner_table(4, 17);
  HostTable expected = compensated(table, kWarm, 0, 4);
  KESTRANE_LASER_COMPENSATOR compensator;
  ASSERT_EQ(compensator.init(), KESTRANE_OK);
  compensator.set_laser_plane_param(table.infos());
  compensator.set_compensate_param(kWarm, 0, 4);
  compensator.set_extrinsic_matrix(kExtrinsic);
  compensator.compensate(0, 4);
  HostTable result = result_of(compensator, 4);
  EXPECT_EQ(count_differences(result, expected), 0);
}

TEST(SetExtrinsicMatrix, UsesTheTranslationAlone) {
  HostTable table = scanner_table(4, 18);
  _MRV_EXTRINSIC_PARAM other = kExtrinsic;
  for (double& r : other.R) r = kNaN;
  HostTable expected = compensated(table, kWarm, 0, 4);
  HostTable result = compensated(table, kWarm, 0, 4, other);
  EXPECT_EQ(count_differences(result, expected), 0);
}

// --- properties

TEST(Compensate, WorksOnItsRangeOnly) {
  HostTable table = scanner_table(10, 19);
  HostTable whole = compensated(table, kWarm, 0, 10);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  compensator.set_compensate_param(kWarm, 0, 10);
  compensator.compensate(3, 7);
  HostTable result = result_of(compensator, 10);
  for (std::int32_t p = 0; p < 10; ++p) {
    HostTable& expected = p >= 3 && p < 7 ? whole : table;
    for (int n = 0; n < HostTable::kLines * HostTable::kCells; ++n) {
      for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(same_bits(result.abc(p, 0, n)[i], expected.abc(p, 0, n)[i])) << p;
      }
    }
  }
}

TEST(Compensate, WorksOnTheResultOfTheCallBefore) {
  HostTable table = scanner_table(3, 20);
  HostTable once = compensated(table, kWarm, 0, 3);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  compensator.set_compensate_param(kWarm, 0, 3);
  compensator.compensate(0, 3);
  compensator.compensate(0, 3);
  HostTable twice = result_of(compensator, 3);
  EXPECT_GT(count_differences(twice, once), 0);
  compensate_literally(once, kWarm, 0, 3);
  EXPECT_EQ(count_differences(twice, once), 0);
}

TEST(Compensate, WorksOnTablesOfShortAndOddCounts) {
  HostTable table = scanner_table(1, 21);
  for (std::int32_t j = 0; j < HostTable::kLines; ++j) table.line(0, j).count = 3 * j;
  HostTable result = compensated(table, kWarm, 0, 1);
  HostTable expected = scanner_table(1, 21);
  compensate_literally(expected, kWarm, 0, 1);
  for (std::int32_t j = 0; j < HostTable::kLines; ++j) {
    EXPECT_EQ(result.line(0, j).count, 3 * j);
    for (std::int32_t k = 0; k < HostTable::kCells; ++k) {
      const double at_count = k < 3 * j ? expected.abc(0, j, k)[0] : 0.0;
      EXPECT_TRUE(same_bits(result.abc(0, j, k)[0], at_count)) << j << ", " << k;
    }
  }
}

}  // namespace
