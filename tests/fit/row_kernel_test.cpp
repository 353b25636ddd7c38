#include "fit/row_kernel.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

#include "tests/fit/plane_clouds.h"

namespace {

using namespace plane_clouds;
using kestrane::best_row_vectors;
using kestrane::CloudRows;
using kestrane::DepthJob;
using kestrane::DistanceFigures;
using kestrane::DistanceSums;
using kestrane::PointAndNormal;
using kestrane::Rejection;
using kestrane::RejectionJob;
using kestrane::row_passes;
using kestrane::RowMoments;
using kestrane::RowPasses;
using kestrane::RowVectors;
using kestrane::words_for;

using Bits = std::vector<std::uint64_t>;

constexpr double kUnit = 0x1p-53;
constexpr PointAndNormal kPlane{{60.0, 3.0, 500.0}, {0.96, -0.02, -0.28}};

std::vector<RowVectors> vector_sets() {
  if (best_row_vectors() == RowVectors::kBaseline) return {RowVectors::kBaseline};
  return {RowVectors::kBaseline, RowVectors::kAvx2};
}

CloudRows rows_of(const PointMatrix3& points) { return {points.data(), points.rows()}; }

bool is_set(const Bits& bits, Eigen::Index i) {
  return (bits[static_cast<std::size_t>(i / 64)] >> (i % 64) & 1U) != 0;
}

Bits random_bits(Random& random, Eigen::Index count) {
  Bits bits(static_cast<std::size_t>(words_for(count)));
  const int kind = random.index(3);
  for (Eigen::Index i = 0; i < count; ++i) {
    const bool in_use = kind == 0 || (kind == 1 ? random.index(20) != 0 : random.index(2) != 0);
    if (in_use) bits[static_cast<std::size_t>(i / 64)] |= std::uint64_t{1} << (i % 64);
  }
  return bits;
}

// Around every border between words, chunks and levels.
const std::vector<Eigen::Index>& counts() {
  static const std::vector<Eigen::Index> all = {1,   3,    4,    5,     63,    64,    65,   127,
                                                128, 129,  255,  256,   257,   320,   511,  512,
                                                513, 1000, 5000, 16383, 16384, 16385, 40000};
  return all;
}

PointMatrix3 sheet(Random& random, Eigen::Index count) {
  return sheet_cloud(random, count, {.noise = 0.3});
}

long double distance(const PointMatrix3& points, Eigen::Index i, const PointAndNormal& plane) {
  long double d = 0.0L;
  for (int k = 0; k < 3; ++k) {
    d += static_cast<long double>(plane.normal[k]) *
         (static_cast<long double>(points(i, k)) - plane.point[k]);
  }
  return d;
}

// Sums over rows, in order and of their differences from a point.
struct Expected {
  Eigen::Index count = 0;
  double in_order[3] = {};
  long double sum[3] = {};
  long double products[6] = {};
  long double sum_sizes[3] = {};
  long double sizes[6] = {};
  long double reach = 0.0L;

  void add(const PointMatrix3& points, Eigen::Index i, const double* point) {
    ++count;
    long double a[3];
    for (int k = 0; k < 3; ++k) {
      in_order[k] += points(i, k);
      a[k] = static_cast<long double>(points(i, k)) - point[k];
      sum[k] += a[k];
      sum_sizes[k] += std::abs(a[k]);
    }
    int q = 0;
    for (int k = 0; k < 3; ++k) {
      for (int l = k; l < 3; ++l, ++q) {
        products[q] += a[k] * a[l];
        sizes[q] += std::abs(a[k] * a[l]);
      }
    }
    reach = std::max(reach, std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]));
  }

  void expect(const RowMoments& moments, double depth) const {
    EXPECT_EQ(moments.count, count);
    for (int k = 0; k < 3; ++k) {
      EXPECT_LE(std::abs(moments.sum[k] - sum[k]), 1.01L * (depth + 1.0) * kUnit * sum_sizes[k]);
    }
    for (int q = 0; q < 6; ++q) {
      EXPECT_LE(std::abs(moments.products[q] - products[q]),
                1.01L * (depth + 3.0) * kUnit * sizes[q])
          << q;
    }
  }

  void expect_in_order(const Rejection& rejection) const {
    EXPECT_EQ(rejection.count, count);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(rejection.sum[k], in_order[k]);
  }
};

