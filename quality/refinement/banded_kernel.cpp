// Parts of this file are compiled for wider vectors than the rest of the library. So it takes in no
// header with inline functions or templates: the linker keeps one copy of such a function for the
// whole program, and that must not be one that an older processor cannot run.
#include "quality/refinement/banded_kernel.h"

#if defined(__GNUC__) && defined(__x86_64__)
#define KESTRANE_WIDE_VECTORS
#endif

#if defined(__GNUC__)
#define KESTRANE_INLINE inline __attribute__((always_inline))
#else
#define KESTRANE_INLINE inline
#endif

namespace kestrane::quality::refinement {
namespace {

constexpr int kBlock = 4;  // rows that are applied to a later one in one pass
constexpr double kLargest = 1.7976931348623157e308;

KESTRANE_INLINE double* row_of(const Band& band, int r) {
  return band.entries + static_cast<std::int64_t>(r) * band.stride;
}

// row -= f0 s0 + f1 s1 + f2 s2 + f3 s3, one after the other.
KESTRANE_INLINE void subtract_four(const double* f, const double* s0, const double* s1,
                                   const double* s2, const double* s3, double* __restrict row,
                                   int length) {
  for (int d = 0; d < length; ++d) {
    row[d] = (((row[d] - f[0] * s0[d]) - f[1] * s1[d]) - f[2] * s2[d]) - f[3] * s3[d];
  }
}

KESTRANE_INLINE void subtract_one(double f, const double* s, double* __restrict row, int length) {
  for (int d = 0; d < length; ++d) row[d] -= f * s[d];
}

// Sum of a[d] b[d] in four lanes, d = 0 .. length - 1.
KESTRANE_INLINE double dot(const double* a, const double* b, int length) {
  double lane[4] = {0.0, 0.0, 0.0, 0.0};
  int d = 0;
  for (; d + 4 <= length; d += 4) {
    for (int l = 0; l < 4; ++l) lane[l] += a[d + l] * b[d + l];
  }
  for (int l = 0; d < length; ++d, ++l) lane[l] += a[d] * b[d];
  return (lane[0] + lane[1]) + (lane[2] + lane[3]);
}

// Finishes the row of a pivot. False for a pivot without a root.
KESTRANE_INLINE bool finish_pivot(double* row, int width) {
  if (!(row[0] > 0.0) || row[0] > kLargest) return false;
  const double root = __builtin_sqrt(row[0]);
  const double inverse = 1.0 / root;
  row[0] = root;
  for (int d = 1; d <= width; ++d) row[d] *= inverse;
  return true;
}

KESTRANE_INLINE bool factorise(const Band& a) {
  for (int k = 0; k < a.rows; k += kBlock) {
    const int pivots = a.rows - k < kBlock ? a.rows - k : kBlock;
    for (int p = 0; p < pivots; ++p) {
      double* row = row_of(a, k + p);
      for (int q = 0; q < p; ++q) {
        const double* above = row_of(a, k + q) + (p - q);
        subtract_one(above[0], above, row, a.width + 1 - (p - q));
      }
      if (!finish_pivot(row, a.width)) return false;
    }
    // Columns i to k + 3 + width: pivots that end earlier have zeros there.
    const int end = k + kBlock + a.width < a.rows ? k + kBlock + a.width : a.rows;
    for (int i = k + kBlock; i < end; ++i) {
      const double* s0 = row_of(a, k) + (i - k);
      const double* s1 = row_of(a, k + 1) + (i - k - 1);
      const double* s2 = row_of(a, k + 2) + (i - k - 2);
      const double* s3 = row_of(a, k + 3) + (i - k - 3);
      const double f[4] = {s0[0], s1[0], s2[0], s3[0]};
      subtract_four(f, s0, s1, s2, s3, row_of(a, i), k + kBlock + a.width - i);
    }
  }
  return true;
}

KESTRANE_INLINE void solve(const Band& r, double* b) {
  for (int i = 0; i < r.rows; ++i) {
    const double* row = row_of(r, i);
    const int length = r.rows - 1 - i < r.width ? r.rows - 1 - i : r.width;
    b[i] /= row[0];
    subtract_one(b[i], row + 1, b + i + 1, length);
  }
  for (int i = r.rows - 1; i >= 0; --i) {
    const double* row = row_of(r, i);
    const int length = r.rows - 1 - i < r.width ? r.rows - 1 - i : r.width;
    b[i] = (b[i] - dot(row + 1, b + i + 1, length)) / row[0];
  }
}

// Z = A^-1 obeys Z_ij = [i = j] / r_ii^2 - sum over k > i of (r_ik / r_ii) Z_kj, so a row of the
// band follows from the `width` rows below it. These stand in `window` as a full square whose rows
// and columns go round; the columns twice, so that a run of them never wraps.
KESTRANE_INLINE void invert(const Band& r, const Band& inverse, double* window, double* scratch) {
  const int side = r.width + 1;
  double* u = scratch;
  double* v = scratch + side;
  for (int i = r.rows - 1; i >= 0; --i) {
    const double* row = row_of(r, i);
    const int below = r.rows - 1 - i < r.width ? r.rows - 1 - i : r.width;
    for (int d = 0; d < below; ++d) {
      u[d] = row[d + 1] / row[0];
      v[d] = 0.0;
    }
    const double* run = window + (i + 1) % side;
    int d = 0;
    for (; d + kBlock <= below; d += kBlock) {
      const double* z[4];
      for (int l = 0; l < 4; ++l) z[l] = run + 2 * side * ((i + 1 + d + l) % side);
      subtract_four(u + d, z[0], z[1], z[2], z[3], v, below);
    }
    for (; d < below; ++d) subtract_one(u[d], run + 2 * side * ((i + 1 + d) % side), v, below);

    double* out = row_of(inverse, i);
    out[0] = 1.0 / (row[0] * row[0]) - dot(u, v, below);
    const int mine = i % side;
    window[2 * side * mine + mine] = out[0];
    window[2 * side * mine + mine + side] = out[0];
    for (int e = 0; e < below; ++e) {
      const int other = (i + 1 + e) % side;
      out[e + 1] = v[e];
      window[2 * side * mine + other] = v[e];
      window[2 * side * mine + other + side] = v[e];
      window[2 * side * other + mine] = v[e];
      window[2 * side * other + mine + side] = v[e];
    }
  }
}

// place[b] += factor u[b], b = 0 .. 3. The compiler makes no vectors of four elements by itself.
#if defined(__GNUC__)
using Four = double __attribute__((vector_size(32)));

KESTRANE_INLINE void add_four(double factor, const double* u, double* place) {
  Four weights, sum;
  __builtin_memcpy(&weights, u, sizeof weights);
  __builtin_memcpy(&sum, place, sizeof sum);
  sum += factor * weights;
  __builtin_memcpy(place, &sum, sizeof sum);
}
#else
KESTRANE_INLINE void add_four(double factor, const double* u, double* place) {
  for (int b = 0; b < 4; ++b) place[b] += factor * u[b];
}
#endif

KESTRANE_INLINE void add_sample(const Stencil& stencil, double value, const Numbering& numbering,
                                const Band& matrix, double* right) {
  const double u[4] = {stencil.across[0], stencil.across[1], stencil.across[2], stencil.across[3]};
  const double z[4] = {stencil.along[0], stencil.along[1], stencil.along[2], stencil.along[3]};
  const int first = numbering.across * (stencil.first_along - numbering.first_z) +
                    (stencil.first_across - numbering.first_u);
  for (int j = 0; j < 4; ++j) {
    add_four(z[j] * value, u, right + first + numbering.across * j);
    for (int i = 0; i < 4; ++i) {
      double* row = row_of(matrix, first + numbering.across * j + i);
      const double own = z[j] * u[i];
      for (int b = i; b < 4; ++b) row[b - i] += (own * z[j]) * u[b];
      for (int k = j + 1; k < 4; ++k) add_four(own * z[k], u, row + numbering.across * (k - j) - i);
    }
  }
}

KESTRANE_INLINE void add_all(const Stencil* stencils, const double* values, const int* members,
                             std::int64_t count, const Numbering& numbering, const Band& matrix,
                             double* right) {
  for (std::int64_t n = 0; n < count; ++n)
    add_sample(stencils[members[n]], values[members[n]], numbering, matrix, right);
}

#ifdef KESTRANE_WIDE_VECTORS
#define KESTRANE_AVX2 __attribute__((target("avx2")))

KESTRANE_AVX2 bool factorise_avx2(const Band& a) { return factorise(a); }
KESTRANE_AVX2 void solve_avx2(const Band& r, double* b) { solve(r, b); }
KESTRANE_AVX2 void invert_avx2(const Band& r, const Band& inverse, double* window,
                               double* scratch) {
  invert(r, inverse, window, scratch);
}
KESTRANE_AVX2 void add_all_avx2(const Stencil* stencils, const double* values, const int* members,
                                std::int64_t count, const Numbering& numbering, const Band& matrix,
                                double* right) {
  add_all(stencils, values, members, count, numbering, matrix, right);
}
#endif

}  // namespace

Vectors best_vectors() {
#ifdef KESTRANE_WIDE_VECTORS
  if (__builtin_cpu_supports("avx2")) return Vectors::kAvx2;
#endif
  return Vectors::kBaseline;
}

bool factorise_band(const Band& a, Vectors vectors) {
#ifdef KESTRANE_WIDE_VECTORS
  if (vectors == Vectors::kAvx2) return factorise_avx2(a);
#endif
  static_cast<void>(vectors);
  return factorise(a);
}

void solve_band(const Band& r, double* b, Vectors vectors) {
#ifdef KESTRANE_WIDE_VECTORS
  if (vectors == Vectors::kAvx2) return solve_avx2(r, b);
#endif
  static_cast<void>(vectors);
  solve(r, b);
}

void invert_band(const Band& r, const Band& inverse, double* window, double* scratch,
                 Vectors vectors) {
#ifdef KESTRANE_WIDE_VECTORS
  if (vectors == Vectors::kAvx2) return invert_avx2(r, inverse, window, scratch);
#endif
  static_cast<void>(vectors);
  invert(r, inverse, window, scratch);
}

void add_samples(const Stencil* stencils, const double* values, const int* members,
                 std::int64_t count, const Numbering& numbering, const Band& matrix, double* right,
                 Vectors vectors) {
#ifdef KESTRANE_WIDE_VECTORS
  if (vectors == Vectors::kAvx2)
    return add_all_avx2(stencils, values, members, count, numbering, matrix, right);
#endif
  static_cast<void>(vectors);
  add_all(stencils, values, members, count, numbering, matrix, right);
}

}  // namespace kestrane::quality::refinement
