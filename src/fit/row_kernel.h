// What a plane fit reads from every row of a cloud, 64 rows at a time.
//
// in    a cloud, three doubles a row; which of its rows are in use; what to do with them
// out   which rows stay in use; sums over them
//
// A bit per row says whether the row is in use: bit i of word w is row 64 w + i, and the bits
// beyond the last row are 0. Rows that are not in use may hold anything.
//
// Unless told otherwise a sum runs in four lanes, row i in lane i mod 4, whatever the width of the
// processor's vectors, so every vector set gives the same values to the last bit. Each lane is
// added up in three levels (64 rows, 64 of those sums, the rest), so a sum over n rows goes through
// at most summation_depth(n) additions. Sums over the few rows that a rejection drops run row after
// row within 256 rows, and then in the same levels: dropped_depth(n). Nothing here allocates.
#pragma once

#include <cstdint>

namespace kestrane {

inline constexpr std::int64_t kWordRows = 64;

constexpr std::int64_t words_for(std::int64_t rows) { return (rows + kWordRows - 1) / kWordRows; }

// Additions that a row passes through on its way into a sum: its lane within 256 rows, 64 such
// chunks, the remaining levels, and the four lanes.
double summation_depth(double rows);
double dropped_depth(double rows);

// The first `count` rows of a cloud.
struct CloudRows {
  const double* xyz;
  std::int64_t count;
};

// A place and a direction; D of a row is normal . (row - point).
struct PointAndNormal {
  double point[3];
  double normal[3];
};

// Sums over rows, of their differences (x, y, z) from a point.
struct RowMoments {
  std::int64_t count;
  double sum[3];
  double products[6];  // xx, xy, xz, yy, yz, zz
};

// Rows of a depth from `lowest` to `highest`, both included; a depth that is NaN is in use. Their
// moments are taken about `point`, and `reach` becomes the largest distance of one of them from it.
struct DepthJob {
  double lowest;
  double highest;
  double point[3];
};

// Rows in use with |D - middle| <= half stay in use. `reject` takes D, off by a few roundings more,
// from normal . row.
struct RejectionJob {
  PointAndNormal plane;
  double middle;
  double half;
  double moments_point[3];  // about which the moments of dropped rows are taken
};

struct Rejection {
  std::int64_t count;  // of the rows that stay in use
  double sum[3];       // of their coordinates, one row after another
  RowMoments dropped;  // of the rows in use that do not stay
  double nearest;      // no row in use lies nearer to a bound; infinite where no row is in use
};

// Over all rows that were in use.
struct DistanceSums {
  double sum;      // of D
  double squares;  // of D D
  double walk;     // at least the sum of |D of the first row + ... + D of the k-th one| over all k
};

struct DistanceFigures {
  double largest;  // |D|
  double sum;      // of |D| - guess
  double squares;  // of (|D| - guess)^2
};

// Vector instructions for which the passes are compiled, in rising order.
enum class RowVectors { kBaseline, kAvx2 };

RowVectors best_row_vectors();

// The passes of one vector set, which the processor must have. All rows are in use for `measure`.
// `reject_and_sum` copies the rows that stay in use to `copies`, in order, unless that is null,
// without any room; there must be room for all rows that were in use, and what lies beyond the
// copies is overwritten.
struct RowPasses {
  void (*select)(CloudRows rows, const DepthJob& job, std::uint64_t* in_use, RowMoments& moments,
                 double& reach);
  void (*reject)(CloudRows rows, const RejectionJob& job, const std::uint64_t* in_use,
                 std::uint64_t* kept, Rejection& rejection);
  void (*reject_and_sum)(CloudRows rows, const RejectionJob& job, const std::uint64_t* in_use,
                         std::uint64_t* kept, Rejection& rejection, DistanceSums& sums,
                         double* copies, std::int64_t room);
  void (*measure)(CloudRows rows, const PointAndNormal& plane, double guess,
                  DistanceFigures& figures);
};

const RowPasses& row_passes(RowVectors set);

}  // namespace kestrane