class RowPassesOf : public testing::TestWithParam<RowVectors> {
 protected:
  const RowPasses& passes = row_passes(GetParam());
};

TEST_P(RowPassesOf, SelectTheRowsOfTheBandAndAddThemUp) {
  Random random(1);
  for (const Eigen::Index count : counts()) {
    PointMatrix3 points = sheet(random, count);
    points(random.index(static_cast<int>(count)), 2) = 1000.0;
    points(0, 2) = 100.0;
    const DepthJob job{100.0, 1000.0, {60.0, 3.0, 500.0}};
    Bits in_use(static_cast<std::size_t>(words_for(count)), ~std::uint64_t{0});
    RowMoments moments;
    double reach;
    passes.select(rows_of(points), job, in_use.data(), moments, reach);
    Expected expected;
    for (Eigen::Index i = 0; i < count; ++i) {
      const bool inside = points(i, 2) >= 100.0 && points(i, 2) <= 1000.0;
      ASSERT_EQ(is_set(in_use, i), inside) << count << ", row " << i;
      if (inside) expected.add(points, i, job.point);
    }
    for (Eigen::Index i = count; i < 64 * words_for(count); ++i) ASSERT_FALSE(is_set(in_use, i));
    expected.expect(moments, kestrane::summation_depth(static_cast<double>(count)));
    EXPECT_NEAR(reach / static_cast<double>(expected.reach), 1.0, 1e-15);
  }
}

TEST_P(RowPassesOf, KeepADepthThatIsNaNAndDropInfiniteOnes) {
  PointMatrix3 points = PointMatrix3::Constant(300, 3, 500.0);
  points(7, 2) = kNaN;
  points(8, 2) = kInf;
  points(9, 2) = -kInf;
  Bits in_use(5);
  RowMoments moments;
  double reach;
  passes.select(rows_of(points), {100.0, 1000.0, {0, 0, 0}}, in_use.data(), moments, reach);
  EXPECT_EQ(in_use[0], ~std::uint64_t{0} & ~(std::uint64_t{3} << 8));
  EXPECT_EQ(moments.count, 298);
  EXPECT_TRUE(std::isnan(moments.sum[2]));
  EXPECT_EQ(moments.sum[0], 298 * 500.0);
}

TEST_P(RowPassesOf, RejectBeyondBoundsAndLeaveTheRestUnread) {
  Random random(2);
  for (const Eigen::Index count : counts()) {
    PointMatrix3 points = sheet(random, count);
    const Bits in_use = random_bits(random, count);
    for (Eigen::Index i = 0; i < count; ++i) {
      if (!is_set(in_use, i)) points.row(i).setConstant(i % 2 == 0 ? kNaN : kInf);
    }
    const RejectionJob job{kPlane, 0.25, 30.0, {50.0, -2.0, 490.0}};
    Bits kept(in_use.size(), ~std::uint64_t{0});
    Rejection rejection;
    passes.reject(rows_of(points), job, in_use.data(), kept.data(), rejection);
    Expected stay, dropped;
    long double nearest = kInf;
    for (Eigen::Index i = 0; i < count; ++i) {
      const long double off = std::abs(distance(points, i, kPlane) - 0.25L);
      const bool keep = is_set(in_use, i) && off <= 30.0L;
      ASSERT_EQ(is_set(kept, i), keep) << count << ", row " << i;
      if (!is_set(in_use, i)) continue;
      (keep ? stay : dropped).add(points, i, job.moments_point);
      nearest = std::min(nearest, std::abs(off - 30.0L));
    }
    stay.expect_in_order(rejection);
    dropped.expect(rejection.dropped, kestrane::dropped_depth(static_cast<double>(count)));
    if (std::isinf(nearest)) {
      EXPECT_TRUE(std::isinf(rejection.nearest));
    } else {
      EXPECT_NEAR(rejection.nearest, static_cast<double>(nearest), 1e-12);
    }
  }
}

