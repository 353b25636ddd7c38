// The nominal grid is lifted onto the sector planes.
//
// in    the nominal rays; per sector its plane in the form a, b, c, d
// out   16 x 51 corners; the four corners of a cell
#pragma once

#include <cstddef>

#include "factory/plane_grid.h"

namespace kestrane {

// Appends to `grid_corners` a row per ray: the ray's positions with the x of its sector's plane. A
// ray belongs to the sector that starts on it, the last ray to the last sector.
//
// False where a plane's a is below the library's guard in size; the rows before it stay.
bool compute_grid_corners(const NominalRays& nominal_rays, const SectorPlanes& sector_planes,
                          GridCorners& grid_corners);

// Fills `matrix`, made 4 x 3 if it is not, with corners [i][j], [i][j+1], [i+1][j], [i+1][j+1].
void gather_cell_corners(const GridCorners& grid_corners, std::size_t i, std::size_t j,
                         PointMatrix3& matrix);

}  // namespace kestrane
