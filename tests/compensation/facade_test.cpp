// The facade: what it refuses, tables in and out, and violated preconditions.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>

#include "kestrane/compensator.h"
#include "tests/compensation/compensated_tables.h"
#include "tests/compensation/scanner_table.h"
#include "tests/support/bits.h"
#include "tests/support/violation.h"

namespace {

using kestrane::_LASER_PLANE_GRIDS;
using kestrane::KESTRANE_LASER_COMPENSATOR;
using kestrane_test::bits_of;
using kestrane_test::compensate_literally;
using kestrane_test::compensated;
using kestrane_test::count_differences;
using kestrane_test::flat_table;
using kestrane_test::kAcross;
using kestrane_test::kNaN;
using kestrane_test::kWarm;
using kestrane_test::load;
using kestrane_test::result_of;
using kestrane_test::same_bits;
using kestrane_test::scanner_table;
using simulation::HostTable;

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
