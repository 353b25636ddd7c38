// What the host owes: a checked build names the violated precondition before memory is touched.
#include <gtest/gtest.h>

#include "kestrane/buffers.h"

namespace {

using kestrane::LASER_GRID_PLANE_GROUPS_MANAGER;

// More planes than 32 bits count bytes for: the small block is had, the tables are not.
TEST(GroupPreconditionsDeathTest, NamesGroupsOfAFailedInit) {
  LASER_GRID_PLANE_GROUPS_MANAGER groups;
  ASSERT_EQ(groups.init(2, 1 << 30), KESTRANE_ERR_NO_MEMORY);
  kestrane::_LASER_GRID_PLANE_GROUPS* out = nullptr;
  EXPECT_DEATH(groups.get_laser_grid_plane_groups(1, 1, out),
               "groups are handed out after a successful init");
}

}  // namespace
