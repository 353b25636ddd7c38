// How far a measured point lies from its cell of the standard, once the standard has moved.
//
// in    an angle-axis rotation and a translation (parameters); the point and its plane (fixed)
// out   one residual: the unsigned distance of the point to the moved plane
#pragma once

#include <cstdint>

#include "ceres/rotation.h"
#include "fast/plane_cell.h"

namespace kestrane {

// What a point without a cell adds to the sum of squares, and pulls nowhere.
inline constexpr double kNoCellResidual = 10.0;

struct DIST_RESIDUAL_CHANGE_PLANE {
  double x;  // the measured point
  double y;
  double z;
  const _LASER_PLANE_BLOCK_INFOS* const* standard;  // where the engine keeps its table's address
  std::int32_t plane;
  double weight;  // never read

  // rotation     angle-axis, 3 numbers
  // translation  3 numbers
  //
  // The cell is the one that the measured position falls on: the parameters never shift a point to
  // another one. A point without a cell gives 10 with zero derivatives.
  template <class T>
  bool operator()(const T* rotation, const T* translation, T* residual) const {
    using std::abs;
    const double point[3] = {x, y, z};
    double coeffs[3];
    double normal[3];
    double on_plane[3];
    if (!lookup_plane_cell(point, **standard, plane, coeffs, normal, on_plane)) {
      *residual = T(kNoCellResidual);
      return true;
    }
    const T still_normal[3] = {T(normal[0]), T(normal[1]), T(normal[2])};
    const T still_point[3] = {T(on_plane[0]), T(on_plane[1]), T(on_plane[2])};
    T n[3];
    T q[3];
    ceres::AngleAxisRotatePoint(rotation, still_normal, n);
    ceres::AngleAxisRotatePoint(rotation, still_point, q);
    for (int i = 0; i < 3; ++i) q[i] += translation[i];
    *residual = abs(n[0] * (x - q[0]) + n[1] * (y - q[1]) + n[2] * (z - q[2]));  // order fixed
    return true;
  }
};

}  // namespace kestrane
