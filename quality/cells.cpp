#include "quality/cells.h"

#include "records/guard.h"

namespace kestrane::quality {

bool has_plane(const _LASER_TRIPLE& abc) {
  const double a = abc.v[0], b = abc.v[1], c = abc.v[2];
  if (!std::isfinite(a) || !std::isfinite(b) || !std::isfinite(c) || a == 0.0) return false;
  return !(std::abs(a) < kGuard && std::abs(b) < kGuard && std::abs(c) < kGuard);
}

}  // namespace kestrane::quality
