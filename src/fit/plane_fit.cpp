#include "fit/plane_fit.h"

#include <optional>

#include "fit/distance_stats.h"
#include "fit/plane_decomposition.h"
#include "fit/signed_distance.h"
#include "fit/streamed_fit.h"

namespace kestrane {
namespace {

using Eigen::Index;
using Eigen::Vector3d;

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

PlaneAbcd least_squares_plane(PointRows rows, const Centroid& m) {
  const Vector3d normal = thin_direction(rows, m);
  PlaneAbcd plane = plane_through(m, normal);
  if (points_inward(rows, normal)) plane *= -1.0;
  return plane;
}

}  // namespace

PlaneFit fit_rows(PointRows rows, const PointSums& sums) {
  const Centroid m = centroid_of(sums, rows.count);
  const PlaneAbcd plane = least_squares_plane(rows, m);
  return {plane, distance_stats(rows, m, plane)};
}

PlaneAbcd decomposed_plane(PointRows rows, const PointSums& sums) {
  return least_squares_plane(rows, centroid_of(sums, rows.count));
}

bool fit_plane_svd(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats& stats) {
  const PointRows rows = rows_of(points);
  if (rows.count < 3) return false;
  std::optional<PlaneFit> fit;
  if (rows.count >= kFewestStreamedRows) fit = streamed_plane_fit(points);
  if (!fit) fit = fit_rows(rows, sums_of(rows));
  plane = fit->plane;
  stats = fit->stats;
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
