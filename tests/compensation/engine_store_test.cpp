// The engine from inside: its store, its pivots, what it allocates.
#include <gtest/gtest.h>

#include <memory>

#include "compensation/engine.h"
#include "kestrane/compensator.h"
#include "tests/compensation/allocation_probe.h"
#include "tests/compensation/scanner_table.h"
#include "tests/literal/compensation.h"
#include "tests/support/bits.h"

namespace {

using kestrane::_LASER_LINES_INFOS;
using kestrane::_LASER_PLANE_BLOCK_INFO;
using kestrane::KESTRANE_LASER_COMPENSATOR;
using kestrane::LaserCompensator;
using kestrane_test::AllocationProbe;
using kestrane_test::kExtrinsic;
using kestrane_test::kWarm;
using kestrane_test::same_bits;
using literal::Vec3;
using simulation::HostTable;
using Event = AllocationProbe::Event;

constexpr std::ptrdiff_t kRowsSection = 8832;
constexpr std::ptrdiff_t kSlab = 38912;
constexpr std::ptrdiff_t kLineTable = 256;
constexpr std::ptrdiff_t kLine = 1280;
constexpr std::size_t kStore = 3900032;  // 8832 + 100 * 38912

std::ptrdiff_t offset_in(const LaserCompensator& engine, const void* address) {
  return static_cast<const char*>(address) - reinterpret_cast<const char*>(engine.planes());
}

void expect_table_at(const LaserCompensator& engine, const _LASER_LINES_INFOS& table,
                     std::ptrdiff_t offset) {
  EXPECT_EQ(offset_in(engine, table.lines), offset);
  EXPECT_EQ(table.count, 0);
  for (int j = 0; j < 15; ++j) {
    EXPECT_EQ(offset_in(engine, table.lines[j].cells), offset + kLineTable + j * kLine);
    EXPECT_EQ(table.lines[j].count, 0);
  }
}

TEST(LaserCompensator, HoldsNoRowsBeforeInit) { EXPECT_EQ(LaserCompensator().planes(), nullptr); }

TEST(LaserCompensator, DividesItsStoreIntoRowsAndOneSlabPerPlane) {
  LaserCompensator engine;
  ASSERT_TRUE(engine.init());
  for (int p = 0; p < 100; ++p) {
    const _LASER_PLANE_BLOCK_INFO& row = engine.planes()[p];
    EXPECT_EQ(offset_in(engine, &row), p * 88);
    expect_table_at(engine, row.block, kRowsSection + p * kSlab);
    expect_table_at(engine, row.block_aux, kRowsSection + p * kSlab + kSlab / 2);
  }
}

TEST(LaserCompensator, TakesItsStoreInOneBlockThatStartsWithTheRows) {
  LaserCompensator engine;
  AllocationProbe probe;
  ASSERT_TRUE(engine.init());
  ASSERT_EQ(probe.size(), 1);
  EXPECT_EQ(probe[0].kind, Event::kTake);
  EXPECT_EQ(probe[0].bytes, kStore);
  EXPECT_EQ(probe[0].block, engine.planes());
}

TEST(LaserCompensator, DropsTheOldStoreBeforeItTakesTheNewOne) {
  LaserCompensator engine;
  ASSERT_TRUE(engine.init());
  const void* old = engine.planes();
  AllocationProbe probe;
  ASSERT_TRUE(engine.init());
  ASSERT_EQ(probe.size(), 2);
  EXPECT_EQ(probe[0].kind, Event::kGive);
  EXPECT_EQ(probe[0].block, old);
  EXPECT_EQ(probe[1].kind, Event::kTake);
}

TEST(LaserCompensator, HoldsNoStoreAfterAFailedInit) {
  LaserCompensator engine;
  ASSERT_TRUE(engine.init());
  {
    AllocationProbe probe;
    probe.refuse();
    EXPECT_FALSE(engine.init());
    EXPECT_EQ(probe.count(Event::kGive), 1);
    EXPECT_EQ(probe.count(Event::kRefuse), 1);
  }
  EXPECT_EQ(engine.planes(), nullptr);
  EXPECT_TRUE(engine.init());
}

TEST(LaserCompensator, FreesItsStoreAndItselfWithTheFacade) {
  auto facade = std::make_unique<KESTRANE_LASER_COMPENSATOR>();
  AllocationProbe probe;
  ASSERT_EQ(facade->init(), KESTRANE_OK);
  const void* store = probe[0].block;
  facade.reset();
  bool freed = false;
  for (int i = 0; i < probe.size(); ++i) {
    freed = freed || (probe[i].kind == Event::kGive && probe[i].block == store);
  }
  EXPECT_TRUE(freed);
}

TEST(LaserCompensator, ReportsAStoreThatCannotBeHadAsAStatus) {
  KESTRANE_LASER_COMPENSATOR facade;
  {
    AllocationProbe probe;
    probe.refuse();
    EXPECT_EQ(facade.init(), KESTRANE_ERR_NO_MEMORY);
    EXPECT_EQ(probe.count(Event::kRefuse), 1);
  }
  EXPECT_EQ(facade.init(), KESTRANE_OK);
}

TEST(LaserCompensator, LetsOnlyTheStandardExceptionLeaveTheConstructor) {
  AllocationProbe probe;
  probe.refuse();
  EXPECT_THROW(KESTRANE_LASER_COMPENSATOR(), std::bad_alloc);
}

TEST(LaserCompensator, AllocatesNothingFromTheTableToTheResult) {
  simulation::Random random(21);
  HostTable table(100);
  kestrane_test::fill_like_a_scanner(table, random);
  _MRV_LASER_PLANE_BLOCK_INFOS record = table.infos();
  KESTRANE_LASER_COMPENSATOR facade;
  ASSERT_EQ(facade.init(), KESTRANE_OK);

  AllocationProbe probe;
  facade.set_laser_plane_param(record);
  facade.set_extrinsic_matrix(kExtrinsic);
  facade.set_compensate_param(kWarm, 0, 100);
  facade.compensate(0, 100);
  facade.get_compensate_result(record);
  EXPECT_EQ(probe.size(), 0);
}

TEST(LaserCompensator, SetsThePivotsOfThePlanesInWorkOnly) {
  simulation::Random random(22);
  HostTable table(6);
  kestrane_test::fill_like_a_scanner(table, random);
  LaserCompensator engine;
  ASSERT_TRUE(engine.init());
  engine.set_laser_plane_param(table.infos());
  engine.set_extrinsic_matrix(kExtrinsic);
  engine.set_compensate_param(kWarm, 0, 6);
  engine.compensate(1, 4);
  const Vec3 T = {kExtrinsic.T[0], kExtrinsic.T[1], kExtrinsic.T[2]};
  for (int p = 0; p < 6; ++p) {
    const double* R = table.row(p).laser_plane_R;
    Vec3 expected = {0.0, 0.0, 0.0};
    if (p >= 1 && p < 4) {
      expected = literal::plane_turn(T, kWarm, p, 0, 6, {R[0], R[1], R[2]}).pivot;
    }
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_TRUE(same_bits(engine.planes()[p].pivot[i], expected[i])) << "plane " << p;
    }
  }
}

