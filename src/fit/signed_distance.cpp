#include "fit/signed_distance.h"

#include <cmath>

#include "records/guard.h"
#include "records/shapes.h"

namespace kestrane {

SignedDistance::SignedDistance(const PlaneAbcd& plane) {
  const double s = plane[3] + kGuard;
  p_ = plane[0] / s;
  q_ = plane[1] / s;
  t_ = plane[2] / s;
  if (0.0 > p_) {  // a NaN is left alone
    p_ = -p_;
    q_ = -q_;
    t_ = -t_;
    k_ = -1.0;
  }
  w_ = 1.0 / std::sqrt(t_ * t_ + (p_ * p_ + q_ * q_));  // order fixed
}

}  // namespace kestrane
