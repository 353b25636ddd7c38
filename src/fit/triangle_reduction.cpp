#include "fit/triangle_reduction.h"

#include <array>
#include <cmath>

namespace kestrane {
namespace {

using Eigen::Index;

constexpr Index kBlock = 256;  // rows at a time: three columns of it stay in the first-level cache
constexpr Index kLanes = 4;    // partial sums side by side; kBlock is a multiple of it
constexpr std::size_t kLevels = 64;  // 2^64 blocks are beyond any cloud

struct Columns {
  alignas(64) double x[kBlock];
  alignas(64) double y[kBlock];
  alignas(64) double z[kBlock];
};

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
  if (squares == 0.0) return {alpha, 1.0, 0.0};
  const double norm = std::sqrt(alpha * alpha + squares);
  const double beta = alpha > 0.0 ? -norm : norm;
  return {beta, alpha - beta, (beta - alpha) / beta};
}

Index load_centred(const double* xyz, Index count, const Centroid& m, Columns& columns) {
  for (Index i = 0; i < count; ++i) {
    columns.x[i] = xyz[3 * i] - m.x;
    columns.y[i] = xyz[3 * i + 1] - m.y;
    columns.z[i] = xyz[3 * i + 2] - m.z;
  }
  const Index padded = (count + kLanes - 1) / kLanes * kLanes;
  for (Index i = count; i < padded; ++i) columns.x[i] = columns.y[i] = columns.z[i] = 0.0;
  return padded;
}

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

void reflect_third(Triangle& t, Columns& columns, Index count, double off_second) {
  Lanes zz = Lanes::Zero();
  for (Index i = 0; i < count; i += kLanes) {
    const Lanes z = lanes(columns.z + i) - off_second * lanes(columns.y + i);
    zz += z * z;
  }
  t.r22 = reflection_of(t.r22, total(zz)).beta;
}

// Folds the rows of `columns`, which are used up, into the triangle.
void fold(Triangle& t, Columns& columns, Index count) {
  double off_y, off_z, off_second;
  reflect_first(t, columns, count, off_y, off_z);
  reflect_second(t, columns, count, off_y, off_z, off_second);
  reflect_third(t, columns, count, off_second);
}

void join(Triangle& t, const Triangle& other, Columns& columns) {
  const double rows[9] = {other.r00, other.r01, other.r02, 0.0,      other.r11,
                          other.r12, 0.0,       0.0,       other.r22};
  fold(t, columns, load_centred(rows, 3, {0.0, 0.0, 0.0}, columns));
}

}  // namespace

Triangle reduce_centred(PointRows rows, const Centroid& centroid) {
  Columns columns;
  std::array<Triangle, kLevels>
      levels;  // levels[i] holds 2^i blocks where bit i of `blocks` is set
  std::uint64_t blocks = 0;
  for (Index start = 0; start < rows.count; start += kBlock) {
    const Index count = std::min(kBlock, rows.count - start);
    Triangle t;
    fold(t, columns, load_centred(rows.xyz + 3 * start, count, centroid, columns));
    std::size_t level = 0;
    for (; ((blocks >> level) & 1U) != 0; ++level) join(t, levels[level], columns);
    levels[level] = t;
    ++blocks;
  }
  Triangle all;
  for (std::size_t level = 0; level < kLevels; ++level) {
    if (((blocks >> level) & 1U) != 0) join(all, levels[level], columns);
  }
  return all;
}

}  // namespace kestrane
