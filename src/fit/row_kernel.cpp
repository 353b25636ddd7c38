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

// Vectors are types by attribute, read and written where doubles stand, and named per vector set;
// loops keep the form that was measured.
// NOLINTBEGIN(modernize-use-using, modernize-loop-convert)
// NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast)
// NOLINTBEGIN(cppcoreguidelines-macro-usage, bugprone-macro-parentheses)
namespace kestrane {
namespace {

constexpr int kLanes = 4;
constexpr int kChunkWords = 4;
constexpr int kChunkRows = 256;
constexpr int kGroups = 16;  // of kLanes rows in a word
constexpr int kChunksPerLevel = 64;

// Lanes whose bit of four is not set.
#define KESTRANE_MASKS(b) \
  { ((b)&1) - 1, ((b) >> 1 & 1) - 1, ((b) >> 2 & 1) - 1, ((b) >> 3 & 1) - 1 }
alignas(32) constexpr std::int64_t kMasks[16][kLanes] = {
    KESTRANE_MASKS(0),  KESTRANE_MASKS(1),  KESTRANE_MASKS(2),  KESTRANE_MASKS(3),
    KESTRANE_MASKS(4),  KESTRANE_MASKS(5),  KESTRANE_MASKS(6),  KESTRANE_MASKS(7),
    KESTRANE_MASKS(8),  KESTRANE_MASKS(9),  KESTRANE_MASKS(10), KESTRANE_MASKS(11),
    KESTRANE_MASKS(12), KESTRANE_MASKS(13), KESTRANE_MASKS(14), KESTRANE_MASKS(15)};
#undef KESTRANE_MASKS

// Two neighbours in memory. A load of this type stays whole; numbers that are put together one by
// one g++ also loads one by one.
typedef double Two __attribute__((vector_size(16), aligned(8), may_alias));

#if defined(__clang__)
KESTRANE_INLINE Two two(const double* p) {  // a reference would lose that it is not aligned
  Two v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}
#else
KESTRANE_INLINE const Two& two(const double* p) { return *reinterpret_cast<const Two*>(p); }
#endif

// Asks for the rows two chunks on, beyond what the processor fetches of itself.
KESTRANE_INLINE void fetch_ahead(const double* p) {
  __builtin_prefetch(p + 6 * kChunkRows);
  __builtin_prefetch(p + 6 * kChunkRows + 6);
}

// Two lanes at a time: rows 4 g and 4 g + 1, then, in a second round over the chunk, the other two.
struct Pair {
  typedef double Real __attribute__((vector_size(16)));
  typedef std::int64_t Bits __attribute__((vector_size(16)));
  static constexpr int kWidth = 2;
  static constexpr std::uint64_t kOwnBits = 0x3333333333333333U;  // of a word, in the first round

  // As rows 0 and 1 lie in memory: x0 y0, z0 x1, y1 z1.
  static KESTRANE_INLINE void load_mixed(const double* p, Real& a, Real& b, Real& c) {
    a = two(p);
    b = two(p + 2);
    c = two(p + 4);
  }
  static KESTRANE_INLINE void load(const double* p, Real& x, Real& y, Real& z) {
    Real a, b, c;
    load_mixed(p, a, b, c);
    x = __builtin_shufflevector(a, b, 0, 3);
    y = __builtin_shufflevector(a, c, 1, 2);
    z = __builtin_shufflevector(b, c, 0, 3);
  }
  // Of mixed x, y, z (x + y) + z in even lanes and (z + y) + x in odd ones.
  static KESTRANE_INLINE Real add_mixed(const Real& a, const Real& b, const Real& c) {
    return __builtin_shufflevector(a, c, 0, 3) + __builtin_shufflevector(a, c, 1, 2) + b;
  }
  static KESTRANE_INLINE void fill(double value, Real& v) { v = Real{value, value}; }
  static KESTRANE_INLINE void fill(double even, double odd, Real& v) { v = Real{even, odd}; }
  // The lanes of a mask, a bit each.
  static KESTRANE_INLINE std::uint64_t bits_of(const Bits& mask) {
#if defined(__SSE2__)
    return static_cast<std::uint64_t>(__builtin_ia32_movmskpd((Real)mask));
#else
    return static_cast<std::uint64_t>((mask[0] & 1) | (mask[1] & 2));
#endif
  }