TEST_P(RowPassesOf, DropEveryRowByABandWithoutAnyWidth) {
  Random random(6);
  for (const Eigen::Index count : counts()) {
    const PointMatrix3 points = sheet(random, count);
    const Bits in_use = random_bits(random, count);
    const RejectionJob job{{{50.0, -2.0, 490.0}, {0, 0, 0}}, 0.0, -1.0, {50.0, -2.0, 490.0}};
    Bits kept(in_use.size(), ~std::uint64_t{0});
    Rejection rejection;
    passes.reject(rows_of(points), job, in_use.data(), kept.data(), rejection);
    EXPECT_EQ(rejection.count, 0);
    EXPECT_EQ(kept, Bits(in_use.size()));
    Expected all;
    for (Eigen::Index i = 0; i < count; ++i) {
      if (is_set(in_use, i)) all.add(points, i, job.moments_point);
    }
    all.expect(rejection.dropped, kestrane::dropped_depth(static_cast<double>(count)));
  }
}

// One row of 700 near one bound or the other, on either side of it.
TEST_P(RowPassesOf, TellHowNearARowLiesToABound) {
  for (const double off : {-2.02, -1.98, 1.98, 2.02}) {
    for (const Eigen::Index row : {0, 1, 2, 3, 250, 256, 699}) {
      PointMatrix3 points = PointMatrix3::Zero(700, 3);
      points(row, 0) = 0.5 + off;
      Bits in_use(11, ~std::uint64_t{0}), kept(11);
      in_use[10] = (std::uint64_t{1} << 60) - 1;
      const RejectionJob job{{{0, 0, 0}, {1, 0, 0}}, 0.5, 2.0, {0, 0, 0}};
      Rejection rejection;
      passes.reject(rows_of(points), job, in_use.data(), kept.data(), rejection);
      EXPECT_NEAR(rejection.nearest, 0.02, 1e-15) << off << ' ' << row;
      EXPECT_EQ(is_set(kept, row), std::abs(off) < 2.0);
      PointMatrix3 copies(700, 3);
      for (double* const out : {copies.data(), static_cast<double*>(nullptr)}) {
        DistanceSums sums;
        passes.reject_and_sum(rows_of(points), job, in_use.data(), kept.data(), rejection, sums,
                              out, out != nullptr ? copies.rows() : 0);
        EXPECT_NEAR(rejection.nearest, 0.02, 1e-15) << off << ' ' << row << ", with sums";
      }
      in_use[static_cast<std::size_t>(row / 64)] &= ~(std::uint64_t{1} << (row % 64));
      passes.reject(rows_of(points), job, in_use.data(), kept.data(), rejection);
      EXPECT_EQ(rejection.nearest, 1.5) << "a row that is not in use";
    }
  }
}

TEST_P(RowPassesOf, SumDistancesOfRowsInUseAndTheSizesOfTheirPartialSums) {
  Random random(3);
  for (const Eigen::Index count : counts()) {
    PointMatrix3 points = sheet(random, count);
    points.col(0) += 0.1 * points.col(2);
    const Bits in_use = random_bits(random, count);
    for (Eigen::Index i = 0; i < count; ++i) {
      if (!is_set(in_use, i)) points.row(i).setConstant(kNaN);
    }
    const RejectionJob job{kPlane, 0.25, 30.0, {50.0, -2.0, 490.0}};
    Bits kept(in_use.size()), kept_alone(in_use.size());
    Rejection rejection, alone;
    DistanceSums sums;
    passes.reject_and_sum(rows_of(points), job, in_use.data(), kept.data(), rejection, sums,
                          nullptr, 0);
    passes.reject(rows_of(points), job, in_use.data(), kept_alone.data(), alone);
    EXPECT_EQ(kept, kept_alone);
    EXPECT_EQ(rejection.count, alone.count);
    const bool no_row = std::isinf(alone.nearest) && std::isinf(rejection.nearest);
    EXPECT_TRUE(no_row || std::abs(rejection.nearest - alone.nearest) <= 1e-12) << count;
    EXPECT_EQ(rejection.dropped.products[0], alone.dropped.products[0]);
    long double sum = 0.0L, sizes = 0.0L, squares = 0.0L, walk = 0.0L, own = 0.0L;
    for (Eigen::Index i = 0; i < count; ++i) {
      if (!is_set(in_use, i)) continue;
      const long double d = distance(points, i, kPlane);
      sum += d;
      sizes += std::abs(d);
      squares += d * d;
      walk += std::abs(sum);
      for (int k = 0; k < 3; ++k)
        own += std::abs(kPlane.normal[k] * (points(i, k) - kPlane.point[k]));
    }
    const long double depth = kestrane::summation_depth(static_cast<double>(count)) * kUnit;
    const long double rounding = 1.01L * (depth * sizes + 4.0L * kUnit * own);
    EXPECT_LE(std::abs(sums.sum - sum), rounding) << count;
    EXPECT_NEAR(sums.squares, static_cast<double>(squares), 1e-12 * sums.squares + 1e-300);
    EXPECT_GE(sums.walk * (1.0 + 1e-9), static_cast<double>(walk)) << count;
  }
}

