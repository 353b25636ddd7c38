// The exported class: order of checks and life cycle.
#include <cstdlib>
#include <type_traits>

#include "tests/fast/calibrations.h"
#include "tests/fast/engine_access.h"
#include "tests/support/starved_heap.h"

namespace {

using namespace fast_support;

TEST(FastCalib, IsNotCopyConstructible) {
  EXPECT_FALSE(std::is_copy_constructible_v<KESTRANE_LASER_FAST_CALIB>);
  EXPECT_FALSE(std::is_copy_constructible_v<KestraneLaserFastCalibrator>);
  EXPECT_EQ(sizeof(KESTRANE_LASER_FAST_CALIB), sizeof(void*));
}

TEST(FastCalib, TestsTheListsBeforeTheEngine) {
  KESTRANE_LASER_FAST_CALIB calib;
  EXPECT_EQ(calib.fast_calib({}, 0, 0), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(calib.fast_calib(FrameLists(1), 0, 0), KESTRANE_ERR_NOT_READY);
  EXPECT_EQ(calib.fast_calib(FrameLists(3), 0, 0), KESTRANE_ERR_NOT_READY) << "before the count";
}

TEST(FastCalib, StartsWithZerosAndAHalfTurn) {
  KESTRANE_LASER_FAST_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  Result fresh{};
  read_result(calib, fresh);
  EXPECT_EQ(fresh.mean, 0.0);
  EXPECT_EQ(fresh.max, 0.0);
  EXPECT_EQ(fresh.deviation, 0.0);
  expect_transform(fresh.transform, {1, 0, 0, 0, 0, 0, 0});
}

TEST(FastCalib, RefusesAWrongNumberOfListsWithTheDiagonalSetAlready) {
  fast_scene::Standard standard = flat_standard(4);
  KESTRANE_LASER_FAST_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  ASSERT_EQ(calib.set_laser_plane_standard(standard.host()), KESTRANE_OK);
  const Result refused = calibrate(calib, FrameLists(2, List(3, {130, 0, 300, 0})), 0, 2);
  EXPECT_EQ(refused.status, KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(refused.report, "") << "before any work";
  EXPECT_EQ(refused.mean, 0.0);
  EXPECT_EQ(refused.max, 0.0);
  expect_transform(refused.transform, {0, 0, 0, 1, 0, 0, 0});
}

TEST(FastCalib, SetsTheDiagonalAloneBeforeItRefusesTheNumberOfLists) {
  kestrane::KestraneLaserFastCalibrator engine_alone;
  ASSERT_EQ(engine_alone.init(), KESTRANE_OK);
  EXPECT_EQ(engine_alone.calib_Rt(FrameLists(2), 0, 2), KESTRANE_ERR_COUNT_MISMATCH);
  const _MRV_EXTRINSIC_PARAM& extrinsic = engine_alone.*member(engine_access::Extrinsic{});
  for (int i = 0; i < 9; ++i) EXPECT_EQ(extrinsic.R[i], i % 4 == 0 ? 1.0 : 0.0) << i;
  for (const double t : extrinsic.T) EXPECT_EQ(t, 0.0);
}

// Every init leaves its block allocated, so a starved process runs out of memory for another one.
void run_out_of_blocks() {
  KESTRANE_LASER_FAST_CALIB calib;
  starved::starve_heap();
  _KESTRANE_STATUS status = KESTRANE_OK;
  for (int i = 0; i < 1000 && status == KESTRANE_OK; ++i) status = calib.init();
  const bool reported = status == KESTRANE_ERR_NO_MEMORY;
  const bool empty = calib.fast_calib(FrameLists(1), 0, 0) == KESTRANE_ERR_NOT_READY;
  std::_Exit(reported && empty ? 0 : 1);
}

TEST(FastCalibDeathTest, IsLeftWithoutAnEngineByAnInitThatFindsNoMemory) {
  if (!starved::kHeapCanRunOut) GTEST_SKIP() << "the sanitizer owns the heap";
  EXPECT_EXIT(run_out_of_blocks(), testing::ExitedWithCode(0), "");
}

TEST(FastCalib, CountsListsWithoutOverflow) {
  KESTRANE_LASER_FAST_CALIB calib;
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  constexpr int kLowest = std::numeric_limits<int>::min();
  constexpr int kHighest = std::numeric_limits<int>::max();
  EXPECT_EQ(calib.fast_calib(FrameLists(1), kHighest, kLowest), KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(calib.fast_calib(FrameLists(1), kLowest, kHighest), KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(calib.fast_calib(FrameLists(1), 0, kHighest), KESTRANE_ERR_COUNT_MISMATCH);
}

TEST(FastCalib, KeepsTheLastResultThroughARefusedCall) {
  Device device(4);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const Result before = calibrate(calib, device.measured(kShaken), 0, 3);
  ASSERT_EQ(before.status, KESTRANE_OK);
  const Result after = calibrate(calib, FrameLists(1), 0, 3);
  EXPECT_EQ(after.status, KESTRANE_ERR_COUNT_MISMATCH);
  EXPECT_EQ(after.mean, before.mean);
  EXPECT_EQ(after.max, before.max);
  EXPECT_EQ(after.deviation, before.deviation);
  EXPECT_EQ(after.transform.translation[0], before.transform.translation[0]);
}

TEST(FastCalib, NeedsTheStandardAgainAfterASecondInit) {
  Device device(4);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  const FrameLists frames = device.measured(kShaken);
  ASSERT_GT(calibrate(calib, frames, 0, 3).max, 0.0);
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  Result fresh{};
  read_result(calib, fresh);
  EXPECT_EQ(fresh.max, 0.0) << "starts from nothing";
  const Result without = calibrate(calib, frames, 0, 3);
  EXPECT_EQ(without.status, KESTRANE_OK);
  EXPECT_EQ(without.max, -1000.0) << "no cell holds a plane";
  calib.set_laser_plane_standard(device.standard.host());
  EXPECT_GT(calibrate(calib, frames, 0, 3).max, 0.0);
}

TEST(FastCalib, SharesTheEngineOnAssignment) {
  Device device(4);
  KESTRANE_LASER_FAST_CALIB owner;
  owner.init();
  owner.set_laser_plane_standard(device.standard.host());
  // Never destroyed: only one of the two may be.
  alignas(KESTRANE_LASER_FAST_CALIB) unsigned char place[sizeof(KESTRANE_LASER_FAST_CALIB)];
  auto& sharer = *new (place) KESTRANE_LASER_FAST_CALIB();
  sharer = owner;
  const Result result = calibrate(sharer, device.measured(kShaken), 0, 3);
  EXPECT_EQ(result.status, KESTRANE_OK);
  Result seen{};
  read_result(owner, seen);
  EXPECT_EQ(seen.mean, result.mean);
}

TEST(FastCalib, LeavesTheStandardAndTheListsOfTheHostAlone) {
  Device device(4);
  KESTRANE_LASER_FAST_CALIB calib;
  calib.init();
  calib.set_laser_plane_standard(device.standard.host());
  device.standard.fill(0, {{7, 7, 7}});
  device.standard.fill(1, {{7, 7, 7}});
  const FrameLists frames = device.measured(kShaken);
  const Result result = calibrate(calib, frames, 0, 3);
  EXPECT_LT(result.mean, 0.1) << "the copy counts";
  const FrameLists again = device.measured(kShaken);
  for (std::size_t f = 0; f < frames.size(); ++f) expect_same(frames[f], again[f]);
}

}  // namespace
