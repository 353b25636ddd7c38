#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

#include "kestrane/buffers.h"
#include "tests/records/owner_checks.h"
#include "tests/records/owner_privates.h"

namespace {

using namespace kestrane;

using Group = LASER_PLANE_BLOCK_INFOS_GROUP;

// Rows of 88 bytes rounded up to 128, slabs of 38912 bytes, grid record in 1280 bytes.
std::int64_t expected_size(std::int64_t planes) {
  return (planes * 88 + 127) / 128 * 128 + planes * 38912 + 1280;
}

// Refusals.

TEST(PlaneBlockInfosGroup, RefusesACountAboveItsCapacityAndStaysAsItWas) {
  Group group;
  ASSERT_EQ(group.init(5), KESTRANE_OK);
  const auto before = bytes_of(group);
  _LASER_PLANE_BLOCK_INFOS* out = nullptr;
  EXPECT_EQ(group.get_laser_plane_info(6, out), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(bytes_of(group), before);
}

TEST(PlaneBlockInfosGroup, ReportsASizeBeyond32BitsAsFailedAllocationAndChangesNothing) {
  // The last count whose table fits 32 bits, worked out from the sizes above.
  const std::int32_t last = 55063;
  ASSERT_LE(expected_size(last), std::numeric_limits<std::int32_t>::max());
  ASSERT_GT(expected_size(last + 1), std::numeric_limits<std::int32_t>::max());
  Group group;
  group.plane_count = 41;
  group.plane_capacity = 42;
  const auto before = bytes_of(group);
  // The size for 110128 planes wraps around to a small positive number in 32 bits.
  for (const std::int32_t count :
       {last + 1, 110127, 110128, std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_EQ(group.init(count), KESTRANE_ERR_NO_MEMORY) << count;
    EXPECT_EQ(bytes_of(group), before) << count;
  }
}

TEST(PlaneBlockInfosGroup, ReportsACarvingBelowTheGridRecordAsFailedAllocation) {
  Group group;
  const auto before = bytes_of(group);
  for (const std::int32_t count : {-2, -3, -1000, std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(group.init(count), KESTRANE_ERR_NO_MEMORY) << count;
    EXPECT_EQ(bytes_of(group), before) << count;
  }
}

TEST(PlaneBlockInfosGroupDeathTest, ReportsAHeapThatHasRunOutAndChangesNothing) {
  if (!kHeapCanRunOut) GTEST_SKIP() << "the sanitizer owns the heap";
  const auto starved_init = [] {
    Group group;
    const auto before = bytes_of(group);
    starve_heap();
    const bool refused = group.init(50000) == KESTRANE_ERR_NO_MEMORY;
    std::_Exit(refused && block_of(group) == nullptr && bytes_of(group) == before ? 0 : 1);
  };
  EXPECT_EXIT(starved_init(), testing::ExitedWithCode(0), "");
}

// Layout.

TEST(PlaneBlockInfosGroup, BeginsWithItsRecordAndEndsWithItsBlock) {
  Group group;
  _LASER_PLANE_BLOCK_INFOS* record = &group;
  EXPECT_EQ(static_cast<void*>(record), static_cast<void*>(&group));
  EXPECT_EQ(distance(&group, &group.planes), 0);
  EXPECT_EQ(distance(&group, &group.grids), 8);
  EXPECT_EQ(distance(&group, &group.plane_count), 16);
  EXPECT_EQ(distance(&group, &group.plane_capacity), 20);
  EXPECT_EQ(distance(&group, &reserved_of(group)), 24);
  EXPECT_EQ(distance(&group, &block_of(group)), 32);
  EXPECT_EQ(sizeof(Group), 40u);
}

TEST(PlaneBlockInfosGroup, HasNoBlockBeforeInit) {
  Group group;
  EXPECT_EQ(block_of(group), nullptr);
}

TEST(PlaneBlockInfosGroup, MeasuresWhatItCarves) {
  for (const std::int32_t planes : {0, 1, 2, 3, 16, 100}) {
    Group group;
    const std::int32_t measured = carve(group, nullptr, planes, false);
    EXPECT_EQ(measured, expected_size(planes));
    EXPECT_EQ(group.planes, nullptr);
    ASSERT_EQ(group.init(planes), KESTRANE_OK);
    EXPECT_EQ(carve(group, block_of(group), planes, true), measured);
    EXPECT_EQ(distance(block_of(group), group.grids), measured - 1280);
  }
}

TEST(PlaneBlockInfosGroup, MeasuresWithoutTouchingTheBufferThatItIsGiven) {
  Group group;
  ASSERT_EQ(group.init(2), KESTRANE_OK);
  const auto before = bytes_of(group);
  EXPECT_EQ(carve(group, block_of(group), 7, false), expected_size(7));
  EXPECT_EQ(bytes_of(group), before);
}

TEST(PlaneBlockInfosGroup, CarvesEverySectionInItsPlace) {
  constexpr std::int32_t kPlanes = 3;
  Group group;
  ASSERT_EQ(group.init(kPlanes), KESTRANE_OK);
  EXPECT_EQ(static_cast<void*>(group.planes), block_of(group));
  // Three rows of 88 bytes take 384.
  EXPECT_EQ(distance(block_of(group), group.grids), 384 + kPlanes * 38912);
  for (std::int32_t p = 0; p < kPlanes; ++p) {
    const std::ptrdiff_t slab = 384 + 38912 * p;
    const _LASER_PLANE_BLOCK_INFO& row = group.planes[p];
    EXPECT_EQ(distance(block_of(group), row.block.lines), slab);
    EXPECT_EQ(distance(block_of(group), row.block_aux.lines), slab + 256);
    EXPECT_EQ(row.block.count, 15);
    EXPECT_EQ(row.block_aux.count, 15);
    for (std::int32_t j = 0; j < 15; ++j) {
      EXPECT_EQ(distance(block_of(group), row.block.lines[j].cells), slab + 512 + 1280 * j);
      EXPECT_EQ(distance(block_of(group), row.block_aux.lines[j].cells),
                slab + 512 + 1280 * (15 + j));
      EXPECT_EQ(row.block.lines[j].count, 50);
      EXPECT_EQ(row.block_aux.lines[j].count, 50);
    }
  }
}

TEST(PlaneBlockInfosGroup, CarvesABufferOfTheHostsChoice) {
  Group carved;
  ASSERT_EQ(carved.init(2), KESTRANE_OK);
  Undestroyed<Group> group;
  EXPECT_EQ(carve(*group, block_of(carved), 2, true), expected_size(2));
  EXPECT_EQ(group->planes, carved.planes);
  EXPECT_EQ(group->grids, carved.grids);
  EXPECT_EQ(group->plane_count, 2);
}

TEST(PlaneBlockInfosGroup, ClearsThePlaneFlagWhenItCarves) {
  Group group;
  ASSERT_EQ(group.init(2), KESTRANE_OK);
  group.planes[1].plane_flag = 9;
  carve(group, block_of(group), 2, true);
  EXPECT_EQ(group.planes[1].plane_flag, 0);
}

TEST(PlaneBlockInfosGroup, StartsWithZeroCellsPivotsAndCoefficients) {
  Group group;
  ASSERT_EQ(group.init(2), KESTRANE_OK);
  for (std::int32_t p = 0; p < 2; ++p) {
    const _LASER_PLANE_BLOCK_INFO& row = group.planes[p];
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(row.pivot[i], 0.0);
      EXPECT_EQ(row.laser_plane_R[i], 0.0);
    }
    for (std::int32_t j = 0; j < 15; ++j) {
      for (std::int32_t k = 0; k < 50; ++k) {
        expect_triple(row.block.lines[j].cells[k], 0.0, 0.0, 0.0);
        expect_triple(row.block_aux.lines[j].cells[k], 0.0, 0.0, 0.0);
      }
    }
  }
}

TEST(PlaneBlockInfosGroup, ClearsTheCoefficientsOfPlane0Alone) {
  Group group;
  ASSERT_EQ(group.init(2), KESTRANE_OK);
  for (int i = 0; i < 3; ++i) {
    group.planes[0].laser_plane_R[i] = 4.0;
    group.planes[1].laser_plane_R[i] = 5.0;
  }
  init_whole_planes(group);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(group.planes[0].laser_plane_R[i], 0.0);
    EXPECT_EQ(group.planes[1].laser_plane_R[i], 5.0);
  }
}

TEST(PlaneBlockInfosGroup, LeavesInitWithItsCapacityInUse) {
  Group group;
  reserved_of(group) = 17;
  ASSERT_EQ(group.init(7), KESTRANE_OK);
  EXPECT_EQ(group.plane_count, 7);
  EXPECT_EQ(group.plane_capacity, 7);
  EXPECT_EQ(reserved_of(group), 0u);
}

// Counts.

TEST(PlaneBlockInfosGroup, HandsItselfOutForACountUpToItsCapacity) {
  Group group;
  ASSERT_EQ(group.init(5), KESTRANE_OK);
  for (const std::int32_t count : {5, 2, 0, -3}) {
    _LASER_PLANE_BLOCK_INFOS* out = nullptr;
    EXPECT_EQ(group.get_laser_plane_info(count, out), KESTRANE_OK);
    EXPECT_EQ(out, &group);
    EXPECT_EQ(group.plane_count, count);
    EXPECT_EQ(group.plane_capacity, 5);
  }
}

// The grid.

TEST(PlaneBlockInfosGroup, DescribesTheFanInItsGridRecord) {
  Group group;
  ASSERT_EQ(group.init(1), KESTRANE_OK);
  const _LASER_PLANE_GRIDS& grids = *group.grids;
  EXPECT_EQ(grids.z_start, 150.0);
  EXPECT_EQ(grids.z_step, 27.0);
  EXPECT_EQ(grids.grid_z[0], 150.0);
  EXPECT_EQ(grids.grid_z[50], 1500.0);
  for (const std::int32_t head : grids.grid_head) EXPECT_EQ(head, 0);
}

TEST(PlaneBlockInfosGroup, FillsTheGridAnewFromItsFixedNumbers) {
  Group group;
  ASSERT_EQ(group.init(1), KESTRANE_OK);
  const _LASER_PLANE_GRIDS before = *group.grids;
  group.grids->z_step = 1.0;
  group.grids->grid_y_step[50] = 1.0;
  group.grids->grid_head[2] = 5;
  set_grids(group);
  EXPECT_EQ(group.grids->z_step, 27.0);
  EXPECT_EQ(group.grids->grid_y_step[50], before.grid_y_step[50]);
  EXPECT_EQ(group.grids->grid_head[2], 5);
}

// Capacities without rows.

TEST(PlaneBlockInfosGroup, HoldsTheGridAloneForCapacity0AndClearsThreeOfItsDepths) {
  Group group;
  ASSERT_EQ(group.init(0), KESTRANE_OK);
  EXPECT_EQ(static_cast<void*>(group.planes), static_cast<void*>(group.grids));
  EXPECT_EQ(carve(group, nullptr, 0, false), 1280);
  for (int k = 0; k < 51; ++k) {
    const double depth = k >= 5 && k <= 7 ? 0.0 : 150.0 + 27.0 * k;
    EXPECT_EQ(group.grids->grid_z[k], depth) << k;
  }
  _LASER_PLANE_BLOCK_INFOS* out = nullptr;
  EXPECT_EQ(group.get_laser_plane_info(0, out), KESTRANE_OK);
  EXPECT_EQ(group.get_laser_plane_info(1, out), KESTRANE_ERR_INVALID_PARAM);
}

// The row that is missing is smaller than the rounding, so the grid section is still whole.
TEST(PlaneBlockInfosGroup, TakesCapacityMinus1AsItTakes0) {
  Group group;
  ASSERT_EQ(group.init(-1), KESTRANE_OK);
  EXPECT_EQ(static_cast<void*>(group.planes), static_cast<void*>(group.grids));
  EXPECT_EQ(group.plane_capacity, -1);
  EXPECT_EQ(group.grids->grid_z[50], 1500.0);
}

// Assignment.

TEST(PlaneBlockInfosGroup, AssignsItsFieldsFlat) {
  Group group;
  ASSERT_EQ(group.init(2), KESTRANE_OK);
  reserved_of(group) = 23;
  Undestroyed<Group> other;
  Group& result = (*other = group);
  EXPECT_EQ(&result, &*other);
  EXPECT_EQ(bytes_of(*other), bytes_of(group));
  other->planes[1].block.lines[3].cells[4].v[2] = 8.5;
  EXPECT_EQ(group.planes[1].block.lines[3].cells[4].v[2], 8.5);
}

}  // namespace
