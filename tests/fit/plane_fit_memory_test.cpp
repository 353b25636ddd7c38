// What a robust fit asks of the heap, watched by standing in for the C library's allocator. The
// sanitizers bring an allocator of their own; there these tests are skipped.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstddef>
#include <new>
#include <optional>

#include "fit/laser_geometry_fitter.h"
#include "fit/plane_fit.h"
#include "fit/streamed_fit.h"
#include "fit/streamed_rows.h"
#include "tests/fit/plane_clouds.h"
#include "tests/literal/plane_fit.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KESTRANE_OWN_HEAP 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KESTRANE_OWN_HEAP 0
#else
#define KESTRANE_OWN_HEAP 1
#endif
#else
#define KESTRANE_OWN_HEAP 1
#endif

namespace {

struct HeapWatch {
  bool armed = false;
  long calls = 0;
  long fails_at = -1;  // number of the call that gets nothing; -1: none
  std::size_t live = 0;
  std::size_t peak = 0;

  bool refuses() { return armed && calls++ == fails_at; }
  void gain(void* block) {
    if (!armed || block == nullptr) return;
    live += malloc_usable_size(block);
    if (live > peak) peak = live;
  }
  void lose(void* block) {
    if (armed && block != nullptr) live -= malloc_usable_size(block);
  }
};

HeapWatch watch;

}  // namespace

#if KESTRANE_OWN_HEAP
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t size) {
  if (watch.refuses()) return nullptr;
  void* block = __libc_malloc(size);
  watch.gain(block);
  return block;
}

void* calloc(std::size_t count, std::size_t size) {
  if (watch.refuses()) return nullptr;
  void* block = __libc_calloc(count, size);
  watch.gain(block);
  return block;
}

void* realloc(void* old, std::size_t size) {
  if (watch.refuses()) return nullptr;
  watch.lose(old);
  void* block = __libc_realloc(old, size);
  watch.gain(block != nullptr ? block : old);
  return block;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  if (watch.refuses()) return nullptr;
  void* block = __libc_memalign(alignment, size);
  watch.gain(block);
  return block;
}

void free(void* block) {
  watch.lose(block);
  __libc_free(block);
}
}
#endif

namespace {

using namespace plane_clouds;
using kestrane::LaserGeometryFitter;

constexpr DepthBand kBand{100, 1000};
// Lists of three, and up to a page each that the allocator rounds the two large blocks up by.
constexpr std::size_t kSmallBlocks = 3 * 4096;
constexpr std::int32_t kSinglePass = 2;

std::size_t bytes_of(const PointMatrix3& points) {
  return static_cast<std::size_t>(points.size()) * sizeof(double);
}

class HeapOfAPlaneFit : public testing::Test {
 protected:
  void SetUp() override {
    if (!KESTRANE_OWN_HEAP) GTEST_SKIP() << "the sanitizer's allocator stands in the way";
  }

  // Runs `work` with its heap watched.
  template <class Work>
  void watched(Work work, long fails_at = -1) {
    watch = HeapWatch{};
    watch.fails_at = fails_at;
    watch.armed = true;
    try {
      work();
    } catch (...) {
      watch.armed = false;
      throw;
    }
    watch.armed = false;
  }

