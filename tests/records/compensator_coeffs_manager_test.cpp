#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "kestrane/buffers.h"
#include "kestrane/files.h"
#include "tests/support/reveal.h"

namespace kestrane {

KESTRANE_REVEAL(CarveTransforms, LASER_COMPENSATOR_COEFFS_MANAGER, alloc_buf_size);
KESTRANE_REVEAL(NeutralTransforms, LASER_COMPENSATOR_COEFFS_MANAGER, init_Mbs_factory_to_user);
KESTRANE_REVEAL(AttachTable, LASER_COMPENSATOR_COEFFS_MANAGER, init_grid_opt_coeffs);

namespace {

constexpr std::int32_t kTooMany = 200000;  // 4 GB of cells: beyond 32 bits

double identity_at(int i) { return i == 0 || i == 4 || i == 8 ? 1.0 : 0.0; }

TEST(CompensatorCoeffsManager, BeginsWithTheRecord) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  EXPECT_EQ(static_cast<void*>(&manager),
            static_cast<void*>(static_cast<_COMPENSATOR_COEFFS*>(&manager)));
  EXPECT_EQ(sizeof manager,
            sizeof(_COMPENSATOR_COEFFS) + 8 + sizeof(LASER_PLANE_GRID_OPT_COEFFS_MANAGER));
}

TEST(CompensatorCoeffsManager, RefusesACapacityOfZeroAndAllocatesNothing) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  EXPECT_EQ(manager.init(0), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(manager.Mbs_factory_to_user, nullptr);
  EXPECT_EQ(manager.opt_coeffs, nullptr);
}

TEST(CompensatorCoeffsManager, KeepsTheTransformsWhenTheTableCannotBeHad) {
  for (const std::int32_t capacity : {kTooMany, std::numeric_limits<std::int32_t>::max(), -1000}) {
    LASER_COMPENSATOR_COEFFS_MANAGER manager;
    EXPECT_EQ(manager.init(capacity), KESTRANE_ERR_NO_MEMORY);
    EXPECT_NE(manager.Mbs_factory_to_user, nullptr);
    EXPECT_EQ(manager.plane_capacity, capacity);
    EXPECT_EQ(manager.opt_coeffs, nullptr);
    for (int i = 0; i < 1200; ++i) ASSERT_EQ(manager.Mbs_factory_to_user[i], 0.0) << i;
  }
}

// A count that the cleared capacity allows.
TEST(CompensatorCoeffsManager, WithoutATableTakesACountOfItsOwnAlone) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  for (const std::int32_t count : {0, -3}) {
    _COMPENSATOR_COEFFS* record = nullptr;
    EXPECT_EQ(manager.get_compensator_coeffs(count, record), KESTRANE_OK);
    EXPECT_EQ(record, &manager);
    EXPECT_EQ(manager.plane_count, count);
    EXPECT_EQ(manager.opt_coeffs, nullptr);
  }
}

TEST(CompensatorCoeffsManager, CarvesTheTableForItsCapacity) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  ASSERT_EQ(manager.init(3), KESTRANE_OK);
  EXPECT_EQ(manager.plane_capacity, 3);
  EXPECT_EQ(manager.opt_coeffs->plane_count, 3);
  EXPECT_EQ(manager.opt_coeffs->plane_capacity, 3);
  EXPECT_EQ(manager.opt_coeffs->planes[2].count, 16);
  EXPECT_EQ(manager.opt_coeffs->planes[2].lines[15].count, 51);
  EXPECT_EQ(manager.opt_coeffs->planes[2].lines[15].cells[50].v[2], 0.0);
}

TEST(CompensatorCoeffsManager, LeadsToTheTableInsideTheObject) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  ASSERT_EQ(manager.init(1), KESTRANE_OK);
  const auto inside = reinterpret_cast<std::uintptr_t>(manager.opt_coeffs) -
                      reinterpret_cast<std::uintptr_t>(&manager);
  EXPECT_EQ(inside, sizeof(_COMPENSATOR_COEFFS) + sizeof(void*));
}

TEST(CompensatorCoeffsManager, StartsWithoutRangesAndWithAllTransformsNeutral) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  ASSERT_EQ(manager.init(3), KESTRANE_OK);
  EXPECT_EQ(manager.range_count, 0);
  for (int r = 0; r < 20; ++r) EXPECT_EQ(manager.range_first[r] | manager.range_last[r], 0);
  for (int i = 0; i < 1200; ++i)
    ASSERT_EQ(manager.Mbs_factory_to_user[i], identity_at(i % 12)) << i;
}

TEST(CompensatorCoeffsManager, MeasuresTheTransformsAsNinetySixHundredBytesForAnyCount) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  double store[1200] = {};
  for (const std::int32_t count : {0, 1, 100, -5, std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_EQ((manager.*member(CarveTransforms{}))(store, count, false), 9600);
    EXPECT_EQ(manager.Mbs_factory_to_user, nullptr);
  }
  EXPECT_EQ((manager.*member(CarveTransforms{}))(store, 3, true), 9600);
  EXPECT_EQ(manager.Mbs_factory_to_user, store);
}

