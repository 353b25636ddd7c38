// The arithmetic of one block's plane.
//
// in    (a, b, c) of a x + b y + c z + 1 = 0
// out   whether it is a plane, its x at a place, the signed distance of a point
#pragma once

#include <cmath>

#include "kestrane/records.h"
#include "records/shapes.h"

namespace kestrane::quality {

// Whether a cell has a plane that gives an x: not empty as the jobs see it, a not 0, all finite.
bool has_plane(const _LASER_TRIPLE& abc);

// x of the plane at (y, z).
inline double plane_x(const _LASER_TRIPLE& abc, double y, double z) {
  return -((abc.v[1] * y + abc.v[2] * z + 1.0) / abc.v[0]);
}

// Signed distance of (x, y, z), + at larger x: sign(a) (a x + b y + c z + 1) / |(a, b, c)|.
inline double signed_distance(const _LASER_TRIPLE& abc, double x, double y, double z) {
  const double a = abc.v[0], b = abc.v[1], c = abc.v[2];
  const double length = std::sqrt(a * a + b * b + c * c);
  return std::copysign(1.0, a) * (a * x + b * y + c * z + 1.0) / length;
}

}  // namespace kestrane::quality
