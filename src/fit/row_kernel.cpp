// Parts of this file are compiled for wider vectors than the rest of the library. So it takes in no
// header with inline functions or templates: the linker keeps one copy of such a function for the
// whole program, and that must not be one that an older processor cannot run. The templates below
// are this file's own and are always inlined.
#include "fit/row_kernel.h"

#if defined(__x86_64__)
#define KESTRANE_WIDE_VECTORS
#endif

#define KESTRANE_INLINE inline __attribute__((always_inline))

// How a call would pass wide vectors does not matter here: no such call is left.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace kestrane {
namespace {

constexpr int kLanes = 4;
constexpr int kChunkWords = 4;
constexpr int kChunkRows = 256;
constexpr int kGroups = 16;  // of kLanes rows in a word
constexpr int kChunksPerLevel = 64;

// Two lanes at a time: rows 4 g and 4 g + 1, then, in a second round over the chunk, the other two.
struct Pair {
  typedef double Real __attribute__((vector_size(16)));
  typedef std::int64_t Bits __attribute__((vector_size(16)));
  static constexpr int kWidth = 2;

  static KESTRANE_INLINE void load(const double* p, Real& x, Real& y, Real& z) {
    x = Real{p[0], p[3]};
    y = Real{p[1], p[4]};
    z = Real{p[2], p[5]};
  }
  static KESTRANE_INLINE void fill(double value, Real& v) { v = Real{value, value}; }

  // The larger of each lane; `v` where one is NaN. One instruction, which g++ does not find itself.
  static KESTRANE_INLINE void raise(Real& largest, const Real& v) {
#if defined(__SSE2__)
    largest = __builtin_ia32_maxpd(largest, v);
#else
    largest = largest > v ? largest : v;
#endif
  }
};

// All four lanes.
struct Quad {
  typedef double Real __attribute__((vector_size(32)));
  typedef std::int64_t Bits __attribute__((vector_size(32)));
  static constexpr int kWidth = 4;

  // Halves of rows 0, 1 and of rows 2, 3 beside each other; then no number has to change its half.
  static KESTRANE_INLINE void load(const double* p, Real& x, Real& y, Real& z) {
    const Real a{p[0], p[1], p[6], p[7]};
    const Real b{p[2], p[3], p[8], p[9]};
    const Real c{p[4], p[5], p[10], p[11]};
    x = __builtin_shufflevector(a, b, 0, 5, 2, 7);
    y = __builtin_shufflevector(a, c, 1, 4, 3, 6);
    z = __builtin_shufflevector(b, c, 0, 5, 2, 7);
  }
  static KESTRANE_INLINE void fill(double value, Real& v) { v = Real{value, value, value, value}; }

  static KESTRANE_INLINE void raise(Real& largest, const Real& v) {
    largest = largest > v ? largest : v;
  }
};

// Lane masks of four bits.
#define KESTRANE_MASKS(b) \
  { -((b)&1), -((b) >> 1 & 1), -((b) >> 2 & 1), -((b) >> 3 & 1) }
alignas(32) constexpr std::int64_t kMasks[16][kLanes] = {
    KESTRANE_MASKS(0),  KESTRANE_MASKS(1),  KESTRANE_MASKS(2),  KESTRANE_MASKS(3),
    KESTRANE_MASKS(4),  KESTRANE_MASKS(5),  KESTRANE_MASKS(6),  KESTRANE_MASKS(7),
    KESTRANE_MASKS(8),  KESTRANE_MASKS(9),  KESTRANE_MASKS(10), KESTRANE_MASKS(11),
    KESTRANE_MASKS(12), KESTRANE_MASKS(13), KESTRANE_MASKS(14), KESTRANE_MASKS(15)};
#undef KESTRANE_MASKS

// The mask of the rows from bit `first` on.
template <class V>
KESTRANE_INLINE const typename V::Bits& mask_of(std::uint64_t word, int first) {
  const auto bits = static_cast<int>(word >> first) & ((1 << V::kWidth) - 1);
  return *reinterpret_cast<const typename V::Bits*>(kMasks[bits]);
}

template <class V>
KESTRANE_INLINE typename V::Real masked(const typename V::Real& v, const typename V::Bits& mask) {
  return (typename V::Real)((typename V::Bits)v & mask);
}

template <class V>
KESTRANE_INLINE typename V::Real size_of(const typename V::Real& v) {
  constexpr std::int64_t kAllButSign = 0x7fffffffffffffff;
  return (typename V::Real)((typename V::Bits)v & kAllButSign);
}

// Sums of kSums quantities, each in four lanes and three levels.
template <int kSums>
struct LaneSums {
  double chunks[kSums][kLanes] = {};
  double total[kSums][kLanes] = {};
  int in_level = 0;