  // Lanes beyond one of two bounds; a NaN is not. `v`, and 0 in the lanes of a mask. Written with
  // operators g++ would work out either lane by lane.
  static KESTRANE_INLINE Bits beyond(const Real& v, const Real& low, const Real& high) {
#if defined(__SSE2__) && !defined(__clang__)
    return (Bits)__builtin_ia32_orpd(__builtin_ia32_cmpltpd(v, low),
                                     __builtin_ia32_cmpltpd(high, v));
#else
    return (low > v) | (v > high);
#endif
  }
  static KESTRANE_INLINE Real without(const Real& v, const Bits& dropped) {
#if defined(__SSE2__) && !defined(__clang__)
    return __builtin_ia32_andnpd((Real)dropped, v);
#else
    return (Real)((Bits)v & ~dropped);
#endif
  }

  // The larger of each lane; `v` where one is NaN. One instruction, which g++ does not find itself.
  static KESTRANE_INLINE void raise(Real& largest, const Real& v) {
#if defined(__SSE2__)
    largest = __builtin_ia32_maxpd(largest, v);
#else
    largest = largest > v ? largest : v;
#endif
  }

  // The smaller of each lane; `smallest` where one is NaN.
  static KESTRANE_INLINE void lower(Real& smallest, const Real& v) {
#if defined(__SSE2__)
    smallest = __builtin_ia32_minpd(v, smallest);
#else
    smallest = v < smallest ? v : smallest;
#endif
  }

  struct RowSum {
    Real xy{}, z{};

    KESTRANE_INLINE void add(const double* row, std::int64_t mask) {
      const Bits used{mask, mask};
      const Real first = two(row);
      const Real third{row[2], 0.0};
      xy += (Real)((Bits)first & used);
      z += (Real)((Bits)third & used);
    }
    KESTRANE_INLINE void put(double (&sum)[3]) const {
      sum[0] = xy[0];
      sum[1] = xy[1];
      sum[2] = z[0];
    }
  };
};

// All four lanes.
struct Quad {
  typedef double Real __attribute__((vector_size(32)));
  typedef double Loose __attribute__((vector_size(32), aligned(8), may_alias));
  typedef std::int64_t Bits __attribute__((vector_size(32)));
  static constexpr int kWidth = 4;
  static constexpr std::uint64_t kOwnBits = ~std::uint64_t{0};

  // Halves of rows 0, 1 and of rows 2, 3 beside each other; then no number has to change its half.
  static KESTRANE_INLINE void load_mixed(const double* p, Real& a, Real& b, Real& c) {
    a = __builtin_shufflevector(two(p), two(p + 6), 0, 1, 2, 3);
    b = __builtin_shufflevector(two(p + 2), two(p + 8), 0, 1, 2, 3);
    c = __builtin_shufflevector(two(p + 4), two(p + 10), 0, 1, 2, 3);
  }
  static KESTRANE_INLINE void load(const double* p, Real& x, Real& y, Real& z) {
    Real a, b, c;
    load_mixed(p, a, b, c);
    x = __builtin_shufflevector(a, b, 0, 5, 2, 7);
    y = __builtin_shufflevector(a, c, 1, 4, 3, 6);
    z = __builtin_shufflevector(b, c, 0, 5, 2, 7);
  }
  static KESTRANE_INLINE Real add_mixed(const Real& a, const Real& b, const Real& c) {
    return __builtin_shufflevector(a, c, 0, 5, 2, 7) + __builtin_shufflevector(a, c, 1, 4, 3, 6) +
           b;
  }
  static KESTRANE_INLINE void fill(double value, Real& v) { v = Real{value, value, value, value}; }
  static KESTRANE_INLINE void fill(double even, double odd, Real& v) {
    v = Real{even, odd, even, odd};
  }

  static KESTRANE_INLINE Bits beyond(const Real& v, const Real& low, const Real& high) {
    return (low > v) | (v > high);
  }

