#include "fit/laser_geometry_fitter.h"

#include "fit/plane_fit.h"

namespace kestrane {
namespace {

constexpr double kFirstRejection = 2.5;  // in the unit of the points
constexpr double kSigmaRejection = 2.0;  // in sigmas
constexpr std::int32_t kSinglePass = 2;  // the fit_mode without depth band and refits

PointMatrix3 rows_in_band(const PointMatrix3& points, DepthBand band) {
  std::vector<Eigen::Index> rows;
  for (Eigen::Index i = 0; i < points.rows(); ++i) {
    const double z = points(i, 2);
    if (static_cast<double>(band.lowest) > z || z > static_cast<double>(band.highest)) continue;
    rows.push_back(i);
  }
  PointMatrix3 inside(rows.size(), 3);
  for (std::size_t i = 0; i < rows.size(); ++i)
    inside.row(static_cast<Eigen::Index>(i)) = points.row(rows[i]);
  return inside;
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
  if (points.rows() < 3) return false;
  std::vector<double> distances;
  PointMatrix3 working = fit_mode == kSinglePass ? points : rows_in_band(points, band);
  if (working.rows() < 3 || !fit_plane_svd(working, plane, stats)) return false;
  if (fit_mode != kSinglePass) {
    plane_signed_distances(working, plane, distances);
    filter_by_distance(working, distances, kFirstRejection, working);
    if (!fit_plane_svd(working, plane, stats)) return false;
  }
  plane_signed_distances(working, plane, distances);
  filter_by_sigma(working, distances, kSigmaRejection, working);
  if (fit_mode != kSinglePass && !fit_plane_svd(working, plane, stats)) return false;
  inliers = std::move(working);
  return true;
}

bool LaserGeometryFitter::fit_line(const PointMatrix2& points, LineAbc& line,
                                   double& mean_distance) const {
  const ConsensusSettings consensus{consensus_iterations_, consensus_threshold_,
                                    consensus_min_ratio_};
  return fit_line_to(points, use_consensus_ ? &consensus : nullptr, line, mean_distance);
}

}  // namespace kestrane
