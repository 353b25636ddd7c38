// Clouds with known faults for the tests of kestrane::quality.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "kestrane/quality/screening.h"

namespace quality_tests {

using kestrane::quality::PointList;

// Places that fill the fan evenly: `columns` directions, `rows` depths from z_low to z_high.
template <class Height>
PointList fan_grid(int columns, int rows, double z_low, double z_high, Height x_at) {
  PointList points;
  for (int j = 0; j < rows; ++j) {
    const double z = z_low + (z_high - z_low) * j / (rows - 1);
    for (int i = 0; i < columns; ++i) {
      const double y = z * 0.57 * (2.0 * i / (columns - 1) - 1.0);
      points.push_back({x_at(y, z), y, z, j});
    }
  }
  return points;
}

// A sheet of second degree that is easy to follow by hand.
inline double bowed_x(double y, double z) {
  return 120.0 + 0.01 * y - 0.25 * z + 0.4 * (y / 300.0) * (y / 300.0) -
         0.3 * (z - 550.0) / 450.0 * (z - 550.0) / 450.0 + 1e-6 * y * z;
}

inline double flat_x(double y, double z) { return 120.0 + 0.01 * y - 0.25 * z; }

}  // namespace quality_tests
