// The owner classes as a host meets them: through the shared library and its headers alone.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <type_traits>

#include "kestrane/buffers.h"

namespace {

using namespace kestrane;

TEST(OwnersInterface, LetsAPointerToTheObjectServeAsThePointerToItsRecord) {
  LASER_PLANE_BLOCK_INFOS_GROUP group;
  ASSERT_EQ(group.init(2), KESTRANE_OK);
  _LASER_PLANE_BLOCK_INFOS* out = nullptr;
  ASSERT_EQ(group.get_laser_plane_info(2, out), KESTRANE_OK);
  EXPECT_EQ(static_cast<void*>(out), static_cast<void*>(&group));
  auto* record = reinterpret_cast<_LASER_PLANE_BLOCK_INFOS*>(&group);
  EXPECT_EQ(record->plane_capacity, 2);
}

TEST(OwnersInterface, AlignsSectionsTo128BytesWithinTheBlock) {
  LASER_PLANE_BLOCK_INFOS_GROUP group;
  ASSERT_EQ(group.init(2), KESTRANE_OK);
  const auto start = reinterpret_cast<std::uintptr_t>(group.planes);
  for (int p = 0; p < 2; ++p) {
    for (int j = 0; j < 15; ++j) {
      const auto cells = reinterpret_cast<std::uintptr_t>(group.planes[p].block.lines[j].cells);
      EXPECT_EQ((cells - start) % 128, 0u);
    }
  }
}

TEST(OwnersInterface, GivesEveryCellMemoryOfItsOwn) {
  LASER_PLANE_GRID_CORNERS_MANAGER corners;
  ASSERT_EQ(corners.init(2), KESTRANE_OK);
  double value = 1.0;
  for (int p = 0; p < 2; ++p) {
    for (int i = 0; i < 16; ++i) {
      for (int k = 0; k < 51; ++k) corners.planes[p].lines[i].cells[k].v[0] = value++;
    }
  }
  value = 1.0;
  for (int p = 0; p < 2; ++p) {
    for (int i = 0; i < 16; ++i) {
      for (int k = 0; k < 51; ++k) {
        EXPECT_EQ(corners.planes[p].lines[i].cells[k].v[0], value++);
      }
    }
  }
}

TEST(OwnersInterface, RefusesCountsAboveTheCapacityInEveryClass) {
  LASER_PLANE_BLOCK_INFOS_GROUP group;
  LASER_PLANE_INDICATOR_MANAGER indicators;
  LASER_PLANE_GRID_CORNERS_MANAGER corners;
  LASER_PLANE_GRID_OPT_COEFFS_MANAGER coefficients;
  LASER_GRID_PLANE_GROUPS_MANAGER groups;
  ASSERT_EQ(group.init(3), KESTRANE_OK);
  ASSERT_EQ(indicators.init(3), KESTRANE_OK);
  ASSERT_EQ(corners.init(3), KESTRANE_OK);
  ASSERT_EQ(coefficients.init(3), KESTRANE_OK);
  ASSERT_EQ(groups.init(3, 2), KESTRANE_OK);
  _LASER_PLANE_BLOCK_INFOS* a = nullptr;
  _LASER_PLANE_INDICATORS_INFOS* b = nullptr;
  _LASER_PLANE_GRID_CORNERS_INFOS* c = nullptr;
  _LASER_PLANE_GRID_OPT_COEFFS_INFOS* d = nullptr;
  _LASER_GRID_PLANE_GROUPS* e = nullptr;
  EXPECT_EQ(group.get_laser_plane_info(4, a), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(indicators.get_laser_plane_indicator(4, b), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(corners.get_laser_plane_grid_corners(4, c), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(coefficients.get_laser_plane_grid_opt_coeffs(4, d), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(groups.get_laser_grid_plane_groups(4, 2, e), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(groups.get_laser_grid_plane_groups(3, 3, e), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(group.get_laser_plane_info(3, a), KESTRANE_OK);
  EXPECT_EQ(indicators.get_laser_plane_indicator(3, b), KESTRANE_OK);
  EXPECT_EQ(corners.get_laser_plane_grid_corners(3, c), KESTRANE_OK);
  EXPECT_EQ(coefficients.get_laser_plane_grid_opt_coeffs(3, d), KESTRANE_OK);
  EXPECT_EQ(groups.get_laser_grid_plane_groups(3, 2, e), KESTRANE_OK);
}

TEST(OwnersInterface, CannotBeCopiedByConstruction) {
  static_assert(!std::is_copy_constructible_v<LASER_PLANE_BLOCK_INFOS_GROUP>);
  static_assert(!std::is_copy_constructible_v<LASER_PLANE_INDICATOR_MANAGER>);
  static_assert(!std::is_copy_constructible_v<LASER_PLANE_GRID_CORNERS_MANAGER>);
  static_assert(!std::is_copy_constructible_v<LASER_PLANE_GRID_OPT_COEFFS_MANAGER>);
  static_assert(!std::is_copy_constructible_v<LASER_GRID_PLANE_GROUPS_MANAGER>);
}

TEST(OwnersInterface, ExportsTheAssignmentOfTheNeighboursContainer) {
  const morvia::MORVIA_LASER_PLANE_CONTAINER from = {{1, 2, 3, 4}};
  morvia::MORVIA_LASER_PLANE_CONTAINER to = {};
  to = from;
  EXPECT_EQ(to.words[0], 1u);
  EXPECT_EQ(to.words[3], 4u);
}

}  // namespace
