// The robust plane fit, step by step and without any care for speed: growing lists, copies, and the
// decomposition of the whole cloud with both factors. A literal form for tests and benchmarks that
// shares nothing with the library but the types of clouds and planes.
#pragma once

#include <Eigen/SVD>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "fit/points.h"

namespace literal {

using kestrane::DepthBand;
using kestrane::PlaneAbcd;
using kestrane::PlaneFitStats;
using kestrane::PointMatrix3;

inline PointMatrix3 cloud_of(const std::vector<std::array<double, 3>>& list) {
  PointMatrix3 cloud(list.size(), 3);
  for (std::size_t i = 0; i < list.size(); ++i) {
    for (int k = 0; k < 3; ++k) {
      cloud(static_cast<Eigen::Index>(i), k) = list[i][static_cast<std::size_t>(k)];
    }
  }
  return cloud;
}

inline std::array<double, 3> triple(const PointMatrix3& points, Eigen::Index i) {
  return {points(i, 0), points(i, 1), points(i, 2)};
}

// The normal before orientation. Eigen leaves V unwritten for a matrix that is not finite; the
// library settles on NaN there.
inline Eigen::Vector3d third_right_vector(const Eigen::MatrixXd& a) {
  if (!a.allFinite()) return Eigen::Vector3d::Constant(std::numeric_limits<double>::quiet_NaN());
  const Eigen::JacobiSVD<Eigen::MatrixXd> svd(a, Eigen::ComputeThinU | Eigen::ComputeThinV);
  return svd.matrixV().col(2);
}

inline PlaneFitStats statistics(const Eigen::MatrixXd& centred, double a, double b, double c) {
  Eigen::Vector3d normal(a, b, c);
  if (normal.squaredNorm() > 0.0) normal /= normal.norm();
  std::vector<double> r;
  for (Eigen::Index i = 0; i < centred.rows(); ++i) {
    r.push_back(std::abs(centred(i, 0) * normal[0] + centred(i, 1) * normal[1] +
                         centred(i, 2) * normal[2]));
  }
  const double n = static_cast<double>(centred.rows());
  double largest = r[0];
  double sum = 0.0;
  for (const double ri : r) {
    if (ri > largest) largest = ri;
    sum += ri;
  }
  const double mean = sum / n;
  double squares = 0.0;
  for (const double ri : r) squares += (ri - mean) * (ri - mean);
  return {largest, mean, std::sqrt(squares / n)};
}

// One or two rows, which give V no third column, are refused like none.
inline bool fit_plane_svd(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats& stats) {
  const Eigen::Index n = points.rows();
  if (n < 3) return false;
  double mx = 0.0, my = 0.0, mz = 0.0;
  for (Eigen::Index i = 0; i < n; ++i) {
    mx += points(i, 0);
    my += points(i, 1);
    mz += points(i, 2);
  }
  mx /= static_cast<double>(n);
  my /= static_cast<double>(n);
  mz /= static_cast<double>(n);
  Eigen::MatrixXd centred(n, 3);
  for (Eigen::Index i = 0; i < n; ++i) {
    centred(i, 0) = points(i, 0) - mx;
    centred(i, 1) = points(i, 1) - my;
    centred(i, 2) = points(i, 2) - mz;
  }
  const Eigen::Vector3d normal = third_right_vector(centred);
  double a = normal[0], b = normal[1], c = normal[2];
  double d = -(a * mx + b * my + c * mz);
  Eigen::Index positive = 0;
  Eigen::Index other = 0;
  for (Eigen::Index i = 0; i < n; ++i) {
    if (a * points(i, 0) + b * points(i, 1) + c * points(i, 2) > 0.0) {
      ++positive;
    } else {
      ++other;
    }
  }
  if (positive < other) {
    a *= -1.0;
    b *= -1.0;
    c *= -1.0;
    d *= -1.0;
  }
  plane = PlaneAbcd(a, b, c, d);
  stats = statistics(centred, a, b, c);
  return true;
}

inline void plane_signed_distances(const PointMatrix3& points, const PlaneAbcd& plane,
                                   std::vector<double>& distances) {
  const double s = plane[3] + 2.220446049250313e-16;
  double p = plane[0] / s, q = plane[1] / s, t = plane[2] / s;
  double k = 1.0;
  if (0.0 > p) {
    p = -p;
    q = -q;
    t = -t;
    k = -1.0;
  }
  const double w = 1.0 / std::sqrt(t * t + (p * p + q * q));
  distances.resize(static_cast<std::size_t>(points.rows()));
  for (Eigen::Index i = 0; i < points.rows(); ++i) {
    distances[static_cast<std::size_t>(i)] =
        (t * points(i, 2) + (p * points(i, 0) + q * points(i, 1)) + k) * w;
  }
}

inline void filter_by_distance(const PointMatrix3& points, const std::vector<double>& distances,
                               double limit, PointMatrix3& kept) {
  if (points.rows() == 0 || distances.empty()) return;
  std::vector<std::array<double, 3>> list;
  for (std::size_t i = 0; i < distances.size(); ++i) {
    if (std::abs(distances[i]) > limit) continue;
    list.push_back(triple(points, static_cast<Eigen::Index>(i)));
  }
  kept = cloud_of(list);
}

inline void filter_by_sigma(const PointMatrix3& points, const std::vector<double>& distances,
                            double k, PointMatrix3& kept) {
  double centre = 0.0;
  for (const double distance : distances) centre += distance;
  double v = 0.0;
  for (const double distance : distances) v += (distance - centre) * (distance - centre);
  const double sigma = std::sqrt(v / static_cast<double>(distances.size()));
  const double low = centre - sigma * k;
  const double high = sigma * k + centre;
  std::vector<std::array<double, 3>> list;
  for (std::size_t i = 0; i < distances.size(); ++i) {
    if (low > distances[i] || distances[i] > high) continue;
    list.push_back(triple(points, static_cast<Eigen::Index>(i)));
  }
  kept = cloud_of(list);
}

inline PointMatrix3 rows_in_band(const PointMatrix3& points, DepthBand band) {
  std::vector<std::array<double, 3>> list;
  for (Eigen::Index i = 0; i < points.rows(); ++i) {
    const double z = points(i, 2);
    if (static_cast<double>(band.lowest) > z || z > static_cast<double>(band.highest)) continue;
    list.push_back(triple(points, i));
  }
  return cloud_of(list);
}

inline bool fit_plane_robust(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats& stats,
                             PointMatrix3& inliers, DepthBand band, int fit_mode) {
  if (points.rows() < 3) return false;
  PointMatrix3 p = points;
  std::vector<double> distances;
  if (fit_mode == 2) {
    if (!literal::fit_plane_svd(p, plane, stats)) return false;
    literal::plane_signed_distances(p, plane, distances);
    literal::filter_by_sigma(p, distances, 2.0, p);
    inliers = p;
    return true;
  }
  const PointMatrix3 q = literal::rows_in_band(points, band);
  if (q.rows() < 3) return false;
  if (!literal::fit_plane_svd(q, plane, stats)) return false;
  p = q;
  literal::plane_signed_distances(p, plane, distances);
  literal::filter_by_distance(p, distances, 2.5, p);
  if (!literal::fit_plane_svd(p, plane, stats)) return false;
  literal::plane_signed_distances(p, plane, distances);
  literal::filter_by_sigma(p, distances, 2.0, p);
  if (!literal::fit_plane_svd(p, plane, stats)) return false;
  inliers = p;
  return true;
}

}  // namespace literal
