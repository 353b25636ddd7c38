#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "kestrane/compensator.h"
#include "tests/compensation/scanner_table.h"
#include "tests/literal/compensation.h"
#include "tests/support/bits.h"
#include "tests/support/violation.h"

namespace {

using kestrane::_LASER_PLANE_GRIDS;
using kestrane::KESTRANE_LASER_COMPENSATOR;
using kestrane_test::bits_of;
using kestrane_test::count_differences;
using kestrane_test::kExtrinsic;
using kestrane_test::kWarm;
using kestrane_test::same_bits;
using literal::Vec3;
using simulation::HostTable;
using simulation::Random;

using kestrane_test::kInf;
using kestrane_test::kNaN;

// A condition of which only the named fields are not zero.
struct Condition {
  double temperature = 0.0;
  double temperature_ref = 0.0;
  double drift = 0.0;
  double drift_ref = 0.0;
  double drift_gain = 0.0;
  double temperature_spread = 0.0;
  double drift_spread = 0.0;
  double scale_per_degree = 0.0;

  operator _KESTRANE_COMPENSATE_PARAM() const {
    return {temperature, temperature_ref,    drift,        drift_ref,
            drift_gain,  temperature_spread, drift_spread, scale_per_degree};
  }
};

constexpr _MRV_EXTRINSIC_PARAM kAcross{{1, 0, 0, 0, 1, 0, 0, 0, 1}, {100.0, 0.0, 0.0}};

HostTable scanner_table(std::int32_t planes, std::uint64_t seed) {
  Random random(seed);
  HostTable table(planes);
  kestrane_test::fill_like_a_scanner(table, random);
  return table;
}

// Sheets at x = 100, parallel to the y-z plane.
HostTable flat_table(std::int32_t planes) {
  HostTable table(planes);
  table.fill(-0.01, 0.0, 0.0);
  return table;
}

void load(KESTRANE_LASER_COMPENSATOR& compensator, HostTable& table,
          const _MRV_EXTRINSIC_PARAM& extrinsic = kExtrinsic) {
  _MRV_LASER_PLANE_BLOCK_INFOS record = table.infos();
  record.grids = nullptr;  // not read
  ASSERT_EQ(compensator.init(), KESTRANE_OK);
  ASSERT_EQ(compensator.set_laser_plane_param(record), KESTRANE_OK);
  ASSERT_EQ(compensator.set_extrinsic_matrix(extrinsic), KESTRANE_OK);
}

HostTable result_of(KESTRANE_LASER_COMPENSATOR& compensator, std::int32_t planes) {
  HostTable table(planes);
  _MRV_LASER_PLANE_BLOCK_INFOS record = table.infos();
  record.grids = nullptr;  // not written
  EXPECT_EQ(compensator.get_compensate_result(record), KESTRANE_OK);
  EXPECT_EQ(record.plane_count, planes);
  return table;
}

// The whole way on a fresh object, fan and work on planes first to last - 1.
HostTable compensated(HostTable& table, const _KESTRANE_COMPENSATE_PARAM& param, std::int32_t first,
                      std::int32_t last, const _MRV_EXTRINSIC_PARAM& extrinsic = kExtrinsic) {
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table, extrinsic);
  EXPECT_EQ(compensator.set_compensate_param(param, first, last), KESTRANE_OK);
  EXPECT_EQ(compensator.compensate(first, last), KESTRANE_OK);
  return result_of(compensator, table.size());
}

// The transcription over the planes of a fan, in place.
void compensate_literally(HostTable& table, const _KESTRANE_COMPENSATE_PARAM& param, int first,
                          int last, const _MRV_EXTRINSIC_PARAM& extrinsic = kExtrinsic) {
  const Vec3 T = {extrinsic.T[0], extrinsic.T[1], extrinsic.T[2]};
  for (int p = first; p < last; ++p) {
    const double* R = table.row(p).laser_plane_R;
    const literal::PlaneTurn turn =
        literal::plane_turn(T, param, p, first, last, {R[0], R[1], R[2]});
    for (int n = 0; n < HostTable::kLines * HostTable::kCells; ++n) {
      double* v = table.abc(p, 0, n);
      Vec3 cell = {v[0], v[1], v[2]};
      if (cell[0] == 0.0) continue;
      literal::compensate_cell(T, literal::temperature_scale(param), turn, cell);
      for (std::size_t i = 0; i < 3; ++i) v[i] = cell[i];
    }
  }
}