  // g++ finds none of these three instructions itself, and names them only where a whole function
  // is for wider vectors.
  static KESTRANE_INLINE Real without(const Real& v, const Bits& dropped) {
#if defined(__clang__)
    return (Real)((Bits)v & ~dropped);
#else
    Real rest;
    asm("vandnpd %2, %1, %0" : "=x"(rest) : "x"(dropped), "x"(v));
    return rest;
#endif
  }
  static KESTRANE_INLINE std::uint64_t bits_of(const Bits& mask) {
#if defined(__clang__)
    const std::int64_t low = (mask[0] & 1) | (mask[1] & 2);
    return static_cast<std::uint64_t>(low | (mask[2] & 4) | (mask[3] & 8));
#else
    std::uint64_t bits;
    asm("vmovmskpd %1, %0" : "=r"(bits) : "x"(mask));
    return bits;
#endif
  }
  static KESTRANE_INLINE void raise(Real& largest, const Real& v) {
#if defined(__clang__)
    largest = largest > v ? largest : v;
#else
    asm("vmaxpd %1, %0, %0" : "+x"(largest) : "x"(v));
#endif
  }

  static KESTRANE_INLINE void lower(Real& smallest, const Real& v) {
#if defined(__clang__)
    smallest = v < smallest ? v : smallest;
#else
    asm("vminpd %0, %1, %0" : "+x"(smallest) : "x"(v));
#endif
  }

  // The fourth lane adds up what stands beside a row, for nothing.
  struct RowSum {
    Real xyz{};

    KESTRANE_INLINE void add(const double* row, std::int64_t mask) {
      const Real all = *reinterpret_cast<const Loose*>(row);
      xyz += (Real)((Bits)all & Bits{mask, mask, mask, mask});
    }
    KESTRANE_INLINE void put(double (&sum)[3]) const {
      for (int k = 0; k < 3; ++k) sum[k] = xyz[k];
    }
  };
};

// The lanes of a group whose rows are not in use, by the lowest bits; moves on to the next group.
template <class V>
KESTRANE_INLINE const typename V::Bits& lanes_not_in_use(std::uint64_t& word) {
  const auto bits = static_cast<unsigned>(word) & ((1U << V::kWidth) - 1U);
  word >>= kLanes;
  return *reinterpret_cast<const typename V::Bits*>(kMasks[bits]);
}

// `v`, and NaN in the lanes of a mask.
template <class V>
KESTRANE_INLINE typename V::Real none_in(const typename V::Bits& mask, const typename V::Real& v) {
  return (typename V::Real)((typename V::Bits)v | mask);
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
    add_last(chunk);
    if (++in_level == kChunksPerLevel) close_level();
  }

