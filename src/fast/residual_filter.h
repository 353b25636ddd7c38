// Third cleaning stage: drops points that lie far from the standard once it has been moved.
//
// in    points per laser plane, the residual of each
// out   the points close to their cells, same form
#pragma once

#include "fast/point_sets.h"

namespace kestrane {

// Drops the columns whose residual is greater than 1.5. A residual that is not a number keeps its
// column, and so does the 0 of a point without a cell.
//
// residuals  one row per matrix, one entry per column
void drop_far_points(const ResidualSets& residuals, PointSets& points);

// The same into other matrices.
//
// kept  resized to `points`
void filter_point_by_residual(const PointSets& points, const ResidualSets& residuals,
                              PointSets& kept);

}  // namespace kestrane
