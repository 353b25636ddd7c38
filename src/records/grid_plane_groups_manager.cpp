#include <cstdlib>
#include <new>

#include "kestrane/buffers.h"
#include "records/carving.h"
#include "records/expects.h"
#include "records/plane_store.h"

namespace kestrane {
namespace {

// The array of tables and the spare array after it. Measures with a null buffer.
std::int64_t lay_out(void* buffer, std::int32_t count, _LASER_GRID_PLANE_GROUPS& record) {
  Carver carver(buffer);
  auto* groups = carver.take<_LASER_PLANE_GRID_CORNERS_INFOS*>(count);
  auto* spare = carver.take<_LASER_PLANE_GRID_CORNERS_INFOS*>(count);
  if (carver.carves()) {
    record.group_count = count;
    record.groups = groups;
    record.groups_spare = spare;
  }
  return carver.size();
}

}  // namespace

LASER_GRID_PLANE_GROUPS_MANAGER::LASER_GRID_PLANE_GROUPS_MANAGER()
    : _LASER_GRID_PLANE_GROUPS{}, block_(nullptr), managers_(nullptr) {}

LASER_GRID_PLANE_GROUPS_MANAGER::~LASER_GRID_PLANE_GROUPS_MANAGER() {
  std::free(block_);
  delete[] managers_;
}

LASER_GRID_PLANE_GROUPS_MANAGER& LASER_GRID_PLANE_GROUPS_MANAGER::operator=(
    const LASER_GRID_PLANE_GROUPS_MANAGER& other) = default;

_KESTRANE_STATUS LASER_GRID_PLANE_GROUPS_MANAGER::init(std::int32_t count, std::int32_t planes) {
  if (count == 0 || planes == 0) return KESTRANE_ERR_INVALID_PARAM;
  void* fresh = allocate_block(lay_out(nullptr, count, *this), 0);
  if (fresh == nullptr) return KESTRANE_ERR_NO_MEMORY;
  block_ = fresh;
  alloc_buf_size(block_, count, true);
  group_capacity = count;
  return init_groups(planes, managers_, *this);
}

_KESTRANE_STATUS LASER_GRID_PLANE_GROUPS_MANAGER::get_laser_grid_plane_groups(
    std::int32_t count, std::int32_t planes, _LASER_GRID_PLANE_GROUPS*& out) {
  if (count > group_capacity) return KESTRANE_ERR_INVALID_PARAM;
  group_count = count;
  for (std::int32_t i = 0; i < count; ++i) {
    KESTRANE_EXPECTS(groups[i] != nullptr, "groups are handed out after a successful init");
    _LASER_PLANE_GRID_CORNERS_INFOS& table = *groups[i];
    if (planes > table.plane_capacity) return KESTRANE_ERR_INVALID_PARAM;
    table.plane_count = planes;
  }
  out = this;
  return KESTRANE_OK;
}

std::int32_t LASER_GRID_PLANE_GROUPS_MANAGER::alloc_buf_size(void* buffer, std::int32_t count,
                                                             bool commit) {
  return reported_size(lay_out(commit ? buffer : nullptr, count, *this));
}

// A negative number of groups is not refused up front; like a number that the heap cannot serve it
// ends here, where no array of that length can be had.
_KESTRANE_STATUS LASER_GRID_PLANE_GROUPS_MANAGER::init_groups(
    std::int32_t planes, LASER_PLANE_GRID_CORNERS_MANAGER*& array,
    _LASER_GRID_PLANE_GROUPS& record) {
  if (record.group_capacity < 0) return KESTRANE_ERR_NO_MEMORY;
  auto* managers = new (std::nothrow)
      LASER_PLANE_GRID_CORNERS_MANAGER[static_cast<std::size_t>(record.group_capacity)];
  if (managers == nullptr) return KESTRANE_ERR_NO_MEMORY;
  array = managers;
  for (std::int32_t i = 0; i < record.group_capacity; ++i) {
    const _KESTRANE_STATUS made = managers[i].init(planes);
    if (made != KESTRANE_OK) return made;
    record.groups[i] = &managers[i];  // its count is in use as it was made
  }
  return KESTRANE_OK;
}

}  // namespace kestrane
