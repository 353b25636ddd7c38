#include "fit/coefficients/line_fit.h"

#include <Eigen/Eigenvalues>
#include <cmath>
#include <limits>

namespace kestrane {
namespace {

Point2 mean_of(const PointMatrix2& points) {
  Point2 sum{0.0, 0.0};
  for (Eigen::Index i = 0; i < points.rows(); ++i) {  // order fixed
    sum.x += points(i, 0);
    sum.y += points(i, 1);
  }
  const auto n = static_cast<double>(points.rows());
  return {sum.x / n, sum.y / n};
}

// X^T X of the points about `mean`, not divided by their number.
Eigen::Matrix2d scatter_about(const PointMatrix2& points, Point2 mean) {
  PointMatrix2 centred(points.rows(), 2);
  for (Eigen::Index i = 0; i < points.rows(); ++i) {
    centred(i, 0) = points(i, 0) - mean.x;
    centred(i, 1) = points(i, 1) - mean.y;
  }
  return centred.transpose() * centred;
}

// The eigenvector of the smallest eigenvalue; of equal ones the first. The general solver leaves
// its vectors unwritten when a number on its way is not finite: the normal is not a number then.
Point2 smallest_axis(const Eigen::Matrix2d& scatter) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  const Eigen::EigenSolver<Eigen::Matrix2d> solver(scatter, true);
  if (solver.info() != Eigen::Success) return {kNan, kNan};
  const auto& values = solver.eigenvalues();
  const Eigen::Index smallest = values(1).real() < values(0).real() ? 1 : 0;
  const Eigen::Vector2d axis = solver.eigenvectors().col(smallest).real();
  return {axis.x(), axis.y()};
}

}  // namespace

void fit_line_pca(const PointMatrix2& points, LineAbc& line, double& mean_distance) {
  const Point2 mean = mean_of(points);
  const Point2 normal = smallest_axis(scatter_about(points, mean));
  line << normal.x, normal.y, -(normal.x * mean.x + normal.y * mean.y);
  double sum = 0.0;
  for (Eigen::Index i = 0; i < points.rows(); ++i) {  // order fixed
    sum += std::abs((points(i, 0) - mean.x) * normal.x + (points(i, 1) - mean.y) * normal.y);
  }
  mean_distance = sum / static_cast<double>(points.rows());
}

}  // namespace kestrane
