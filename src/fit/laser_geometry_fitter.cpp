#include "fit/laser_geometry_fitter.h"

#include <optional>

#include "fit/plane_fit.h"
#include "fit/working_rows.h"

namespace kestrane {
namespace {

constexpr Eigen::Index kFewestRows = 3;  // fewer span no plane
constexpr double kFirstRejection = 2.5;  // in the unit of the points
constexpr double kSigmaRejection = 2.0;  // in sigmas
constexpr std::int32_t kSinglePass = 2;  // the fit_mode without depth band and refits

// Statistics go with the decomposition of the whole cloud; who wants none gets the plane by
// streaming, to rounding the same.
void report_fit(const WorkingRows& working, PlaneAbcd& plane, PlaneFitStats* stats) {
  if (stats != nullptr) {
    fit_rows(working.rows(), working.sums(), plane, *stats);
  } else {
    plane = passing_plane(working.rows(), working.sums());
  }
}

// Plane and statistics stay those of all points, and no number of survivors is too small.
void fit_once(WorkingRows& working, PlaneAbcd& plane, PlaneFitStats* stats) {
  PlaneFitStats unwanted;
  fit_rows(working.rows(), working.sums(), plane, stats != nullptr ? *stats : unwanted);
  working.reject_beyond_sigmas(plane, kSigmaRejection, 0);
}

// Rejects by the plane of a fit of which nothing else is wanted. Streaming gives it to rounding;
// where that could decide over a row, the decomposition of the whole cloud decides.
template <class Reject>
bool reject_by_passing_plane(WorkingRows& working, Reject reject) {
  StreamedPlane streamed;
  if (streamed_plane(working.rows(), working.sums(), streamed)) {
    if (const std::optional<bool> enough = reject(streamed)) return *enough;
  }
  return reject(decomposed_plane(working.rows(), working.sums()));
}

bool reject_outliers(WorkingRows& working) {
  return reject_by_passing_plane(working,
                                 [&working](const auto& plane) {
                                   return working.reject_beyond(plane, kFirstRejection,
                                                                kFewestRows);
                                 }) &&
         reject_by_passing_plane(working, [&working](const auto& plane) {
           return working.reject_beyond_sigmas(plane, kSigmaRejection, kFewestRows);
         });
}

// Of a fit that is followed by another nothing shows but the rows that its plane rejects, unless
// the rejection fails: then the rows are still there, and the fit is reported after all.
bool fit_with_rejections(WorkingRows& working, PlaneAbcd& plane, PlaneFitStats* stats) {
  if (working.rows().count < kFewestRows) return false;
  const bool enough = reject_outliers(working);
  report_fit(working, plane, stats);
  return enough;
}

bool fit_robust(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats* stats,
                PointMatrix3& inliers, DepthBand band, std::int32_t fit_mode) {
  if (points.rows() < kFewestRows) return false;
  if (fit_mode == kSinglePass) {
    WorkingRows working(points);
    fit_once(working, plane, stats);
    inliers = working.release();
    return true;
  }
  WorkingRows working(points, band);
  if (!fit_with_rejections(working, plane, stats)) return false;
  inliers = working.release();
  return true;
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
  return fit_robust(points, plane, &stats, inliers, band, fit_mode);
}

bool LaserGeometryFitter::fit_plane_robust(const PointMatrix3& points, PlaneAbcd& plane,
                                           PointMatrix3& inliers, DepthBand band,
                                           std::int32_t fit_mode) const {
  return fit_robust(points, plane, nullptr, inliers, band, fit_mode);
}

bool LaserGeometryFitter::fit_line(const PointMatrix2& points, LineAbc& line,
                                   double& mean_distance) const {
  const ConsensusSettings consensus{consensus_iterations_, consensus_threshold_,
                                    consensus_min_ratio_};
  return fit_line_to(points, use_consensus_ ? &consensus : nullptr, line, mean_distance);
}

}  // namespace kestrane
