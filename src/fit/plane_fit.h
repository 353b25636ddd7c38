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
// used.
bool fit_plane_svd(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats& stats);

// The same for rows with their coordinate sums at hand, at least 3 of them.
void fit_rows(PointRows rows, const PointSums& sums, PlaneAbcd& plane, PlaneFitStats& stats);

// The plane alone. At least 3 rows.
PlaneAbcd decomposed_plane(PointRows rows, const PointSums& sums);

// The same, to rounding, at a tenth of the cost.
PlaneAbcd passing_plane(PointRows rows, const PointSums& sums);

// A plane that is known to rounding, and how far the signed distances of its rows may lie from
// those to the decomposed plane.
struct StreamedPlane {
  PlaneAbcd abcd;
  double doubt;      // of the distance of any row
  double sum_doubt;  // of the sum of all distances
};

// The plane by streaming over the rows. False, with nothing written, where rounding would show: too
// few rows, degenerate spreads, points on both sides of the origin in nearly equal numbers, a plane
// through the origin or one along the x axis.
bool streamed_plane(PointRows rows, const PointSums& sums, StreamedPlane& plane);

// Signed distance of every point to a plane.
//
// distances  resized to the row count; the sign depends on d and a, not only on the side
//
// A plane through the origin is not trapped: distances become huge or non-finite.
void plane_signed_distances(const PointMatrix3& points, const PlaneAbcd& plane,
                            std::vector<double>& distances);

}  // namespace kestrane
