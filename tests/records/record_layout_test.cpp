// Hosts are compiled against these layouts: every field has a fixed place.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "kestrane/records.h"

namespace {

using namespace kestrane;

TEST(RecordLayout, PutsTheFieldsOfLinesAndTables) {
  EXPECT_EQ(sizeof(_LASER_TRIPLE), 24u);
  EXPECT_EQ(offsetof(_LASER_LINE_INFOS, cells), 0u);
  EXPECT_EQ(offsetof(_LASER_LINE_INFOS, count), 8u);
  EXPECT_EQ(sizeof(_LASER_LINE_INFOS), 16u);
  EXPECT_EQ(offsetof(_LASER_LINES_INFOS, lines), 0u);
  EXPECT_EQ(offsetof(_LASER_LINES_INFOS, count), 8u);
  EXPECT_EQ(sizeof(_LASER_LINES_INFOS), 16u);
}

TEST(RecordLayout, PutsTheFieldsOfTheGridRecord) {
  EXPECT_EQ(offsetof(_LASER_PLANE_GRIDS, grid_head), 0u);
  EXPECT_EQ(offsetof(_LASER_PLANE_GRIDS, grid_z), 16u);
  EXPECT_EQ(offsetof(_LASER_PLANE_GRIDS, grid_y_start), 16u + 408u);
  EXPECT_EQ(offsetof(_LASER_PLANE_GRIDS, grid_y_step), 16u + 2 * 408u);
  EXPECT_EQ(offsetof(_LASER_PLANE_GRIDS, z_start), 16u + 3 * 408u);
  EXPECT_EQ(offsetof(_LASER_PLANE_GRIDS, z_step), 16u + 3 * 408u + 8u);
  EXPECT_EQ(sizeof(_LASER_PLANE_GRIDS), 1256u);
}

TEST(RecordLayout, PutsTheFieldsOfTheLibrarysPlaneTable) {
  EXPECT_EQ(offsetof(_LASER_PLANE_BLOCK_INFO, block), 0u);
  EXPECT_EQ(offsetof(_LASER_PLANE_BLOCK_INFO, block_aux), 16u);
  EXPECT_EQ(offsetof(_LASER_PLANE_BLOCK_INFO, pivot), 32u);
  EXPECT_EQ(offsetof(_LASER_PLANE_BLOCK_INFO, laser_plane_R), 56u);
  EXPECT_EQ(offsetof(_LASER_PLANE_BLOCK_INFO, plane_flag), 80u);
  EXPECT_EQ(sizeof(_LASER_PLANE_BLOCK_INFO), 88u);
  EXPECT_EQ(offsetof(_LASER_PLANE_BLOCK_INFOS, planes), 0u);
  EXPECT_EQ(offsetof(_LASER_PLANE_BLOCK_INFOS, grids), 8u);
  EXPECT_EQ(offsetof(_LASER_PLANE_BLOCK_INFOS, plane_count), 16u);
  EXPECT_EQ(offsetof(_LASER_PLANE_BLOCK_INFOS, plane_capacity), 20u);
  EXPECT_EQ(sizeof(_LASER_PLANE_BLOCK_INFOS), 24u);
}

TEST(RecordLayout, PutsTheFieldsOfTheHostsPlaneTable) {
  EXPECT_EQ(offsetof(_MRV_LASER_PLANE_BLOCK_INFO, block), 0u);
  EXPECT_EQ(offsetof(_MRV_LASER_PLANE_BLOCK_INFO, laser_plane_R), 16u);
  EXPECT_EQ(sizeof(_MRV_LASER_PLANE_BLOCK_INFO), 40u);
  EXPECT_EQ(offsetof(_MRV_LASER_PLANE_BLOCK_INFOS, planes), 0u);
  EXPECT_EQ(offsetof(_MRV_LASER_PLANE_BLOCK_INFOS, grids), 8u);
  EXPECT_EQ(offsetof(_MRV_LASER_PLANE_BLOCK_INFOS, plane_count), 16u);
  EXPECT_EQ(sizeof(_MRV_LASER_PLANE_BLOCK_INFOS), 24u);
}

template <class Record>
void expect_table_per_plane() {
  EXPECT_EQ(offsetof(Record, planes), 0u);
  EXPECT_EQ(offsetof(Record, plane_count), 8u);
  EXPECT_EQ(offsetof(Record, plane_capacity), 12u);
  EXPECT_EQ(sizeof(Record), 16u);
}

TEST(RecordLayout, GivesIndicatorsCornersAndCoefficientsTheSameFields) {
  expect_table_per_plane<_LASER_PLANE_INDICATORS_INFOS>();
  expect_table_per_plane<_LASER_PLANE_GRID_CORNERS_INFOS>();
  expect_table_per_plane<_LASER_PLANE_GRID_OPT_COEFFS_INFOS>();
}

TEST(RecordLayout, PutsTheFieldsOfTheGroups) {
  EXPECT_EQ(offsetof(_LASER_GRID_PLANE_GROUPS, groups), 0u);
  EXPECT_EQ(offsetof(_LASER_GRID_PLANE_GROUPS, groups_spare), 8u);
  EXPECT_EQ(offsetof(_LASER_GRID_PLANE_GROUPS, group_count), 16u);
  EXPECT_EQ(offsetof(_LASER_GRID_PLANE_GROUPS, group_capacity), 20u);
  EXPECT_EQ(sizeof(_LASER_GRID_PLANE_GROUPS), 24u);
}

TEST(RecordLayout, PutsTheFieldsOfTheCoefficients) {
  EXPECT_EQ(offsetof(_COMPENSATOR_COEFFS, opt_coeffs), 0u);
  EXPECT_EQ(offsetof(_COMPENSATOR_COEFFS, plane_count), 8u);
  EXPECT_EQ(offsetof(_COMPENSATOR_COEFFS, plane_capacity), 12u);
  EXPECT_EQ(offsetof(_COMPENSATOR_COEFFS, range_first), 16u);
  EXPECT_EQ(offsetof(_COMPENSATOR_COEFFS, range_last), 96u);
  EXPECT_EQ(offsetof(_COMPENSATOR_COEFFS, range_count), 176u);
  EXPECT_EQ(offsetof(_COMPENSATOR_COEFFS, Mbs_factory_to_user), 184u);
  EXPECT_EQ(sizeof(_COMPENSATOR_COEFFS), 192u);
}

TEST(RecordLayout, PutsTheFieldsOfPointsAndTransforms) {
  EXPECT_EQ(offsetof(_KESTRANE_ID_POINT3D, x), 0u);
  EXPECT_EQ(offsetof(_KESTRANE_ID_POINT3D, y), 8u);
  EXPECT_EQ(offsetof(_KESTRANE_ID_POINT3D, z), 16u);
  EXPECT_EQ(offsetof(_KESTRANE_ID_POINT3D, id), 24u);
  EXPECT_EQ(sizeof(_KESTRANE_ID_POINT3D), 32u);
  EXPECT_EQ(offsetof(_KESTRANE_ID_POINT3DS, points), 0u);
  EXPECT_EQ(offsetof(_KESTRANE_ID_POINT3DS, count), 8u);
  EXPECT_EQ(offsetof(_MRV_EXTRINSIC_PARAM, R), 0u);
  EXPECT_EQ(offsetof(_MRV_EXTRINSIC_PARAM, T), 72u);
  EXPECT_EQ(offsetof(_MRV_TRANSFORM, quaternion), 0u);
  EXPECT_EQ(offsetof(_MRV_TRANSFORM, translation), 32u);
}

TEST(RecordLayout, PutsTheReadingsAndGainsOfTheCondition) {
  EXPECT_EQ(offsetof(_KESTRANE_COMPENSATE_PARAM, temperature), 0u);
  EXPECT_EQ(offsetof(_KESTRANE_COMPENSATE_PARAM, temperature_ref), 8u);
  EXPECT_EQ(offsetof(_KESTRANE_COMPENSATE_PARAM, drift), 16u);
  EXPECT_EQ(offsetof(_KESTRANE_COMPENSATE_PARAM, drift_ref), 24u);
  EXPECT_EQ(offsetof(_KESTRANE_COMPENSATE_PARAM, drift_gain), 32u);
  EXPECT_EQ(offsetof(_KESTRANE_COMPENSATE_PARAM, temperature_spread), 40u);
  EXPECT_EQ(offsetof(_KESTRANE_COMPENSATE_PARAM, drift_spread), 48u);
  EXPECT_EQ(offsetof(_KESTRANE_COMPENSATE_PARAM, scale_per_degree), 56u);
  EXPECT_EQ(sizeof(_KESTRANE_COMPENSATE_PARAM), 64u);
}

TEST(RecordLayout, NumbersTheStatusesAsHostsKnowThem) {
  static_assert(sizeof(_KESTRANE_STATUS) == 4);
  static_assert(std::is_signed_v<std::underlying_type_t<_KESTRANE_STATUS>>);
  EXPECT_EQ(KESTRANE_OK, 0);
  EXPECT_EQ(KESTRANE_ERR_FAILED, -1);
  EXPECT_EQ(KESTRANE_ERR_NO_MEMORY, -2);
  EXPECT_EQ(KESTRANE_ERR_NULL_POINTER, -5);
  EXPECT_EQ(KESTRANE_ERR_INVALID_PARAM, -7);
  EXPECT_EQ(KESTRANE_ERR_FILE_OPEN, -8);
  EXPECT_EQ(KESTRANE_ERR_COUNT_MISMATCH, -14);
  EXPECT_EQ(KESTRANE_ERR_RANGE_UNKNOWN, -15);
  EXPECT_EQ(KESTRANE_ERR_FIT_FAILED, -16);
  EXPECT_EQ(KESTRANE_ERR_SOLVE_FAILED, -17);
  EXPECT_EQ(KESTRANE_ERR_EMPTY_RANGE, -18);
  EXPECT_EQ(KESTRANE_ERR_NOT_READY, -19);
}

TEST(RecordLayout, NumbersTheLaserTypesAndTheOptimisationFlag) {
  EXPECT_EQ(LASER_TYPE_STANDARD, 0);
  EXPECT_EQ(LASER_TYPE_FAR, 1);
  EXPECT_EQ(KESTRANE_OPTIM_OFF, 0);
  EXPECT_EQ(KESTRANE_OPTIM_ON, 1);
}

}  // namespace