  KESTRANE_INLINE void add(const double (&chunk)[kSums][kLanes]) {
    for (int q = 0; q < kSums; ++q)
      for (int l = 0; l < kLanes; ++l) chunks[q][l] += chunk[q][l];
    if (++in_level == kChunksPerLevel) close_level();
  }

  KESTRANE_INLINE void close_level() {
    for (int q = 0; q < kSums; ++q) {
      for (int l = 0; l < kLanes; ++l) {
        total[q][l] += chunks[q][l];
        chunks[q][l] = 0.0;
      }
    }
    in_level = 0;
  }

  KESTRANE_INLINE double of(int q) {
    const double* t = total[q];
    return (t[0] + t[2]) + (t[1] + t[3]);
  }
};

KESTRANE_INLINE double across(const double (&lanes)[kLanes]) {
  return (lanes[0] + lanes[2]) + (lanes[1] + lanes[3]);
}

KESTRANE_INLINE double largest_of(const double (&lanes)[kLanes]) {
  double largest = lanes[0];
  for (int l = 1; l < kLanes; ++l) largest = lanes[l] > largest ? lanes[l] : largest;
  return largest;
}

// Puts the lanes `first`, ... of `v` into a row of four.
template <class V, class From, class To>
KESTRANE_INLINE void put(const From& v, int first, To* lanes) {
  for (int l = 0; l < V::kWidth; ++l) lanes[first + l] = v[l];
}

// Bit g of lane l is row 4 g + l: spreads 16 bits of a lane to every fourth place.
KESTRANE_INLINE std::uint64_t spread(std::uint64_t b) {
  b = (b | b << 24) & 0x000000ff000000ffU;
  b = (b | b << 12) & 0x000f000f000f000fU;
  b = (b | b << 6) & 0x0303030303030303U;
  return (b | b << 3) & 0x1111111111111111U;
}

KESTRANE_INLINE std::uint64_t interleaved(const std::int64_t (&lanes)[kLanes]) {
  std::uint64_t word = 0;
  for (int l = 0; l < kLanes; ++l) word |= spread(static_cast<std::uint64_t>(lanes[l])) << l;
  return word;
}

// A chunk of 256 rows: in place where the cloud has that many left, else padded with zeros.
struct ChunkRows {
  alignas(32) double padded[3 * kChunkRows];

