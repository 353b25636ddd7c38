#include "fit/plane_fit.h"

#include <algorithm>
#include <cmath>

#include "fit/distance_stats.h"
#include "fit/plane_decomposition.h"
#include "fit/signed_distance.h"
#include "records/guard.h"
#include "records/shapes.h"

namespace kestrane {
namespace {

using Eigen::Index;
using Eigen::Vector3d;

constexpr Index kBlock = 256;  // points between two looks at the count

constexpr double kUnit = 2.220446049250313e-16;  // of rounding, relative
// Roundings of a signed distance, in units of the sizes that enter it. In a sum of distances most
// of them cancel: the largest part that was seen is 1.2.
constexpr double kDistanceRoundings = 16.0;
constexpr double kSumRoundings = 4.0;

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

// Every plane of the fit passes through the centroid, so a turned normal moves a row by its
// distance from there at most. All sizes that are rounded add to it, the guard of d included.
double distance_doubt(const StreamedDirection& direction, double offset) {
  const double sizes = offset + direction.reach + kGuard;
  return direction.doubt * direction.reach + kDistanceRoundings * kUnit * sizes;
}

// About the centroid the distances cancel whatever the normal is: rounding is all that is left.
double sum_doubt(Index rows, const StreamedDirection& direction, double offset) {
  const auto n = static_cast<double>(rows);
  const double mean_size = offset + direction.reach / std::sqrt(n) + kGuard;
  return kSumRoundings * kUnit * n * mean_size;
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

PlaneAbcd decomposed_plane(PointRows rows, const PointSums& sums) {
  return least_squares_plane(rows, centroid_of(sums, rows.count));
}

bool streamed_plane(PointRows rows, const PointSums& sums, StreamedPlane& plane) {
  if (rows.count < kFewestStreamedRows) return false;
  const Centroid m = centroid_of(sums, rows.count);
  const StreamedDirection direction = streamed_thin_direction(rows, m);
  if (!direction.reliable) return false;
  const double offset = std::abs(m.x) + std::abs(m.y) + std::abs(m.z);
  const double height_doubt = direction.doubt * (offset + direction.reach);
  const Side side = certain_side(rows, direction.normal, height_doubt);
  if (side == Side::kUndecided) return false;
  PlaneAbcd abcd = plane_through(m, direction.normal);
  // Hosts see whether a and d vanish: one by a failed run, the other by the sign of distances.
  if (!(std::abs(abcd[0]) > direction.doubt)) return false;
  if (!(std::abs(abcd[3] + kGuard) > height_doubt)) return false;
  if (side == Side::kInward) abcd *= -1.0;
  plane = {abcd, distance_doubt(direction, offset), sum_doubt(rows.count, direction, offset)};
  return true;
}

PlaneAbcd passing_plane(PointRows rows, const PointSums& sums) {
  StreamedPlane streamed;
  return streamed_plane(rows, sums, streamed) ? streamed.abcd : decomposed_plane(rows, sums);
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