  // Adds the last chunk of all, whose level is closed next, full or not.
  KESTRANE_INLINE void add_last(const double (&chunk)[kSums][kLanes]) {
    for (int q = 0; q < kSums; ++q)
      for (int l = 0; l < kLanes; ++l) chunks[q][l] += chunk[q][l];
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

KESTRANE_INLINE double smallest_of(const double (&lanes)[kLanes]) {
  double smallest = lanes[0];
  for (int l = 1; l < kLanes; ++l) smallest = lanes[l] < smallest ? lanes[l] : smallest;
  return smallest;
}

// Puts the lanes `first`, ... of `v` into a row of four.
template <class V, class From, class To>
KESTRANE_INLINE void put(const From& v, int first, To* lanes) {
  for (int l = 0; l < V::kWidth; ++l) lanes[first + l] = v[l];
}

// A chunk of 256 rows: in place, or padded where it is the cloud's last one. So the double that
// follows a chunk may be read.
struct ChunkRows {
  alignas(32) double padded[3 * kChunkRows + 1] = {};

  // Pads with a row that is not zero, before any chunk is asked for.
  KESTRANE_INLINE void pad_with(const double (&row)[3]) {
    for (int i = 0; i < 3 * kChunkRows; i += 3)
      for (int k = 0; k < 3; ++k) padded[i + k] = row[k];
  }

  KESTRANE_INLINE const double* at(CloudRows rows, std::int64_t start) {
    if (rows.count - start > kChunkRows) return rows.xyz + 3 * start;
    return last(rows, start);
  }

  KESTRANE_INLINE const double* last(CloudRows rows, std::int64_t start) {
    const double* xyz = rows.xyz + 3 * start;
    for (std::int64_t i = 0; i < 3 * (rows.count - start); ++i) padded[i] = xyz[i];
    return padded;
  }
};

KESTRANE_INLINE void load_words(const std::uint64_t* in_use, std::int64_t first, std::int64_t words,
                                std::uint64_t (&chunk)[kChunkWords]) {
  for (int w = 0; w < kChunkWords; ++w) chunk[w] = first + w < words ? in_use[first + w] : 0;
}

KESTRANE_INLINE void store_words(const std::uint64_t (&chunk)[kChunkWords], std::int64_t first,
                                 std::int64_t words, std::uint64_t* in_use) {
  const std::int64_t left = words - first;
  const std::int64_t stored = left < kChunkWords ? left : kChunkWords;
  for (std::int64_t w = 0; w < stored; ++w) in_use[first + w] = chunk[w];
}

KESTRANE_INLINE std::int64_t count_of(const std::uint64_t (&words)[kChunkWords]) {
  std::int64_t rows = 0;
  for (int w = 0; w < kChunkWords; ++w) rows += __builtin_popcountll(words[w]);
  return rows;
}

// Which rows of a chunk are in use: a bit each for the caller, and all ones or zeros each for the
// sums in order.
struct ChunkUse {
  alignas(32) std::int64_t masks[kChunkRows];
  std::uint64_t words[kChunkWords];

  template <class V>
  KESTRANE_INLINE void set_mask(std::int64_t first, const typename V::Bits& in_use) {
    *reinterpret_cast<typename V::Bits*>(masks + first) = in_use;
  }
};

// Where rows are copied to, one after another; nowhere, without any room, where `out` is null.
struct RowCopy {
  double* out;
  const double* end;

  // Whether a whole chunk may be copied row by row: each row is written, and overwritten by the
  // next one where it is not in use, so that no branch has to guess.
  KESTRANE_INLINE bool has_room_for_a_chunk() const { return end - out >= 3 * kChunkRows; }

  KESTRANE_INLINE void put(const double* row) const {
    *reinterpret_cast<Two*>(out) = two(row);
    out[2] = row[2];
  }

  // Writes nothing but rows in use.
  KESTRANE_INLINE void take(const double* xyz, const std::uint64_t (&in_use)[kChunkWords]) {
    if (out == nullptr) return;
    for (int w = 0; w < kChunkWords; ++w, xyz += 3 * kWordRows) {
      for (std::uint64_t word = in_use[w]; word != 0; word &= word - 1, out += 3) {
        put(xyz + 3 * __builtin_ctzll(word));
      }
    }
  }
};

// Adds up the coordinates of rows, one row after another, and copies the rows. Each addition waits
// for the one before, so the rows of a chunk are added while the vectors work on the next chunk, a
// few after each group. Until a chunk waits, rows that are not in use are passed over.
template <class V>
struct OrderedSums {
  RowCopy copy;
  const double* row;
  const std::int64_t* mask;
  typename V::RowSum sum{};

  template <bool kCopies>
  KESTRANE_INLINE void step() {
    for (int i = 0; i < V::kWidth; ++i) sum.add(row + 3 * i, mask[i]);
    for (int i = 0; kCopies && i < V::kWidth; ++i) {
      copy.put(row + 3 * i);
      copy.out += 3 & mask[i];
    }
    row += 3 * V::kWidth;
    mask += V::kWidth;
  }

  KESTRANE_INLINE void wait_for(const double* xyz, const ChunkUse& use) {
    row = xyz;
    mask = use.masks;
  }

  // Adds the rows of the last chunk, by its words: its masks are set for padding too.
  KESTRANE_INLINE void finish(const ChunkUse& use, double (&total)[3]) {
    sum.put(total);
    const double* first = row;
    for (int w = 0; w < kChunkWords; ++w, first += 3 * kWordRows) {
      for (std::uint64_t word = use.words[w]; word != 0; word &= word - 1) {  // order fixed
        const double* xyz = first + 3 * __builtin_ctzll(word);
        for (int k = 0; k < 3; ++k) total[k] += xyz[k];
      }
    }
  }
};

// Clears the bits of rows that only pad a chunk, of which `left` rows are the cloud's.
KESTRANE_INLINE void drop_padding(std::int64_t left, std::uint64_t (&words)[kChunkWords]) {
  for (int w = 0; w < kChunkWords; ++w) {
    const std::int64_t of_word = left - w * kWordRows;
    if (of_word < kWordRows) words[w] &= of_word > 0 ? (std::uint64_t{1} << of_word) - 1 : 0;
  }
}

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

  KESTRANE_INLINE void put_lanes(int first, double (*sums)[kLanes]) const {
    put<V>(xx, first, sums[0]);
    put<V>(xy, first, sums[1]);
    put<V>(xz, first, sums[2]);
    put<V>(yy, first, sums[3]);
    put<V>(yz, first, sums[4]);
    put<V>(zz, first, sums[5]);
  }
};

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
  chunk.pad_with(job.point);  // whose differences from it are 0
  LaneSums<9> sums;
  moments.count = 0;
  double farthest[kLanes] = {};
  for (std::int64_t start = 0; start < rows.count; start += kChunkRows) {
    const double* const xyz = chunk.at(rows, start);
    std::uint64_t inside[kChunkWords] = {};
    double of_chunk[9][kLanes];
    for (int lane = 0; lane < kLanes; lane += V::kWidth) {
      Products<V> products;
      Real sum_x{}, sum_y{}, sum_z{}, far{};
      for (int w = 0; w < kChunkWords; ++w) {
        std::uint64_t got = 0;
        const double* p = xyz + 3 * (kWordRows * w + lane);
        for (int g = 0; g < kGroups; ++g, p += 3 * kLanes) {
          Real x, y, z;
          fetch_ahead(p);
          V::load(p, x, y, z);
          const Bits dropped = V::beyond(z, lowest, highest);
          const Real a = V::without(x - px, dropped);
          const Real b = V::without(y - py, dropped);
          const Real c = V::without(z - pz, dropped);
          sum_x += a;
          sum_y += b;
          sum_z += c;
          products.add(a, b, c);
          V::raise(far, a * a + b * b + c * c);
          got = got >> kLanes | V::bits_of(dropped) << (kWordRows - kLanes);
        }
        inside[w] |= (~got & V::kOwnBits) << lane;
      }
      put<V>(sum_x, lane, of_chunk[0]);
      put<V>(sum_y, lane, of_chunk[1]);
      put<V>(sum_z, lane, of_chunk[2]);
      products.put_lanes(lane, of_chunk + 3);
      Real before;
      for (int l = 0; l < V::kWidth; ++l) before[l] = farthest[lane + l];
      V::raise(before, far);
      put<V>(before, lane, farthest);
    }
    drop_padding(rows.count - start, inside);
    store_words(inside, start / kWordRows, words, in_use);
    sums.add(of_chunk);
    moments.count += count_of(inside);
  }
  sums.close_level();
  for (int k = 0; k < 3; ++k) moments.sum[k] = sums.of(k);
  for (int q = 0; q < 6; ++q) moments.products[q] = sums.of(3 + q);
  reach = __builtin_sqrt(largest_of(farthest));
}

// Three numbers beside rows as V loads them mixed.
template <class V>
struct Mixed {
  typename V::Real a, b, c;

