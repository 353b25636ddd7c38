// What a field calibration leaves allocated.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>

#include "kestrane/fast_calib.h"
#include "kestrane/quality/field.h"
#include "tests/quality/field/field_scene.h"

namespace {

using kestrane::quality::calibrate_field;

constexpr int kCalls = 20;
constexpr std::int64_t kEngineBlock = 1955840;
constexpr std::int64_t kSlack = 65536;  // of the allocator, over all calls

// Bytes in use on the heap; 0 under a checker that keeps a heap of its own.
std::int64_t heap_bytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<std::int64_t>(info.uordblks + info.hblkhd);
}

field_scene::Scene small_scene() {
  field_scene::Settings settings;
  settings.points = 300;
  return field_scene::make(settings);
}

TEST(FieldMemory, NothingIsLeftBehindWithTheHostsOwnEngine) {
  const field_scene::Scene scene = small_scene();
  kestrane::KESTRANE_LASER_FAST_CALIB engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  ASSERT_EQ(calibrate_field(engine, scene.table, scene.frames).refused, "");
  const std::int64_t before = heap_bytes();
  if (before == 0) GTEST_SKIP() << "the heap does not tell what is in use";
  for (int i = 0; i < kCalls; ++i) calibrate_field(engine, scene.table, scene.frames);
  EXPECT_LE(heap_bytes() - before, kSlack);
}

TEST(FieldMemory, OneEnginesBlockIsLeftBehindPerCallWithout) {
  const field_scene::Scene scene = small_scene();
  ASSERT_EQ(calibrate_field(scene.table, scene.frames).refused, "");
  const std::int64_t before = heap_bytes();
  if (before == 0) GTEST_SKIP() << "the heap does not tell what is in use";
  for (int i = 0; i < kCalls; ++i) calibrate_field(scene.table, scene.frames);
  const std::int64_t left = heap_bytes() - before;
  EXPECT_GE(left, kCalls * kEngineBlock);
  EXPECT_LE(left, kCalls * (kEngineBlock + 4096 + 64) + kSlack);
}

}  // namespace
