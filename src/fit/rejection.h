// The two rules by which a plane fit rejects outliers.
//
// in    a cloud and the signed distances of its points to a plane
// out   the rows that a rule keeps, in input order
#pragma once

#include <cmath>
#include <vector>

#include "fit/points.h"

namespace kestrane {

// No job of the library walks the two filters: a fit thins its own rows by the rules below.

// Keeps the rows whose distance is not beyond `limit` in size; a NaN distance keeps its row.
// `kept` may be `points` itself. Without rows or distances `kept` stays as it is.
void filter_by_distance(const PointMatrix3& points, const std::vector<double>& distances,
                        double limit, PointMatrix3& kept);

// Keeps the rows whose distance lies within k sigma of the sum (not the mean) of all distances,
// bounds included; a NaN distance keeps its row. `kept` may be `points` itself. Without distances
// `kept` ends up empty.
void filter_by_sigma(const PointMatrix3& points, const std::vector<double>& distances, double k,
                     PointMatrix3& kept);

// The rules themselves, for one distance, and where a robust fit draws them.

inline constexpr Eigen::Index kFewestRows = 3;  // fewer span no plane
inline constexpr double kFirstRejection = 2.5;  // in the unit of the points
inline constexpr double kSigmaRejection = 2.0;  // in sigmas

struct DistanceLimit {
  double limit;

  bool keeps(double distance) const { return !(std::abs(distance) > limit); }
};

struct SigmaBand {
  double low;
  double high;

  bool keeps(double distance) const { return !(low > distance || distance > high); }
};

// sum      of all distances: the centre of the band, deliberately not their mean
// squares  sum of (distance - sum)^2
inline SigmaBand sigma_band(double sum, double squares, Eigen::Index count, double k) {
  const double sigma = std::sqrt(squares / static_cast<double>(count));
  return {sum - sigma * k, sigma * k + sum};
}

}  // namespace kestrane
