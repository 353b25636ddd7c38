#include "fit/triangle_reduction.h"

#include <algorithm>
#include <cmath>

namespace kestrane {
namespace {

using Eigen::Index;

constexpr Index kLanes = 4;  // partial sums side by side; a block is a multiple of it

// kLanes neighbours of a column. Partial sums, one a lane, have an order of our own that does not
// depend on the compiler or on the width of the processor's vectors.
using Lanes = Eigen::Array<double, kLanes, 1>;

Eigen::Map<Lanes, Eigen::Aligned16> lanes(double* column) {
  return Eigen::Map<Lanes, Eigen::Aligned16>(column);
}

double total(const Lanes& sum) { return (sum[0] + sum[2]) + (sum[1] + sum[3]); }

// A reflection that takes (alpha, column) to (beta, 0); v = (1, column / pivot).
struct Reflection {
  double beta = 0.0;
  double pivot = 1.0;
  double tau = 0.0;

  // How much of the column is taken off another column, whose head is `head` and whose dot product
  // with the column is `dot`. The head is reflected too.
  double apply(double& head, double dot) const {
    const double w = tau * (head + dot / pivot);
    head -= w;
    return w / pivot;
  }
};

Reflection reflection_of(double alpha, double squares) {
  if (squares <= 0.0) return {alpha, 1.0, 0.0};  // 0; not a number goes on
  const double norm = std::sqrt(alpha * alpha + squares);
  const double beta = alpha > 0.0 ? -norm : norm;
  return {beta, alpha - beta, (beta - alpha) / beta};
}

template <class Columns>
void reflect_first(Triangle& t, Columns& columns, Index count, double& off_y, double& off_z) {
  Lanes xx = Lanes::Zero(), xy = Lanes::Zero(), xz = Lanes::Zero();
  for (Index i = 0; i < count; i += kLanes) {
    const Lanes x = lanes(columns.x + i);
    xx += x * x;
    xy += x * lanes(columns.y + i);
    xz += x * lanes(columns.z + i);
  }
  const Reflection h = reflection_of(t.r00, total(xx));
  t.r00 = h.beta;
  off_y = h.apply(t.r01, total(xy));
  off_z = h.apply(t.r02, total(xz));
}

template <class Columns>
void reflect_second(Triangle& t, Columns& columns, Index count, double off_y, double off_z,
                    double& off_second) {
  Lanes yy = Lanes::Zero(), yz = Lanes::Zero();
  for (Index i = 0; i < count; i += kLanes) {
    const Lanes x = lanes(columns.x + i);
    const Lanes y = lanes(columns.y + i) - off_y * x;
    const Lanes z = lanes(columns.z + i) - off_z * x;
    lanes(columns.y + i) = y;
    lanes(columns.z + i) = z;
    yy += y * y;
    yz += y * z;
  }
  const Reflection h = reflection_of(t.r11, total(yy));
  t.r11 = h.beta;
  off_second = h.apply(t.r12, total(yz));
}

template <class Columns>
void reflect_third(Triangle& t, Columns& columns, Index count, double off_second) {
  Lanes zz = Lanes::Zero();
  for (Index i = 0; i < count; i += kLanes) {
    const Lanes z = lanes(columns.z + i) - off_second * lanes(columns.y + i);
    zz += z * z;
  }
  t.r22 = reflection_of(t.r22, total(zz)).beta;
}

}  // namespace

// Folds the first `count` rows of `columns`, which are used up, into the triangle.
void TriangleReduction::fold(Triangle& t, Columns& columns, Index count) {
  const Index padded = (count + kLanes - 1) / kLanes * kLanes;
  for (Index i = count; i < padded; ++i) columns.x[i] = columns.y[i] = columns.z[i] = 0.0;
  double off_y, off_z, off_second;
  reflect_first(t, columns, padded, off_y, off_z);
  reflect_second(t, columns, padded, off_y, off_z, off_second);
  reflect_third(t, columns, padded, off_second);
}

void TriangleReduction::join(Triangle& t, const Triangle& other) {
  Columns rows;
  const double x[3] = {other.r00, 0.0, 0.0};
  const double y[3] = {other.r01, other.r11, 0.0};
  const double z[3] = {other.r02, other.r12, other.r22};
  std::copy_n(x, 3, rows.x);
  std::copy_n(y, 3, rows.y);
  std::copy_n(z, 3, rows.z);
  fold(t, rows, 3);
}

void TriangleReduction::close_block() {
  Triangle t;
  fold(t, columns_, filled_);
  filled_ = 0;
  std::size_t level = 0;
  for (; ((blocks_ >> level) & 1U) != 0; ++level) join(t, levels_[level]);
  levels_[level] = t;
  ++blocks_;
}

void TriangleReduction::add(const double* point) {
  columns_.x[filled_] = point[0] - centroid_.x;
  columns_.y[filled_] = point[1] - centroid_.y;
  columns_.z[filled_] = point[2] - centroid_.z;
  if (++filled_ == kBlock) close_block();
}

Triangle TriangleReduction::finish() {
  if (filled_ > 0) close_block();
  Triangle all;
  for (std::size_t level = 0; level < kLevels; ++level) {
    if (((blocks_ >> level) & 1U) != 0) join(all, levels_[level]);
  }
  return all;
}

Triangle reduce_centred(PointRows rows, const Centroid& centroid) {
  TriangleReduction reduction(centroid);
  for (Index i = 0; i < rows.count; ++i) reduction.add(rows.xyz + 3 * i);
  return reduction.finish();
}

}  // namespace kestrane