  KESTRANE_INLINE const double* at(CloudRows rows, std::int64_t start) {
    const std::int64_t left = rows.count - start;
    const double* xyz = rows.xyz + 3 * start;
    if (left >= kChunkRows) return xyz;
    for (std::int64_t i = 0; i < 3 * left; ++i) padded[i] = xyz[i];
    for (std::int64_t i = 3 * left; i < 3 * kChunkRows; ++i) padded[i] = 0.0;
    return padded;
  }
};

KESTRANE_INLINE void load_words(const std::uint64_t* in_use, std::int64_t first, std::int64_t words,
                                std::uint64_t (&chunk)[kChunkWords]) {
  for (int w = 0; w < kChunkWords; ++w) chunk[w] = first + w < words ? in_use[first + w] : 0;
}

KESTRANE_INLINE void store_words(const std::uint64_t (&chunk)[kChunkWords], std::int64_t first,
                                 std::int64_t words, std::uint64_t* in_use) {
  for (int w = 0; w < kChunkWords && first + w < words; ++w) in_use[first + w] = chunk[w];
}

// Adds up the coordinates of the rows of a word, one row after another.
KESTRANE_INLINE void add_in_order(const double* xyz, std::uint64_t word, RowMoments& moments) {
  double x = moments.sum[0], y = moments.sum[1], z = moments.sum[2];
  if (word == ~std::uint64_t{0}) {
    for (int i = 0; i < kWordRows; ++i, xyz += 3) {  // order fixed
      x += xyz[0];
      y += xyz[1];
      z += xyz[2];
    }
  } else {
    for (; word != 0; word &= word - 1) {  // order fixed
      const double* row = xyz + 3 * __builtin_ctzll(word);
      x += row[0];
      y += row[1];
      z += row[2];
    }
  }
  moments.sum[0] = x;
  moments.sum[1] = y;
  moments.sum[2] = z;
}

KESTRANE_INLINE void count_and_add(const double* xyz, const std::uint64_t (&words)[kChunkWords],
                                   RowMoments& moments) {
  for (int w = 0; w < kChunkWords; ++w) {
    moments.count += __builtin_popcountll(words[w]);
    add_in_order(xyz + 3 * kWordRows * w, words[w], moments);
  }
}

// Where rows in use are copied to, one after another.
struct RowCopy {
  double* out;
  const double* end;

  // Each row is written, and overwritten by the next one where it is not in use: no branch has to
  // guess. Towards the end, where that would write beyond it, only rows in use are.
  KESTRANE_INLINE void take(const double* xyz, std::uint64_t word) {
    if (end - out >= 3 * kWordRows) {
      double* to = out;
      for (int i = 0; i < kWordRows; ++i, xyz += 3, word >>= 1) {
        to[0] = xyz[0];
        to[1] = xyz[1];
        to[2] = xyz[2];
        to += 3 * (word & 1);
      }
      out = to;
      return;
    }
    for (; word != 0; word &= word - 1, out += 3) {
      const double* row = xyz + 3 * __builtin_ctzll(word);
      out[0] = row[0];
      out[1] = row[1];
      out[2] = row[2];
    }
  }
};

// Six sums of products.
template <class V>
struct Products {
  typename V::Real xx{}, xy{}, xz{}, yy{}, yz{}, zz{};

  KESTRANE_INLINE void add(const typename V::Real& a, const typename V::Real& b,
                           const typename V::Real& c) {
    xx += a * a;
    xy += a * b;
    xz += a * c;
    yy += b * b;
    yz += b * c;
    zz += c * c;
  }

