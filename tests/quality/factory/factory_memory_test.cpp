// What a safe calibration takes beyond the job, watched by standing in for the C library's
// allocator. The sanitizers bring an allocator of their own; there these tests are skipped.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/factory.h"
#include "simulation/scanner.h"

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

std::size_t live = 0;
std::size_t peak = 0;

void* gained(void* block) {
  if (block != nullptr) live += malloc_usable_size(block);
  peak = std::max(peak, live);
  return block;
}

void lose(void* block) {
  if (block != nullptr) live -= malloc_usable_size(block);
}

}  // namespace

#if KESTRANE_OWN_HEAP
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t size) { return gained(__libc_malloc(size)); }
void* calloc(std::size_t count, std::size_t size) { return gained(__libc_calloc(count, size)); }
void* realloc(void* old, std::size_t size) {
  lose(old);
  return gained(__libc_realloc(old, size));
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return gained(__libc_memalign(alignment, size));
}
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = gained(__libc_memalign(alignment, size));
  return *block == nullptr ? 12 : 0;
}
void free(void* block) {
  lose(block);
  __libc_free(block);
}
}
#endif

namespace {

using kestrane::quality::calibrate_factory;
using kestrane::quality::FactoryResult;
using kestrane::quality::FactorySettings;
using kestrane::quality::PointList;

// Bad points of every kind, so that nothing is spared.
PointList cloud_of(int points, std::uint64_t seed) {
  simulation::CloudSettings settings;
  settings.points = points;
  settings.seed = seed;
  settings.frames = 40;
  settings.outlier_share = 0.01;
  settings.outlier_reach = 200.0;
  settings.dropped_share = 0.01;
  settings.outside_share = 0.01;
  return simulation::measure(simulation::make_device({})[seed % 8], settings).points;
}

class FactoryMemory : public testing::Test {
 protected:
  void SetUp() override {
    if (!KESTRANE_OWN_HEAP) GTEST_SKIP() << "the sanitizer has its own allocator";
    ASSERT_EQ(engine_.init(), KESTRANE_OK);
  }

  // The most that `work` holds at a time beyond what was held before it.
  template <class Work>
  static std::size_t most_held(const Work& work) {
    const std::size_t before = live;
    peak = live;
    work();
    return peak - before;
  }

  kestrane::KESTRANE_LASER_FAC_CALIB engine_;
};

// 64 bytes a point: what a cleaned copy takes, and as much again for the figures.
TEST_F(FactoryMemory, IsAtMostTwiceTheCloudOfAPlaneBeyondTheJobsOwn) {
  for (const int points : {6000, 20000}) {
    std::vector<PointList> clouds;
    for (std::uint64_t p = 0; p < 4; ++p) clouds.push_back(cloud_of(points, p));
    const std::vector<_KESTRANE_ID_POINT3DS> few = kestrane::quality::clouds_of(clouds);
    std::vector<_KESTRANE_ID_POINT3DS> device;
    for (std::size_t p = 0; p < 100; ++p) device.push_back(few[p % few.size()]);
    engine_.factory_calib(0, device[0]);  // what a run leaves in the engine is there before
    const std::size_t job = most_held([&] { engine_.factory_calib(0, device[0]); });
    FactoryResult result;
    const std::size_t before = live;
    std::size_t safe = most_held([&] { result = calibrate_factory(engine_, device); });
    engine_.factory_calib(0, device[0]);  // and is there again: the rest is the result
    safe -= live - before;
    const std::size_t bound = 2 * sizeof(_KESTRANE_ID_POINT3D) * static_cast<std::size_t>(points);
    EXPECT_LE(safe, job + bound) << points;
    RecordProperty("bytes_a_point_" + std::to_string(points),
                   std::to_string(static_cast<double>(safe - job) / points));
  }
}

TEST_F(FactoryMemory, DoesNotGrowWithAnEngineOfTheHosts) {
  const std::vector<PointList> clouds = {cloud_of(8000, 1), cloud_of(8000, 2)};
  const std::vector<_KESTRANE_ID_POINT3DS> device = kestrane::quality::clouds_of(clouds);
  calibrate_factory(engine_, device);
  const std::size_t before = live;
  for (int run = 0; run < 50; ++run) calibrate_factory(engine_, device);
  EXPECT_LE(live, before + 1024);  // blocks are rounded up now and then
}

// The block that an engine leaves is the only thing that stays.
TEST_F(FactoryMemory, GrowsByTheBlockOfAnEngineWithoutOne) {
  const std::vector<PointList> clouds = {cloud_of(8000, 1)};
  const std::vector<_KESTRANE_ID_POINT3DS> device = kestrane::quality::clouds_of(clouds);
  calibrate_factory(device);
  const std::size_t before = live;
  for (int run = 0; run < 10; ++run) calibrate_factory(device);
  constexpr std::size_t kBlock = 1950976;
  EXPECT_GE(live - before, 10 * kBlock);
  EXPECT_LE(live - before, 10 * (kBlock + 8192));
}

// A sample takes 32 bytes, its weights 72, residuals and lists some 25; matrices of 816 unknowns
// the rest.
TEST(RefinementMemory, IsAtMost130BytesAPointAndSixMegabytes) {
  if (!KESTRANE_OWN_HEAP) GTEST_SKIP() << "the sanitizer has its own allocator";
  for (const int points : {2000, 20000, 100000}) {
    const PointList cloud = cloud_of(points, 3);
    const std::size_t before = live;
    peak = live;
    kestrane::quality::refine_plane(cloud);
    EXPECT_LE(peak - before, 130 * static_cast<std::size_t>(points) + 6000000) << points;
  }
}

}  // namespace