TEST_P(RowPassesOf, CopyTheRowsThatStayInUse) {
  Random random(4);
  for (const Eigen::Index count : counts()) {
    PointMatrix3 points = sheet(random, count);
    const Bits in_use = random_bits(random, count);
    for (Eigen::Index i = 0; i < count; ++i) {
      if (!is_set(in_use, i)) points.row(i).setConstant(kNaN);
    }
    const RejectionJob job{kPlane, 0.25, 150.0, {50.0, -2.0, 490.0}};
    std::int64_t used = 0;
    for (Eigen::Index i = 0; i < count; ++i) used += is_set(in_use, i) ? 1 : 0;
    const auto room = static_cast<std::size_t>(3 * used);
    std::vector<double> copies(room + 4, -7.0);
    Bits kept(in_use.size()), kept_alone(in_use.size());
    Rejection rejection, alone;
    DistanceSums sums;
    passes.reject_and_sum(rows_of(points), job, in_use.data(), kept.data(), rejection, sums,
                          copies.data(), used);
    passes.reject(rows_of(points), job, in_use.data(), kept_alone.data(), alone);
    EXPECT_EQ(kept, kept_alone);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(rejection.sum[k], alone.sum[k]);
    const double* copy = copies.data();
    for (Eigen::Index i = 0; i < count; ++i) {
      if (!is_set(kept, i)) continue;
      for (int k = 0; k < 3; ++k) ASSERT_EQ(*copy++, points(i, k)) << count << ", row " << i;
    }
    for (std::size_t i = room; i < copies.size(); ++i) {
      ASSERT_EQ(copies[i], -7.0) << "beyond the room of " << count;
    }
  }
}

// Rows in use in the first chunk alone: once they are copied there is no room for any other row.
TEST_P(RowPassesOf, WriteNothingBeyondTheRoomForCopies) {
  Random random(7);
  const PointMatrix3 points = sheet(random, 600);
  for (Eigen::Index used = 1; used <= 256; ++used) {
    Bits in_use(10), kept(10);
    for (Eigen::Index i = 0; i < used; ++i) {
      in_use[static_cast<std::size_t>(i / 64)] |= std::uint64_t{1} << (i % 64);
    }
    const auto room = static_cast<std::size_t>(3 * used);
    std::vector<double> copies(room + 4, -7.0);
    Rejection rejection;
    DistanceSums sums;
    passes.reject_and_sum(rows_of(points), {kPlane, 0.0, kInf, {}}, in_use.data(), kept.data(),
                          rejection, sums, copies.data(), used);
    for (std::size_t i = 0; i < room; ++i) ASSERT_EQ(copies[i], points.data()[i]) << used;
    for (std::size_t i = room; i < copies.size(); ++i) ASSERT_EQ(copies[i], -7.0) << used;
  }
}

