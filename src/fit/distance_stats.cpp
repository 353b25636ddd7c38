#include "fit/distance_stats.h"

#include <cmath>

namespace kestrane {
namespace {

using Eigen::Index;

class UnsignedDistance {
 public:
  UnsignedDistance(const Centroid& m, const PlaneAbcd& plane) : m_(m), n_(plane.head<3>()) {
    if (n_.squaredNorm() > 0.0) n_ /= n_.norm();
  }

  double operator()(const double* point) const {
    return std::abs((point[0] - m_.x) * n_[0] + (point[1] - m_.y) * n_[1] +
                    (point[2] - m_.z) * n_[2]);
  }

 private:
  Centroid m_;
  Eigen::Vector3d n_;
};

}  // namespace

PlaneFitStats distance_stats(PointRows rows, const Centroid& centroid, const PlaneAbcd& plane) {
  const UnsignedDistance distance(centroid, plane);
  const auto n = static_cast<double>(rows.count);
  double largest = 0.0;
  double sum = 0.0;
  for (Index i = 0; i < rows.count; ++i) {  // order fixed
    const double r = distance(rows.xyz + 3 * i);
    if (!(r <= largest)) largest = r;  // a NaN is taken over
    sum += r;
  }
  const double mean = sum / n;
  double squares = 0.0;
  for (Index i = 0; i < rows.count; ++i) {  // order fixed
    const double off = distance(rows.xyz + 3 * i) - mean;
    squares += off * off;
  }
  return {largest, mean, std::sqrt(squares / n)};
}

}  // namespace kestrane
