// Interpolation weights of one place, as plain numbers that the kernel can take.
#pragma once

#include <cstdint>

namespace kestrane::quality::refinement {

// Weights of nodes first .. first + 3 of one direction.
struct Weights {
  int first;
  double w[4];
};

// The weights of a place's 4 x 4 nodes: products of one of each. There is one per sample, so its
// numbers are packed.
struct Stencil {
  double across[4];
  double along[4];
  std::int16_t first_across;
  std::int16_t first_along;
};

inline Stencil stencil_of(const Weights& across, const Weights& along) {
  Stencil stencil{
      {}, {}, static_cast<std::int16_t>(across.first), static_cast<std::int16_t>(along.first)};
  for (int i = 0; i < 4; ++i) {
    stencil.across[i] = across.w[i];
    stencil.along[i] = along.w[i];
  }
  return stencil;
}

}  // namespace kestrane::quality::refinement
