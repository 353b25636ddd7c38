// Third cleaning stage: drops points that lie far from the standard once it has been moved.
//
// in    points per laser plane, the residual of each
// out   the points close to their cells, same form
#pragma once

#include "fast/point_sets.h"

namespace kestrane {

// Keeps the columns whose residual is not greater than 1.5; a residual that is not a number keeps
// its column, and so does the 0 of a point without a cell.
//
// residuals  one row per matrix, one entry per column
// kept       resized to `points`
void filter_point_by_residual(const PointSets& points, const ResidualSets& residuals,
                              PointSets& kept);

}  // namespace kestrane
