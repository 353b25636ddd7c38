#include "records/expects.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

#ifdef KESTRANE_CHECKED
TEST(ExpectsDeathTest, NamesAViolatedPreconditionAndAborts) {
  EXPECT_EXIT(KESTRANE_EXPECTS(1 > 2, "one above two"), testing::KilledBySignal(SIGABRT),
              "kestrane: precondition violated: one above two");
}

TEST(Expects, IsSilentWhenItHolds) { KESTRANE_EXPECTS(2 > 1, "two above one"); }
#else
TEST(Expects, IsNotEvenLookedAtInAnUncheckedBuild) {
  [[maybe_unused]] int looks = 0;
  KESTRANE_EXPECTS(++looks > 100, "never");
  EXPECT_EQ(looks, 0);
}
#endif

}  // namespace
