// Parts of this file are compiled for wider vectors than the rest of the library. So it takes in no
// header with inline functions or templates: the linker keeps one copy of such a function for the
// whole program, and that must not be one that an older processor cannot run.
#include "compensation/cell_kernel.h"

#if defined(__GNUC__) && defined(__x86_64__)
#define KESTRANE_WIDE_VECTORS
#endif

#if defined(__GNUC__)
#define KESTRANE_INLINE inline __attribute__((always_inline))
#else
#define KESTRANE_INLINE inline
#endif

namespace kestrane {
namespace {

constexpr double kSmallest = 1e-30;        // below this size a number does not serve as a divisor
constexpr double kReferenceDepth = 100.0;  // depth of the point that carries a cell's plane

// Enough for a full line of a plane table in one go.
constexpr std::int32_t kChunk = 64;

// A NaN is neither below nor above.
KESTRANE_INLINE bool is_below_smallest(double x) { return kSmallest > x && -kSmallest < x; }
KESTRANE_INLINE bool is_above_smallest(double x) { return x > kSmallest || x < -kSmallest; }

// One component of rotation * (x, y, z), summed in the order of the columns.
KESTRANE_INLINE double row_times(const PlaneMotion& m, int row, double x, double y, double z) {
  const double* r = m.rotation + 3 * row;
  return r[0] * x + r[1] * y + r[2] * z;  // order fixed
}

// How far along `translation` the plane's point lies beyond the translation itself.
KESTRANE_INLINE double reach(const double* t, double a, double b, double c) {
  const double d = t[0] * a + t[1] * b + t[2] * c;  // order fixed
  return -((d + 1.0) / d);
}

// What a, b and c are to be divided by once the plane's point has moved away by `scale`.
KESTRANE_INLINE double scaled_offset(const double point[3], double scale, double a, double b,
                                     double c) {
  return -((point[1] * scale * b + point[0] * scale * a) + point[2] * scale * c);  // order fixed
}

// x of the plane's point at y = 0 and the reference depth; 0.0 for a plane nearly along x.
KESTRANE_INLINE double reference_x(double a, double c) {
  const double x = -((c * kReferenceDepth + 1.0) / a);
  return is_above_smallest(a) ? x : 0.0;
}

// What the normal (nx, ny, nz) is to be divided by to hold the reference point at x, which turns
// about the pivot with the plane.
KESTRANE_INLINE double turned_offset(const PlaneMotion& m, double x, double nx, double ny,
                                     double nz) {
  const double dx = x - m.pivot[0];
  const double dy = 0.0 - m.pivot[1];
  const double dz = kReferenceDepth - m.pivot[2];
  const double px = row_times(m, 0, dx, dy, dz) + m.pivot[0];
  const double py = row_times(m, 1, dx, dy, dz) + m.pivot[1];
  const double pz = row_times(m, 2, dx, dy, dz) + m.pivot[2];
  const double d = -((py * ny + px * nx) + pz * nz);  // order fixed
  return is_below_smallest(d) ? kSmallest : d;
}

// Moves up to kChunk cells in short loops over all of them with one division each: divisions of
// different cells overlap, while those of one cell wait for one another. Each loop turns into
// vectors of whatever width the caller is compiled for.
KESTRANE_INLINE void move_chunk(const PlaneMotion& m, double* cells, std::int32_t count) {
  double a[kChunk], b[kChunk], c[kChunk], q[kChunk];
  for (std::int32_t i = 0; i < count; ++i) {
    a[i] = cells[3 * i];
    b[i] = cells[3 * i + 1];
    c[i] = cells[3 * i + 2];
  }
  for (std::int32_t i = 0; i < count; ++i) q[i] = reach(m.translation, a[i], b[i], c[i]);
  for (std::int32_t i = 0; i < count; ++i) {
    const double* t = m.translation;
    const double point[3] = {q[i] * t[0] + t[0], q[i] * t[1] + t[1], q[i] * t[2] + t[2]};
    const double e = scaled_offset(point, m.scale, a[i], b[i], c[i]);
    const double factor = 1.0 / (is_below_smallest(e) ? 1.0 : e);
    a[i] = a[i] * factor;
    b[i] = b[i] * factor;
    c[i] = c[i] * factor;
  }
  for (std::int32_t i = 0; i < count; ++i) q[i] = reference_x(a[i], c[i]);
  for (std::int32_t i = 0; i < count; ++i) {
    const double nx = row_times(m, 0, a[i], b[i], c[i]);
    const double ny = row_times(m, 1, a[i], b[i], c[i]);
    const double nz = row_times(m, 2, a[i], b[i], c[i]);
    const double factor = 1.0 / turned_offset(m, q[i], nx, ny, nz);
    a[i] = nx * factor;
    b[i] = ny * factor;
    c[i] = nz * factor;
  }
  for (std::int32_t i = 0; i < count; ++i) {
    if (cells[3 * i] == 0.0) continue;
    cells[3 * i] = a[i];
    cells[3 * i + 1] = b[i];
    cells[3 * i + 2] = c[i];
  }
}

KESTRANE_INLINE void move_line(const PlaneMotion& motion, double* cells, std::int32_t count) {
  const PlaneMotion m = motion;  // a copy that no store to a cell can reach
  for (; count > 0; count -= kChunk, cells += 3 * kChunk) {
    move_chunk(m, cells, count < kChunk ? count : kChunk);
  }
}

void move_line_baseline(const PlaneMotion& motion, double* cells, std::int32_t count) {
  move_line(motion, cells, count);
}

#ifdef KESTRANE_WIDE_VECTORS
__attribute__((target("avx2"))) void move_line_avx2(const PlaneMotion& motion, double* cells,
                                                    std::int32_t count) {
  move_line(motion, cells, count);
}

__attribute__((target("avx512f"))) void move_line_avx512(const PlaneMotion& motion, double* cells,
                                                         std::int32_t count) {
  move_line(motion, cells, count);
}
#endif

}  // namespace

void point_along(const double translation[3], const double plane[3], double point[3]) {
  const double q = reach(translation, plane[0], plane[1], plane[2]);
  for (int i = 0; i < 3; ++i) point[i] = q * translation[i] + translation[i];
}

void correct_plane(const double translation[3], double scale, double plane[3]) {
  double point[3];
  point_along(translation, plane, point);
  const double e = scaled_offset(point, scale, plane[0], plane[1], plane[2]);
  if (is_below_smallest(e)) return;
  const double factor = 1.0 / e;
  for (int i = 0; i < 3; ++i) plane[i] = plane[i] * factor;
}

VectorSet best_vector_set() {
#ifdef KESTRANE_WIDE_VECTORS
  if (__builtin_cpu_supports("avx512f")) return VectorSet::kAvx512;
  if (__builtin_cpu_supports("avx2")) return VectorSet::kAvx2;
#endif
  return VectorSet::kBaseline;
}

void compensate_line(const PlaneMotion& motion, double* cells, std::int32_t count) {
  compensate_line(motion, cells, count, best_vector_set());
}

void compensate_line(const PlaneMotion& motion, double* cells, std::int32_t count, VectorSet set) {
  line_form(set)(motion, cells, count);
}

LineForm* line_form(VectorSet set) {
#ifdef KESTRANE_WIDE_VECTORS
  constexpr LineForm* kForms[] = {move_line_baseline, move_line_avx2, move_line_avx512};
  return kForms[static_cast<int>(set)];
#else
  static_cast<void>(set);
  return move_line_baseline;
#endif
}

}  // namespace kestrane
