// LASER_PLANE_INDICATOR_MANAGER, LASER_PLANE_GRID_CORNERS_MANAGER and
// LASER_PLANE_GRID_OPT_COEFFS_MANAGER: three names for one store, which differ in the shape of a
// plane's table and in nothing else.
#include <algorithm>
#include <cstdlib>

#include "kestrane/buffers.h"
#include "records/plane_store.h"

namespace kestrane {

// Indicators: 15 x 50 cells a plane.

LASER_PLANE_INDICATOR_MANAGER::LASER_PLANE_INDICATOR_MANAGER()
    : _LASER_PLANE_INDICATORS_INFOS{}, block_(nullptr) {}

LASER_PLANE_INDICATOR_MANAGER::~LASER_PLANE_INDICATOR_MANAGER() { std::free(block_); }

LASER_PLANE_INDICATOR_MANAGER& LASER_PLANE_INDICATOR_MANAGER::operator=(
    const LASER_PLANE_INDICATOR_MANAGER& other) = default;

_KESTRANE_STATUS LASER_PLANE_INDICATOR_MANAGER::init(std::int32_t capacity) {
  return make_plane_store(kBlocks, capacity, *this, block_) ? KESTRANE_OK : KESTRANE_ERR_NO_MEMORY;
}

_KESTRANE_STATUS LASER_PLANE_INDICATOR_MANAGER::get_laser_plane_indicator(
    std::int32_t count, _LASER_PLANE_INDICATORS_INFOS*& out) {
  return use_planes<_LASER_PLANE_INDICATORS_INFOS>(count, *this, out);
}

std::int32_t LASER_PLANE_INDICATOR_MANAGER::alloc_buf_size(void* buffer, std::int32_t count,
                                                           bool commit) {
  const std::int64_t size = lay_out_planes(commit ? buffer : nullptr, kBlocks, count, *this);
  for (std::int32_t p = 0; commit && p < count; ++p) {
    for (std::int32_t j = 0; j < planes[p].count; ++j) {
      const _LASER_LINE_INFOS& line = planes[p].lines[j];
      std::fill_n(line.cells, line.count, _LASER_TRIPLE{});
    }
  }
  return reported_size(size);
}

// Grid corners: 16 x 51 cells a plane.

LASER_PLANE_GRID_CORNERS_MANAGER::LASER_PLANE_GRID_CORNERS_MANAGER()
    : _LASER_PLANE_GRID_CORNERS_INFOS{}, block_(nullptr) {}

LASER_PLANE_GRID_CORNERS_MANAGER::~LASER_PLANE_GRID_CORNERS_MANAGER() { std::free(block_); }

LASER_PLANE_GRID_CORNERS_MANAGER& LASER_PLANE_GRID_CORNERS_MANAGER::operator=(
    const LASER_PLANE_GRID_CORNERS_MANAGER& other) = default;

_KESTRANE_STATUS LASER_PLANE_GRID_CORNERS_MANAGER::init(std::int32_t capacity) {
  return make_plane_store(kCorners, capacity, *this, block_) ? KESTRANE_OK : KESTRANE_ERR_NO_MEMORY;
}

_KESTRANE_STATUS LASER_PLANE_GRID_CORNERS_MANAGER::get_laser_plane_grid_corners(
    std::int32_t count, _LASER_PLANE_GRID_CORNERS_INFOS*& out) {
  return use_planes<_LASER_PLANE_GRID_CORNERS_INFOS>(count, *this, out);
}

std::int32_t LASER_PLANE_GRID_CORNERS_MANAGER::alloc_buf_size(void* buffer, std::int32_t count,
                                                              bool commit) {
  return reported_size(lay_out_planes(commit ? buffer : nullptr, kCorners, count, *this));
}

// Line models of the corners: 16 x 51 cells a plane.

LASER_PLANE_GRID_OPT_COEFFS_MANAGER::LASER_PLANE_GRID_OPT_COEFFS_MANAGER()
    : _LASER_PLANE_GRID_OPT_COEFFS_INFOS{}, block_(nullptr) {}

LASER_PLANE_GRID_OPT_COEFFS_MANAGER::~LASER_PLANE_GRID_OPT_COEFFS_MANAGER() { std::free(block_); }

LASER_PLANE_GRID_OPT_COEFFS_MANAGER& LASER_PLANE_GRID_OPT_COEFFS_MANAGER::operator=(
    const LASER_PLANE_GRID_OPT_COEFFS_MANAGER& other) = default;

_KESTRANE_STATUS LASER_PLANE_GRID_OPT_COEFFS_MANAGER::init(std::int32_t capacity) {
  return make_plane_store(kCorners, capacity, *this, block_) ? KESTRANE_OK : KESTRANE_ERR_NO_MEMORY;
}

_KESTRANE_STATUS LASER_PLANE_GRID_OPT_COEFFS_MANAGER::get_laser_plane_grid_opt_coeffs(
    std::int32_t count, _LASER_PLANE_GRID_OPT_COEFFS_INFOS*& out) {
  return use_planes<_LASER_PLANE_GRID_OPT_COEFFS_INFOS>(count, *this, out);
}

std::int32_t LASER_PLANE_GRID_OPT_COEFFS_MANAGER::alloc_buf_size(void* buffer, std::int32_t count,
                                                                 bool commit) {
  return reported_size(lay_out_planes(commit ? buffer : nullptr, kCorners, count, *this));
}

}  // namespace kestrane
