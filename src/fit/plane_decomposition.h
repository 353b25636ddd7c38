// The direction in which a cloud is thinnest.
//
// in    the rows of a cloud and its centroid
// out   the third right singular vector of the centred cloud, of unit length
#pragma once

#include "fit/points.h"

namespace kestrane {

// Below this length the decomposition of the whole cloud is cheap.
inline constexpr Eigen::Index kFewestStreamedRows = 64;

// The vector as Eigen::JacobiSVD of the centred N x 3 matrix gives it, to the last bit, sign
// included. At least 3 rows. A cloud that is not finite after centring has no such vector: NaN in
// all components then. Up to 8 rows no heap, else one copy of the cloud.
Eigen::Vector3d thin_direction(PointRows rows, const Centroid& centroid);

// The same direction to rounding, without a copy of the cloud, with a sign that carries no meaning,
// by streaming over the rows.
struct StreamedDirection {
  bool reliable;           // false: spreads for which rounding would show; ask thin_direction
  Eigen::Vector3d normal;  // of unit length, where reliable
  double reach;            // no row lies further from the centroid, where reliable
  double doubt;            // thin_direction's vector lies nearer than this, where reliable
};

StreamedDirection streamed_thin_direction(PointRows rows, const Centroid& centroid);

}  // namespace kestrane
