// Blocks and private operations of the owner classes, which their tests look at directly.
#pragma once

#include <cstdint>

#include "kestrane/buffers.h"
#include "tests/support/reveal.h"

namespace kestrane {

// block_of(owner) is the block that an owner holds; carve(owner, ...) is its `alloc_buf_size`.
#define REVEAL_BLOCK(Owner)                                                                \
  KESTRANE_REVEAL(Owner##_BLOCK, Owner, block_);                                           \
  KESTRANE_REVEAL(Owner##_CARVE, Owner, alloc_buf_size);                                   \
  inline void*& block_of(Owner& owner) { return owner.*member(Owner##_BLOCK{}); }          \
  inline std::int32_t carve(Owner& owner, void* buffer, std::int32_t count, bool assign) { \
    return (owner.*member(Owner##_CARVE{}))(buffer, count, assign);                        \
  }                                                                                        \
  static_assert(true)

REVEAL_BLOCK(LASER_PLANE_INDICATOR_MANAGER);
REVEAL_BLOCK(LASER_PLANE_GRID_CORNERS_MANAGER);
REVEAL_BLOCK(LASER_PLANE_GRID_OPT_COEFFS_MANAGER);
REVEAL_BLOCK(LASER_PLANE_BLOCK_INFOS_GROUP);
REVEAL_BLOCK(LASER_GRID_PLANE_GROUPS_MANAGER);

#undef REVEAL_BLOCK

KESTRANE_REVEAL(GroupsManagers, LASER_GRID_PLANE_GROUPS_MANAGER, managers_);
KESTRANE_REVEAL(GroupReserved, LASER_PLANE_BLOCK_INFOS_GROUP, reserved_);
KESTRANE_REVEAL(GroupWholePlanes, LASER_PLANE_BLOCK_INFOS_GROUP, init_laser_plane_R);
KESTRANE_REVEAL(GroupGrids, LASER_PLANE_BLOCK_INFOS_GROUP, set_grids);

inline LASER_PLANE_GRID_CORNERS_MANAGER*& managers_of(LASER_GRID_PLANE_GROUPS_MANAGER& groups) {
  return groups.*member(GroupsManagers{});
}

inline std::uint64_t& reserved_of(LASER_PLANE_BLOCK_INFOS_GROUP& group) {
  return group.*member(GroupReserved{});
}

inline void init_whole_planes(LASER_PLANE_BLOCK_INFOS_GROUP& group) {
  (group.*member(GroupWholePlanes{}))();
}

inline void set_grids(LASER_PLANE_BLOCK_INFOS_GROUP& group) { (group.*member(GroupGrids{}))(); }

}  // namespace kestrane
