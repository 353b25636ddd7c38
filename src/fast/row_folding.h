// Rows of a linear system folded into a small triangle by reflections.
//
// in    rows of seven numbers: six derivatives and a residual
// out   a 7 x 7 upper triangle T with T' T = A' A for all rows A folded so far
//
// Reflections keep what the squares of A' A would lose: with directions that the points hardly fix
// the triangle stays as accurate as the rows.
#pragma once

namespace kestrane {

inline constexpr int kRowSize = 7;
inline constexpr int kFoldedRows = 256;  // rows of a chunk: its seven columns stay in the L1 cache

// Up to 256 rows, column by column; rows that are not used are zero.
struct alignas(16) RowChunk {
  double column[kRowSize][kFoldedRows];
};

// Upper triangle; what lies below its diagonal is zero.
struct RowTriangle {
  double at[kRowSize][kRowSize] = {};
};

// Folds the first `rows` of a chunk into `triangle`; what is left in the chunk afterwards has no
// meaning.
//
// rows  a multiple of 4, at most 256
//
// A number that is not finite makes the triangle so.
void fold_rows(RowChunk& chunk, int rows, RowTriangle& triangle);

}  // namespace kestrane