// Where there is room for a chunk each row is written, and overwritten by the next one unless it
// stays in use: behind the copies stands the last row of the last chunk but one.
TEST_P(RowPassesOf, CopyWithoutAskingWhichRowsStayWhereAChunkHasRoom) {
  PointMatrix3 points(700, 3);
  for (int i = 0; i < 700; ++i) points.row(i) << (i < 100 ? 0.0 : 10.0), i, -i;
  Bits in_use(11, ~std::uint64_t{0}), kept(11);
  in_use[10] = (std::uint64_t{1} << 60) - 1;
  PointMatrix3 copies = PointMatrix3::Constant(700, 3, -7.0);
  Rejection rejection;
  DistanceSums sums;
  passes.reject_and_sum(rows_of(points), {{{0, 0, 0}, {1, 0, 0}}, 0.0, 1.0, {}}, in_use.data(),
                        kept.data(), rejection, sums, copies.data(), 700);
  EXPECT_EQ(rejection.count, 100);
  EXPECT_EQ(copies.topRows(100), points.topRows(100));
  EXPECT_EQ(copies.row(100), points.row(511));
}

TEST_P(RowPassesOf, MeasureSizesAboutAGuess) {
  Random random(4);
  for (const Eigen::Index count : counts()) {
    const PointMatrix3 points = sheet(random, count);
    long double largest = 0.0L, sum = 0.0L, squares = 0.0L;
    for (Eigen::Index i = 0; i < count; ++i) {
      const long double r = std::abs(distance(points, i, kPlane));
      largest = std::max(largest, r);
      sum += r - 9.0L;
      squares += (r - 9.0L) * (r - 9.0L);
    }
    DistanceFigures figures;
    passes.measure(rows_of(points), kPlane, 9.0, figures);
    EXPECT_NEAR(figures.largest, static_cast<double>(largest), 1e-12);
    const auto n = static_cast<double>(count);
    EXPECT_NEAR(figures.sum, static_cast<double>(sum), 1e-12 * n + 1e-13 * n * 9.0);
    EXPECT_NEAR(figures.squares, static_cast<double>(squares),
                1e-12 * static_cast<double>(squares) + 1e-12);
  }
}

// ---- sums to the last bit ----------------------------------------------------------------------

// A lane of a sum: chunks of 256 rows, 64 of those, the rest.
class LaneSum {
 public:
  void add(double value) { chunk_ += value; }
  double of_chunk() const { return chunk_; }

  void end_chunk() {
    level_ += chunk_;
    chunk_ = 0.0;
    if (++chunks_ % 64 == 0) end_level();
  }

  double total() {
    end_level();
    return total_;
  }

 private:
  void end_level() {
    total_ += level_;
    level_ = 0.0;
  }

  double chunk_ = 0.0;
  double level_ = 0.0;
  double total_ = 0.0;
  int chunks_ = 0;
};

// Row i in lane i mod 4.
class RowSum {
 public:
  void add(Eigen::Index row, double value) { lanes_[row % 4].add(value); }
  double of_chunk() const {
    return (lanes_[0].of_chunk() + lanes_[2].of_chunk()) +
           (lanes_[1].of_chunk() + lanes_[3].of_chunk());
  }
  void end_chunk() {
    for (LaneSum& lane : lanes_) lane.end_chunk();
  }
  double total() {
    double t[4];
    for (int l = 0; l < 4; ++l) t[l] = lanes_[l].total();
    return (t[0] + t[2]) + (t[1] + t[3]);
  }

 private:
  LaneSum lanes_[4];
};

bool ends_chunk(Eigen::Index row, Eigen::Index count) {
  return row % 256 == 255 || row + 1 == count;
}

// In the order in which three coordinates stand beside each other in two lanes.
double distance_in_lane(const PointMatrix3& points, Eigen::Index i, const PointAndNormal& plane) {
  double part[3];
  for (int k = 0; k < 3; ++k) part[k] = (points(i, k) - plane.point[k]) * plane.normal[k];
  return i % 2 == 0 ? (part[0] + part[1]) + part[2] : (part[2] + part[1]) + part[0];
}

// One level is full and another has begun.
constexpr Eigen::Index kLevelAndMore = 64 * 256 + 3 * 256 + 77;

// Four lanes are added up in the end, and that may hide the last bit of one of them.
constexpr std::uint64_t kSeeds = 8;

