// The fan's geometry: the bounds of the cells, and the cell of a position (y, z).
#pragma once

#include <cstdint>
#include <optional>

#include "kestrane/records.h"
#include "records/shapes.h"

namespace kestrane {

// Fills the bounds of the fan of 60 degrees from depth 150 to 1500; `grid_head` stays as it is.
void fill_grids(_LASER_PLANE_GRIDS& grids);

// A block of a table: `lines[line].cells[cell]`.
struct CellIndex {
  std::int32_t line;
  std::int32_t cell;
};

// Whether a quotient, truncated toward zero, is an index of 0 to count - 1. Tested on the double,
// so that nothing huge and no NaN ever reaches a conversion to integer.
inline bool is_index(double quotient, std::int32_t count) {
  return quotient > -1.0 && quotient < static_cast<double>(count);
}

// The depth index of z, truncated toward zero, so that a quotient in (-1, 0) counts as 0. Empty
// outside 0 to 49 and for a z that is not a number.
inline std::optional<std::int32_t> depth_index(const _LASER_PLANE_GRIDS& grids, double z) {
  const double quotient = (z - grids.z_start) / grids.z_step;
  if (!is_index(quotient, kBlocks.cells)) return std::nullopt;
  return static_cast<std::int32_t>(quotient);
}

// How many block widths y lies from the fan's lower edge at depth index k, not truncated.
inline double fan_quotient(const _LASER_PLANE_GRIDS& grids, std::int32_t k, double y) {
  return (y - grids.grid_y_start[k]) / grids.grid_y_step[k];
}

// The block of (y, z), both indices truncated toward zero. Empty outside 15 x 50 and for values
// that are not numbers. In the header: every measured point passes here.
inline std::optional<CellIndex> find_cell(const _LASER_PLANE_GRIDS& grids, double y, double z) {
  const std::optional<std::int32_t> k = depth_index(grids, z);
  if (!k) return std::nullopt;
  const double quotient = fan_quotient(grids, *k, y);
  if (!is_index(quotient, kBlocks.lines)) return std::nullopt;
  return CellIndex{static_cast<std::int32_t>(quotient), *k};
}

}  // namespace kestrane
