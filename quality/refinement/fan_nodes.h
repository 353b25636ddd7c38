// The nodes of a refined surface: where the nominal rays meet the depths of the grid.
//
// A place in the fan is (u, z) with u = y / z: in these coordinates a plane 1, y = u z, z is
// bilinear, and the nodes stand on a rectangular grid. u_i = tan(4 i - 30 degrees), i = 0 .. 15;
// z_j = 150 + 27 j, j = 0 .. 50. Node (i, j) is number 16 j + i.
#pragma once

#include <array>
#include <cstddef>

#include "records/shapes.h"

namespace kestrane::quality::refinement {

inline constexpr int kAcross = 16;                    // nodes at one depth
inline constexpr int kAlong = 51;                     // nodes on one ray
inline constexpr int kNodes = kAcross * kAlong;       // of the whole fan
inline constexpr double kMostU = 0.5773502691896257;  // tan 30 degrees, at the fan's edge

struct FanNodes {
  std::array<double, kAcross> u;
  std::array<double, kAlong> z;
};

// Computed once per call: nothing of the library runs at load time.
FanNodes fan_nodes();

inline std::size_t node_index(int i, int j) { return static_cast<std::size_t>(kAcross * j + i); }

// The interval of u's, 0 .. 14, that holds u; the first or last one for a u outside.
int interval_across(const FanNodes& nodes, double u);

// The interval of depths, 0 .. 49, that holds z; the first or last one for a z outside.
int interval_along(double z);

}  // namespace kestrane::quality::refinement
