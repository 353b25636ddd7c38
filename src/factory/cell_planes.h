// Each cell gets the plane of its four corners.
//
// in    16 x 51 corners, the shape of the cells
// out   15 x 50 planes in the form a, b, c, d
#pragma once

#include <vector>

#include "factory/plane_grid.h"

namespace kestrane {

// The plane of a cell's corners without its statistics, which nothing reads. False below three
// rows.
bool fit_corners(const PointMatrix3& corners, PlaneAbcd& plane);

// Appends to `cell_planes` the plane of the four corners of every cell, shaped like `cell_points`,
// whose points are not looked at. A cell whose fit fails keeps four zeros and is reported with one
// line on standard output when all cells are done.
void fit_cell_planes(const CellPoints& cell_points, const GridCorners& grid_corners,
                     CellPlanes& cell_planes);

// One mark per cell: whether its fit succeeded.
using CellMarks = std::vector<std::vector<bool>>;

// The report: a line on standard output for each cell [i][j] without its mark. It throws nothing,
// whatever has become of standard output.
void report_failed_cells(const CellMarks& fitted);

}  // namespace kestrane
