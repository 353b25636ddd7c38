// Least-squares planes and the two rejection rules.
//
// in    a cloud, one point a row; a plane in the form a, b, c, d with a unit normal
// out   a plane with its statistics; signed distances; the rows that a rule keeps
#pragma once

#include <vector>

#include "fit/points.h"

namespace kestrane {

// The plane through `points` in the least-squares sense, without rejection.
//
// plane  unit normal, pointing away from the origin as most of the points see it; d makes the
//        plane pass through the centroid
// stats  of the points' distances to the plane
//
// False for no rows, and for one or two rows, which span no plane: nothing is written then. Points
// that are not finite give a plane and statistics that are not numbers.
bool fit_plane_svd(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats& stats);

// Signed distance of every point to a plane.
//
// distances  resized to the row count; the sign depends on d and a, not only on the side
//
// A plane through the origin is not trapped: distances become huge or non-finite.
void plane_signed_distances(const PointMatrix3& points, const PlaneAbcd& plane,
                            std::vector<double>& distances);

// Keeps the rows whose distance is not beyond `limit` in size; a NaN distance keeps its row.
// `kept` may be `points` itself. Without rows or distances `kept` stays as it is.
void filter_by_distance(const PointMatrix3& points, const std::vector<double>& distances,
                        double limit, PointMatrix3& kept);

// Keeps the rows whose distance lies within k sigma of the sum (not the mean) of all distances,
// bounds included; a NaN distance keeps its row. `kept` may be `points` itself.
void filter_by_sigma(const PointMatrix3& points, const std::vector<double>& distances, double k,
                     PointMatrix3& kept);

}  // namespace kestrane
