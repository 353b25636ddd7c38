#include "fit/plane_fit.h"

#include <Eigen/SVD>
#include <cmath>
#include <limits>

#include "records/shapes.h"

namespace kestrane {
namespace {

struct Centroid {
  double x;
  double y;
  double z;
};

Centroid centroid_of(const PointMatrix3& points) {
  Centroid sum{0.0, 0.0, 0.0};
  for (Eigen::Index i = 0; i < points.rows(); ++i) {  // order fixed
    sum.x += points(i, 0);
    sum.y += points(i, 1);
    sum.z += points(i, 2);
  }
  const double n = static_cast<double>(points.rows());
  return {sum.x / n, sum.y / n, sum.z / n};
}

}  // namespace

bool fit_plane_svd(const PointMatrix3& points, PlaneAbcd& plane, PlaneFitStats& stats) {
  const Eigen::Index n = points.rows();
  if (n < 3) return false;
  const Centroid m = centroid_of(points);
  Eigen::MatrixXd centred(n, 3);
  for (Eigen::Index i = 0; i < n; ++i) {
    centred(i, 0) = points(i, 0) - m.x;
    centred(i, 1) = points(i, 1) - m.y;
    centred(i, 2) = points(i, 2) - m.z;
  }
  double a = std::numeric_limits<double>::quiet_NaN(), b = a, c = a;
  if (centred.allFinite()) {
    const Eigen::JacobiSVD<Eigen::MatrixXd> svd(centred, Eigen::ComputeThinU | Eigen::ComputeThinV);
    a = svd.matrixV()(0, 2);
    b = svd.matrixV()(1, 2);
    c = svd.matrixV()(2, 2);
  }
  double d = -(a * m.x + b * m.y + c * m.z);
  Eigen::Index positive = 0;
  for (Eigen::Index i = 0; i < n; ++i) {
    if (a * points(i, 0) + b * points(i, 1) + c * points(i, 2) > 0.0) ++positive;
  }
  if (positive < n - positive) {
    a *= -1.0;
    b *= -1.0;
    c *= -1.0;
    d *= -1.0;
  }
  plane << a, b, c, d;

  Eigen::Vector3d normal(a, b, c);
  if (normal.squaredNorm() > 0.0) normal /= normal.norm();
  std::vector<double> r(static_cast<std::size_t>(n));
  double sum = 0.0;
  double largest = 0.0;
  for (Eigen::Index i = 0; i < n; ++i) {
    const double ri =
        std::abs((points(i, 0) - m.x) * normal.x() + (points(i, 1) - m.y) * normal.y() +
                 (points(i, 2) - m.z) * normal.z());
    if (!(ri <= largest)) largest = ri;
    sum += ri;
    r[static_cast<std::size_t>(i)] = ri;
  }
  const double mean = sum / static_cast<double>(n);
  double squares = 0.0;
  for (const double ri : r) squares += (ri - mean) * (ri - mean);
  stats = {largest, mean, std::sqrt(squares / static_cast<double>(n))};
  return true;
}

void plane_signed_distances(const PointMatrix3& points, const PlaneAbcd& plane,
                            std::vector<double>& distances) {
  const double s = plane[3] + kGuard;
  double p = plane[0] / s;
  double q = plane[1] / s;
  double t = plane[2] / s;
  double k = 1.0;
  if (0.0 > p) {
    p = -p;
    q = -q;
    t = -t;
    k = -1.0;
  }
  const double w = 1.0 / std::sqrt(t * t + (p * p + q * q));
  distances.resize(static_cast<std::size_t>(points.rows()));
  for (Eigen::Index i = 0; i < points.rows(); ++i) {  // order fixed
    distances[static_cast<std::size_t>(i)] =
        (t * points(i, 2) + (p * points(i, 0) + q * points(i, 1)) + k) * w;
  }
}

void filter_by_distance(const PointMatrix3& points, const std::vector<double>& distances,
                        double limit, PointMatrix3& kept) {
  if (points.rows() == 0 || distances.empty()) return;
  std::vector<Eigen::Index> rows;
  for (std::size_t i = 0; i < distances.size(); ++i) {
    if (!(std::abs(distances[i]) > limit)) rows.push_back(static_cast<Eigen::Index>(i));
  }
  PointMatrix3 survivors(rows.size(), 3);
  for (std::size_t i = 0; i < rows.size(); ++i)
    survivors.row(static_cast<Eigen::Index>(i)) = points.row(rows[i]);
  kept = std::move(survivors);
}

void filter_by_sigma(const PointMatrix3& points, const std::vector<double>& distances, double k,
                     PointMatrix3& kept) {
  double sum = 0.0;
  for (const double d : distances) sum += d;
  double v = 0.0;
  for (const double d : distances) v += (d - sum) * (d - sum);
  const double sigma = std::sqrt(v / static_cast<double>(distances.size()));
  const double low = sum - sigma * k;
  const double high = sigma * k + sum;
  std::vector<Eigen::Index> rows;
  for (std::size_t i = 0; i < distances.size(); ++i) {
    if (!(low > distances[i] || distances[i] > high)) rows.push_back(static_cast<Eigen::Index>(i));
  }
  PointMatrix3 survivors(rows.size(), 3);
  for (std::size_t i = 0; i < rows.size(); ++i)
    survivors.row(static_cast<Eigen::Index>(i)) = points.row(rows[i]);
  kept = std::move(survivors);
}

}  // namespace kestrane
