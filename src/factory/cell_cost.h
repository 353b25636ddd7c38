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
#include <utility>

#include "ceres/jet.h"
#include "fit/points.h"
#include "records/shapes.h"

namespace kestrane {

// The value of a scalar without its derivatives.
inline double plain_value(double value) { return value; }

template <int N>
double plain_value(const ceres::Jet<double, N>& value) {
  return value.a;
}

class OPTIMISIZE_COST_FUNCTION_FIT {
 public:
  // points   N x 3, the cell's points
  // corners  4 x 3, in the order of gather_cell_corners; only y and z are read
  OPTIMISIZE_COST_FUNCTION_FIT(PointMatrix3 points, PointMatrix3 corners)
      : points_(std::move(points)), corners_(std::move(corners)) {}

  // False, with the residual unset, where the four corners are as good as one line.
  //
  // The normal is solved anew from the plain values in each evaluation and carries no derivative:
  // derivatives flow through the offset alone, so all four are equal. Points that lie exactly on
  // the plane give a residual of 0 with a derivative that is not finite.
  template <class T>
  bool operator()(const T* x0, const T* x1, const T* x2, const T* x3, T* residual) const {
    const T mean_x = (*x0 + *x1 + *x2 + *x3) / 4.0;
    const double mean_y = (corners_(0, 1) + corners_(1, 1) + corners_(2, 1) + corners_(3, 1)) / 4.0;
    const double mean_z = (corners_(0, 2) + corners_(1, 2) + corners_(2, 2) + corners_(3, 2)) / 4.0;
    const Eigen::Vector3d mean(plain_value(mean_x), mean_y, mean_z);
    Eigen::Vector3d normal;
    if (!corner_normal({plain_value(*x0), plain_value(*x1), plain_value(*x2), plain_value(*x3)},
                       mean, normal)) {
      return false;
    }
    const T offset = -(normal.x() * mean_x + normal.y() * mean_y + normal.z() * mean_z);
    T squares(0.0);
    for (Eigen::Index i = 0; i < points_.rows(); i += kStride) {
      const T distance = normal.x() * points_(i, 0) + normal.y() * points_(i, 1) +
                         normal.z() * points_(i, 2) + offset;
      squares += distance * distance;
    }
    // Divided by all points, not by the visited ones: the weight of a cell is settled that way.
    using std::sqrt;
    *residual = sqrt(squares / static_cast<double>(points_.rows())) * mean_z / kDepthWeight;
    return true;
  }

 private:
  static constexpr Eigen::Index kStride = 3;     // every third point is visited
  static constexpr double kDepthWeight = 450.0;  // depth of unit weight
  static constexpr double kLineRatio = 0.0005;   // spread, relative to the largest, of a line

  // Unit normal of the four corners; NaN where their x are not finite. False for corners on a line.
  bool corner_normal(const std::array<double, 4>& x, const Eigen::Vector3d& mean,
                     Eigen::Vector3d& normal) const {
    Eigen::Matrix<double, 4, 3> centred;
    for (int row = 0; row < 4; ++row) {
      centred(row, 0) = x[static_cast<std::size_t>(row)] - mean.x();
      centred(row, 1) = corners_(row, 1) - mean.y();
      centred(row, 2) = corners_(row, 2) - mean.z();
    }
    const Eigen::Matrix3d scatter = centred.transpose() * centred;
    normal.setConstant(std::numeric_limits<double>::quiet_NaN());
    if (!scatter.allFinite()) return true;
    const Eigen::EigenSolver<Eigen::Matrix3d> solver(scatter);
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

  PointMatrix3 points_;
  PointMatrix3 corners_;
};

}  // namespace kestrane
