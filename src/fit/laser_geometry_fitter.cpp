#include "fit/laser_geometry_fitter.h"

#include <utility>

#include "fit/rejection.h"
#include "fit/streamed_fit.h"
#include "fit/working_rows.h"

namespace kestrane {
namespace {

// Plane and statistics stay those of all points, and no number of survivors is too small. No job of
// the library walks this road: the four corners of a cell, which lose no row on it, are fitted by
// fit_plane_svd alone.
RobustFit fit_once(const PointMatrix3& points) {
  RobustFit result;
  if (points.rows() < kFewestRows) return result;
  WorkingRows working(points);
  result.fit = fit_rows(working.rows(), working.sums());
  result.decompositions = 1;
  working.reject_beyond_sigmas(result.fit->plane, kSigmaRejection, 0);
  result.inliers = working.release();
  result.complete = true;
  return result;
}

}  // namespace

void LaserGeometryFitter::set_params(bool use_consensus, std::int32_t consensus_iterations,
                                     double consensus_threshold, double consensus_min_ratio) {
  use_consensus_ = use_consensus;
  consensus_iterations_ = consensus_iterations;
  consensus_threshold_ = consensus_threshold;
  consensus_min_ratio_ = consensus_min_ratio;
}

bool LaserGeometryFitter::fit_plane_robust(const PointMatrix3& points, PlaneAbcd& plane,
                                           PlaneFitStats& stats, PointMatrix3& inliers,
                                           DepthBand band, std::int32_t fit_mode) const {
  const bool once = fit_mode == static_cast<std::int32_t>(FitMode::kSinglePass);
  RobustFit result = once ? fit_once(points) : fit_in_band(points, band, Wanted::kAll);
  if (result.fit) {
    plane = result.fit->plane;
    stats = result.fit->stats;
  }
  if (result.complete) inliers = std::move(result.inliers);
  return result.complete;
}

bool LaserGeometryFitter::fit_line(const PointMatrix2& points, LineAbc& line,
                                   double& mean_distance) const {
  const ConsensusSettings consensus{consensus_iterations_, consensus_threshold_,
                                    consensus_min_ratio_};
  return fit_line_to(points, use_consensus_ ? &consensus : nullptr, line, mean_distance);
}

}  // namespace kestrane
