#include "fast/standard_store.h"

#include "records/carving.h"
#include "records/expects.h"
#include "records/table_copy.h"
#include "records/table_fit.h"

namespace kestrane {
namespace {

void expect_room(const _MRV_LASER_PLANE_BLOCK_INFOS& infos) {
  KESTRANE_EXPECTS_OF("set_laser_plane_standard", infos.grids != nullptr,
                      "a standard has its grid record");
  KESTRANE_EXPECTS_OF("set_laser_plane_standard", infos.plane_count <= kMaxPlanes,
                      "a standard has at most 100 planes", infos.plane_count);
  for (std::int32_t p = 0; p < infos.plane_count; ++p) {
    expect_fit("set_laser_plane_standard", infos.planes[p].block, kBlocks);
  }
}

}  // namespace

std::int64_t lay_out_standard(void* block, _LASER_PLANE_BLOCK_INFOS*& standard) {
  Carver carver(block);
  auto* record = carver.take<_LASER_PLANE_BLOCK_INFOS>(1);
  auto* rows = carver.take<_LASER_PLANE_BLOCK_INFO>(kMaxPlanes);
  for (std::int32_t p = 0; p < kMaxPlanes; ++p) {
    carve_table(carver, kBlocks, Counts::kLeft, rows, p, &_LASER_PLANE_BLOCK_INFO::block);
  }
  auto* grids = carver.take<_LASER_PLANE_GRIDS>(1);
  if (carver.carves()) {
    record->planes = rows;
    record->grids = grids;
    standard = record;
  }
  return carver.size();
}

void copy_standard(const _MRV_LASER_PLANE_BLOCK_INFOS& from, _LASER_PLANE_BLOCK_INFOS& to) {
  expect_room(from);
  to.plane_count = from.plane_count;
  for (std::int32_t p = 0; p < from.plane_count; ++p) {
    copy_table(from.planes[p].block, to.planes[p].block);
  }
  *to.grids = *from.grids;
}

}  // namespace kestrane
