#include "fit/plane_decomposition.h"

#include <Eigen/SVD>
#include <algorithm>
#include <cmath>
#include <limits>

namespace kestrane {
namespace {

using Eigen::Index;
using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr Index kMostStackRows = 8;  // a cell's four corners, above all, need no heap

// Aligned as Eigen aligns a matrix of its own: where a sum begins decides its last bits.
using Columns = Eigen::Map<Eigen::MatrixXd, Eigen::Aligned16>;

void centre(PointRows rows, const Centroid& m, Columns centred) {
  for (Index i = 0; i < rows.count; ++i) {
    centred(i, 0) = rows.xyz[3 * i] - m.x;
    centred(i, 1) = rows.xyz[3 * i + 1] - m.y;
    centred(i, 2) = rows.xyz[3 * i + 2] - m.z;
  }
}

// One sweep of two-sided rotations over all pairs; false when there was nothing left to rotate.
bool jacobi_sweep(Matrix3d& work, Matrix3d& v, double& largest) {
  constexpr double kPrecision = 2.0 * std::numeric_limits<double>::epsilon();
  bool rotated = false;
  for (Index p = 1; p < 3; ++p) {
    for (Index q = 0; q < p; ++q) {
      const double negligible = std::max(std::numeric_limits<double>::min(), kPrecision * largest);
      if (!(std::abs(work(p, q)) > negligible || std::abs(work(q, p)) > negligible)) continue;
      rotated = true;
      Eigen::JacobiRotation<double> left, right;
      Eigen::internal::real_2x2_jacobi_svd(work, p, q, &left, &right);
      work.applyOnTheLeft(p, q, left);
      work.applyOnTheRight(p, q, right);
      v.applyOnTheRight(p, q, right);
      largest = std::max(largest, std::max(std::abs(work(p, p)), std::abs(work(q, q))));
    }
  }
  return rotated;
}

void sort_descending(Vector3d& values, Matrix3d& v) {
  for (Index i = 0; i < 2; ++i) {
    Index offset;
    values.tail(3 - i).maxCoeff(&offset);
    std::swap(values(i), values(i + offset));
    v.col(i).swap(v.col(i + offset));
  }
}

// Singular values of scale * work in descending order; v takes on the right singular vectors.
Vector3d decompose(Matrix3d& work, Matrix3d& v, double scale) {
  double largest = work.diagonal().cwiseAbs().maxCoeff();
  while (jacobi_sweep(work, v, largest)) {
  }
  Vector3d values = work.diagonal().cwiseAbs() * scale;
  sort_descending(values, v);
  return values;
}

// The norms of the other two columns without the row that the first reflection has settled, worked
// out as Eigen does for the choice of the next one. After the second there is no choice left.
Vector3d without_first_row(Vector3d norms, const Columns& a) {
  constexpr double kInaccurate = 0x1p-26;  // root of the rounding unit of a double
  for (Index j = 1; j < 3; ++j) {
    if (!(norms(j) > 0.0)) continue;
    const double share = std::abs(a(0, j)) / norms(j);
    const double rest = std::max(0.0, (1.0 + share) * (1.0 - share));
    if (rest <= kInaccurate) {
      norms(j) = a.col(j).tail(a.rows() - 1).norm();
    } else {
      norms(j) *= std::sqrt(rest);
    }
  }
  return norms;
}

// Reflects column k and those to its right, so that column k is zero below its head.
void reflect_columns(Columns& a, Index k) {
  const Index below = a.rows() - k - 1;
  const Index right = 2 - k;
  double tau, beta;
  a.col(k).tail(below + 1).makeHouseholderInPlace(tau, beta);
  a(k, k) = beta;
  const auto essential = a.col(k).tail(below);
  auto bottom = a.bottomRightCorner(below, right);
  double dots[2];
  Eigen::Map<Eigen::RowVectorXd> w(dots, right);
  w.noalias() = essential.adjoint() * bottom;
  w += a.row(k).tail(right);
  a.row(k).tail(right) -= tau * w;
  // Column by column: as one product, tau times the column would be copied.
  for (Index j = 0; j < right; ++j) bottom.col(j) -= w(j) * (tau * essential);
}

// Exchanges column k with the longest one from there on, which may be itself.
void bring_longest_to(Index k, Columns& a, Matrix3d& v, Vector3d& norms) {
  Index offset;
  norms.tail(3 - k).maxCoeff(&offset);
  a.col(k).swap(a.col(k + offset));
  v.col(k).swap(v.col(k + offset));
  std::swap(norms(k), norms(k + offset));
}

// The triangle R of a column-pivoting Householder QR in the storage of `a`; the columns of `v` are
// exchanged as those of `a` are.
Matrix3d pivoted_triangle(Columns& a, Matrix3d& v) {
  Vector3d norms;
  for (Index k = 0; k < 3; ++k) norms(k) = a.col(k).norm();
  bring_longest_to(0, a, v, norms);
  reflect_columns(a, 0);
  norms = without_first_row(norms, a);
  bring_longest_to(1, a, v, norms);
  reflect_columns(a, 1);
  reflect_columns(a, 2);
  return a.topRows(3).triangularView<Eigen::Upper>();
}

// What Eigen::JacobiSVD does, in the storage of the matrix alone: JacobiSVD keeps more than two
// others of its size. Same operations, same bits. `centred` is room for the rows.
Vector3d thin_direction_in(Columns centred, PointRows rows, const Centroid& centroid) {
  centre(rows, centroid, centred);
  if (!centred.allFinite()) return Vector3d::Constant(std::numeric_limits<double>::quiet_NaN());
  // Above 0: points that are all the same stay 0.
  constexpr double kSmallest = std::numeric_limits<double>::denorm_min();
  const double scale = std::max(kSmallest, centred.cwiseAbs().maxCoeff());
  centred /= scale;
  Matrix3d v = Matrix3d::Identity();
  // A square matrix needs no reduction and gets none, not even an exchange of columns.
  Matrix3d work = centred.rows() == 3 ? Matrix3d(centred) : pivoted_triangle(centred, v);
  decompose(work, v, scale);
  return v.col(2);
}

}  // namespace

Vector3d thin_direction(PointRows rows, const Centroid& centroid) {
  if (rows.count <= kMostStackRows) {
    alignas(Eigen::Aligned16) double stack[3 * kMostStackRows] = {};
    return thin_direction_in({stack, rows.count, 3}, rows, centroid);
  }
  Eigen::MatrixXd heap(rows.count, 3);
  return thin_direction_in({heap.data(), rows.count, 3}, rows, centroid);
}

ThinDirection thin_direction_of(const Triangle& t) {
  Matrix3d r;
  r << t.r00, t.r01, t.r02, 0.0, t.r11, t.r12, 0.0, 0.0, t.r22;
  if (!r.allFinite()) {
    const Vector3d none = Vector3d::Constant(std::numeric_limits<double>::quiet_NaN());
    return {none, none};
  }
  Matrix3d v = Matrix3d::Identity();
  const Vector3d spreads = decompose(r, v, 1.0);
  return {v.col(2), spreads};
}

}  // namespace kestrane