  explicit KESTRANE_INLINE Mixed(const double (&xyz)[3]) {
    V::fill(xyz[0], xyz[1], a);
    V::fill(xyz[2], xyz[0], b);
    V::fill(xyz[1], xyz[2], c);
  }
};

// D of rows, as the product of the normal with a difference.
template <class V>
struct Direction {
  Mixed<V> point;
  Mixed<V> normal;

  explicit KESTRANE_INLINE Direction(const PointAndNormal& plane)
      : point(plane.point), normal(plane.normal) {}

  KESTRANE_INLINE typename V::Real of(const double* p) const {
    typename V::Real a, b, c;
    fetch_ahead(p);
    V::load_mixed(p, a, b, c);
    return V::add_mixed((a - point.a) * normal.a, (b - point.b) * normal.b,
                        (c - point.c) * normal.c);
  }
};

// How far D of rows lies from the middle of a band; the distances themselves are added up.
template <class V, bool kSums>
struct OffMiddle {
  Direction<V> plane;
  typename V::Real middle;

  explicit KESTRANE_INLINE OffMiddle(const RejectionJob& job) : plane(job.plane) {
    V::fill(job.middle, middle);
  }

  KESTRANE_INLINE typename V::Real of(const double* p, typename V::Real& distance) const {
    distance = plane.of(p);
    return distance - middle;
  }
};

// The same where nothing adds the distances up: the difference of two products, cheaper, and off by
// a few roundings of either.
template <class V>
struct OffMiddle<V, false> {
  Mixed<V> normal;
  typename V::Real height;  // of the middle

