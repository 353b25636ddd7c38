// How far the points of a fit lie from its plane.
#pragma once

#include "fit/points.h"

namespace kestrane {

// Largest, mean and standard deviation of the unsigned distances of the rows to the plane through
// `centroid` with the direction of `plane`'s normal. Point after point, in two passes.
PlaneFitStats distance_stats(PointRows rows, const Centroid& centroid, const PlaneAbcd& plane);

}  // namespace kestrane