// The angle by which a plane of `flat_table` was turned.
double turn_of(HostTable& table, std::int32_t plane) {
  const double* cell = table.abc(plane, 7, 20);
  return std::atan(cell[2] / cell[0]);
}

// --- refusals

TEST(SetLaserPlaneParam, RefusesATableWithoutPlanesAndChangesNothing) {
  HostTable table = scanner_table(3, 1);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  HostTable other = scanner_table(3, 2);
  _MRV_LASER_PLANE_BLOCK_INFOS record = other.infos();
  record.plane_count = 0;
  EXPECT_EQ(compensator.set_laser_plane_param(record), KESTRANE_ERR_INVALID_PARAM);
  HostTable result = result_of(compensator, 3);
  EXPECT_EQ(count_differences(result, table), 0);
}

TEST(GetCompensateResult, RefusesARecordWithoutPlanesAndChangesNothing) {
  HostTable table = scanner_table(2, 3);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  HostTable target = scanner_table(2, 4);
  HostTable before = scanner_table(2, 4);
  _MRV_LASER_PLANE_BLOCK_INFOS record = target.infos();
  record.plane_count = 0;
  EXPECT_EQ(compensator.get_compensate_result(record), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(record.plane_count, 0);
  EXPECT_EQ(count_differences(target, before), 0);
}

TEST(Compensate, NeedsNoTableForARangeWithoutPlanes) {
  KESTRANE_LASER_COMPENSATOR compensator;
  EXPECT_EQ(compensator.compensate(0, 0), KESTRANE_OK);
  EXPECT_EQ(compensator.compensate(9, 2), KESTRANE_OK);
}

TEST(Compensate, ReturnsAtOnceForARangeWithoutPlanes) {
  HostTable table = scanner_table(4, 5);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  compensator.set_compensate_param(kWarm, 0, 4);
  EXPECT_EQ(compensator.compensate(2, 2), KESTRANE_OK);
  EXPECT_EQ(compensator.compensate(3, 1), KESTRANE_OK);
  EXPECT_EQ(compensator.compensate(500, -500), KESTRANE_OK);
  HostTable result = result_of(compensator, 4);
  EXPECT_EQ(count_differences(result, table), 0);
}

// --- moving tables in and out

TEST(GetCompensateResult, HandsBackTheTableThatCameInBitForBit) {
  HostTable table = scanner_table(100, 6);
  table.row(3).laser_plane_R[1] = std::bit_cast<double>(0x7ff8000000000abcu);
  table.abc(4, 14, 49)[2] = std::bit_cast<double>(0xfff8000000000defu);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  HostTable result = result_of(compensator, 100);
  EXPECT_EQ(count_differences(result, table), 0);
  EXPECT_EQ(bits_of(result.row(3).laser_plane_R[1]), 0x7ff8000000000abcu);
  EXPECT_EQ(bits_of(result.abc(4, 14, 49)[2]), 0xfff8000000000defu);
}

TEST(GetCompensateResult, HandsBackTheWholePlaneUncompensated) {
  HostTable table = scanner_table(5, 7);
  HostTable result = compensated(table, kWarm, 0, 5);
  for (std::int32_t p = 0; p < 5; ++p) {
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(bits_of(result.row(p).laser_plane_R[i]), bits_of(table.row(p).laser_plane_R[i]));
    }
  }
  EXPECT_GT(count_differences(result, table), 0);
}

TEST(GetCompensateResult, SetsTheHostsPlaneCountWhateverItWas) {
  HostTable table = scanner_table(3, 8);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  for (const std::int32_t stated : {1, -4, 77}) {
    HostTable target(3);
    _MRV_LASER_PLANE_BLOCK_INFOS record = target.infos();
    record.plane_count = stated;
    EXPECT_EQ(compensator.get_compensate_result(record), KESTRANE_OK);
    EXPECT_EQ(record.plane_count, 3);
    EXPECT_EQ(count_differences(target, table), 0);
  }
}

