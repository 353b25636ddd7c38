// A cloud of any length, reduced to the 3 x 3 triangle that shares its right singular vectors.
//
// in    the rows of a cloud and its centroid
// out   R of A = QR, A being the centred cloud; Q is never formed
#pragma once

#include <array>
#include <cstdint>

#include "fit/points.h"

namespace kestrane {

// Upper triangle, row by row. The signs of the diagonal carry no meaning.
struct Triangle {
  double r00 = 0.0;
  double r01 = 0.0;
  double r02 = 0.0;
  double r11 = 0.0;
  double r12 = 0.0;
  double r22 = 0.0;
};

// Householder reflections, block by block, the blocks' triangles joined pair by pair, so that the
// rounding error grows with the logarithm of the length. No heap. A coordinate that is not finite,
// or whose square overflows, leaves an entry that is not finite.
class TriangleReduction {
 public:
  explicit TriangleReduction(const Centroid& centroid) : centroid_(centroid) {}

  void add(const double* point);
  Triangle finish();  // uses the reduction up

 private:
  static constexpr Eigen::Index kBlock = 256;  // three columns of it stay in the first-level cache
  static constexpr std::size_t kLevels = 64;   // 2^64 blocks are beyond any cloud

  struct Columns {
    alignas(64) double x[kBlock];
    alignas(64) double y[kBlock];
    alignas(64) double z[kBlock];
  };

  static void fold(Triangle& t, Columns& columns, Eigen::Index count);
  void join(Triangle& t, const Triangle& other);
  void close_block();

  Columns columns_;
  Centroid centroid_;
  Eigen::Index filled_ = 0;
  std::array<Triangle, kLevels>
      levels_;  // levels_[i] holds 2^i blocks where bit i of blocks_ is set
  std::uint64_t blocks_ = 0;
};

// The same for all rows of a cloud.
Triangle reduce_centred(PointRows rows, const Centroid& centroid);

}  // namespace kestrane
