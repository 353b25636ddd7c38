#include "quality/refinement/fan_nodes.h"

#include <algorithm>
#include <cmath>

namespace kestrane::quality::refinement {

FanNodes fan_nodes() {
  constexpr double kStep = 2.0 * kHalfFan / (kAcross - 1);  // 4 degrees
  FanNodes nodes;
  for (int i = 0; i < kAcross; ++i)
    nodes.u[static_cast<std::size_t>(i)] = std::tan(i * kStep - kHalfFan);
  for (int j = 0; j < kAlong; ++j)
    nodes.z[static_cast<std::size_t>(j)] = kDepthFirst + kDepthStep * j;
  return nodes;
}

int interval_across(const FanNodes& nodes, double u) {
  const auto above = std::upper_bound(nodes.u.begin(), nodes.u.end(), u);
  return std::clamp(static_cast<int>(above - nodes.u.begin()) - 1, 0, kAcross - 2);
}

int interval_along(double z) {
  const double quotient = std::clamp((z - kDepthFirst) / kDepthStep, 0.0, kAlong - 2.0);
  return static_cast<int>(quotient);
}

}  // namespace kestrane::quality::refinement
