// Memory of the frame filter, counted at the allocator. A program of its own, since it replaces the
// allocation functions.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <new>

#include "fast/frame_filter.h"
#include "tests/fast/fast_support.h"

namespace {

std::size_t live = 0;
std::size_t peak = 0;

}  // namespace

// Never inlined: side by side, the compiler would take malloc and delete for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  live += malloc_usable_size(block);
  if (live > peak) peak = live;
  return block;
}

[[gnu::noinline]] void operator delete(void* block) noexcept {
  if (block != nullptr) live -= malloc_usable_size(block);
  std::free(block);
}

[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
  if (block != nullptr) live -= malloc_usable_size(block);
  std::free(block);
}

namespace {

using namespace fast_support;

// Bytes beyond the lists that come out, and what the points themselves take.
struct Use {
  std::size_t extra;
  std::size_t points;
};

Use memory_of(const FrameLists& frames) {
  const fast_scene::Standard standard = flat_standard(static_cast<int>(frames.size()));
  std::size_t points = 0;
  for (const List& list : frames) points += list.size() * sizeof(list[0]);
  FrameLists filtered;
  const std::size_t before = live;
  peak = live;
  kestrane::filter_frames(frames, standard.table(), 0, filtered);
  return {peak - before - points, points};
}

List frames_apart(int frames, int points, std::int32_t gap) {
  List list;
  for (int i = 0; i < points; ++i) add_frame(list, (i % frames) * gap, 1.0 + i % 3);
  return list;
}

TEST(FilterFramesMemory, StaysWithinACopyOfThePoints) {
  for (const auto& [frames, gap] :
       {std::pair{20, 1}, {2, 1000000000}, {20000, 1}, {20000, 100000}}) {
    const Use use = memory_of(FrameLists(2, frames_apart(frames, 20000, gap)));
    EXPECT_LT(use.extra, use.points) << frames << " frames, " << gap << " apart";
  }
}

TEST(FilterFramesMemory, GrowsWithThePointsOnly) {
  const Use some = memory_of({frames_apart(500, 10000, 1)});
  const Use more = memory_of({frames_apart(500, 40000, 1)});
  EXPECT_LT(more.extra, 6 * some.extra) << "four times the points; vectors double";
}

}  // namespace
