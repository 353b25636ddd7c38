// The fixed shape of a laser plane's measuring volume, and the limits that go with it.
#pragma once

#include <cstdint>

namespace kestrane {

// Lines across the fan times cells along the depth.
struct TableShape {
  std::int32_t lines;
  std::int32_t cells;
};

inline constexpr TableShape kBlocks{15, 50};   // local planes, indicators
inline constexpr TableShape kCorners{16, 51};  // grid corners, coefficients

inline constexpr std::int32_t kMaxPlanes = 100;

inline constexpr double kDepthFirst = 150.0;  // depth of corner 0
inline constexpr double kDepthLast = 1500.0;  // depth of corner 50
inline constexpr double kDepthStep = 27.0;
inline constexpr double kHalfFan = 0.5235987755982988;  // 30 degrees

}  // namespace kestrane