TEST_P(RowPassesOf, AddUpMomentsInFourLanesAndThreeLevels) {
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    Random random(seed);
    const PointMatrix3 points = sheet(random, kLevelAndMore);
    const DepthJob job{200.0, 900.0, {60.0, 3.0, 500.0}};
    RowSum sums[3], products[6];
    for (Eigen::Index i = 0; i < points.rows(); ++i) {
      if (points(i, 2) >= job.lowest && points(i, 2) <= job.highest) {
        int q = 0;
        for (int k = 0; k < 3; ++k) {
          const double a = points(i, k) - job.point[k];
          sums[k].add(i, a);
          for (int l = k; l < 3; ++l) products[q++].add(i, a * (points(i, l) - job.point[l]));
        }
      }
      if (!ends_chunk(i, points.rows())) continue;
      for (RowSum& sum : sums) sum.end_chunk();
      for (RowSum& sum : products) sum.end_chunk();
    }
    Bits in_use(static_cast<std::size_t>(words_for(points.rows())));
    RowMoments moments;
    double reach;
    passes.select(rows_of(points), job, in_use.data(), moments, reach);
    for (int k = 0; k < 3; ++k) EXPECT_TRUE(same_bits(moments.sum[k], sums[k].total())) << k;
    for (int q = 0; q < 6; ++q)
      EXPECT_TRUE(same_bits(moments.products[q], products[q].total())) << q;
  }
}

TEST_P(RowPassesOf, AddUpDistancesInFourLanesAndThreeLevels) {
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    Random random(seed);
    const PointMatrix3 points = sheet(random, kLevelAndMore);
    Bits in_use = random_bits(random, points.rows());
    in_use[3] = 0;
    RowSum sum, squares;
    double used = 0.0, room = 0.0, walked = 0.0, walk = 0.0;
    for (Eigen::Index i = 0; i < points.rows(); ++i) {
      if (is_set(in_use, i)) {
        const double d = distance_in_lane(points, i, kPlane);
        sum.add(i, d);
        squares.add(i, d * d);
        used += 1.0;
      }
      if (!ends_chunk(i, points.rows())) continue;
      walk += used * (std::abs(walked) + std::sqrt(used * squares.of_chunk()));
      walked += sum.of_chunk();
      room += used;
      used = 0.0;
      sum.end_chunk();
      squares.end_chunk();
    }
    const double in_all = sum.total(), in_squares = squares.total();
    PointMatrix3 copies(static_cast<Eigen::Index>(room), 3);
    for (double* const out : {copies.data(), static_cast<double*>(nullptr)}) {
      Bits kept(in_use.size());
      Rejection rejection;
      DistanceSums sums;
      passes.reject_and_sum(rows_of(points), {kPlane, 0.25, 30.0, {}}, in_use.data(), kept.data(),
                            rejection, sums, out, out != nullptr ? copies.rows() : 0);
      EXPECT_TRUE(same_bits(sums.sum, in_all));
      EXPECT_TRUE(same_bits(sums.squares, in_squares));
      EXPECT_TRUE(same_bits(sums.walk, walk));
    }
  }
}

TEST_P(RowPassesOf, AddUpDroppedRowsOneAfterAnotherAndInThreeLevels) {
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    Random random(seed);
    const PointMatrix3 points = sheet(random, kLevelAndMore);
    const Bits in_use(static_cast<std::size_t>(words_for(points.rows())), ~std::uint64_t{0});
    const RejectionJob job{kPlane, 0.25, 60.0, {50.0, -2.0, 490.0}};
    LaneSum sums[3], products[6];
    for (Eigen::Index i = 0; i < points.rows(); ++i) {
      if (std::abs(distance(points, i, kPlane) - 0.25L) > 60.0L) {
        int q = 0;
        for (int k = 0; k < 3; ++k) {
          const double a = points(i, k) - job.moments_point[k];
          sums[k].add(a);
          for (int l = k; l < 3; ++l) products[q++].add(a * (points(i, l) - job.moments_point[l]));
        }
      }
      if (!ends_chunk(i, points.rows())) continue;
      for (LaneSum& sum : sums) sum.end_chunk();
      for (LaneSum& sum : products) sum.end_chunk();
    }
    Bits kept(in_use.size());
    Rejection rejection;
    Bits all = in_use;
    all.back() = (std::uint64_t{1} << (kLevelAndMore % 64)) - 1;
    passes.reject(rows_of(points), job, all.data(), kept.data(), rejection);
    const RowMoments& dropped = rejection.dropped;
    EXPECT_GT(dropped.count, kLevelAndMore / 10);
    for (int k = 0; k < 3; ++k) EXPECT_TRUE(same_bits(dropped.sum[k], sums[k].total())) << k;
    for (int q = 0; q < 6; ++q)
      EXPECT_TRUE(same_bits(dropped.products[q], products[q].total())) << q;
  }
}

