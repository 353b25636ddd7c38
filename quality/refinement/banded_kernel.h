// The arithmetic that a refinement spends its time in, on plain arrays.
//
// in    the band of a symmetric matrix, right-hand sides, interpolation weights
// out   factor, solution, inverse, sums
//
// Compiled for the baseline and for wider vectors, chosen at each call by what the processor has.
// Element by element without fused multiply-adds, sums in four fixed lanes: equal bits in all
// forms. Row r of a band stands at entries + r stride, entry (r, r + d) in place d = 0 .. width;
// stride is at least width + 4, what is beyond the matrix or the width is 0 and stays so.
#pragma once

#include <cstdint>

#include "quality/refinement/weights.h"

namespace kestrane::quality::refinement {

struct Band {
  double* entries;
  int rows;
  int width;
  int stride;
};

// The widest vectors that a call may use; for tests, which compare the forms.
enum class Vectors { kBaseline, kAvx2 };
Vectors best_vectors();

// Replaces A by the upper triangular R of A = R'R. False where a pivot is not positive or not
// finite.
bool factorise_band(const Band& a, Vectors vectors);

// Replaces b by the solution of R'R x = b.
void solve_band(const Band& r, double* b, Vectors vectors);

// Writes the band of the inverse of R'R.
//
// window   2 (width + 1)^2 reals of scratch, any content
// vectors  2 (width + 1) reals of scratch
void invert_band(const Band& r, const Band& inverse, double* window, double* scratch,
                 Vectors vectors);

// How nodes of the fan are numbered: node (i, j) is across (j - first_z) + i - first_u.
struct Numbering {
  int first_u;
  int first_z;
  int across;
};

// Adds a a' to the matrix and value a to the right-hand side for some samples, a being the weights
// of a sample's nodes.
//
// members  indices into stencils and values
void add_samples(const Stencil* stencils, const double* values, const int* members,
                 std::int64_t count, const Numbering& numbering, const Band& matrix, double* right,
                 Vectors vectors);

}  // namespace kestrane::quality::refinement
