#include "fit/plane_fit.h"

#include <algorithm>
#include <cmath>

#include "fit/distance_stats.h"
#include "fit/plane_decomposition.h"
#include "fit/signed_distance.h"

namespace kestrane {
namespace {

using Eigen::Index;
using Eigen::Vector3d;

constexpr Index kBlock = 256;  // points between two looks at the count

// A streamed normal differs from the decomposed one by less than this, so a point whose dot product
// is within this part of its size has no certain side.
constexpr double kNormalDoubt = 4e-12;

PlaneAbcd plane_through(const Centroid& m, const Vector3d& n) {
  return {n[0], n[1], n[2], -(n[0] * m.x + n[1] * m.y + n[2] * m.z)};
}

double along(const Vector3d& n, const double* point) {
  return n[0] * point[0] + n[1] * point[1] + n[2] * point[2];
}

// Whether fewer points lie on the normal's side of the origin than not. A tie keeps the normal.
bool points_inward(PointRows rows, const Vector3d& n) {
  Index positive = 0;
  for (Index i = 0; i < rows.count; ++i) {
    if (along(n, rows.xyz + 3 * i) > 0.0) ++positive;  // a NaN is not positive
  }
  return positive < rows.count - positive;
}

enum class Side { kInward, kOutward, kUndecided };

// The same, decided only where more than half of the points lie beyond `doubt` on one side: then
// neither rounding nor the sign that a decomposition happens to give can turn the outcome.
Side certain_side(PointRows rows, const Vector3d& n, double doubt) {
  Index outward = 0;
  Index inward = 0;
  for (Index start = 0; start < rows.count; start += kBlock) {
    const Index end = std::min(rows.count, start + kBlock);
    for (Index i = start; i < end; ++i) {
      const double height = along(n, rows.xyz + 3 * i);
      outward += height > doubt ? 1 : 0;
      inward += height < -doubt ? 1 : 0;
    }
    if (outward > rows.count / 2) return Side::kOutward;
    if (inward > rows.count / 2) return Side::kInward;
  }
  return Side::kUndecided;
}

PlaneAbcd least_squares_plane(PointRows rows, const Centroid& m) {
  const Vector3d normal = thin_direction(rows, m);
  PlaneAbcd plane = plane_through(m, normal);
  if (points_inward(rows, normal)) plane *= -1.0;
  return plane;
}

}  // namespace

void fit_rows(PointRows rows, const PointSums& sums, PlaneAbcd& plane, PlaneFitStats& stats) {
  const Centroid m = centroid_of(sums, rows.count);
  plane = least_squares_plane(rows, m);
  stats = distance_stats(rows, m, plane);
}

bool streamed_plane(PointRows rows, const Centroid& centroid, PlaneAbcd& plane) {
  if (rows.count < kFewestStreamedRows) return false;
  const StreamedDirection direction = streamed_thin_direction(rows, centroid);
  if (!direction.reliable) return false;
  const double offset = std::abs(centroid.x) + std::abs(centroid.y) + std::abs(centroid.z);
  const Side side = certain_side(rows, direction.normal, kNormalDoubt * (offset + direction.reach));
  if (side == Side::kUndecided) return false;
  plane = plane_through(centroid, direction.normal);
  if (side == Side::kInward) plane *= -1.0;
  return true;
}

PlaneAbcd passing_plane(PointRows rows, const PointSums& sums) {
  const Centroid m = centroid_of(sums, rows.count);
  PlaneAbcd plane;
  if (!streamed_plane(rows, m, plane)) plane = least_squares_plane(rows, m);
  return plane;
}

bool fit_plane_svd(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats& stats) {
  const PointRows rows = rows_of(points);
  if (rows.count < 3) return false;
  fit_rows(rows, sums_of(rows), plane, stats);
  return true;
}

void plane_signed_distances(const PointMatrix3& points, const PlaneAbcd& plane,
                            std::vector<double>& distances) {
  const SignedDistance distance(plane);
  const PointRows rows = rows_of(points);
  distances.resize(static_cast<std::size_t>(rows.count));
  double* out = distances.data();
  for (Index i = 0; i < rows.count; ++i) out[i] = distance(rows.xyz + 3 * i);
}

}  // namespace kestrane
