// The estimator of both calibrations: a robust plane through a cloud.
#pragma once

#include <cstdint>

#include "fit/coefficients/line_consensus.h"
#include "fit/points.h"

namespace kestrane {

// The roads of a robust fit. Every value but kSinglePass takes the banded one.
enum class FitMode : std::int32_t { kBanded = 0, kSinglePass = 2 };

// A thin shell over fit_in_band and fit_line.
class LaserGeometryFitter {
 public:
  // The settings of the line fit's consensus search; a plane fit reads none of them.
  void set_params(bool use_consensus, std::int32_t consensus_iterations, double consensus_threshold,
                  double consensus_min_ratio);

  // A plane through `points` after rejection of outliers.
  //
  // points    N x 3, read
  // plane     a, b, c, d with a unit normal
  // stats     of the distances of the points of the last fit
  // inliers   the rows that the last rejection kept, in input order
  // band      depths that take part; ignored when fit_mode is 2
  // fit_mode  a FitMode; kSinglePass: one fit to all points, inliers within 2 sigma of it; any
  // other
  //           value: rows inside the band; fit; drop rows beyond 2.5; fit; drop rows beyond 2
  //           sigma; fit
  //
  // False with fewer than 3 rows, in the input, in the band or after a rejection. `inliers` is
  // untouched then; `plane` and `stats` hold what the last successful fit of this call wrote.
  // Nothing is thrown but the standard allocation exception.
  bool fit_plane_robust(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats& stats,
                        PointMatrix3& inliers, DepthBand band, std::int32_t fit_mode) const;

  // A line through `points`; with `use_consensus` through the inliers of a consensus search.
  //
  // points         N x 2, read
  // line           a, b, c with (a, b) of unit length; its sign is not normalised
  // mean_distance  of the fitted points to the line
  //
  // False with fewer than 2 rows or when the search fails: nothing is written then.
  bool fit_line(const PointMatrix2& points, LineAbc& line, double& mean_distance) const;

 private:
  bool use_consensus_ = false;
  std::int32_t consensus_iterations_ = 0;
  double consensus_threshold_ = 0.0;
  double consensus_min_ratio_ = 0.0;
};

}  // namespace kestrane
