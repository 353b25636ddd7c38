// Sector points fall into depth cells.
//
// in    per sector the points that its fit kept
// out   15 x 50 clouds
#pragma once

#include <cstdint>

#include "factory/plane_grid.h"

namespace kestrane {

// Splits each sector's points into `cell_count` even depth bands from `z_first` to `z_last`, in
// input order, and replaces `cell_points`. Points nearer than the first band fall into it, points
// farther than the last one into that; a z that is not a number goes to band 0. At most 256 bands.
void split_sector_points_by_depth(const SectorClouds& sector_points, std::int32_t cell_count,
                                  double z_first, double z_last, CellPoints& cell_points);

}  // namespace kestrane