  std::size_t peak_of_a_fit(const PointMatrix3& points, std::int32_t mode) {
    Result result;
    bool fitted = false;
    const LaserGeometryFitter fitter;
    result.inliers = PointMatrix3();
    watched([&] {
      fitted =
          fitter.fit_plane_robust(points, result.plane, result.stats, result.inliers, kBand, mode);
    });
    EXPECT_TRUE(fitted);
    EXPECT_GE(watch.peak, bytes_of(result.inliers));
    return watch.peak;
  }
};

PointMatrix3 sheet(double noise) {
  Random random(1);
  return sheet_cloud(random, 30000, {.noise = noise, .outliers = noise > 0.0 ? 0.02 : 0.0});
}

TEST_F(HeapOfAPlaneFit, StaysWithinTwoCopiesOfTheCloud) {
  const PointMatrix3 points = sheet(0.05);
  EXPECT_LE(peak_of_a_fit(points, 0), 2 * bytes_of(points) + kSmallBlocks);
  EXPECT_LE(peak_of_a_fit(points, kSinglePass), 2 * bytes_of(points) + kSmallBlocks);
}

TEST_F(HeapOfAPlaneFit, StaysWithinTwoCopiesOfADegenerateCloud) {
  const PointMatrix3 points = sheet(0.0);
  EXPECT_LE(peak_of_a_fit(points, 0), 2 * bytes_of(points) + kSmallBlocks);
}

TEST_F(HeapOfAPlaneFit, StaysWithinTwoCopiesWhereTheOriginLiesInThePlane) {
  Random random(2);
  const PointMatrix3 half = sheet_cloud(random, 10000, {.offset = 0.0});
  PointMatrix3 points(20000, 3);
  points << half, -half;
  EXPECT_LE(peak_of_a_fit(points, kSinglePass), 2 * bytes_of(points) + kSmallBlocks);
}

TEST_F(HeapOfAPlaneFit, HoldsCopiesOfRowsWhereTheyAreWanted) {
  using kestrane::StreamedRows;
  const PointMatrix3 points = sheet(0.05);
  for (const bool wanted : {false, true}) {
    StreamedRows rows(kestrane::rows_of(points), wanted, kestrane::best_row_vectors());
    rows.select(kBand.lowest, kBand.highest);
    ASSERT_EQ(rows.reject_beyond(rows.plane(StreamedRows::For::kRejection), 2.5), true);
    const kestrane::StreamedPlane plane = rows.plane(StreamedRows::For::kRejection);
    std::optional<bool> enough;
    watched([&] { enough = rows.reject_beyond_sigmas(plane, 2.0); });
    ASSERT_EQ(enough, true);
    PointMatrix3 copies = rows.copy();
    if (!wanted) {
      EXPECT_LE(watch.peak, kSmallBlocks);
      continue;
    }
    EXPECT_GE(watch.peak, bytes_of(copies));
    PointMatrix3 taken;
    watched([&] { taken = rows.take_copies(); });
    EXPECT_EQ(watch.calls, 0);
    EXPECT_EQ(taken, copies);
  }
}

// A short cloud is decomposed at once: no bits for its rows.
TEST_F(HeapOfAPlaneFit, IsAskedByAShortCloudForNoMoreThanItsDecomposition) {
  Random random(5);
  for (const Eigen::Index count : {4, 40, 63, 64}) {
    const PointMatrix3 points = sheet_cloud(random, count, {});
    watched([&] { kestrane::fit_in_band_by_decomposition(points, kBand); });
    const long decomposed = watch.calls;
    watched([&] { kestrane::fit_in_band(points, kBand, kestrane::Wanted::kAll); });
    EXPECT_EQ(watch.calls == decomposed, count < 64) << count;
  }
}

TEST_F(HeapOfAPlaneFit, IsLeftAloneByALeastSquaresFitOfAFewRows) {
  Random random(3);
  for (Eigen::Index count = 3; count <= 8; ++count) {
    const PointMatrix3 points = scattered(random, count);
    Result result;
    watched([&] { kestrane::fit_plane_svd(points, result.plane, result.stats); });
    EXPECT_EQ(watch.calls, 0) << count;
  }
}

TEST_F(HeapOfAPlaneFit, GivesTheInliersNoMoreThanTheirRows) {
  const PointMatrix3 points = sheet(0.05);
  Result result;
  ASSERT_TRUE(LaserGeometryFitter().fit_plane_robust(points, result.plane, result.stats,
                                                     result.inliers, kBand, 0));
  ASSERT_LT(result.inliers.rows(), points.rows() - 1000);
  EXPECT_LE(malloc_usable_size(result.inliers.data()), bytes_of(result.inliers) + kSmallBlocks);
}

// Every allocation of a fit fails once.
TEST_F(HeapOfAPlaneFit, ThrowsAndLeavesTheInliersAloneWhenAnyAllocationFails) {
  Random random(4);
  for (const Eigen::Index count : {4, 40, 400}) {
    for (const std::int32_t mode : {0, kSinglePass}) {
      const PointMatrix3 points = sheet_cloud(random, count, {});
      const LaserGeometryFitter fitter;
      long failed = 0;
      for (bool fitted = false; !fitted; ++failed) {
        Result result;
        const PointMatrix3 before = result.inliers;
        try {
          watched(
              [&] {
                fitted = fitter.fit_plane_robust(points, result.plane, result.stats, result.inliers,
                                                 kBand, mode);
              },
              failed);
        } catch (const std::bad_alloc&) {
          EXPECT_TRUE(same(result.inliers, before));
          ASSERT_LT(failed, 100);
          continue;
        }
        EXPECT_TRUE(fitted);
      }
      EXPECT_GE(failed, 2);
    }
  }
}

}  // namespace