  KESTRANE_INLINE void put_lanes(int first, double (&sums)[6][kLanes]) const {
    put<V>(xx, first, sums[0]);
    put<V>(xy, first, sums[1]);
    put<V>(xz, first, sums[2]);
    put<V>(yy, first, sums[3]);
    put<V>(yz, first, sums[4]);
    put<V>(zz, first, sums[5]);
  }
};

KESTRANE_INLINE void finish(LaneSums<6>& sums, RowMoments& moments) {
  sums.close_level();
  for (int q = 0; q < 6; ++q) moments.products[q] = sums.of(q);
}

template <class V>
KESTRANE_INLINE void select(CloudRows rows, const DepthJob& job, std::uint64_t* in_use,
                            RowMoments& moments, double& reach) {
  using Real = typename V::Real;
  using Bits = typename V::Bits;
  Real lowest, highest, px, py, pz;
  V::fill(job.lowest, lowest);
  V::fill(job.highest, highest);
  V::fill(job.point[0], px);
  V::fill(job.point[1], py);
  V::fill(job.point[2], pz);
  const std::int64_t words = words_for(rows.count);
  ChunkRows chunk;
  LaneSums<6> sums;
  moments = {};
  double farthest[kLanes] = {};
  for (std::int64_t start = 0; start < rows.count; start += kChunkRows) {
    const double* const xyz = chunk.at(rows, start);
    std::int64_t bits[kChunkWords][kLanes];
    double products[6][kLanes];
    // Bits beyond the last row of a padded chunk.
    const std::int64_t left = rows.count - start;
    std::uint64_t kept[kChunkWords];
    for (int w = 0; w < kChunkWords; ++w) {
      const std::int64_t of_word = left - w * kWordRows;
      kept[w] = of_word >= kWordRows ? ~std::uint64_t{0}
                : of_word > 0        ? (std::uint64_t{1} << of_word) - 1
                                     : 0;
    }
    for (int lane = 0; lane < kLanes; lane += V::kWidth) {
      Products<V> sum;
      Real far{};
      for (int w = 0; w < kChunkWords; ++w) {
        Bits got{};
        Bits bit = Bits{} + 1;
        const double* p = xyz + 3 * (kWordRows * w + lane);
        for (int g = 0; g < kGroups; ++g, p += 3 * kLanes) {
          Real x, y, z;
          V::load(p, x, y, z);
          const Bits keep =
              ~((lowest > z) | (z > highest)) & mask_of<V>(kept[w], kLanes * g + lane);
          const Real a = masked<V>(x - px, keep);
          const Real b = masked<V>(y - py, keep);
          const Real c = masked<V>(z - pz, keep);
          sum.add(a, b, c);
          V::raise(far, a * a + b * b + c * c);
          got |= keep & bit;
          bit += bit;
        }
        put<V>(got, lane, bits[w]);
      }
      sum.put_lanes(lane, products);
      Real before;
      for (int l = 0; l < V::kWidth; ++l) before[l] = farthest[lane + l];
      V::raise(before, far);
      put<V>(before, lane, farthest);
    }
    for (int w = 0; w < kChunkWords; ++w) kept[w] = interleaved(bits[w]);
    store_words(kept, start / kWordRows, words, in_use);
    sums.add(products);
    count_and_add(xyz, kept, moments);
  }
  finish(sums, moments);
  reach = __builtin_sqrt(largest_of(farthest));
}

// D of the rows whose differences from the point are a, b, c.
template <class V>
struct Direction {
  typename V::Real px, py, pz, nx, ny, nz;

  explicit KESTRANE_INLINE Direction(const PointAndNormal& plane) {
    V::fill(plane.point[0], px);
    V::fill(plane.point[1], py);
    V::fill(plane.point[2], pz);
    V::fill(plane.normal[0], nx);
    V::fill(plane.normal[1], ny);
    V::fill(plane.normal[2], nz);
  }

  KESTRANE_INLINE typename V::Real along(const typename V::Real& a, const typename V::Real& b,
                                         const typename V::Real& c) const {
    return nx * a + ny * b + nz * c;
  }