TEST_P(RowPassesOf, AddUpFiguresInFourLanesAndThreeLevels) {
  for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
    Random random(seed);
    const PointMatrix3 points = sheet(random, kLevelAndMore);
    RowSum sum, squares;
    for (Eigen::Index i = 0; i < points.rows(); ++i) {
      const double off = std::abs(distance_in_lane(points, i, kPlane)) - 9.0;
      sum.add(i, off);
      squares.add(i, off * off);
      if (!ends_chunk(i, points.rows())) continue;
      sum.end_chunk();
      squares.end_chunk();
    }
    DistanceFigures figures;
    passes.measure(rows_of(points), kPlane, 9.0, figures);
    EXPECT_TRUE(same_bits(figures.sum, sum.total()));
    EXPECT_TRUE(same_bits(figures.squares, squares.total()));
  }
}

// ---- memory ------------------------------------------------------------------------------------

// Memory whose end cannot be stepped over: the page that follows it is closed.
template <class T>
class Fenced {
 public:
  explicit Fenced(std::size_t count) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t open = (count * sizeof(T) + page - 1) / page * page;
    size_ = open + page;
    start_ = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (start_ == MAP_FAILED) throw std::bad_alloc();
    char* const end = static_cast<char*>(start_) + open;
    EXPECT_EQ(::mprotect(end, page, PROT_NONE), 0);
    data_ = reinterpret_cast<T*>(end) - count;
  }
  ~Fenced() { ::munmap(start_, size_); }
  Fenced(const Fenced&) = delete;
  Fenced& operator=(const Fenced&) = delete;

  T* data() const { return data_; }

 private:
  void* start_;
  std::size_t size_;
  T* data_;
};

TEST_P(RowPassesOf, TouchNothingBeyondRowsBitsAndCopies) {
  Random random(12);
  for (const Eigen::Index count : {1, 63, 64, 65, 255, 256, 257, 320, 511, 512, 513, 1000}) {
    const PointMatrix3 points = sheet(random, count);
    const auto words = static_cast<std::size_t>(words_for(count));
    const Fenced<double> cloud(static_cast<std::size_t>(3 * count));
    std::copy_n(points.data(), 3 * count, cloud.data());
    const CloudRows rows{cloud.data(), count};
    const Fenced<std::uint64_t> in_use(words), kept(words);
    RowMoments moments;
    double reach;
    passes.select(rows, {-kInf, kInf, {}}, in_use.data(), moments, reach);
    EXPECT_EQ(moments.count, count);
    Rejection rejection;
    passes.reject(rows, {kPlane, 0.0, kInf, {}}, in_use.data(), kept.data(), rejection);
    EXPECT_EQ(rejection.count, count);
    const Fenced<double> copies(static_cast<std::size_t>(3 * count));
    DistanceSums sums;
    passes.reject_and_sum(rows, {kPlane, 0.0, kInf, {}}, in_use.data(), kept.data(), rejection,
                          sums, copies.data(), count);
    EXPECT_TRUE(std::equal(copies.data(), copies.data() + 3 * count, points.data()));
    DistanceFigures figures;
    passes.measure(rows, kPlane, 0.0, figures);
    EXPECT_NEAR(figures.squares, sums.squares, 1e-12 * sums.squares);
  }
}

INSTANTIATE_TEST_SUITE_P(EachVectorSet, RowPassesOf, testing::ValuesIn(vector_sets()));

