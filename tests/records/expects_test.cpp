#include "records/expects.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>

#include "tests/support/violation.h"

namespace {

#ifdef KESTRANE_CHECKED
using kestrane_test::violation;

TEST(ExpectsDeathTest, NamesAViolatedPreconditionAndAborts) {
  EXPECT_EXIT(KESTRANE_EXPECTS(1 > 2, "one above two"), testing::KilledBySignal(SIGABRT),
              violation("TestBody", "one above two"));
}

TEST(ExpectsDeathTest, NamesTheOperationAndEveryValue) {
  const std::size_t rows = 3;
  const int plane = -1;
  EXPECT_DEATH(KESTRANE_EXPECTS_OF("save", plane >= 0, "a plane number", plane),
               violation("save", "a plane number", "plane is -1"));
  EXPECT_DEATH(KESTRANE_EXPECTS_OF("save", rows < 3, "few rows", rows, plane),
               violation("save", "few rows", "rows is 3, plane is -1"));
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
