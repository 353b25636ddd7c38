// Clouds of plane sheets, as a host hands them to a factory calibration.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "kestrane/records.h"
#include "simulation/random.h"

namespace sheet_clouds {

using Cloud = std::vector<_KESTRANE_ID_POINT3D>;
using simulation::Random;

inline double slope(double degrees) { return std::tan(degrees * 3.14159265358979323846 / 180.0); }

// Points of the plane x = offset + 0.05 y - 0.1 z over an angle of the fan and a range of depths.
inline Cloud sheet(double offset, int count, std::uint64_t seed, double from = -30.0,
                   double to = 30.0, double near = 160.0, double far = 990.0) {
  Random random(seed);
  Cloud cloud;
  for (int i = 0; i < count; ++i) {
    const double z = random.uniform(near, far);
    const double y = slope(random.uniform(from, to)) * z;
    cloud.push_back({offset + 0.05 * y - 0.1 * z, y, z, i % 10});
  }
  return cloud;
}

inline Cloud noisy_sheet(double offset, int count, std::uint64_t seed) {
  Cloud cloud = sheet(offset, count, seed);
  Random random(seed + 1000);
  for (auto& point : cloud) point.x += 0.05 * random.gaussian();
  return cloud;
}

// A sheet x = 0: its d is exactly zero, since its centroid has no x and its normal nothing else.
inline Cloud sheet_through_origin() {
  Cloud cloud;
  for (int i = -20; i <= 20; ++i) {
    for (int k = 0; k < 100; ++k) {
      const double z = 300.0 + k;
      cloud.push_back({0.0, 5.0 * i, z, 0});
    }
  }
  return cloud;
}

inline _KESTRANE_ID_POINT3DS view(Cloud& cloud) {
  return {cloud.data(), static_cast<std::int32_t>(cloud.size())};
}

}  // namespace sheet_clouds
