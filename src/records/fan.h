// The fan's geometry: the bounds of the cells, and the cell of a position (y, z).
#pragma once

#include <cstdint>
#include <optional>

#include "kestrane/records.h"

namespace kestrane {

// Fills the bounds of the fan of 60 degrees from depth 150 to 1500; `grid_head` stays as it is.
void fill_grids(_LASER_PLANE_GRIDS& grids);

// A block of a table: `lines[line].cells[cell]`.
struct CellIndex {
  std::int32_t line;
  std::int32_t cell;
};

// The depth index of z, truncated toward zero, so that a quotient in (-1, 0) counts as 0. Empty
// outside 0 to 49 and for a z that is not a number.
std::optional<std::int32_t> depth_index(const _LASER_PLANE_GRIDS& grids, double z);

// How many block widths y lies from the fan's lower edge at depth index k, not truncated.
double fan_quotient(const _LASER_PLANE_GRIDS& grids, std::int32_t k, double y);

// The block of (y, z), both indices truncated toward zero. Empty outside 15 x 50 and for values
// that are not numbers.
std::optional<CellIndex> find_cell(const _LASER_PLANE_GRIDS& grids, double y, double z);

}  // namespace kestrane
