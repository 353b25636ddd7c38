// How far a measured point lies from its cell of the standard, once the standard has moved.
//
// in    an angle-axis rotation and a translation (parameters); the point and its cell (fixed)
// out   one residual: the unsigned distance of the point to the moved plane
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

#include "ceres/jet.h"
#include "fast/plane_cell.h"

namespace kestrane {

// Rotates fixed vectors by one angle-axis rotation, T being a double or a jet.
//
// Values and derivatives are those of ceres::AngleAxisRotatePoint, operation by operation, to the
// last bit. Done here because that function takes the vector as T too, and works out sine and
// cosine, which cost most, for each vector anew.
template <class T>
class AngleAxisRotation {
 public:
  explicit AngleAxisRotation(const T* angle_axis) {
    using std::cos;
    using std::sin;
    using std::sqrt;
    const T squares = angle_axis[0] * angle_axis[0] + angle_axis[1] * angle_axis[1] +
                      angle_axis[2] * angle_axis[2];
    small_ = !(squares > T(std::numeric_limits<double>::epsilon()));
    for (int i = 0; i < 3; ++i) axis_[i] = angle_axis[i];
    if (small_) return;
    const T angle = sqrt(squares);
    const T inverse = T(1.0) / angle;
    cosine_ = cos(angle);
    sine_ = sin(angle);
    versine_ = T(1.0) - cosine_;
    for (T& component : axis_) component = component * inverse;
  }

  // Near zero the rotation is its first-order form, which keeps the derivatives meaningful.
  void rotate(const double* v, T* rotated) const {
    const T cross[3] = {axis_[1] * v[2] - axis_[2] * v[1], axis_[2] * v[0] - axis_[0] * v[2],
                        axis_[0] * v[1] - axis_[1] * v[0]};
    if (small_) {
      for (int i = 0; i < 3; ++i) rotated[i] = v[i] + cross[i];
      return;
    }
    const T along = (axis_[0] * v[0] + axis_[1] * v[1] + axis_[2] * v[2]) * versine_;
    for (int i = 0; i < 3; ++i) {
      rotated[i] = v[i] * cosine_ + cross[i] * sine_ + axis_[i] * along;
    }
  }

 private:
  bool small_;
  T axis_[3];  // the angle-axis vector itself where `small_`
  T cosine_;
  T sine_;
  T versine_;  // 1 - cosine
};

class DIST_RESIDUAL_CHANGE_PLANE {
 public:
  // table  where the engine keeps the address of its standard; its cells must not change before the
  //        last evaluation
  //
  // The cell is the one that the measured position falls on. It is looked up here, once: the
  // parameters never shift a point to another cell.
  DIST_RESIDUAL_CHANGE_PLANE(double px, double py, double pz,
                             const _LASER_PLANE_BLOCK_INFOS* const* table, std::int32_t plane_index,
                             double block_weight)
      : x(px), y(py), z(pz), standard(table), plane(plane_index), weight(block_weight) {
    const double point[3] = {x, y, z};
    double coeffs[3];
    double foot[3];
    if (!lookup_plane_cell(point, **standard, plane, coeffs, unit_normal_, foot)) return;
    foot_axis_ = foot[1] != 0.0 ? 1 : foot[2] != 0.0 ? 2 : 0;
    foot_ = foot[foot_axis_];
  }

  // rotation     angle-axis, 3 numbers
  // translation  3 numbers
  //
  // A point without a cell gives 10 with zero derivatives: it costs, and pulls nowhere.
  template <class T>
  bool operator()(const T* rotation, const T* translation, T* residual) const {
    using std::abs;
    if (foot_axis_ == kNoCell) {
      *residual = T(kNoCellResidual);
      return true;
    }
    double foot[3] = {0.0, 0.0, 0.0};
    foot[foot_axis_] = foot_;
    const AngleAxisRotation<T> rotated_by(rotation);
    T moved_normal[3];
    T moved_foot[3];
    rotated_by.rotate(unit_normal_, moved_normal);
    rotated_by.rotate(foot, moved_foot);
    for (int i = 0; i < 3; ++i) moved_foot[i] += translation[i];
    *residual = abs(moved_normal[0] * (x - moved_foot[0]) + moved_normal[1] * (y - moved_foot[1]) +
                    moved_normal[2] * (z - moved_foot[2]));
    return true;
  }

 private:
  static constexpr double kNoCellResidual = 10.0;
  static constexpr std::int32_t kNoCell = -1;

  // There is one object per residual, and reading them is what an evaluation waits for: the foot
  // is kept as its only coordinate that is not zero.
  double x;
  double y;
  double z;
  const _LASER_PLANE_BLOCK_INFOS* const* standard;
  std::int32_t plane;
  std::int32_t foot_axis_ = kNoCell;
  [[maybe_unused]] double weight;  // never read
  double foot_ = 0.0;
  double unit_normal_[3] = {0.0, 0.0, 0.0};
};

}  // namespace kestrane
