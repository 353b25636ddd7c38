#include "kestrane/quality/working_volume.h"

#include <cmath>
#include <numbers>

namespace kestrane::quality {

bool WorkingVolume::holds(double y, double z) const {
  if (!(z >= depth_near && z <= depth_far)) return false;
  return std::abs(y) <= std::tan(half_angle_degrees * (std::numbers::pi / 180.0)) * z;
}

}  // namespace kestrane::quality