  explicit KESTRANE_INLINE OffMiddle(const RejectionJob& job) : normal(job.plane.normal) {
    const double* n = job.plane.normal;
    const double* p = job.plane.point;
    V::fill((n[0] * p[0] + n[1] * p[1] + n[2] * p[2]) + job.middle, height);
  }

  KESTRANE_INLINE typename V::Real of(const double* p, typename V::Real& /*distance*/) const {
    typename V::Real a, b, c;
    fetch_ahead(p);
    V::load_mixed(p, a, b, c);
    return V::add_mixed(a * normal.a, b * normal.b, c * normal.c) - height;
  }
};

// Moments of the rows that a rejection drops: few, so row after row. Row k of `sums` takes
// coordinate k times (x, y, z, 1).
struct DroppedRows {
  LaneSums<3> sums;
  std::int64_t count = 0;

  KESTRANE_INLINE void add(const double* xyz, const std::uint64_t (&dropped)[kChunkWords],
                           const double (&point)[3]) {
    double of_chunk[3][kLanes] = {};
    for (int w = 0; w < kChunkWords; ++w, xyz += 3 * kWordRows) {
      for (std::uint64_t word = dropped[w]; word != 0; word &= word - 1) {
        const double* row = xyz + 3 * __builtin_ctzll(word);
        const double a[kLanes] = {row[0] - point[0], row[1] - point[1], row[2] - point[2], 1.0};
        for (int k = 0; k < 3; ++k)
          for (int l = 0; l < kLanes; ++l) of_chunk[k][l] += a[k] * a[l];
      }
    }
    sums.add(of_chunk);
    count += count_of(dropped);
  }

  KESTRANE_INLINE void finish(RowMoments& moments) {
    sums.close_level();
    const auto& s = sums.total;
    moments = {
        count, {s[0][3], s[1][3], s[2][3]}, {s[0][0], s[0][1], s[0][2], s[1][1], s[1][2], s[2][2]}};
  }
};

// Distances of rows in use, added up.
template <class V>
struct DistancesInUse {
  LaneSums<2> sums;
  double of_chunk[2][kLanes];
  double walked = 0.0;  // where the sum stands, and how far it came from there, over all rows
  double walk = 0.0;
  typename V::Real sum, squares;

  KESTRANE_INLINE void start_lanes() { sum = squares = typename V::Real{}; }

  KESTRANE_INLINE void add(const typename V::Real& d) {
    sum += d;
    squares += d * d;
  }

  KESTRANE_INLINE void end_lanes(int lane) {
    put<V>(sum, lane, of_chunk[0]);
    put<V>(squares, lane, of_chunk[1]);
  }

  // Within the chunk the sum goes no further than the sizes of its distances, whose sum is at most
  // the root of their number times their squares.
  KESTRANE_INLINE void end_chunk(std::int64_t rows) {
    const auto used = static_cast<double>(rows);
    const double from = walked < 0.0 ? -walked : walked;
    walk += used * (from + __builtin_sqrt(used * across(of_chunk[1])));
    walked += across(of_chunk[0]);
    sums.add(of_chunk);
  }

  KESTRANE_INLINE void finish(DistanceSums& result) {
    sums.close_level();
    result = {sums.of(0), sums.of(1), walk};
  }
};

// A rejection, chunk by chunk; it adds distances up where that is wanted.
template <class V, bool kSums>
struct RejectedChunks {
  OffMiddle<V, kSums> off_middle;
  typename V::Real half;
  OrderedSums<V> in_order;
  DistancesInUse<V> distances{};
  double nearest[kLanes] = {__builtin_inf(), __builtin_inf(), __builtin_inf(), __builtin_inf()};

