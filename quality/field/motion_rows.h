// How a small rigid motion shows: as a displacement of sheets along their normals.
//
// in    points with the normal of their sheet
// out   six numbers a point, the normal matrix of all of them, and which motions it fixes
//
// A motion is counted as six lengths w = (L omega, tau): a turn omega (angle times axis) about a
// centre, times the points' mean distance L from it, and the shift tau of that centre. So turns and
// shifts can be compared, and neither depends on where the origin lies.
#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <vector>

namespace kestrane::quality {

using Vector6 = Eigen::Matrix<double, 6, 1>;
using Matrix6 = Eigen::Matrix<double, 6, 6>;

// A motion whose eigenvalue is smaller than this part of the largest one moves no sheet.
inline constexpr double kRankLimit = 1e-9;

// Where motions are counted from.
struct MotionFrame {
  Eigen::Vector3d centre = Eigen::Vector3d::Zero();
  double length = 1.0;  // root mean square distance of the points; 1 where all lie on the centre
};

MotionFrame motion_frame(const std::vector<Eigen::Vector3d>& points);

// The displacement of a sheet at `point`, along its unit `normal`, is this row times w.
inline Vector6 motion_row(const MotionFrame& frame, const Eigen::Vector3d& point,
                          const Eigen::Vector3d& normal) {
  Vector6 row;
  row << (point - frame.centre).cross(normal) / frame.length, normal;
  return row;
}

// Eigenvalues of a normal matrix of rows, ascending, and one unit vector a column.
struct MotionSpectrum {
  Vector6 values;
  Matrix6 vectors;
  int free = 6;  // the first columns, whose motions move no sheet

  Matrix6 inverse() const;    // pseudo-inverse over the other columns
  Matrix6 projector() const;  // on the space of the other columns
};

// normal_matrix  sum of row * row^T; all finite
MotionSpectrum motion_spectrum(const Matrix6& normal_matrix);

}  // namespace kestrane::quality
