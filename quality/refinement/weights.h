// Interpolation weights of one place, as plain numbers that the kernel can take.
#pragma once

namespace kestrane::quality::refinement {

// Weights of nodes first .. first + 3 of one direction.
struct Weights {
  int first;
  double w[4];
};

// The weights of a place's 4 x 4 nodes: products of one of each.
struct Stencil {
  Weights across;
  Weights along;
};

}  // namespace kestrane::quality::refinement
