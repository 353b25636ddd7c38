// The signed distance of one point to a plane.
#pragma once

#include "fit/points.h"

namespace kestrane {

// The plane is rescaled to constant term 1, or -1 where that makes its first component
// non-negative; so the sign depends on d and a, not only on the side.
class SignedDistance {
 public:
  explicit SignedDistance(const PlaneAbcd& plane);

  double operator()(const double* point) const {  // order fixed
    return (t_ * point[2] + (p_ * point[0] + q_ * point[1]) + k_) * w_;
  }

 private:
  double p_;
  double q_;
  double t_;
  double k_ = 1.0;
  double w_;
};

}  // namespace kestrane
