// A cost functor that refuses a non-finite result by itself.
//
// The solver treats a residual or derivative that is not finite as a failed evaluation, and says so
// on standard error. A false from the functor has the same effect without the line, and nothing of
// this library may write there. Wraps the functor rather than its cost function, since a problem
// here has a hundred thousand of them.
#pragma once

#include <cmath>
#include <utility>

#include "ceres/jet.h"

namespace kestrane {

// A functor of one residual over two parameter blocks.
template <class Functor>
class QuietFunctor {
 public:
  template <class... Arguments>
  explicit QuietFunctor(Arguments&&... arguments)
      : functor_(std::forward<Arguments>(arguments)...) {}

  template <class T>
  bool operator()(const T* first, const T* second, T* residual) const {
    return functor_(first, second, residual) && is_finite(*residual);
  }

 private:
  static bool is_finite(double value) { return std::isfinite(value); }

  template <int N>
  static bool is_finite(const ceres::Jet<double, N>& value) {
    if (!std::isfinite(value.a)) return false;
    for (int i = 0; i < N; ++i) {
      if (!std::isfinite(value.v[i])) return false;
    }
    return true;
  }

  Functor functor_;
};

}  // namespace kestrane
