#include "records/promise.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

#ifdef KESTRANE_CHECKED
TEST(PromiseDeathTest, NamesABrokenPromiseAndAborts) {
  EXPECT_EXIT(KESTRANE_PROMISE(1 > 2, "one above two"), testing::KilledBySignal(SIGABRT),
              "kestrane: broken promise: one above two");
}

TEST(Promise, IsSilentWhenItHolds) { KESTRANE_PROMISE(2 > 1, "two above one"); }
#else
TEST(Promise, IsNotEvenLookedAtInAnUncheckedBuild) {
  [[maybe_unused]] int looks = 0;
  KESTRANE_PROMISE(++looks > 100, "never");
  EXPECT_EQ(looks, 0);
}
#endif

}  // namespace
