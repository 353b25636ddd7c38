#include "quality/field/motion_figures.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

#include "quality/field/direction_words.h"

namespace kestrane::quality {
namespace {

constexpr std::int32_t kFewestClusters = 8;
constexpr std::int32_t kUnknowns = 6;
constexpr double kLargestSigma = 1.0;        // in the unit of the points
constexpr double kOneDegree = 0.0174532925;  // radians
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();

// Sums over the used points, for sheets turned by R.
struct Sums {
  Matrix6 normal_matrix = Matrix6::Zero();
  std::vector<Vector6> by_frame;  // of row times residual, one entry per cluster
  std::vector<Vector6> by_plane;
  double squares = 0.0;  // of the residuals
};

// Signed distance of a point from its sheet after the job's motion.
double residual_of(const UsedPoint& used, const RigidMotion& motion) {
  return (motion.R * used.sheet.normal).dot(used.point - motion.t) + used.sheet.d;
}

Sums sum_up(const UsedPoints& used, const RigidMotion& motion, const Eigen::Matrix3d& turned,
            const MotionFrame& frame) {
  Sums sums;
  sums.by_frame.assign(static_cast<std::size_t>(used.frames), Vector6::Zero());
  sums.by_plane.assign(static_cast<std::size_t>(used.planes), Vector6::Zero());
  for (const UsedPoint& point : used.points) {
    const Vector6 row = motion_row(frame, point.point, turned * point.sheet.normal);
    const double residual = residual_of(point, motion);
    sums.normal_matrix += row * row.transpose();
    sums.by_frame[static_cast<std::size_t>(point.frame)] += row * residual;
    sums.by_plane[static_cast<std::size_t>(point.plane)] += row * residual;
    sums.squares += residual * residual;
  }
  return sums;
}

Matrix6 cluster_covariance(const Matrix6& inverse, const std::vector<Vector6>& clusters) {
  Matrix6 scatter = Matrix6::Zero();
  for (const Vector6& cluster : clusters) scatter += cluster * cluster.transpose();
  const auto count = static_cast<double>(std::ssize(clusters));
  return inverse * scatter * inverse * (count / (count - kUnknowns));
}

MotionCovariance covariance_of(const MotionSpectrum& spectrum, const Sums& sums) {
  const Matrix6 inverse = spectrum.inverse();
  MotionCovariance covariance;
  covariance.by_frame_known = sums.by_frame.size() >= kFewestClusters;
  covariance.by_plane_known = sums.by_plane.size() >= kFewestClusters;
  if (covariance.by_frame_known) covariance.by_frame = cluster_covariance(inverse, sums.by_frame);
  if (covariance.by_plane_known) covariance.by_plane = cluster_covariance(inverse, sums.by_plane);
  return covariance;
}

double along(const Vector6& direction, const Matrix6& covariance) {
  return std::sqrt(std::max(0.0, direction.dot(covariance * direction)));
}

// noise  root mean square residual
double sigma_along(const Vector6& direction, double eigenvalue, double noise,
                   const MotionCovariance& covariance) {
  if (!covariance.by_frame_known) return kNotANumber;
  const double of_points = noise / std::sqrt(eigenvalue);
  return std::max(
      {along(direction, covariance.by_frame), along(direction, covariance.by_plane), of_points});
}

std::vector<DirectionFigures> directions_of(const MotionSpectrum& spectrum,
                                            const MotionCovariance& covariance, double noise) {
  const double largest = spectrum.values[5];
  Matrix6 vectors = spectrum.vectors;
  if (spectrum.free > 0) {
    vectors.leftCols(spectrum.free) = along_axes(vectors.leftCols(spectrum.free));
  }
  std::vector<DirectionFigures> directions;
  for (int i = 0; i < kUnknowns; ++i) {
    const bool moves = i >= spectrum.free;
    const Vector6 vector = vectors.col(i);
    const double sigma =
        moves ? sigma_along(vector, spectrum.values[i], noise, covariance) : kInfinity;
    const double strength = largest > 0.0 ? std::max(0.0, spectrum.values[i]) / largest : 0.0;
    directions.push_back({vector, strength, sigma, sigma <= kLargestSigma});
  }
  return directions;
}

Vector6 fixed_part(const Vector6& lengths, const std::vector<DirectionFigures>& directions) {
  Vector6 part = Vector6::Zero();
  for (const DirectionFigures& direction : directions) {
    if (direction.fixed) part += direction.vector * direction.vector.dot(lengths);
  }
  return part;
}

// turned  the rotation that carries the sheets' normals
MotionFigures figures_at(const UsedPoints& used, const RigidMotion& motion,
                         const Eigen::Matrix3d& turned, const MotionFrame& frame) {
  const Sums sums = sum_up(used, motion, turned, frame);
  const MotionSpectrum spectrum = motion_spectrum(sums.normal_matrix);
  MotionFigures figures;
  figures.frame = frame;
  figures.observed = spectrum.projector();
  figures.covariance = covariance_of(spectrum, sums);
  figures.residual = std::sqrt(sums.squares / static_cast<double>(std::ssize(used.points)));
  figures.directions = directions_of(spectrum, figures.covariance, figures.residual);
  figures.smallest = motion_of(fixed_part(lengths_of(motion, frame), figures.directions), frame);
  return figures;
}

}  // namespace

MotionFigures motion_figures(const UsedPoints& used, const RigidMotion& motion) {
  std::vector<Eigen::Vector3d> places;
  places.reserve(used.points.size());
  for (const UsedPoint& point : used.points) places.push_back(point.point);
  const MotionFrame frame = motion_frame(places);
  MotionFigures figures = figures_at(used, motion, motion.R, frame);
  if (!(rotation_vector(motion.R).norm() > kOneDegree)) return figures;
  return figures_at(used, motion, figures.smallest.R, frame);
}

}  // namespace kestrane::quality