  // The rows of a chunk; beside it those of the one before are added up, and copied.
  template <bool kCopies>
  KESTRANE_INLINE void reject(const double* xyz, const std::uint64_t (&word)[kChunkWords],
                              ChunkUse& use) {
    using Real = typename V::Real;
    using Bits = typename V::Bits;
    OrderedSums<V> order = in_order;  // here no copied row can reach it
    for (int w = 0; w < kChunkWords; ++w) use.words[w] = 0;
    for (int lane = 0; lane < kLanes; lane += V::kWidth) {
      Real near;
      for (int l = 0; l < V::kWidth; ++l) near[l] = nearest[lane + l];
      distances.start_lanes();
      for (int w = 0; w < kChunkWords; ++w) {
        std::uint64_t got = 0;
        const double* p = xyz + 3 * (kWordRows * w + lane);
        std::uint64_t used = word[w] >> lane;
        for (int g = 0; g < kGroups; ++g, p += 3 * kLanes) {
          const Bits& idle = lanes_not_in_use<V>(used);
          Real d;
          const Real off = size_of<V>(off_middle.of(p, d));
          const Bits keep = (Bits)V::without((Real)(off <= half), idle);
          V::lower(near, none_in<V>(idle, size_of<V>(off - half)));
          if (kSums) distances.add(V::without(d, idle));
          got = got >> kLanes | V::bits_of(keep) << (kWordRows - kLanes);
          use.template set_mask<V>(kWordRows * w + kLanes * g + lane, keep);
          order.template step<kCopies>();
        }
        use.words[w] |= got << lane;
      }
      put<V>(near, lane, nearest);
      if (kSums) distances.end_lanes(lane);
    }
    if (kSums) distances.end_chunk(count_of(word));
    in_order = order;
  }
};

// Only with sums are rows copied.
template <class V, bool kSums>
KESTRANE_INLINE void reject(CloudRows rows, const RejectionJob& job, const std::uint64_t* in_use,
                            std::uint64_t* kept, Rejection& rejection, DistanceSums* sums,
                            RowCopy copy) {
  const std::int64_t words = words_for(rows.count);
  ChunkRows chunk;
  DroppedRows dropped_rows;
  ChunkUse uses[2] = {};  // of the chunk at work and of the one before
  RejectedChunks<V, kSums> chunks{
      OffMiddle<V, kSums>(job), {}, {copy, chunk.padded, uses[1].masks}};
  V::fill(job.half, chunks.half);
  int now = 0;
  rejection.count = 0;
  for (std::int64_t start = 0; start < rows.count; start += kChunkRows) {
    const double* const xyz = chunk.at(rows, start);
    std::uint64_t word[kChunkWords];
    load_words(in_use, start / kWordRows, words, word);
    ChunkUse& use = uses[now];
    if (kSums && chunks.in_order.copy.has_room_for_a_chunk()) {
      chunks.template reject<true>(xyz, word, use);
    } else {
      if (kSums) chunks.in_order.copy.take(chunks.in_order.row, uses[now ^ 1].words);
      chunks.template reject<false>(xyz, word, use);
    }
    store_words(use.words, start / kWordRows, words, kept);
    for (int w = 0; w < kChunkWords; ++w) word[w] &= ~use.words[w];
    dropped_rows.add(xyz, word, job.moments_point);
    rejection.count += count_of(use.words);
    chunks.in_order.wait_for(xyz, use);
    now ^= 1;
  }
  chunks.in_order.finish(uses[now ^ 1], rejection.sum);
  if (kSums) chunks.in_order.copy.take(chunks.in_order.row, uses[now ^ 1].words);
  dropped_rows.finish(rejection.dropped);
  rejection.nearest = smallest_of(chunks.nearest);
  if (kSums) chunks.distances.finish(*sums);
}

// Figures of distances to a plane.
template <class V>
struct Measured {
  Direction<V> plane;
  typename V::Real guess;
  LaneSums<2> sums;
  double largest[kLanes] = {};

