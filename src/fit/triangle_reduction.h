// A cloud of any length, reduced to the 3 x 3 triangle that shares its right singular vectors.
//
// in    the rows of a cloud and its centroid
// out   R of A = QR, A being the centred cloud; Q is never formed
#pragma once

#include "fit/points.h"

namespace kestrane {

// Upper triangle, row by row. The signs of the diagonal carry no meaning.
struct Triangle {
  double r00 = 0.0;
  double r01 = 0.0;
  double r02 = 0.0;
  double r11 = 0.0;
  double r12 = 0.0;
  double r22 = 0.0;
};

// Householder reflections, block by block, the blocks' triangles joined pair by pair, so that the
// rounding error grows with the logarithm of the length. No heap. A coordinate that is not finite,
// or whose square overflows, leaves an entry that is not finite.
Triangle reduce_centred(PointRows rows, const Centroid& centroid);

}  // namespace kestrane
