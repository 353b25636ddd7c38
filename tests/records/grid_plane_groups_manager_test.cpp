#include <gtest/gtest.h>

#include <limits>
#include <new>

#include "kestrane/buffers.h"
#include "tests/records/owner_checks.h"
#include "tests/records/owner_privates.h"

namespace {

using namespace kestrane;

using Groups = LASER_GRID_PLANE_GROUPS_MANAGER;

// Refusals.

TEST(GridPlaneGroupsManager, RefusesAZeroArgumentBeforeItTakesAnything) {
  Groups groups;
  const auto before = bytes_of(groups);
  EXPECT_EQ(groups.init(0, 5), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(groups.init(3, 0), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(groups.init(0, 0), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(bytes_of(groups), before);
}

TEST(GridPlaneGroupsManager, ReportsASizeThatIsNoneAsFailedAllocationWithoutABlock) {
  // 2^28 groups take 2^32 bytes; 2^28 + 16 wrap around to 256 in 32 bits.
  for (const std::int32_t count :
       {1 << 28, (1 << 28) + 16, std::numeric_limits<std::int32_t>::max(), -16,
        std::numeric_limits<std::int32_t>::min()}) {
    Groups groups;
    const auto before = bytes_of(groups);
    EXPECT_EQ(groups.init(count, 1), KESTRANE_ERR_NO_MEMORY) << count;
    EXPECT_EQ(bytes_of(groups), before) << count;
  }
}

// The pointer arrays of -1 groups are sections of nothing; an array of -1 tables cannot be had.
TEST(GridPlaneGroupsManager, FailsOverTheTablesForASmallNegativeNumberOfGroups) {
  Groups groups;
  EXPECT_EQ(groups.init(-1, 1), KESTRANE_ERR_NO_MEMORY);
  EXPECT_NE(block_of(groups), nullptr);
  EXPECT_EQ(groups.group_capacity, -1);
  EXPECT_EQ(managers_of(groups), nullptr);
}

// A host's own handler for a heap that has run out is not for that.
TEST(GridPlaneGroupsManager, AsksTheHeapForNoArrayOfNegativeLength) {
  static int asked = 0;
  Groups groups;
  const std::new_handler before = std::set_new_handler([] {
    ++asked;
    throw std::bad_alloc();
  });
  EXPECT_EQ(groups.init(-1, 1), KESTRANE_ERR_NO_MEMORY);
  std::set_new_handler(before);
  EXPECT_EQ(asked, 0);
}

TEST(GridPlaneGroupsManager, ReturnsTheStatusOfATableThatCannotBeMade) {
  Groups groups;
  EXPECT_EQ(groups.init(3, std::numeric_limits<std::int32_t>::max()), KESTRANE_ERR_NO_MEMORY);
  EXPECT_NE(managers_of(groups), nullptr);
  EXPECT_EQ(groups.group_count, 3);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(groups.groups[i], nullptr);
}

void starved_init() {
  Groups groups;
  starve_heap();
  // The first table takes 207 MB, a second one does not fit.
  const bool refused = groups.init(2, 10000) == KESTRANE_ERR_NO_MEMORY;
  const bool first_stays = groups.groups[0] == &managers_of(groups)[0];
  std::_Exit(refused && first_stays && groups.groups[1] == nullptr ? 0 : 1);
}

TEST(GridPlaneGroupsManagerDeathTest, KeepsTheTablesMadeBeforeTheHeapRanOut) {
  if (!kHeapCanRunOut) GTEST_SKIP() << "the sanitizer owns the heap";
  EXPECT_EXIT(starved_init(), testing::ExitedWithCode(0), "");
}

void starved_array() {
  Groups groups;
  starve_heap();
  // The arrays of pointers take 256 MB, the tables another 384.
  const bool refused = groups.init(1 << 24, 1) == KESTRANE_ERR_NO_MEMORY;
  std::_Exit(refused && block_of(groups) != nullptr && managers_of(groups) == nullptr ? 0 : 1);
}

TEST(GridPlaneGroupsManagerDeathTest, ReportsAnArrayOfTablesThatCannotBeHad) {
  if (!kHeapCanRunOut) GTEST_SKIP() << "the sanitizer owns the heap";
  EXPECT_EXIT(starved_array(), testing::ExitedWithCode(0), "");
}

TEST(GridPlaneGroupsManager, RefusesMoreGroupsThanItHoldsAndStaysAsItWas) {
  Groups groups;
  ASSERT_EQ(groups.init(3, 5), KESTRANE_OK);
  const auto before = bytes_of(groups);
  _LASER_GRID_PLANE_GROUPS* out = nullptr;
  EXPECT_EQ(groups.get_laser_grid_plane_groups(4, 1, out), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(bytes_of(groups), before);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(groups.groups[i]->plane_count, 5);
}

TEST(GridPlaneGroupsManager, LeavesTheTablesChangedThatItVisitedBeforeATooSmallOne) {
  Groups groups;
  ASSERT_EQ(groups.init(4, 5), KESTRANE_OK);
  groups.groups[2]->plane_capacity = 3;
  _LASER_GRID_PLANE_GROUPS* out = nullptr;
  EXPECT_EQ(groups.get_laser_grid_plane_groups(3, 4, out), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(groups.group_count, 3);
  EXPECT_EQ(groups.groups[0]->plane_count, 4);
  EXPECT_EQ(groups.groups[1]->plane_count, 4);
  EXPECT_EQ(groups.groups[2]->plane_count, 5);
  EXPECT_EQ(groups.groups[3]->plane_count, 5);
}

// Layout.

TEST(GridPlaneGroupsManager, BeginsWithItsRecord) {
  Groups groups;
  EXPECT_EQ(distance(&groups, &groups.groups), 0);
  EXPECT_EQ(distance(&groups, &groups.groups_spare), 8);
  EXPECT_EQ(distance(&groups, &groups.group_count), 16);
  EXPECT_EQ(distance(&groups, &groups.group_capacity), 20);
  EXPECT_EQ(distance(&groups, &block_of(groups)), 24);
  EXPECT_EQ(distance(&groups, &managers_of(groups)), 32);
  EXPECT_EQ(sizeof(groups), 40u);
}

TEST(GridPlaneGroupsManager, IsSafeToDestroyBeforeInit) {
  Groups groups;
  EXPECT_EQ(block_of(groups), nullptr);
  EXPECT_EQ(managers_of(groups), nullptr);
}

TEST(GridPlaneGroupsManager, MeasuresTwoSectionsOf128BytesPerSixteenGroups) {
  Groups groups;
  EXPECT_EQ(carve(groups, nullptr, 0, false), 0);
  EXPECT_EQ(carve(groups, nullptr, 1, false), 256);
  EXPECT_EQ(carve(groups, nullptr, 16, false), 256);
  EXPECT_EQ(carve(groups, nullptr, 17, false), 512);
  EXPECT_EQ(carve(groups, nullptr, 1000, false), 16128);
  EXPECT_EQ(carve(groups, nullptr, -1, false), 0);
  EXPECT_EQ(carve(groups, nullptr, -16, false), -256);
  EXPECT_EQ(groups.groups, nullptr);
}

TEST(GridPlaneGroupsManager, MeasuresBesideABlockWithoutCarvingIt) {
  Groups groups;
  ASSERT_EQ(groups.init(3, 1), KESTRANE_OK);
  const auto before = bytes_of(groups);
  EXPECT_EQ(carve(groups, block_of(groups), 17, false), 512);
  EXPECT_EQ(bytes_of(groups), before);
}

TEST(GridPlaneGroupsManager, GivesEverythingBackWhenItIsDestroyed) {
  const std::size_t before = heap_in_use();
  {
    Groups groups;
    ASSERT_EQ(groups.init(100, 2), KESTRANE_OK);
  }
  EXPECT_EQ(heap_in_use(), before);
}

TEST(GridPlaneGroupsManager, MakesThreeTablesOfFivePlanesAndLeavesTheSpareNull) {
  Groups groups;
  ASSERT_EQ(groups.init(3, 5), KESTRANE_OK);
  EXPECT_EQ(groups.group_count, 3);
  EXPECT_EQ(groups.group_capacity, 3);
  EXPECT_EQ(static_cast<void*>(groups.groups), block_of(groups));
  EXPECT_EQ(distance(groups.groups, groups.groups_spare), 128);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(groups.groups[i], &managers_of(groups)[i]);
    EXPECT_EQ(groups.groups[i]->plane_count, 5);
    EXPECT_EQ(groups.groups[i]->plane_capacity, 5);
    EXPECT_EQ(groups.groups[i]->planes[4].count, 16);
    EXPECT_EQ(groups.groups[i]->planes[4].lines[15].count, 51);
    EXPECT_EQ(groups.groups_spare[i], nullptr);
  }
}

TEST(GridPlaneGroupsManager, PutsTheSpareArrayAfterSeventeenGroups) {
  Groups groups;
  ASSERT_EQ(groups.init(17, 1), KESTRANE_OK);
  EXPECT_EQ(distance(groups.groups, groups.groups_spare), 256);
  EXPECT_NE(groups.groups[16], nullptr);
  EXPECT_EQ(groups.groups_spare[16], nullptr);
}

TEST(GridPlaneGroupsManager, TakesASmallNegativeNumberOfPlanes) {
  Groups groups;
  ASSERT_EQ(groups.init(2, -1), KESTRANE_OK);
  EXPECT_EQ(groups.groups[1]->plane_capacity, -1);
}

// Counts.

TEST(GridPlaneGroupsManager, HandsItselfOutWithTheCountsOfTheFirstTablesSet) {
  Groups groups;
  ASSERT_EQ(groups.init(3, 5), KESTRANE_OK);
  _LASER_GRID_PLANE_GROUPS* out = nullptr;
  EXPECT_EQ(groups.get_laser_grid_plane_groups(2, 4, out), KESTRANE_OK);
  EXPECT_EQ(out, &groups);
  EXPECT_EQ(groups.group_count, 2);
  EXPECT_EQ(groups.groups[0]->plane_count, 4);
  EXPECT_EQ(groups.groups[1]->plane_count, 4);
  EXPECT_EQ(groups.groups[2]->plane_count, 5);
}

TEST(GridPlaneGroupsManager, TakesItsFullCapacity) {
  Groups groups;
  ASSERT_EQ(groups.init(3, 5), KESTRANE_OK);
  _LASER_GRID_PLANE_GROUPS* out = nullptr;
  EXPECT_EQ(groups.get_laser_grid_plane_groups(3, 5, out), KESTRANE_OK);
  EXPECT_EQ(out, &groups);
}

TEST(GridPlaneGroupsManager, DoesNotLookAtPlanesWithoutGroups) {
  Groups groups;
  ASSERT_EQ(groups.init(3, 5), KESTRANE_OK);
  for (const std::int32_t count : {0, -4}) {
    _LASER_GRID_PLANE_GROUPS* out = nullptr;
    EXPECT_EQ(groups.get_laser_grid_plane_groups(count, 1000, out), KESTRANE_OK);
    EXPECT_EQ(out, &groups);
    EXPECT_EQ(groups.group_count, count);
    EXPECT_EQ(groups.groups[0]->plane_count, 5);
  }
}

// Assignment.

TEST(GridPlaneGroupsManager, AssignsItsFieldsFlat) {
  Groups groups;
  ASSERT_EQ(groups.init(2, 1), KESTRANE_OK);
  Undestroyed<Groups> other;
  Groups& result = (*other = groups);
  EXPECT_EQ(&result, &*other);
  EXPECT_EQ(bytes_of(*other), bytes_of(groups));
  EXPECT_EQ(other->groups[1], groups.groups[1]);
}

}  // namespace
