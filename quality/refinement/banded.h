// Symmetric positive definite systems whose entries stand near the diagonal.
//
// in    the upper band of a matrix, a right-hand side
// out   its Cholesky factor, the solution, the same band of the inverse
#pragma once

#include <cstddef>
#include <vector>

#include "quality/refinement/banded_kernel.h"

namespace kestrane::quality::refinement {

// Entry (r, r + d) stands in place d of row r, d = 0 .. width.
class BandedMatrix {
 public:
  BandedMatrix() = default;
  BandedMatrix(int rows, int width);  // all entries 0

  int rows() const { return rows_; }
  int width() const { return width_; }
  double* row(int r) { return &entries_[index_of(r)]; }
  const double* row(int r) const { return &entries_[index_of(r)]; }
  std::vector<double>& entries() { return entries_; }
  const std::vector<double>& entries() const { return entries_; }
  Band band() { return {entries_.data(), rows_, width_, stride_}; }
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): for what only reads
  Band band() const { return {const_cast<double*>(entries_.data()), rows_, width_, stride_}; }

 private:
  std::size_t index_of(int r) const {
    return static_cast<std::size_t>(r) * static_cast<std::size_t>(stride_);
  }

  int rows_ = 0;
  int width_ = 0;
  int stride_ = 0;
  std::vector<double> entries_;
};

// Replaces A by the R of A = R'R, R upper triangular. False where a pivot is not positive or not
// finite; A is spoilt then.
bool factorise(BandedMatrix& a);

// Replaces b by the solution of R'R x = b.
void solve(const BandedMatrix& r, std::vector<double>& b);

// The band of the inverse of R'R, by Takahashi's recursion from the last row up.
BandedMatrix invert(const BandedMatrix& r);

// Trace of the product of two symmetric matrices of one shape, given by their bands: exact where
// one of them has no entries outside.
double trace_of_product(const BandedMatrix& a, const BandedMatrix& b);

}  // namespace kestrane::quality::refinement
