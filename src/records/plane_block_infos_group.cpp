#include <cstdlib>

#include "kestrane/buffers.h"
#include "records/carving.h"
#include "records/fan.h"

namespace kestrane {
namespace {

// Both line tables stand before the cells of either.
void carve_slab(Carver& carver, _LASER_PLANE_BLOCK_INFO* row) {
  _LASER_LINES_INFOS* block = row != nullptr ? &row->block : nullptr;
  _LASER_LINES_INFOS* block_aux = row != nullptr ? &row->block_aux : nullptr;
  carve_lines(carver, kBlocks, Counts::kFull, block);
  carve_lines(carver, kBlocks, Counts::kFull, block_aux);
  carve_cells(carver, kBlocks, Counts::kFull, block);
  carve_cells(carver, kBlocks, Counts::kFull, block_aux);
}

// Rows, slabs, grid record. Measures with a null buffer.
std::int64_t lay_out(void* buffer, std::int32_t planes, _LASER_PLANE_BLOCK_INFOS& record) {
  Carver carver(buffer);
  auto* rows = carver.take<_LASER_PLANE_BLOCK_INFO>(planes);
  if (!carver.carves()) {
    Carver slab(nullptr);
    carve_slab(slab, nullptr);
    if (planes > 0) carver.skip(planes * slab.size());
    carver.take<_LASER_PLANE_GRIDS>(1);
    return carver.size();
  }
  record.planes = rows;
  record.plane_count = planes;
  for (std::int32_t p = 0; p < planes; ++p) {
    rows[p].plane_flag = 0;
    carve_slab(carver, &rows[p]);
  }
  record.grids = carver.take<_LASER_PLANE_GRIDS>(1);
  return carver.size();
}

std::int64_t grids_size() {
  Carver carver(nullptr);
  carver.take<_LASER_PLANE_GRIDS>(1);
  return carver.size();
}

}  // namespace

LASER_PLANE_BLOCK_INFOS_GROUP::LASER_PLANE_BLOCK_INFOS_GROUP()
    : _LASER_PLANE_BLOCK_INFOS{}, reserved_(0), block_(nullptr) {}

LASER_PLANE_BLOCK_INFOS_GROUP::~LASER_PLANE_BLOCK_INFOS_GROUP() { std::free(block_); }

LASER_PLANE_BLOCK_INFOS_GROUP& LASER_PLANE_BLOCK_INFOS_GROUP::operator=(
    const LASER_PLANE_BLOCK_INFOS_GROUP& other) = default;

_KESTRANE_STATUS LASER_PLANE_BLOCK_INFOS_GROUP::init(std::int32_t capacity) {
  void* fresh = allocate_block(lay_out(nullptr, capacity, *this), grids_size());
  if (fresh == nullptr) return KESTRANE_ERR_NO_MEMORY;
  block_ = fresh;
  alloc_buf_size(block_, capacity, true);
  plane_capacity = capacity;
  reserved_ = 0;
  set_grids();
  init_laser_plane_R();
  return KESTRANE_OK;
}

_KESTRANE_STATUS LASER_PLANE_BLOCK_INFOS_GROUP::get_laser_plane_info(
    std::int32_t count, _LASER_PLANE_BLOCK_INFOS*& out) {
  if (count > plane_capacity) return KESTRANE_ERR_INVALID_PARAM;
  plane_count = count;
  out = this;
  return KESTRANE_OK;
}

std::int32_t LASER_PLANE_BLOCK_INFOS_GROUP::alloc_buf_size(void* buffer, std::int32_t count,
                                                           bool commit) {
  return reported_size(lay_out(commit ? buffer : nullptr, count, *this));
}

void LASER_PLANE_BLOCK_INFOS_GROUP::set_grids() { fill_grids(*grids); }

// Without planes the row of plane 0 lies over the grid record: its depths 5 to 7 become zero.
// Hosts see the table that way, so it stays.
void LASER_PLANE_BLOCK_INFOS_GROUP::init_laser_plane_R() {
  for (double& coefficient : planes[0].laser_plane_R) coefficient = 0.0;
}

}  // namespace kestrane
