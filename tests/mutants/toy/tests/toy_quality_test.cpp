#include <gtest/gtest.h>

#include "quality/figure.h"

TEST(Spread, IsTheDifference) { EXPECT_EQ(spread(1.0, 3.0), 2.0); }
