// Least-squares planes, and the distance of points to a plane.
//
// in    a cloud, one point a row; a plane in the form a, b, c, d with a unit normal
// out   a plane with its statistics; signed distances
#pragma once

#include <vector>

#include "fit/points.h"
#include "fit/rejection.h"  // the rules that work on the distances below

namespace kestrane {

// The plane through `points` in the least-squares sense, without rejection.
//
// plane  unit normal, pointing away from the origin as most of the points see it; d makes the
//        plane pass through the centroid
// stats  of the points' distances to the plane
//
// False for no rows, and for one or two rows, which span no plane: nothing is written then. Points
// that are not finite give a plane and statistics that are not numbers. Up to 8 rows no heap is
// used. From 64 rows on plane and statistics come from streaming over the rows where that gives
// them to rounding, below that from a decomposition of the whole cloud.
bool fit_plane_svd(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats& stats);

// The fit by a decomposition of the whole cloud, for at least 3 rows with their coordinate sums at
// hand; and its plane alone.
PlaneFit fit_rows(PointRows rows, const PointSums& sums);
PlaneAbcd decomposed_plane(PointRows rows, const PointSums& sums);

// Signed distance of every point to a plane.
//
// distances  resized to the row count; the sign depends on d and a, not only on the side
//
// A plane through the origin is not trapped: distances become huge or non-finite.
void plane_signed_distances(const PointMatrix3& points, const PlaneAbcd& plane,
                            std::vector<double>& distances);

}  // namespace kestrane
