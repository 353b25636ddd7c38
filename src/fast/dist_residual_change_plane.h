// How far a measured point lies from its cell of the standard, once the standard has moved.
//
// in    an angle-axis rotation and a translation (parameters); the point and its cell (fixed)
// out   one residual: the unsigned distance of the point to the moved plane
#pragma once

#include <cmath>
#include <cstdint>

#include "ceres/jet.h"
#include "ceres/rotation.h"
#include "fast/plane_cell.h"

namespace kestrane {

class DIST_RESIDUAL_CHANGE_PLANE {
 public:
  // standard  where the engine keeps the address of its table; the cells must not change before
  //           the last evaluation
  //
  // The cell is the one that the measured position falls on. It is looked up here, once: the
  // parameters never shift a point to another cell.
  DIST_RESIDUAL_CHANGE_PLANE(double px, double py, double pz,
                             const _LASER_PLANE_BLOCK_INFOS* const* table, std::int32_t plane_index,
                             double block_weight)
      : x(px), y(py), z(pz), standard(table), plane(plane_index), weight(block_weight) {
    const double point[3] = {x, y, z};
    double coeffs[3];
    has_cell_ = lookup_plane_cell(point, **standard, plane, coeffs, unit_normal_, plane_point_);
  }

  // rotation     angle-axis, 3 numbers
  // translation  3 numbers
  //
  // A point without a cell gives 10 with zero derivatives: it costs, and pulls nowhere.
  template <class T>
  bool operator()(const T* rotation, const T* translation, T* residual) const {
    using std::abs;
    if (!has_cell_) {
      *residual = T(kNoCell);
      return true;
    }
    const T normal[3] = {T(unit_normal_[0]), T(unit_normal_[1]), T(unit_normal_[2])};
    const T foot[3] = {T(plane_point_[0]), T(plane_point_[1]), T(plane_point_[2])};
    T moved_normal[3];
    T moved_foot[3];
    ceres::AngleAxisRotatePoint(rotation, normal, moved_normal);
    ceres::AngleAxisRotatePoint(rotation, foot, moved_foot);
    for (int i = 0; i < 3; ++i) moved_foot[i] += translation[i];
    *residual =
        abs(moved_normal[0] * (T(x) - moved_foot[0]) + moved_normal[1] * (T(y) - moved_foot[1]) +
            moved_normal[2] * (T(z) - moved_foot[2]));
    return true;
  }

 private:
  static constexpr double kNoCell = 10.0;

  double x;
  double y;
  double z;
  const _LASER_PLANE_BLOCK_INFOS* const* standard;
  std::int32_t plane;
  double weight;  // never read

  bool has_cell_;
  double unit_normal_[3];
  double plane_point_[3];
};

}  // namespace kestrane