TEST(GetCompensateResult, CopiesCountsAsTheyStandAndNothingBeyondThem) {
  HostTable table = scanner_table(3, 9);
  table.row(0).block.count = 2;
  table.line(0, 0).count = 7;
  table.line(0, 1).count = 0;
  table.row(1).block.count = -3;
  table.line(2, 4).count = -1;
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  HostTable target(3);
  target.fill(5.0, 6.0, 7.0);
  _MRV_LASER_PLANE_BLOCK_INFOS record = target.infos();
  ASSERT_EQ(compensator.get_compensate_result(record), KESTRANE_OK);

  EXPECT_EQ(target.row(0).block.count, 2);
  EXPECT_EQ(target.line(0, 0).count, 7);
  EXPECT_EQ(target.line(0, 1).count, 0);
  EXPECT_EQ(target.line(0, 2).count, 50);  // beyond the line count: the host's own
  EXPECT_EQ(target.row(1).block.count, -3);
  EXPECT_EQ(target.line(2, 4).count, -1);
  EXPECT_TRUE(same_bits(target.abc(0, 0, 6)[2], table.abc(0, 0, 6)[2]));
  EXPECT_EQ(target.abc(0, 0, 7)[0], 5.0);
  EXPECT_EQ(target.abc(0, 1, 0)[0], 5.0);
  EXPECT_EQ(target.abc(1, 0, 0)[0], 5.0);
  EXPECT_EQ(target.abc(2, 4, 0)[0], 5.0);
  EXPECT_TRUE(same_bits(target.abc(2, 5, 49)[1], table.abc(2, 5, 49)[1]));
}

TEST(GetCompensateResult, LeavesTheHostsPointersAndGridsAlone) {
  HostTable table = scanner_table(2, 10);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  HostTable target(2);
  _LASER_PLANE_GRIDS grids;
  std::memset(&grids, 0x5a, sizeof grids);
  const _LASER_PLANE_GRIDS before = grids;
  _MRV_LASER_PLANE_BLOCK_INFOS record = target.infos();
  record.grids = &grids;
  ASSERT_EQ(compensator.get_compensate_result(record), KESTRANE_OK);
  EXPECT_EQ(record.planes, &target.row(0));
  EXPECT_EQ(record.grids, &grids);
  EXPECT_EQ(std::memcmp(&grids, &before, sizeof grids), 0);
  EXPECT_EQ(target.row(1).block.lines, &target.line(1, 0));
  EXPECT_EQ(target.line(1, 3).cells, reinterpret_cast<void*>(target.abc(1, 3, 0)));
}

TEST(SetLaserPlaneParam, TakesTheWholePlaneOnlyFromAPlaneWithLines) {
  HostTable table = flat_table(2);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  table.fill(-0.5, 0.25, 0.125);
  table.row(0).block.count = 0;
  ASSERT_EQ(compensator.set_laser_plane_param(table.infos()), KESTRANE_OK);
  HostTable result = result_of(compensator, 2);
  EXPECT_EQ(result.row(0).laser_plane_R[0], -0.01);
  EXPECT_EQ(result.row(1).laser_plane_R[0], -0.5);
}

TEST(SetLaserPlaneParam, TakesTheWholePlaneFromAPlaneWhoseLinesAreEmpty) {
  HostTable table = flat_table(1);
  for (std::int32_t j = 0; j < HostTable::kLines; ++j) table.line(0, j).count = 0;
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  EXPECT_EQ(result_of(compensator, 1).row(0).laser_plane_R[0], -0.01);
}

TEST(SetLaserPlaneParam, MovesNothingForANegativePlaneCount) {
  HostTable table = scanner_table(2, 11);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  EXPECT_EQ(compensator.set_laser_plane_param({nullptr, nullptr, -2}), KESTRANE_OK);
  _MRV_LASER_PLANE_BLOCK_INFOS record{nullptr, nullptr, 1};
  EXPECT_EQ(compensator.get_compensate_result(record), KESTRANE_OK);
  EXPECT_EQ(record.plane_count, -2);
}

TEST(SetLaserPlaneParam, KeepsNoPointerIntoTheHostsTable) {
  KESTRANE_LASER_COMPENSATOR compensator;
  HostTable expected = scanner_table(2, 12);
  {
    HostTable table = scanner_table(2, 12);
    load(compensator, table);
    table.fill(kNaN, kNaN, kNaN);
  }
  HostTable result = result_of(compensator, 2);
  EXPECT_EQ(count_differences(result, expected), 0);
}

TEST(SetLaserPlaneParam, BringsBackAnUncompensatedTable) {
  HostTable table = scanner_table(3, 13);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  compensator.set_compensate_param(kWarm, 0, 3);
  compensator.compensate(0, 3);
  ASSERT_EQ(compensator.set_laser_plane_param(table.infos()), KESTRANE_OK);
  HostTable result = result_of(compensator, 3);
  EXPECT_EQ(count_differences(result, table), 0);
}

