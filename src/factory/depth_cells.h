// Second stage of a run: sector points fall into depth cells, the nominal grid is lifted onto the
// sector planes, and each cell gets the plane of its four corners.
//
// in    per sector its plane and its points; the nominal rays
// out   15 x 50 clouds, 16 x 51 corners, 15 x 50 planes in the form a, b, c, d
#pragma once

#include <cstdint>
#include <vector>

#include "factory/plane_grid.h"

namespace kestrane {

// Splits each sector's points into `cell_count` even depth bands from `z_first` to `z_last`, in
// input order, and replaces `cell_points`. Points nearer than the first band fall into it, points
// farther than the last one into that; a z that is not a number goes to band 0.
void split_sector_points_by_depth(const SectorClouds& sector_points, std::int32_t cell_count,
                                  double z_first, double z_last, CellPoints& cell_points);

// Appends to `grid_corners` a row per ray: the ray's positions with the x of its sector's plane. A
// ray belongs to the sector that starts on it, the last ray to the last sector.
//
// False where a plane's a is below the library's guard in size; the rows before it stay.
bool compute_grid_corners(const NominalRays& nominal_rays, const SectorPlanes& sector_planes,
                          GridCorners& grid_corners);

// Fills `matrix`, made 4 x 3 if it is not, with corners [i][j], [i][j+1], [i+1][j], [i+1][j+1].
void gather_cell_corners(const GridCorners& grid_corners, std::size_t i, std::size_t j,
                         PointMatrix3& matrix);

// Appends to `cell_planes` the plane of the four corners of every cell, shaped like `cell_points`,
// whose points are not looked at. A cell whose fit fails keeps four zeros and is reported with one
// line on standard output when all cells are done.
void fit_cell_planes(const CellPoints& cell_points, const GridCorners& grid_corners,
                     CellPlanes& cell_planes);

// One mark per cell: whether its fit succeeded.
using CellMarks = std::vector<std::vector<bool>>;

// The report: a line on standard output for each cell [i][j] without its mark.
void report_failed_cells(const CellMarks& fitted);

}  // namespace kestrane
