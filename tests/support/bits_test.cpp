#include "tests/support/bits.h"

#include <cmath>
#include <string>
#include <vector>

namespace {

using kestrane_test::bits_of;
using kestrane_test::kInf;
using kestrane_test::kNaN;
using kestrane_test::same_bits;
using testing::AssertionResult;

TEST(SameBits, TellsNeighboursAndZerosOfOtherSignApart) {
  EXPECT_TRUE(same_bits(0.1, 0.1));
  EXPECT_FALSE(same_bits(0.1, std::nextafter(0.1, 1.0)));
  EXPECT_TRUE(same_bits(-0.0, -0.0));
  EXPECT_FALSE(same_bits(0.0, -0.0));
  EXPECT_TRUE(same_bits(kInf, kInf));
  EXPECT_FALSE(same_bits(kInf, -kInf));
}

TEST(SameBits, TakesEveryNaNForTheSame) {
  EXPECT_TRUE(same_bits(kNaN, -kNaN));
  EXPECT_NE(bits_of(kNaN), bits_of(-kNaN));
  EXPECT_FALSE(same_bits(kNaN, 1.0));
  EXPECT_FALSE(same_bits(kInf, kNaN));
}

TEST(SameBits, PrintsBothInHexAndInDecimals) {
  EXPECT_STREQ(same_bits(0.5, -0.0).message(), "0x1p-1 instead of -0x0p+0 (0.5 and -0)");
}

TEST(SameBitsOfRows, NamesTheFirstNumberThatDiffers) {
  const std::vector<double> row = {1.0, kNaN, 0.0, 4.0};
  EXPECT_TRUE(same_bits(row, std::vector<double>{1.0, -kNaN, 0.0, 4.0}));
  const AssertionResult outcome = same_bits(row, std::vector<double>{1.0, kNaN, -0.0, 5.0});
  EXPECT_FALSE(outcome);
  EXPECT_EQ(std::string(outcome.message()), "0x0p+0 instead of -0x0p+0 (0 and -0), number 2 of 4");
}

TEST(SameBitsOfRows, TellsRowsOfOtherLengthApart) {
  const AssertionResult outcome = same_bits(std::vector<double>{1.0}, std::vector<double>{});
  EXPECT_FALSE(outcome);
  EXPECT_STREQ(outcome.message(), "1 numbers instead of 0");
  EXPECT_TRUE(same_bits(std::vector<double>{}, std::vector<double>{}));
}

}  // namespace
