// How badly the plane of a cell's four corners fits the points measured in that cell.
//
// in    the x of the four corners (parameters); their y and z and the cell's points (fixed)
// out   one residual: root of the visited squared distances over all points, weighed by depth
#pragma once

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "ceres/jet.h"
#include "fit/points.h"
#include "records/guard.h"
#include "records/shapes.h"

namespace kestrane {

// The value of a scalar without its derivatives.
inline double plain_value(double value) { return value; }

template <int N>
double plain_value(const ceres::Jet<double, N>& value) {
  return value.a;
}

// Four corners in the order of gather_cell_corners.
using CellCorners = Eigen::Matrix<double, 4, 3, Eigen::RowMajor>;

inline constexpr Eigen::Index kVisitStride = 3;  // every third point of a cell is visited
inline constexpr double kDepthWeight = 450.0;    // depth of unit weight
inline constexpr double kLineRatio = 0.0005;     // spread, relative to the largest, of a line

// Unit normal of the four corners; NaN where the solver gives none, as for corners that are not
// finite. False for corners on a line.
inline bool corner_normal(const CellCorners& corners, const Eigen::RowVector3d& mean,
                          Eigen::Vector3d& normal) {
  const CellCorners centred = corners.rowwise() - mean;
  const Eigen::Matrix3d scatter = centred.transpose() * centred;
  const Eigen::EigenSolver<Eigen::Matrix3d> solver(scatter);
  normal.setConstant(std::numeric_limits<double>::quiet_NaN());
  if (solver.info() != Eigen::Success) return true;

  const Eigen::Vector3d spread = solver.eigenvalues().real();
  std::array<double, 3> sorted{spread[0], spread[1], spread[2]};
  std::sort(sorted.begin(), sorted.end());
  const double largest = sorted[2] + kGuard;
  if (sorted[0] / largest < kLineRatio && sorted[1] / largest < kLineRatio) return false;

  int smallest = 0;
  for (int k = 1; k < 3; ++k) {
    if (spread[k] < spread[smallest]) smallest = k;
  }
  normal = solver.eigenvectors().col(smallest).real();
  return true;
}

// The residual of a cell, point by point.
//
// points   the cell's points
// corners  only y and z are read
// x        of the four corners, with derivatives or without
//
// None for four corners on a line.
//
// The normal is solved anew from the plain values in each evaluation and carries no derivative:
// derivatives flow through the offset alone, so all four are equal. Points that lie exactly on the
// plane give a residual of 0 with a derivative that is not finite.
template <class T>
std::optional<T> cell_residual(PointRows points, const CellCorners& corners,
                               const std::array<T, 4>& x) {
  const T mean_x = (x[0] + x[1] + x[2] + x[3]) / 4.0;
  const double mean_y = (corners(0, 1) + corners(1, 1) + corners(2, 1) + corners(3, 1)) / 4.0;
  const double mean_z = (corners(0, 2) + corners(1, 2) + corners(2, 2) + corners(3, 2)) / 4.0;
  CellCorners plain = corners;
  for (int k = 0; k < 4; ++k) plain(k, 0) = plain_value(x[static_cast<std::size_t>(k)]);
  Eigen::Vector3d normal;
  if (!corner_normal(plain, {plain_value(mean_x), mean_y, mean_z}, normal)) return std::nullopt;

  const T offset = -(normal.x() * mean_x + normal.y() * mean_y + normal.z() * mean_z);
  T squares(0.0);
  for (Eigen::Index i = 0; i < points.count; i += kVisitStride) {
    const double* p = points.xyz + 3 * i;
    const T distance = normal.x() * p[0] + normal.y() * p[1] + normal.z() * p[2] + offset;
    squares += distance * distance;
  }
  // Divided by all points, not by the visited ones: the weight of a cell is settled that way.
  using std::sqrt;
  return sqrt(squares / static_cast<double>(points.count)) * mean_z / kDepthWeight;
}

// The same as a functor of the solver's automatic derivatives, over copies of points and corners:
// what the form that the solver is given must agree with (reduced_cell_cost.h).
class OPTIMISIZE_COST_FUNCTION_FIT {
 public:
  // points   N x 3, the cell's points
  // corners  4 x 3, in the order of gather_cell_corners; only y and z are read
  OPTIMISIZE_COST_FUNCTION_FIT(PointMatrix3 points, PointMatrix3 corners)
      : points_(std::move(points)), corners_(std::move(corners)) {}

  // False, with the residual unset, for four corners on a line.
  template <class T>
  bool operator()(const T* x0, const T* x1, const T* x2, const T* x3, T* residual) const {
    const std::optional<T> value =
        cell_residual<T>(rows_of(points_), corners_, {*x0, *x1, *x2, *x3});
    if (!value) return false;
    *residual = *value;
    return true;
  }

 private:
  PointMatrix3 points_;
  PointMatrix3 corners_;
};

}  // namespace kestrane
