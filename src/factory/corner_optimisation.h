// The optional refinement of the grid: the corners of measured cells follow the points.
//
// in    15 x 50 clouds, 16 x 51 corners on the sector planes
// out   the same corners, their x moved by at most 0.5
#pragma once

#include "factory/plane_grid.h"

namespace kestrane {

// One least-squares problem for the whole plane: a residual per cell with points, a parameter per
// corner, so that neighbouring cells pull on the corners they share. y and z never change; corners
// of cells without points stay as they are. Whatever the solver ends with stands: a problem that
// cannot be evaluated leaves the corners where they were.
void optimize_grid_corners(const CellPoints& cell_points, GridCorners& grid_corners);

}  // namespace kestrane
