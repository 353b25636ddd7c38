// The direction in which a cloud is thinnest.
//
// in    the rows of a cloud and its centroid
// out   the third right singular vector of the centred cloud, of unit length
#pragma once

#include "fit/points.h"
#include "fit/triangle_reduction.h"

namespace kestrane {

// The vector as Eigen::JacobiSVD of the centred N x 3 matrix gives it, to the last bit, sign
// included. At least 3 rows. A cloud that is not finite after centring has no such vector: NaN in
// all components then. Up to 8 rows no heap, else one copy of the cloud.
Eigen::Vector3d thin_direction(PointRows rows, const Centroid& centroid);

// The same of a cloud that has been reduced to its triangle.
struct ThinDirection {
  Eigen::Vector3d normal;   // of unit length; its sign carries no meaning
  Eigen::Vector3d spreads;  // singular values, largest first
};

ThinDirection thin_direction_of(const Triangle& triangle);

}  // namespace kestrane