TEST(RowSums, GoThroughLanesAndLevels) {
  EXPECT_EQ(kestrane::summation_depth(32768.0), 64.0 + 64.0 + 2.0 + 4.0);
  EXPECT_EQ(kestrane::dropped_depth(49152.0), 256.0 + 64.0 + 3.0);
}

// Values to the last bit; a NaN equals a NaN.
TEST(RowPasses, GiveTheSameValuesWithEveryVectorSet) {
  Random random(5);
  const RowPasses& plain = row_passes(RowVectors::kBaseline);
  const RowPasses& best = row_passes(best_row_vectors());
  for (int run = 0; run < 400; ++run) {
    const Eigen::Index count = 1 + random.index(3000);
    PointMatrix3 points = sheet(random, count);
    if (run % 5 == 0) points *= std::pow(10.0, random.uniform(-150.0, 150.0));
    if (run % 7 == 0) {
      points(random.index(static_cast<int>(count)), random.index(3)) = run % 2 ? kNaN : kInf;
    }
    const CloudRows rows = rows_of(points);
    Bits a(static_cast<std::size_t>(words_for(count))), b(a.size()), c(a.size()), d(a.size());
    RowMoments m[2];
    double reach[2];
    const DepthJob depths{100.0, 900.0, {60.0, 3.0, 500.0}};
    plain.select(rows, depths, a.data(), m[0], reach[0]);
    best.select(rows, depths, b.data(), m[1], reach[1]);
    const auto expect_same = [run](const RowMoments& x, const RowMoments& y) {
      ASSERT_EQ(x.count, y.count);
      for (int k = 0; k < 3; ++k) ASSERT_TRUE(same_bits(x.sum[k], y.sum[k])) << run;
      for (int q = 0; q < 6; ++q) ASSERT_TRUE(same_bits(x.products[q], y.products[q])) << run;
    };
    ASSERT_EQ(a, b);
    ASSERT_TRUE(same_bits(reach[0], reach[1]) ||
                !std::isfinite(m[0].products[0] + m[0].products[3] + m[0].products[5]))
        << run;
    ASSERT_NO_FATAL_FAILURE(expect_same(m[0], m[1]));
    Rejection r[2];
    DistanceSums s[2];
    const RejectionJob job{kPlane, 0.1, 20.0, {50.0, -2.0, 490.0}};
    for (const bool summed : {false, true}) {
      if (summed) {
        plain.reject_and_sum(rows, job, a.data(), c.data(), r[0], s[0], nullptr, 0);
        best.reject_and_sum(rows, job, a.data(), d.data(), r[1], s[1], nullptr, 0);
      } else {
        plain.reject(rows, job, a.data(), c.data(), r[0]);
        best.reject(rows, job, a.data(), d.data(), r[1]);
      }
      ASSERT_EQ(c, d);
      ASSERT_EQ(r[0].count, r[1].count);
      ASSERT_TRUE(same_bits(r[0].nearest, r[1].nearest)) << run;
      for (int k = 0; k < 3; ++k) ASSERT_TRUE(same_bits(r[0].sum[k], r[1].sum[k])) << run;
      ASSERT_NO_FATAL_FAILURE(expect_same(r[0].dropped, r[1].dropped));
    }
    ASSERT_TRUE(same_bits(s[0].sum, s[1].sum) && same_bits(s[0].squares, s[1].squares) &&
                same_bits(s[0].walk, s[1].walk))
        << run;
    DistanceFigures f[2];
    plain.measure(rows, kPlane, 7.0, f[0]);
    best.measure(rows, kPlane, 7.0, f[1]);
    ASSERT_TRUE(same_bits(f[0].largest, f[1].largest) && same_bits(f[0].sum, f[1].sum) &&
                same_bits(f[0].squares, f[1].squares))
        << run;
  }
}

TEST(RowPasses, HaveABodyOfTheirOwnForEachSetThatTheProcessorHas) {
  const RowPasses& best = row_passes(best_row_vectors());
  if (best_row_vectors() == RowVectors::kBaseline) GTEST_SKIP() << "no wider vectors here";
  EXPECT_NE(best.select, row_passes(RowVectors::kBaseline).select);
  EXPECT_NE(best.reject, row_passes(RowVectors::kBaseline).reject);
}

}  // namespace
