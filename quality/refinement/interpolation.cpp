#include "quality/refinement/interpolation.h"

#include <algorithm>

namespace kestrane::quality::refinement {
namespace {

// Adds `times` the slope at node k, as weights of the values at the nodes from `first` on.
//
// The slope is (h_k d_(k-1) + h_(k-1) d_k) / (h_(k-1) + h_k) with d the slopes of the intervals and
// h their widths; at an end, where one neighbour is missing, that of the parabola through the last
// three nodes.
void add_slope(const double* x, int count, int k, double times, int first, double* w) {
  const int middle = std::clamp(k, 1, count - 2);
  const double below = x[middle] - x[middle - 1];
  const double above = x[middle + 1] - x[middle];
  // Derivative at x[k] of the three Lagrange polynomials of the nodes middle - 1 .. middle + 1.
  const double from_low = x[k] - x[middle - 1];
  const double from_middle = x[k] - x[middle];
  const double from_high = x[k] - x[middle + 1];
  w[middle - 1 - first] += times * (from_middle + from_high) / (below * (below + above));
  w[middle - first] -= times * (from_low + from_high) / (below * above);
  w[middle + 1 - first] += times * (from_low + from_middle) / (above * (below + above));
}

// Straight on from end node k, `beyond` away from it.
void straight_on(const double* x, int count, int k, double beyond, Weights& weights) {
  weights.w[k - weights.first] = 1.0;
  add_slope(x, count, k, beyond, weights.first, weights.w);
}

Weights weights_at(const double* x, int count, int interval, double at) {
  Weights weights{std::clamp(interval - 1, 0, count - 4), {}};
  if (at < x[0] || at > x[count - 1]) {
    const int end = at < x[0] ? 0 : count - 1;
    straight_on(x, count, end, at - x[end], weights);
    return weights;
  }
  const double h = x[interval + 1] - x[interval];
  const double t = (at - x[interval]) / h;
  const double rest = 1.0 - t;
  double* w = weights.w;
  w[interval - weights.first] = (1.0 + 2.0 * t) * rest * rest;
  w[interval + 1 - weights.first] = t * t * (3.0 - 2.0 * t);
  add_slope(x, count, interval, h * t * rest * rest, weights.first, w);
  add_slope(x, count, interval + 1, -h * t * t * rest, weights.first, w);
  return weights;
}

}  // namespace

Weights weights_across(const FanNodes& nodes, double u) {
  return weights_at(nodes.u.data(), kAcross, interval_across(nodes, u), u);
}

Weights weights_along(const FanNodes& nodes, double z) {
  return weights_at(nodes.z.data(), kAlong, interval_along(z), z);
}

}  // namespace kestrane::quality::refinement