  KESTRANE_INLINE typename V::Real of(const double* p) const {
    typename V::Real x, y, z;
    V::load(p, x, y, z);
    return along(x - px, y - py, z - pz);
  }
};

template <class V>
KESTRANE_INLINE void reject(CloudRows rows, const RejectionJob& job, const std::uint64_t* in_use,
                            std::uint64_t* kept, RowMoments& moments, bool& undecided) {
  using Real = typename V::Real;
  using Bits = typename V::Bits;
  const Direction<V> plane(job.plane);
  Real middle, half, error;
  V::fill(job.middle, middle);
  V::fill(job.half, half);
  V::fill(job.error, error);
  const std::int64_t words = words_for(rows.count);
  ChunkRows chunk;
  LaneSums<6> sums;
  moments = {};
  std::int64_t near_bound = 0;
  for (std::int64_t start = 0; start < rows.count; start += kChunkRows) {
    const double* const xyz = chunk.at(rows, start);
    std::uint64_t word[kChunkWords];
    load_words(in_use, start / kWordRows, words, word);
    std::int64_t bits[kChunkWords][kLanes];
    double products[6][kLanes];
    for (int lane = 0; lane < kLanes; lane += V::kWidth) {
      Products<V> sum;
      Bits near{};
      for (int w = 0; w < kChunkWords; ++w) {
        Bits got{};
        Bits bit = Bits{} + 1;
        const double* p = xyz + 3 * (kWordRows * w + lane);
        for (int g = 0; g < kGroups; ++g, p += 3 * kLanes) {
          Real x, y, z;
          V::load(p, x, y, z);
          const Real a = x - plane.px, b = y - plane.py, c = z - plane.pz;
          const Real beyond = size_of<V>(plane.along(a, b, c) - middle) - half;
          const Bits used = mask_of<V>(word[w], kLanes * g + lane);
          const Bits keep = (beyond <= 0.0) & used;
          near |= (size_of<V>(beyond) <= error) & used;
          sum.add(masked<V>(a, keep), masked<V>(b, keep), masked<V>(c, keep));
          got |= keep & bit;
          bit += bit;
        }
        put<V>(got, lane, bits[w]);
      }
      sum.put_lanes(lane, products);
      for (int l = 0; l < V::kWidth; ++l) near_bound |= near[l];
    }
    for (int w = 0; w < kChunkWords; ++w) word[w] = interleaved(bits[w]);
    store_words(word, start / kWordRows, words, kept);
    sums.add(products);
    count_and_add(xyz, word, moments);
  }
  finish(sums, moments);
  undecided = near_bound != 0;
}

template <class V>
KESTRANE_INLINE void sum_distances(CloudRows rows, const PointAndNormal& at,
                                   const std::uint64_t* in_use, DistanceSums& result) {
  using Real = typename V::Real;
  const Direction<V> plane(at);
  const std::int64_t words = words_for(rows.count);
  ChunkRows chunk;
  LaneSums<3> sums;
  double walked = 0.0;  // where the sum stands, and how far it came from there, over all rows
  result.walk = 0.0;
  for (std::int64_t start = 0; start < rows.count; start += kChunkRows) {
    const double* const xyz = chunk.at(rows, start);
    std::uint64_t word[kChunkWords];
    load_words(in_use, start / kWordRows, words, word);
    double chunk_sums[3][kLanes];
    int used_rows = 0;
    for (int w = 0; w < kChunkWords; ++w) used_rows += __builtin_popcountll(word[w]);
    for (int lane = 0; lane < kLanes; lane += V::kWidth) {
      Real sum{}, sizes{}, squares{};
      for (int w = 0; w < kChunkWords; ++w) {
        const double* p = xyz + 3 * (kWordRows * w + lane);
        for (int g = 0; g < kGroups; ++g, p += 3 * kLanes) {
          const Real d = masked<V>(plane.of(p), mask_of<V>(word[w], kLanes * g + lane));
          sum += d;
          sizes += size_of<V>(d);
          squares += d * d;
        }
      }
      put<V>(sum, lane, chunk_sums[0]);
      put<V>(sizes, lane, chunk_sums[1]);
      put<V>(squares, lane, chunk_sums[2]);
    }
    const double from = walked < 0.0 ? -walked : walked;
    result.walk += used_rows * (from + across(chunk_sums[1]));
    walked += across(chunk_sums[0]);
    sums.add(chunk_sums);
  }
  sums.close_level();
  result.sum = sums.of(0);
  result.sizes = sums.of(1);
  result.squares = sums.of(2);
}

template <class V>
KESTRANE_INLINE void measure(CloudRows rows, const PointAndNormal& at, const std::uint64_t* in_use,
                             double guess_value, DistanceFigures& figures, RowCopy copy) {
  using Real = typename V::Real;
  using Bits = typename V::Bits;
  const Direction<V> plane(at);
  Real guess;
  V::fill(guess_value, guess);
  const std::int64_t words = words_for(rows.count);
  ChunkRows chunk;
  LaneSums<2> sums;
  double largest[kLanes] = {};
  for (std::int64_t start = 0; start < rows.count; start += kChunkRows) {
    const double* const xyz = chunk.at(rows, start);
    std::uint64_t word[kChunkWords];
    load_words(in_use, start / kWordRows, words, word);
    double chunk_sums[2][kLanes];
    for (int lane = 0; lane < kLanes; lane += V::kWidth) {
      Real sum{}, squares{}, most{};
      for (int w = 0; w < kChunkWords; ++w) {
        const double* p = xyz + 3 * (kWordRows * w + lane);
        for (int g = 0; g < kGroups; ++g, p += 3 * kLanes) {
          const Bits used = mask_of<V>(word[w], kLanes * g + lane);
          const Real r = size_of<V>(plane.of(p));
          V::raise(most, masked<V>(r, used));
          const Real off = masked<V>(r - guess, used);
          sum += off;
          squares += off * off;
        }
      }
      put<V>(sum, lane, chunk_sums[0]);
      put<V>(squares, lane, chunk_sums[1]);
      for (int l = 0; l < V::kWidth; ++l) {
        if (most[l] > largest[lane + l]) largest[lane + l] = most[l];
      }
    }
    if (copy.out != nullptr) {
      for (int w = 0; w < kChunkWords; ++w) copy.take(xyz + 3 * kWordRows * w, word[w]);
    }
    sums.add(chunk_sums);
  }
  sums.close_level();
  figures = {largest_of(largest), sums.of(0), sums.of(1)};
}

// The bodies of one vector set.
#define KESTRANE_ROW_PASSES(name, V, target)                                                      \
  target void select_##name(CloudRows rows, const DepthJob& job, std::uint64_t* in_use,           \
                            RowMoments& moments, double& reach) {                                 \
    select<V>(rows, job, in_use, moments, reach);                                                 \
  }                                                                                               \
  target void reject_##name(CloudRows rows, const RejectionJob& job, const std::uint64_t* in_use, \
                            std::uint64_t* kept, RowMoments& moments, bool& undecided) {          \
    reject<V>(rows, job, in_use, kept, moments, undecided);                                       \
  }                                                                                               \
  target void sum_distances_##name(CloudRows rows, const PointAndNormal& plane,                   \
                                   const std::uint64_t* in_use, DistanceSums& sums) {             \
    sum_distances<V>(rows, plane, in_use, sums);                                                  \
  }                                                                                               \
  target void measure_##name(CloudRows rows, const PointAndNormal& plane,                         \
                             const std::uint64_t* in_use, double guess, DistanceFigures& figures, \
                             double* copies, std::int64_t count) {                                \
    measure<V>(rows, plane, in_use, guess, figures, {copies, copies + 3 * count});                \
  }                                                                                               \
  constexpr RowPasses k_##name = {select_##name, reject_##name, sum_distances_##name,             \
                                  measure_##name};

KESTRANE_ROW_PASSES(baseline, Pair, )
#ifdef KESTRANE_WIDE_VECTORS
KESTRANE_ROW_PASSES(avx2, Quad, __attribute__((target("avx2"))))
#endif
#undef KESTRANE_ROW_PASSES

}  // namespace

RowVectors best_row_vectors() {
#ifdef KESTRANE_WIDE_VECTORS
  if (__builtin_cpu_supports("avx2")) return RowVectors::kAvx2;
#endif
  return RowVectors::kBaseline;
}

const RowPasses& row_passes(RowVectors set) {
#ifdef KESTRANE_WIDE_VECTORS
  if (set == RowVectors::kAvx2) return k_avx2;
#endif
  static_cast<void>(set);
  return k_baseline;
}

}  // namespace kestrane