TEST(Init, DiscardsTheTable) {
  HostTable table = flat_table(3);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  ASSERT_EQ(compensator.init(), KESTRANE_OK);
  HostTable result = result_of(compensator, 3);
  for (std::int32_t p = 0; p < 3; ++p) {
    EXPECT_EQ(result.row(p).block.count, 0);
    EXPECT_EQ(result.row(p).laser_plane_R[0], 0.0);
  }
}

TEST(Init, KeepsTheCondition) {
  HostTable table = scanner_table(4, 14);
  HostTable expected = compensated(table, kWarm, 0, 4);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  compensator.set_compensate_param(kWarm, 0, 4);
  ASSERT_EQ(compensator.init(), KESTRANE_OK);
  ASSERT_EQ(compensator.set_laser_plane_param(table.infos()), KESTRANE_OK);
  compensator.compensate(0, 4);
  HostTable result = result_of(compensator, 4);
  EXPECT_EQ(count_differences(result, expected), 0);
}

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

TEST(Compensate, SharesNothingBetweenTwoObjects) {
  HostTable warm = scanner_table(4, 22);
  HostTable cold = scanner_table(4, 23);
  _KESTRANE_COMPENSATE_PARAM other = kWarm;
  other.temperature = -3.0;
  HostTable expected_warm = compensated(warm, kWarm, 0, 4);
  HostTable expected_cold = compensated(cold, other, 0, 4, kAcross);
  KESTRANE_LASER_COMPENSATOR a;
  KESTRANE_LASER_COMPENSATOR b;
  load(a, warm);
  load(b, cold, kAcross);
  a.set_compensate_param(kWarm, 0, 4);
  b.set_compensate_param(other, 0, 4);
  a.compensate(0, 4);
  b.compensate(0, 4);
  HostTable got_warm = result_of(a, 4);
  HostTable got_cold = result_of(b, 4);
  EXPECT_EQ(count_differences(got_warm, expected_warm), 0);
  EXPECT_EQ(count_differences(got_cold, expected_cold), 0);
}

// --- comparison with the transcription

_KESTRANE_COMPENSATE_PARAM random_param(Random& random) {
  return {.temperature = random.uniform(-30.0, 110.0),
          .temperature_ref = random.uniform(15.0, 25.0),
          .drift = random.uniform(-2.0, 2.0),
          .drift_ref = random.uniform(-2.0, 2.0),
          .drift_gain = random.uniform(-3.0, 3.0),
          .temperature_spread = random.uniform(-1e-4, 1e-4),
          .drift_spread = random.uniform(-1e-3, 1e-3),
          .scale_per_degree = random.uniform(-1e-3, 1e-3)};
}

_MRV_EXTRINSIC_PARAM random_extrinsic(Random& random) {
  return {{}, {random.uniform(50, 150), random.uniform(-20, 20), random.uniform(-50, 50)}};
}

TEST(Compensate, EqualsTheTranscriptionInEveryBitOverFullTables) {
  Random random(24);
  for (int run = 0; run < 20; ++run) {
    const _KESTRANE_COMPENSATE_PARAM param = random_param(random);
    const _MRV_EXTRINSIC_PARAM extrinsic = random_extrinsic(random);
    HostTable table(23);
    kestrane_test::fill_like_a_scanner(table, random);
    const int first = random.index(10);
    const int last = first + 1 + random.index(13);
    HostTable result = compensated(table, param, first, last, extrinsic);
    compensate_literally(table, param, first, last, extrinsic);
    ASSERT_EQ(count_differences(result, table), 0) << "run " << run;
  }
}

TEST(Compensate, EqualsTheTranscriptionInEveryBitForAHundredPlanes) {
  HostTable table = scanner_table(100, 25);
  HostTable result = compensated(table, kWarm, 0, 100);
  compensate_literally(table, kWarm, 0, 100);
  EXPECT_EQ(count_differences(result, table), 0);
}