TEST(LaserCompensator, RecomputesThePivotFromTheUnchangedPlane) {
  simulation::Random random(23);
  HostTable table(1);
  kestrane_test::fill_like_a_scanner(table, random);
  LaserCompensator engine;
  ASSERT_TRUE(engine.init());
  engine.set_laser_plane_param(table.infos());
  engine.set_extrinsic_matrix(kExtrinsic);
  engine.set_compensate_param(kWarm, 0, 1);
  engine.compensate(0, 1);
  const double* pivot = engine.planes()[0].pivot;
  const Vec3 first = {pivot[0], pivot[1], pivot[2]};
  engine.compensate(0, 1);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(pivot[i], first[i]);
}

TEST(LaserCompensator, PutsThePivotOnTheWholePlaneAlongTheTranslation) {
  HostTable table(1);
  table.fill(-0.01, 1e-5, 1e-3);
  LaserCompensator engine;
  ASSERT_TRUE(engine.init());
  engine.set_laser_plane_param(table.infos());
  engine.set_extrinsic_matrix(kExtrinsic);
  engine.set_compensate_param({}, 0, 1);
  engine.compensate(0, 1);
  const double d = 110.0 * -0.01 + 3.0 * 1e-5 + -7.0 * 1e-3;
  constexpr double kRounding = 1e-12;  // of values of 100
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(engine.planes()[0].pivot[i], -kExtrinsic.T[i] / d, kRounding);
  }
}

TEST(LaserCompensator, LeavesCellsBeyondACountInTheStoreAsTheyWere) {
  HostTable table(1);
  table.fill(-0.01, 1e-5, 1e-3);
  LaserCompensator engine;
  ASSERT_TRUE(engine.init());
  engine.set_laser_plane_param(table.infos());
  table.line(0, 3).count = 13;
  table.row(0).block.count = 5;
  engine.set_laser_plane_param(table.infos());
  engine.set_extrinsic_matrix(kExtrinsic);
  engine.set_compensate_param(kWarm, 0, 1);
  engine.compensate(0, 1);
  const kestrane::_LASER_LINE_INFOS* lines = engine.planes()[0].block.lines;
  EXPECT_NE(lines[3].cells[12].v[0], -0.01);
  EXPECT_EQ(lines[3].cells[13].v[0], -0.01);
  EXPECT_NE(lines[4].cells[49].v[0], -0.01);
  EXPECT_EQ(lines[5].cells[0].v[0], -0.01);
}

TEST(LaserCompensator, LeavesTheSecondTableAndTheFlagAlone) {
  simulation::Random random(24);
  HostTable table(2);
  kestrane_test::fill_like_a_scanner(table, random);
  LaserCompensator engine;
  ASSERT_TRUE(engine.init());
  engine.set_laser_plane_param(table.infos());
  engine.set_extrinsic_matrix(kExtrinsic);
  engine.set_compensate_param(kWarm, 0, 2);
  engine.compensate(0, 2);
  for (int p = 0; p < 2; ++p) {
    const _LASER_PLANE_BLOCK_INFO& row = engine.planes()[p];
    expect_table_at(engine, row.block_aux, kRowsSection + p * kSlab + kSlab / 2);
    EXPECT_EQ(row.block_aux.lines[0].cells[0].v[0], 0.0);
    EXPECT_EQ(row.plane_flag, 0);
  }
}

}  // namespace
