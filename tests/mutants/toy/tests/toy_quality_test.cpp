#include <gtest/gtest.h>

#include <ctime>

#include "quality/figure.h"

TEST(Spread, IsTheDifference) { EXPECT_EQ(spread(1.0, 3.0), 2.0); }

TEST(Spread, TakesItsTime) {
  while (std::clock() < CLOCKS_PER_SEC / 4) EXPECT_EQ(spread(0.0, 0.0), 0.0);
}
