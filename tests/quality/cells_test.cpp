#include "quality/cells.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/bits.h"

namespace {

using kestrane::quality::has_plane;
using kestrane_test::kInf;
using kestrane_test::kNaN;

// What the jobs take for nothing: all three coefficients below the distance from 1 to the next
// double.
TEST(HasPlane, IsFalseOfAnEmptyCell) {
  constexpr double kLeast = std::numeric_limits<double>::epsilon();
  const double below = std::nextafter(kLeast, 0.0);
  EXPECT_FALSE(has_plane({{0.0, 0.0, 0.0}}));
  EXPECT_FALSE(has_plane({{below, below, below}}));
  EXPECT_FALSE(has_plane({{-below, -below, -below}}));
  for (const double one : {kLeast, -kLeast}) {
    EXPECT_TRUE(has_plane({{one, 0.0, 0.0}}));
    EXPECT_TRUE(has_plane({{below, one, 0.0}}));
    EXPECT_TRUE(has_plane({{below, 0.0, one}}));
  }
}

TEST(HasPlane, IsFalseWhereThePlaneGivesNoX) {
  EXPECT_FALSE(has_plane({{0.0, 1.0, 1.0}}));
  EXPECT_FALSE(has_plane({{-0.0, 1.0, 1.0}}));
  EXPECT_TRUE(has_plane({{std::numeric_limits<double>::denorm_min(), 1.0, 1.0}}));
}

TEST(HasPlane, IsFalseOfWhatIsNotFinite) {
  for (const double odd : {kNaN, kInf, -kInf}) {
    EXPECT_FALSE(has_plane({{odd, 1.0, 1.0}}));
    EXPECT_FALSE(has_plane({{1.0, odd, 1.0}}));
    EXPECT_FALSE(has_plane({{1.0, 1.0, odd}}));
  }
}

}  // namespace
