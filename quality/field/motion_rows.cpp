#include "quality/field/motion_rows.h"

#include <Eigen/Eigenvalues>
#include <cmath>
#include <iterator>

namespace kestrane::quality {

MotionFrame motion_frame(const std::vector<Eigen::Vector3d>& points) {
  MotionFrame frame;
  if (points.empty()) return frame;
  const auto count = static_cast<double>(std::ssize(points));
  for (const Eigen::Vector3d& point : points) frame.centre += point;
  frame.centre /= count;
  double squares = 0.0;
  for (const Eigen::Vector3d& point : points) squares += (point - frame.centre).squaredNorm();
  if (squares > 0.0) frame.length = std::sqrt(squares / count);
  return frame;
}

MotionSpectrum motion_spectrum(const Matrix6& normal_matrix) {
  const Eigen::SelfAdjointEigenSolver<Matrix6> solver(normal_matrix);
  MotionSpectrum spectrum;
  spectrum.values = solver.eigenvalues();
  spectrum.vectors = solver.eigenvectors();
  const double limit = kRankLimit * spectrum.values[5];
  spectrum.free = 0;
  while (spectrum.free < 6 && !(spectrum.values[spectrum.free] >= limit && limit > 0.0)) {
    ++spectrum.free;
  }
  return spectrum;
}

Matrix6 MotionSpectrum::inverse() const {
  Matrix6 sum = Matrix6::Zero();
  for (int i = free; i < 6; ++i) {
    sum += vectors.col(i) * vectors.col(i).transpose() / values[i];
  }
  return sum;
}

Matrix6 MotionSpectrum::projector() const {
  Matrix6 sum = Matrix6::Zero();
  for (int i = free; i < 6; ++i) sum += vectors.col(i) * vectors.col(i).transpose();
  return sum;
}

}  // namespace kestrane::quality
