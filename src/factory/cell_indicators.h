// How well each block's plane fits its points.
//
// in    15 x 50 clouds and planes in the form a, b, c, d
// out   15 x 50 triples (largest, mean, standard deviation) of the signed distances
#pragma once

#include <vector>

#include "factory/plane_grid.h"
#include "kestrane/records.h"

namespace kestrane {

using CellIndicators = std::vector<std::vector<_LASER_TRIPLE>>;

// The figures of one block; all 0.0 without points. The largest distance keeps its sign and may be
// below zero; the standard deviation divides by N.
_LASER_TRIPLE cell_indicator(const PointMatrix3& points, const PlaneAbcd& plane);

// A triple per cell of `cell_points`; rows that have no planes, after a failed run, are left out.
CellIndicators compute_cell_indicators(const CellPoints& cell_points,
                                       const CellPlanes& cell_planes);

}  // namespace kestrane
