#include "fast/row_folding.h"

#include <cmath>

#include "fast/lanes.h"

namespace kestrane {
namespace {

// The reflection that takes column k of a chunk into the triangle's diagonal. It adds to each later
// column `share[j]` times the chunk's column k.
template <int k>
void reflect_diagonal(const double (&dots)[kRowSize], RowTriangle& triangle,
                      double (&share)[kRowSize]) {
  double* row = triangle.at[k];
  if (dots[k] == 0.0) return;  // nothing to fold; a NaN goes on
  const double reflected = -std::copysign(std::sqrt(row[k] * row[k] + dots[k]), row[k]);
  const double head = row[k] - reflected;  // of the reflection's vector; both terms have one sign
  const double scale = 1.0 / (reflected * head);
  row[k] = reflected;
  for (int j = k + 1; j < kRowSize; ++j) {
    share[j] = scale * (head * row[j] + dots[j]);
    row[j] = row[j] + share[j] * head;
  }
}

// Adds column k's share to all later columns and takes the products of column k + 1 with each of
// them, itself included, in the same walk over the rows.
template <int k>
void spread_column(RowChunk& chunk, int rows, const double (&share)[kRowSize],
                   double (&dots)[kRowSize]) {
  Lanes sums[kRowSize];
  for (int i = 0; i < rows; i += kLanes) {
    const Lanes folded = Lanes::load(&chunk.column[k][i]);
    const Lanes next = Lanes::load(&chunk.column[k + 1][i]) + Lanes(share[k + 1]) * folded;
    next.store(&chunk.column[k + 1][i]);
    sums[k + 1] = sums[k + 1] + next * next;
#pragma GCC unroll 8
    for (int j = k + 2; j < kRowSize; ++j) {
      const Lanes later = Lanes::load(&chunk.column[j][i]) + Lanes(share[j]) * folded;
      later.store(&chunk.column[j][i]);
      sums[j] = sums[j] + next * later;
    }
  }
  for (int j = k + 1; j < kRowSize; ++j) dots[j] = sums[j].sum();
}

template <int k>
void fold_column(RowChunk& chunk, int rows, double (&dots)[kRowSize], RowTriangle& triangle) {
  double share[kRowSize] = {};
  reflect_diagonal<k>(dots, triangle, share);
  if constexpr (k + 1 < kRowSize) {
    spread_column<k>(chunk, rows, share, dots);
    fold_column<k + 1>(chunk, rows, dots, triangle);
  }
}

// The products of the first column with every column.
void first_dots(const RowChunk& chunk, int rows, double (&dots)[kRowSize]) {
  Lanes sums[kRowSize];
  for (int i = 0; i < rows; i += kLanes) {
    const Lanes first = Lanes::load(&chunk.column[0][i]);
#pragma GCC unroll 8
    for (int j = 0; j < kRowSize; ++j) {
      sums[j] = sums[j] + first * Lanes::load(&chunk.column[j][i]);
    }
  }
  for (int j = 0; j < kRowSize; ++j) dots[j] = sums[j].sum();
}

}  // namespace

void fold_rows(RowChunk& chunk, int rows, RowTriangle& triangle) {
  double dots[kRowSize];
  first_dots(chunk, rows, dots);
  fold_column<0>(chunk, rows, dots, triangle);
}

}  // namespace kestrane