  // A chunk, all of whose rows are in use, or those whose bits are set.
  template <bool kAll>
  KESTRANE_INLINE void chunk(const double* xyz, const std::uint64_t (&in_use)[kChunkWords],
                             double (&of_chunk)[2][kLanes]) {
    using Real = typename V::Real;
    for (int lane = 0; lane < kLanes; lane += V::kWidth) {
      Real sum{}, squares{}, most{};
      for (int w = 0; w < kChunkWords; ++w) {
        const double* p = xyz + 3 * (kWordRows * w + lane);
        std::uint64_t used = in_use[w] >> lane;
        for (int g = 0; g < kGroups; ++g, p += 3 * kLanes) {
          Real r = size_of<V>(plane.of(p));
          Real off = r - guess;
          if (!kAll) {
            const typename V::Bits& idle = lanes_not_in_use<V>(used);
            r = V::without(r, idle);
            off = V::without(off, idle);
          }
          V::raise(most, r);
          sum += off;
          squares += off * off;
        }
      }
      put<V>(sum, lane, of_chunk[0]);
      put<V>(squares, lane, of_chunk[1]);
      for (int l = 0; l < V::kWidth; ++l) {
        if (most[l] > largest[lane + l]) largest[lane + l] = most[l];
      }
    }
  }
};

template <class V>
KESTRANE_INLINE void measure(CloudRows rows, const PointAndNormal& at, double guess,
                             DistanceFigures& figures) {
  constexpr std::uint64_t kAllBits = ~std::uint64_t{0};
  Measured<V> measured{Direction<V>(at), {}, {}, {}};
  V::fill(guess, measured.guess);
  std::uint64_t in_use[kChunkWords] = {kAllBits, kAllBits, kAllBits, kAllBits};
  double of_chunk[2][kLanes];
  std::int64_t start = 0;
  for (; rows.count - start > kChunkRows; start += kChunkRows) {
    measured.template chunk<true>(rows.xyz + 3 * start, in_use, of_chunk);
    measured.sums.add(of_chunk);
  }
  ChunkRows chunk;
  drop_padding(rows.count - start, in_use);
  measured.template chunk<false>(chunk.last(rows, start), in_use, of_chunk);
  measured.sums.add_last(of_chunk);
  measured.sums.close_level();
  figures = {largest_of(measured.largest), measured.sums.of(0), measured.sums.of(1)};
}

// The bodies of one vector set.
#define KESTRANE_ROW_PASSES(name, V, target)                                                      \
  target void select_##name(CloudRows rows, const DepthJob& job, std::uint64_t* in_use,           \
                            RowMoments& moments, double& reach) {                                 \
    select<V>(rows, job, in_use, moments, reach);                                                 \
  }                                                                                               \
  target void reject_##name(CloudRows rows, const RejectionJob& job, const std::uint64_t* in_use, \
                            std::uint64_t* kept, Rejection& rejection) {                          \
    reject<V, false>(rows, job, in_use, kept, rejection, nullptr, {nullptr, nullptr});            \
  }                                                                                               \
  target void reject_and_sum_##name(                                                              \
      CloudRows rows, const RejectionJob& job, const std::uint64_t* in_use, std::uint64_t* kept,  \
      Rejection& rejection, DistanceSums& sums, double* copies, std::int64_t room) {              \
    reject<V, true>(rows, job, in_use, kept, rejection, &sums, {copies, copies + 3 * room});      \
  }                                                                                               \
  target void measure_##name(CloudRows rows, const PointAndNormal& plane, double guess,           \
                             DistanceFigures& figures) {                                          \
    measure<V>(rows, plane, guess, figures);                                                      \
  }                                                                                               \
  constexpr RowPasses k_##name = {select_##name, reject_##name, reject_and_sum_##name,            \
                                  measure_##name};

KESTRANE_ROW_PASSES(baseline, Pair, )
#ifdef KESTRANE_WIDE_VECTORS
KESTRANE_ROW_PASSES(avx2, Quad, __attribute__((target("avx2"))))
#endif
#undef KESTRANE_ROW_PASSES

}  // namespace

double summation_depth(double rows) { return 64.0 + 64.0 + rows / 16384.0 + 4.0; }

double dropped_depth(double rows) { return 256.0 + 64.0 + rows / 16384.0; }

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
// NOLINTEND(cppcoreguidelines-macro-usage, bugprone-macro-parentheses)
// NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast)
// NOLINTEND(modernize-use-using, modernize-loop-convert)
