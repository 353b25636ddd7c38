// What the owner classes of per-plane tables have in common: one block with a row per plane,
// followed by each plane's line table and cells.
//
// in    a record with `planes`, `plane_count` and `plane_capacity`, and the shape of its tables
// out   the block's size, or the record carved into a block
#pragma once

#include <cstdint>

#include "kestrane/records.h"
#include "records/carving.h"

namespace kestrane {

// Measures with a null buffer; with a buffer also carves it into `record`, counts included.
template <class Record>
std::int64_t lay_out_planes(void* buffer, TableShape shape, std::int32_t planes, Record& record) {
  Carver carver(buffer);
  auto* rows = carver.take<_LASER_LINES_INFOS>(planes);
  if (!carver.carves()) {
    Carver slab(nullptr);
    carve_table(slab, shape, Counts::kFull, nullptr);
    if (planes > 0) carver.skip(planes * slab.size());
    return carver.size();
  }
  record.planes = rows;
  record.plane_count = planes;
  for (std::int32_t p = 0; p < planes; ++p) carve_table(carver, shape, Counts::kFull, &rows[p]);
  return carver.size();
}

// Allocates and carves a fresh store for `capacity` planes. False when the block cannot be had:
// nothing has changed then.
template <class Record>
bool make_plane_store(TableShape shape, std::int32_t capacity, Record& record, void*& block) {
  void* fresh = allocate_block(lay_out_planes(nullptr, shape, capacity, record), 0);
  if (fresh == nullptr) return false;
  block = fresh;
  lay_out_planes(block, shape, capacity, record);
  record.plane_capacity = capacity;
  return true;
}

// Sets the count in use and hands the record out, unless the count is above the capacity.
template <class Record>
_KESTRANE_STATUS use_planes(std::int32_t count, Record& record, Record*& out) {
  if (count > record.plane_capacity) return KESTRANE_ERR_INVALID_PARAM;
  record.plane_count = count;
  out = &record;
  return KESTRANE_OK;
}

}  // namespace kestrane
