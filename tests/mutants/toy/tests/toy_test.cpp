#include "toy.h"

#include <gtest/gtest.h>

TEST(Quotient, Divides) { EXPECT_EQ(quotient(3.0, 2.0), 1.5); }

TEST(Clear, ClearsAndLeavesNothingAlone) {
  char text[] = "abc";
  clear(text, 0);
  EXPECT_EQ(text[0], 'a');
  clear(text, 1);
  EXPECT_EQ(text[0], '\0');
}