TEST(CompensatorCoeffsManager, WritesTheOnesOfTheNeutralTransformsAndNothingElse) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  double store[1201];
  for (double& number : store) number = 7.0;
  (manager.*member(NeutralTransforms{}))(store);
  for (int i = 0; i < 1200; ++i) ASSERT_EQ(store[i], identity_at(i % 12) == 1.0 ? 1.0 : 7.0) << i;
  EXPECT_EQ(store[1200], 7.0);
}

TEST(CompensatorCoeffsManager, AttachesAnyTableManagerToAnyRecord) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  LASER_PLANE_GRID_OPT_COEFFS_MANAGER table;
  _COMPENSATOR_COEFFS record{};
  EXPECT_EQ((manager.*member(AttachTable{}))(kTooMany, table, record), KESTRANE_ERR_NO_MEMORY);
  EXPECT_EQ(record.opt_coeffs, nullptr);
  EXPECT_EQ((manager.*member(AttachTable{}))(4, table, record), KESTRANE_OK);
  EXPECT_EQ(record.opt_coeffs, &table);
  EXPECT_EQ(table.plane_count, 4);
}

// The object is made in memory that is not clear, and what it leaves alone shows.
TEST(CompensatorCoeffsManager, LeavesThePlaneCountToTheFirstRequest) {
  alignas(LASER_COMPENSATOR_COEFFS_MANAGER) unsigned char
      memory[sizeof(LASER_COMPENSATOR_COEFFS_MANAGER)];
  std::memset(memory, 0x5a, sizeof memory);
  auto* manager = new (memory) LASER_COMPENSATOR_COEFFS_MANAGER;
  const std::int32_t before = manager->plane_count;
  ASSERT_EQ(manager->init(3), KESTRANE_OK);
  EXPECT_EQ(manager->plane_count, before);
  _COMPENSATOR_COEFFS* record = nullptr;
  ASSERT_EQ(manager->get_compensator_coeffs(2, record), KESTRANE_OK);
  EXPECT_EQ(manager->plane_count, 2);
  std::destroy_at(manager);
}

TEST(CompensatorCoeffsManager, SetsBothPlaneCountsAndHandsItselfOut) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  ASSERT_EQ(manager.init(3), KESTRANE_OK);
  for (const std::int32_t count : {3, 1, 0, -7}) {
    _COMPENSATOR_COEFFS* record = nullptr;
    EXPECT_EQ(manager.get_compensator_coeffs(count, record), KESTRANE_OK);
    EXPECT_EQ(record, &manager);
    EXPECT_EQ(record->plane_count, count);
    EXPECT_EQ(record->opt_coeffs->plane_count, count);
    EXPECT_EQ(record->opt_coeffs->plane_capacity, 3);
  }
}

TEST(CompensatorCoeffsManager, RefusesACountAboveTheCapacityAndChangesNothing) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  ASSERT_EQ(manager.init(3), KESTRANE_OK);
  _COMPENSATOR_COEFFS* record = nullptr;
  ASSERT_EQ(manager.get_compensator_coeffs(2, record), KESTRANE_OK);
  _COMPENSATOR_COEFFS* other = nullptr;
  EXPECT_EQ(manager.get_compensator_coeffs(4, other), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(other, nullptr);
  EXPECT_EQ(manager.plane_count, 2);
  EXPECT_EQ(manager.opt_coeffs->plane_count, 2);
}

TEST(CompensatorCoeffsManager, NeitherClearsNorMovesDataWhenTheCountChanges) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  ASSERT_EQ(manager.init(3), KESTRANE_OK);
  _COMPENSATOR_COEFFS* record = nullptr;
  manager.opt_coeffs->planes[2].lines[4].cells[5].v[1] = 6.5;
  ASSERT_EQ(manager.get_compensator_coeffs(1, record), KESTRANE_OK);
  ASSERT_EQ(manager.get_compensator_coeffs(3, record), KESTRANE_OK);
  EXPECT_EQ(record->opt_coeffs->planes[2].lines[4].cells[5].v[1], 6.5);
}

TEST(CompensatorCoeffsManager, OfNoPlanesIsRefusedByTheFileFunctions) {
  LASER_COMPENSATOR_COEFFS_MANAGER manager;
  ASSERT_EQ(manager.init(3), KESTRANE_OK);
  _COMPENSATOR_COEFFS* record = nullptr;
  ASSERT_EQ(manager.get_compensator_coeffs(0, record), KESTRANE_OK);
  EXPECT_EQ(read_compensator_coeffs("none", *record), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(save_compensator_coeffs(*record, "none"), KESTRANE_ERR_INVALID_PARAM);
}

// Assignment is flat, so one of the two must go without destruction: it lives in raw memory here.
TEST(CompensatorCoeffsManager, AssignsEveryFieldFlat) {
  LASER_COMPENSATOR_COEFFS_MANAGER owner;
  ASSERT_EQ(owner.init(2), KESTRANE_OK);
  owner.range_first[19] = 5;
  alignas(LASER_COMPENSATOR_COEFFS_MANAGER) unsigned char memory[sizeof owner];
  auto* copy = new (memory) LASER_COMPENSATOR_COEFFS_MANAGER;
  EXPECT_EQ(&(*copy = owner), copy);
  EXPECT_EQ(std::memcmp(memory, static_cast<void*>(&owner), sizeof owner), 0);
  EXPECT_EQ(copy->opt_coeffs, owner.opt_coeffs);
}

}  // namespace
}  // namespace kestrane
