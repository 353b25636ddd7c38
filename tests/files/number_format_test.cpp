#include "files/number_format.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <locale>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "simulation/random.h"
#include "tests/files/temporary_folder.h"
#include "tests/support/bits.h"

namespace kestrane {
namespace {

template <class Number>
std::string formatted(Number value) {
  char text[kLongestNumber];
  return std::string(text, format_number(text, value));
}

// The same number through a stream with its default settings.
template <class Number>
std::string streamed(Number value) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  out << value;
  return out.str();
}

double from_bits(std::uint64_t bits) { return std::bit_cast<double>(bits); }

TEST(FormatNumber, WritesSixSignificantDigitsWithoutTrailingZeros) {
  EXPECT_EQ(formatted(0.0), "0");
  EXPECT_EQ(formatted(-0.0), "-0");
  EXPECT_EQ(formatted(150.0), "150");
  EXPECT_EQ(formatted(0.1), "0.1");
  EXPECT_EQ(formatted(-86.60254037844386), "-86.6025");
  EXPECT_EQ(formatted(123456.0), "123456");
  EXPECT_EQ(formatted(1234567.0), "1.23457e+06");
  EXPECT_EQ(formatted(0.0001), "0.0001");
  EXPECT_EQ(formatted(0.00001234567), "1.23457e-05");
  EXPECT_EQ(formatted(1e22), "1e+22");
  EXPECT_EQ(formatted(1e-100), "1e-100");
}

TEST(FormatNumber, RoundsUpIntoAnotherDecade) {
  EXPECT_EQ(formatted(9.9999999), "10");
  EXPECT_EQ(formatted(999999.9), "1e+06");
  EXPECT_EQ(formatted(0.00099999999), "0.001");
  EXPECT_EQ(formatted(0.000099999999), "0.0001");
}

TEST(FormatNumber, RoundsAnExactMiddleToTheEvenDigit) {
  EXPECT_EQ(formatted(100000.5), "100000");
  EXPECT_EQ(formatted(100001.5), "100002");
  EXPECT_EQ(formatted(0.5000005), streamed(0.5000005));
  EXPECT_EQ(formatted(1000005.0), "1e+06");
  EXPECT_EQ(formatted(1000015.0), "1.00002e+06");
}

TEST(FormatNumber, SpellsWhatIsNotFiniteAsAStreamDoes) {
  const double inf = kestrane_test::kInf;
  const double nan = kestrane_test::kNaN;
  for (const double value : {inf, -inf, nan, -nan}) EXPECT_EQ(formatted(value), streamed(value));
  EXPECT_EQ(formatted(std::copysign(nan, -1.0)), "-nan");
}

TEST(FormatNumber, EqualsTheStreamForDoublesOfAnyBits) {
  simulation::Random random(1);
  for (int i = 0; i < 300000; ++i) {
    const double value = from_bits(random.bits());
    ASSERT_EQ(formatted(value), streamed(value)) << std::hexfloat << value;
  }
}

TEST(FormatNumber, EqualsTheStreamForNumbersOfCommonSizes) {
  simulation::Random random(2);
  for (int i = 0; i < 300000; ++i) {
    const double value = random.uniform(-1.0, 1.0) * std::pow(10.0, random.uniform(-18.0, 29.0));
    ASSERT_EQ(formatted(value), streamed(value)) << std::hexfloat << value;
  }
}

TEST(FormatNumber, EqualsTheStreamBesideEveryMiddleAndEveryPowerOfTen) {
  simulation::Random random(3);
  for (int exponent = -30; exponent <= 35; ++exponent) {
    for (int i = 0; i < 400; ++i) {
      const double digits = i < 100 ? 1e5 + 0.5 * i : 1e5 + random.index(899999) + 0.5;
      double value = digits * std::pow(10.0, exponent - 5);
      for (int step = -3; step < 0; ++step) value = std::nextafter(value, 0.0);
      for (int step = -3; step <= 3; ++step, value = std::nextafter(value, 1e300))
        ASSERT_EQ(formatted(value), streamed(value)) << std::hexfloat << value;
    }
  }
}

// What the fast way writes; none where it leaves the number alone.
std::optional<std::string> plain_text(double value) {
  char text[kLongestNumber] = "untouched";
  if (char* const end = put_plain_decimal(text, value)) return std::string(text, end);
  EXPECT_STREQ(text, "untouched") << value;
  return std::nullopt;
}

TEST(PutPlainDecimal, TakesItsWholeRange) {
  EXPECT_EQ(plain_text(1e-16), "1e-16");
  EXPECT_EQ(plain_text(-1e-16), "-1e-16");
  EXPECT_EQ(plain_text(1e27), "1e+27");
  EXPECT_EQ(plain_text(-1e27), "-1e+27");
  EXPECT_EQ(plain_text(0.1), "0.1");
  EXPECT_EQ(plain_text(-86.6025403784), "-86.6025");
  EXPECT_EQ(plain_text(1234567.0), "1.23457e+06");
  EXPECT_EQ(plain_text(999999.75), "1e+06");
}

TEST(PutPlainDecimal, LeavesWhatIsSmallerOrLargerOrNotANumber) {
  using kestrane_test::kInf;
  for (const double size : {0.0, 4e-324, std::nextafter(1e-16, 0.0), std::nextafter(1e27, kInf),
                            1e300, kInf, kestrane_test::kNaN}) {
    EXPECT_EQ(plain_text(size), std::nullopt);
    EXPECT_EQ(plain_text(-size), std::nullopt);
  }
}

// In units of the sixth digit the error bound is 1e-9 to either side of the middle.
TEST(PutPlainDecimal, LeavesWhatLiesTooNearToAMiddle) {
  for (const double middle : {123456.5, 100000.5, 999999.5}) {
    EXPECT_EQ(plain_text(middle), std::nullopt);
    EXPECT_EQ(plain_text(middle + 0.9e-9), std::nullopt);
    EXPECT_EQ(plain_text(middle - 0.9e-9), std::nullopt);
    EXPECT_EQ(plain_text(middle + 1.1e-9), streamed(middle + 1.1e-9));
    EXPECT_EQ(plain_text(middle - 1.1e-9), streamed(middle - 1.1e-9));
  }
}

// It may write more than the text, but not beyond the room that its caller grants.
TEST(FormatNumber, WritesNothingBeyondItsRoom) {
  simulation::Random random(8);
  char text[64];
  for (int i = 0; i < 20000; ++i) {
    std::fill(std::begin(text), std::end(text), '#');
    format_number(text, random.uniform(-1.0, 1.0) * std::pow(10.0, random.uniform(-18.0, 29.0)));
    const auto beyond = std::begin(text) + kLongestNumber;
    ASSERT_EQ(std::count(beyond, std::end(text), '#'), std::end(text) - beyond);
  }
}

TEST(FormatNumber, WritesEveryKindOfInteger) {
  for (const std::int32_t value : {0, 7, -1, 100, std::numeric_limits<std::int32_t>::max(),
                                   std::numeric_limits<std::int32_t>::min()})
    EXPECT_EQ(formatted(value), streamed(value));
}

}  // namespace
}  // namespace kestrane