// Whole planes and conditions out of any bits at all; most results are not numbers.
TEST(Compensate, EqualsTheTranscriptionInEveryBitOnAwkwardConditions) {
  Random random(26);
  const double values[] = {0.0, -0.0, kInf, -kInf, kNaN, 1e-31, 1e300, -1e-300, 1.0, -20.0, 100.0};
  const auto pick = [&] { return values[random.index(static_cast<int>(std::size(values)))]; };
  for (int run = 0; run < 300; ++run) {
    _KESTRANE_COMPENSATE_PARAM param = random_param(random);
    double* fields[] = {&param.temperature,     &param.temperature_ref, &param.drift,
                        &param.drift_ref,       &param.drift_gain,      &param.temperature_spread,
                        &param.scale_per_degree};
    *fields[random.index(7)] = pick();
    _MRV_EXTRINSIC_PARAM extrinsic = random_extrinsic(random);
    if (run % 2 == 0) extrinsic.T[random.index(3)] = pick();
    HostTable table(2);
    kestrane_test::fill_like_a_scanner(table, random);
    if (run % 3 == 0) table.row(random.index(2)).laser_plane_R[random.index(3)] = pick();
    HostTable result = compensated(table, param, 0, 2, extrinsic);
    compensate_literally(table, param, 0, 2, extrinsic);
    ASSERT_EQ(count_differences(result, table), 0) << "run " << run;
  }
}

// --- preconditions

#ifdef KESTRANE_CHECKED
using kestrane_test::violation;

TEST(CompensatorDeathTest, NamesACallBeforeInit) {
  HostTable table = flat_table(1);
  _MRV_LASER_PLANE_BLOCK_INFOS record = table.infos();
  KESTRANE_LASER_COMPENSATOR compensator;
  EXPECT_DEATH(compensator.set_laser_plane_param(record),
               violation("set_laser_plane_param", "init has succeeded"));
  EXPECT_DEATH(compensator.compensate(0, 1), violation("compensate", "init has succeeded"));
  EXPECT_DEATH(compensator.get_compensate_result(record),
               violation("get_compensate_result", "init has succeeded"));
}

TEST(CompensatorDeathTest, NamesATableBeyondTheStore) {
  KESTRANE_LASER_COMPENSATOR compensator;
  ASSERT_EQ(compensator.init(), KESTRANE_OK);
  HostTable planes = flat_table(101);
  EXPECT_DEATH(compensator.set_laser_plane_param(planes.infos()),
               violation("set_laser_plane_param", "a table has at most 100 planes",
                         "infos.plane_count is 101"));
  HostTable lines = flat_table(1);
  lines.row(0).block.count = 16;
  EXPECT_DEATH(compensator.set_laser_plane_param(lines.infos()),
               violation("set_laser_plane_param", "a table has at most its shape's lines",
                         "table.count is 16, shape.lines is 15"));
  HostTable cells = flat_table(1);
  cells.line(0, 14).count = 51;
  EXPECT_DEATH(compensator.set_laser_plane_param(cells.infos()),
               violation("set_laser_plane_param", "a line has at most its shape's cells",
                         "count is 51, shape.cells is 50"));
}

TEST(CompensatorDeathTest, NamesARangeOutsideTheTable) {
  KESTRANE_LASER_COMPENSATOR compensator;
  ASSERT_EQ(compensator.init(), KESTRANE_OK);
  EXPECT_DEATH(compensator.compensate(-1, 3),
               violation("compensate", "planes of 0 to 99", "first is -1, last is 3"));
  EXPECT_DEATH(compensator.compensate(0, 101),
               violation("compensate", "planes of 0 to 99", "first is 0, last is 101"));
  EXPECT_DEATH(compensator.set_compensate_param({}, -1, 3),
               violation("set_compensate_param", "planes of 0 to 99", "first is -1, last is 3"));
  EXPECT_DEATH(compensator.set_compensate_param({}, 0, 101),
               violation("set_compensate_param", "planes of 0 to 99", "first is 0, last is 101"));
}

#else

TEST(Compensate, ReachesNoMemoryOutsideTheTableForARangeBeyondIt) {
  HostTable table = scanner_table(100, 27);
  KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table);
  compensator.set_compensate_param(kWarm, -20, 120);
  compensator.compensate(-20, 120);
  HostTable result = result_of(compensator, 100);
  // The fan of planes -20 to 119 has the same centre as that of planes 0 to 99.
  compensate_literally(table, kWarm, 0, 100);
  EXPECT_EQ(count_differences(result, table), 0);

  constexpr std::int32_t kLow = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kHigh = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(compensator.set_compensate_param(kWarm, kLow, kHigh), KESTRANE_OK);
  EXPECT_EQ(compensator.compensate(kLow, kHigh), KESTRANE_OK);
}

#endif

}  // namespace
