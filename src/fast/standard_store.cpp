#include "fast/standard_store.h"

#include "records/carving.h"
#include "records/expects.h"
#include "records/table_copy.h"

namespace kestrane {
namespace {

void expect_room(const _MRV_LASER_PLANE_BLOCK_INFOS& infos) {
  KESTRANE_EXPECTS(infos.grids != nullptr, "a standard has its grid record");
  KESTRANE_EXPECTS(infos.plane_count <= kMaxPlanes, "a standard has at most 100 planes");
  for (std::int32_t p = 0; p < infos.plane_count; ++p) {
    const _LASER_LINES_INFOS& table = infos.planes[p].block;
    KESTRANE_EXPECTS(table.count <= kBlocks.lines, "a standard has at most 15 lines a plane");
    for (std::int32_t j = 0; j < table.count; ++j) {
      KESTRANE_EXPECTS(table.lines[j].count <= kBlocks.cells,
                       "a standard has at most 50 cells a line");
    }
  }
}

}  // namespace

std::int64_t lay_out_standard(void* block, _LASER_PLANE_BLOCK_INFOS*& standard) {
  Carver carver(block);
  auto* record = carver.take<_LASER_PLANE_BLOCK_INFOS>(1);
  auto* rows = carver.take<_LASER_PLANE_BLOCK_INFO>(kMaxPlanes);
  for (std::int32_t p = 0; p < kMaxPlanes; ++p) {
    carve_table(carver, kBlocks, Counts::kLeft, carver.carves() ? &rows[p].block : nullptr);
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
