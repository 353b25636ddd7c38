#include "factory/reduced_cell_cost.h"

#include <array>
#include <cmath>
#include <optional>

#include "ceres/jet.h"

namespace kestrane {
namespace {

// Corners whose second spread is less than this of the first may count as a line: the functor
// decides. With spreads l0 <= l1 <= l2 the sum of the minors is at most 3 l1 l2 and the trace at
// least l2, so that above this value l1 / l2 is above 6.6e-4 and the corners are no line.
constexpr double kLeastMinors = 2e-3;

// The guard in the functor's test for a line is below a millionth of a larger trace.
constexpr double kLeastTrace = 1e-9;

constexpr int kMostRounds = 6;
constexpr double kSettled = 0x1p-53;

// Distances below this share of the coordinates are made of their rounding.
constexpr double kRoundingShare = 0x1p-33;

// Symmetric, row by row.
struct Symmetric {
  double xx, xy, xz, yy, yz, zz;
};

Symmetric scatter_of(const CellCorners& corners, const Eigen::RowVector3d& mean) {
  Symmetric s{};
  for (int k = 0; k < 4; ++k) {
    const double x = corners(k, 0) - mean.x();
    const double y = corners(k, 1) - mean.y();
    const double z = corners(k, 2) - mean.z();
    s.xx += x * x;
    s.xy += x * y;
    s.xz += x * z;
    s.yy += y * y;
    s.yz += y * z;
    s.zz += z * z;
  }
  return s;
}

Symmetric adjugate_of(const Symmetric& s) {
  return {s.yy * s.zz - s.yz * s.yz, s.xz * s.yz - s.xy * s.zz, s.xy * s.yz - s.xz * s.yy,
          s.xx * s.zz - s.xz * s.xz, s.xy * s.xz - s.xx * s.yz, s.xx * s.yy - s.xy * s.xy};
}

Eigen::Vector3d product_of(const Symmetric& s, const Eigen::Vector3d& v) {
  return {s.xx * v.x() + s.xy * v.y() + s.xz * v.z(), s.xy * v.x() + s.yy * v.y() + s.yz * v.z(),
          s.xz * v.x() + s.yz * v.y() + s.zz * v.z()};
}

// The column with the largest diagonal: it lies closest to the first axis.
Eigen::Vector3d longest_column_of(const Symmetric& s) {
  if (s.xx >= s.yy && s.xx >= s.zz) return {s.xx, s.xy, s.xz};
  if (s.yy >= s.zz) return {s.xy, s.yy, s.yz};
  return {s.xz, s.yz, s.zz};
}

// Axis of smallest spread, by power iteration on the adjugate, whose largest eigenvalue l1 l2
// stands far above the others for the corners of a cell. Nothing where the functor has to decide.
std::optional<Eigen::Vector3d> settled_normal(const Symmetric& scatter) {
  const Symmetric adjugate = adjugate_of(scatter);
  const double trace = scatter.xx + scatter.yy + scatter.zz;
  const double minors = adjugate.xx + adjugate.yy + adjugate.zz;
  if (!(trace >= kLeastTrace && minors >= kLeastMinors * trace * trace)) return std::nullopt;

  Eigen::Vector3d normal = longest_column_of(adjugate).normalized();
  for (int round = 0; round < kMostRounds; ++round) {
    Eigen::Vector3d next = product_of(adjugate, normal);
    const double size = next.norm();
    next /= size;
    const double change = (next - normal).norm();
    normal = next;
    // The minors are the sum of all eigenvalues: what the others are to the largest one at most is
    // what a round leaves of the error.
    const double left = (minors - size) / size;
    if (left * change <= kSettled * (1.0 - left)) return normal;
  }
  return std::nullopt;
}

PointMatrix3 visited_of(PointRows points) {
  PointMatrix3 visited((points.count + kVisitStride - 1) / kVisitStride, 3);
  for (Eigen::Index i = 0; i < visited.rows(); ++i) {
    const double* p = points.xyz + 3 * kVisitStride * i;
    visited.row(i) << p[0], p[1], p[2];
  }
  return visited;
}

// The mean of what a first mean leaves is added to it: what a cell's points sum up to is a thousand
// times as large as the distances that the offset is made of.
Centroid settled_centroid(PointRows rows) {
  const Centroid first = centroid_of(sums_of(rows), rows.count);
  PointSums rest;
  for (Eigen::Index i = 0; i < rows.count; ++i) {
    const double* p = rows.xyz + 3 * i;
    const std::array<double, 3> left = {p[0] - first.x, p[1] - first.y, p[2] - first.z};
    rest.add(left.data());
  }
  const Centroid correction = centroid_of(rest, rows.count);
  return {first.x + correction.x, first.y + correction.y, first.z + correction.z};
}

double squared_length(const Triangle& r, const Eigen::Vector3d& n) {
  const double first = r.r00 * n.x() + r.r01 * n.y() + r.r02 * n.z();
  const double second = r.r11 * n.y() + r.r12 * n.z();
  const double third = r.r22 * n.z();
  return first * first + second * second + third * third;
}

}  // namespace

ReducedCellCost::ReducedCellCost(const PointMatrix3& points, const CellCorners& corners)
    : points_(rows_of(points)), corners_(corners), mean_(corners.colwise().sum() / 4.0) {
  const PointMatrix3 visited = visited_of(points_);
  visited_ = static_cast<double>(visited.rows());
  centroid_ = settled_centroid(rows_of(visited));
  triangle_ = reduce_centred(rows_of(visited), centroid_);
  reach_ = visited.squaredNorm();
}

bool ReducedCellCost::Evaluate(double const* const* x, double* residual, double** jacobians) const {
  return evaluate_by_sums(x, residual, jacobians) || evaluate_by_points(x, residual, jacobians);
}

bool ReducedCellCost::evaluate_by_sums(double const* const* x, double* residual,
                                       double** jacobians) const {
  CellCorners corners = corners_;
  for (int k = 0; k < 4; ++k) corners(k, 0) = *x[k];
  Eigen::RowVector3d mean = mean_;
  mean.x() = (corners(0, 0) + corners(1, 0) + corners(2, 0) + corners(3, 0)) / 4.0;
  const std::optional<Eigen::Vector3d> normal = settled_normal(scatter_of(corners, mean));
  if (!normal) return false;

  const Eigen::Vector3d& n = *normal;
  const double height = n.x() * (centroid_.x - mean.x()) + n.y() * (centroid_.y - mean.y()) +
                        n.z() * (centroid_.z - mean.z());
  const double squares = squared_length(triangle_, n) + visited_ * height * height;
  const double rounding =
      kRoundingShare * kRoundingShare * (reach_ + visited_ * mean.squaredNorm());
  if (!(squares > rounding && std::isfinite(squares))) return false;  // a NaN is not larger

  const auto count = static_cast<double>(points_.count);
  const double distance = std::sqrt(squares / count);
  const double weight = mean.z() / kDepthWeight;
  *residual = distance * weight;
  if (jacobians == nullptr) return true;
  // The offset falls by a quarter of the normal's x with each corner's x.
  const double slope = -weight * visited_ * height * n.x() / (4.0 * count * distance);
  for (int k = 0; k < 4; ++k) {
    if (jacobians[k] != nullptr) *jacobians[k] = slope;
  }
  return true;
}

bool ReducedCellCost::evaluate_by_points(double const* const* x, double* residual,
                                         double** jacobians) const {
  if (jacobians == nullptr) {
    const std::optional<double> value =
        cell_residual<double>(points_, corners_, {*x[0], *x[1], *x[2], *x[3]});
    if (!value) return false;
    *residual = *value;
    return true;
  }
  using Jet = ceres::Jet<double, 4>;
  const std::optional<Jet> value = cell_residual<Jet>(
      points_, corners_, {Jet(*x[0], 0), Jet(*x[1], 1), Jet(*x[2], 2), Jet(*x[3], 3)});
  if (!value) return false;
  *residual = value->a;
  for (int k = 0; k < 4; ++k) {
    if (jacobians[k] != nullptr) *jacobians[k] = value->v[k];
  }
  return true;
}

}  // namespace kestrane
