#include "files/number_parse.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <locale>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "simulation/random.h"
#include "tests/files/temporary_folder.h"
#include "tests/support/bits.h"

namespace kestrane {
namespace {

// The numbers of a text until the first failure; each begins where the one before ended.
template <class Number>
struct Taken {
  std::vector<Number> values;
  bool operator==(const Taken&) const = default;
};

template <class Number>
Taken<Number> taken_by_stream(const std::string& text) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  Taken<Number> taken;
  for (Number value{}; in >> value;) taken.values.push_back(value);
  return taken;
}

template <class Number>
Taken<Number> taken_from_file(const std::string& path, std::size_t window) {
  InputFile in(path, window);
  Taken<Number> taken;
  for (Number value{}; read_number(in, value);) taken.values.push_back(value);
  return taken;
}

testing::AssertionResult same_numbers(const Taken<double>& a, const Taken<double>& b) {
  return kestrane_test::same_bits(a.values, b.values);
}

testing::AssertionResult same_numbers(const Taken<std::int32_t>& a, const Taken<std::int32_t>& b) {
  if (a.values == b.values) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << testing::PrintToString(a.values) << " instead of " << testing::PrintToString(b.values);
}

// Reads `text` with the default window and with one that cuts most numbers, and as the stream does.
template <class Number>
void expect_read_as_stream_does(const MemoryFile& file, const std::string& text) {
  const std::string path = file.hold(text);
  const Taken<Number> expected = taken_by_stream<Number>(text);
  EXPECT_TRUE(same_numbers(taken_from_file<Number>(path, kFileWindow), expected)) << text;
  EXPECT_TRUE(same_numbers(taken_from_file<Number>(path, 5), expected)) << text;
}

// The first number of `text`, none when it is refused.
template <class Number>
std::optional<Number> first_number(const std::string& text) {
  const MemoryFile file;
  InputFile in(file.hold(text));
  Number value{};
  if (!read_number(in, value)) return std::nullopt;
  return value;
}

constexpr const char* kPieces[] = {
    "0",  "1",  "7",   "9",   "00",  "5",   ".",    "e", "E",   "+",   "-",         "e+",
    "E-", "12", "308", "309", "324", "400", "x",    "p", "inf", "nan", "f",         ",",
    "'",  "_",  "\t",  "\n",  "\v",  "\f",  "\r\n", " ", " ",   " ",   "2147483647"};

std::string random_text(simulation::Random& random) {
  std::string text;
  const int count = 1 + random.index(12);
  for (int i = 0; i < count; ++i) text += kPieces[random.index(std::size(kPieces))];
  if (random.index(16) == 0) text[static_cast<std::size_t>(random.index(1))] = '\0';
  return text;
}

TEST(ReadNumber, TakesWhatAStreamTakes) {
  EXPECT_EQ(first_number<double>("1.5"), 1.5);
  EXPECT_EQ(first_number<double>(" \t\n\v\f\r-2e3 "), -2000.0);
  EXPECT_EQ(first_number<double>("+7"), 7.0);
  EXPECT_EQ(first_number<double>(".5"), 0.5);
  EXPECT_EQ(first_number<double>("5."), 5.0);
  EXPECT_EQ(first_number<double>("1E2"), 100.0);
  EXPECT_EQ(first_number<double>("0x10"), 0.0);
  EXPECT_EQ(first_number<double>("1.5.2"), 1.5);
  EXPECT_EQ(first_number<double>("3,5"), 3.0);
}

TEST(ReadNumber, RefusesWhatAStreamRefuses) {
  for (const char* text : {"", " ", "inf", "nan", "-inf", "e5", ".", "-", "+", "+-1", "1e", "1e+",
                           "1e-", ".e5", "1e309", "-1e309", "1e99999999999999999999", "x", ","})
    EXPECT_EQ(first_number<double>(text), std::nullopt) << text;
}

TEST(ReadNumber, TakesANumberTooSmallForADoubleAsASignedZero) {
  EXPECT_EQ(first_number<double>("1e-400"), 0.0);
  EXPECT_TRUE(std::signbit(first_number<double>("-1e-400").value()));
  EXPECT_EQ(first_number<double>("1e-99999999999999999999"), 0.0);
  EXPECT_EQ(first_number<double>("0e99999999999999999999"), 0.0);
  EXPECT_EQ(first_number<double>("4.9406564584124654e-324"), 0x1p-1074);
  EXPECT_EQ(first_number<double>("2.4703282292062327e-324"), 0.0);
  EXPECT_EQ(first_number<double>("2.4703282292062328e-324"), 0x1p-1074);
  EXPECT_EQ(first_number<double>("1.7976931348623157e308"), std::numeric_limits<double>::max());
}

TEST(ReadNumber, TakesWholeNumbersWithinThirtyTwoBitsOnly) {
  EXPECT_EQ(first_number<std::int32_t>("2147483647"), 2147483647);
  EXPECT_EQ(first_number<std::int32_t>("-2147483648"), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(first_number<std::int32_t>("+0000012"), 12);
  EXPECT_EQ(first_number<std::int32_t>("-0"), 0);
  EXPECT_EQ(first_number<std::int32_t>("15.7"), 15);
  for (const char* text : {"", "2147483648", "-2147483649", "99999999999999999999999", "-", "+",
                           "x", ".5", "--1", "+-1"})
    EXPECT_EQ(first_number<std::int32_t>(text), std::nullopt) << text;
}

TEST(ReadNumber, LeavesTheValueAloneWhenItRefuses) {
  const MemoryFile file;
  double real = 3.25;
  InputFile in(file.hold("1e400"));
  EXPECT_FALSE(read_number(in, real));
  EXPECT_EQ(real, 3.25);
  std::int32_t whole = 17;
  InputFile other(file.hold("3000000000"));
  EXPECT_FALSE(read_number(other, whole));
  EXPECT_EQ(whole, 17);
}

TEST(ReadNumber, EqualsTheStreamForTextOfAllSorts) {
  const MemoryFile file;
  simulation::Random random(4);
  for (int i = 0; i < 20000 && !testing::Test::HasFailure(); ++i) {
    const std::string text = random_text(random);
    expect_read_as_stream_does<double>(file, text);
    expect_read_as_stream_does<std::int32_t>(file, text);
  }
}

// What the fast way takes of `text` followed by blanks; none where it leaves it alone.
struct Plain {
  double value;
  std::ptrdiff_t size;
  bool operator==(const Plain&) const = default;
};

std::optional<Plain> plain_number(const std::string& text) {
  const std::string padded = text + std::string(40, ' ');
  double value = 17.5;
  const char* const end = take_plain_decimal(padded, value);
  if (end != nullptr) return Plain{value, end - padded.data()};
  EXPECT_EQ(value, 17.5) << text;
  return std::nullopt;
}

TEST(TakePlainDecimal, TakesDigitsWithAPointAndAShortExponent) {
  EXPECT_EQ(plain_number("7"), (Plain{7.0, 1}));
  EXPECT_EQ(plain_number("-7\n8"), (Plain{-7.0, 2}));
  EXPECT_EQ(plain_number("0.0625"), (Plain{0.0625, 6}));
  EXPECT_EQ(plain_number("-86.6025 3"), (Plain{-86.6025, 8}));
  EXPECT_EQ(plain_number("5."), (Plain{5.0, 2}));
  EXPECT_EQ(plain_number(".5"), (Plain{0.5, 2}));
  EXPECT_EQ(plain_number("1.23457e-05"), (Plain{1.23457e-05, 11}));
  EXPECT_EQ(plain_number("-12.5e+05\t"), (Plain{-1250000.0, 9}));
  EXPECT_EQ(plain_number("9e+09"), (Plain{9e9, 5}));
}

TEST(TakePlainDecimal, TakesWhatIsExactUpToItsLimits) {
  EXPECT_EQ(plain_number("9007199254740992"), (Plain{0x1p53, 16}));
  EXPECT_EQ(plain_number("9007199254740993"), std::nullopt);
  EXPECT_EQ(plain_number("000000000000000001"), (Plain{1.0, 18}));
  EXPECT_EQ(plain_number("0000000000000000001"), std::nullopt);
  EXPECT_EQ(plain_number("00000000.0000000001"), (Plain{1e-10, 19}));
  EXPECT_EQ(plain_number("00000000.00000000001"), std::nullopt);
  EXPECT_EQ(plain_number("1e+22"), (Plain{1e22, 5}));
  EXPECT_EQ(plain_number("1e+23"), std::nullopt);
  EXPECT_EQ(plain_number("1e-22"), (Plain{1e-22, 5}));
  EXPECT_EQ(plain_number("0.1e-22"), std::nullopt);
  EXPECT_EQ(plain_number("0.1e+23"), (Plain{1e22, 7}));
}

TEST(TakePlainDecimal, LeavesAllOtherTextAlone) {
  for (const char* text : {"",      "-",    ".",     "-.",    "+1",    "e+01",  ".e+01",
                           "1e5",   "1e+5", "1e*05", "1e+0x", "1e+/5", "1e+5:", "1e+123",
                           "1E+05", "1x",   "1.5.2", "1-",    "--1",   "inf",   "1\xd5"})
    EXPECT_EQ(plain_number(text), std::nullopt) << text;
  double value = 17.5;
  const std::string enough = "1" + std::string(31, ' ');
  EXPECT_NE(take_plain_decimal(enough, value), nullptr);
  EXPECT_EQ(value, 1.0);
  EXPECT_EQ(take_plain_decimal(std::string_view(enough).substr(0, 31), value), nullptr);
}

// All texts of up to `most` of `characters`, each handed to `use`.
template <class Use>
void for_all_texts(const std::string& characters, std::size_t most, const Use& use,
                   const std::string& text = "") {
  use(text);
  if (text.size() == most) return;
  for (const char c : characters) for_all_texts(characters, most, use, text + c);
}

// A number that much text follows may be read in a faster way. A character just above and one
// just below the digits are among these, and one whose sum with the digit 0 overflows to a digit.
TEST(ReadNumber, EqualsTheStreamForEveryShortTextInFrontOfALongOne) {
  const MemoryFile file;
  const std::string rest = " -2.5e+01 " + std::string(30, ' ') + "4";
  for (const char* head : {"", "-", "7", "-7", "70.", "-.", "0.25", "7e", "-3.5e-", "2e+1"}) {
    for_all_texts("e.+-8 :/\xd5", 3, [&](const std::string& tail) {
      const std::string text = head + tail + rest;
      ASSERT_TRUE(same_numbers(taken_from_file<double>(file.hold(text), kFileWindow),
                               taken_by_stream<double>(text)))
          << text;
    });
  }
}

TEST(ReadNumber, EqualsTheStreamForDoublesOfAnyBitsInFullPrecision) {
  const MemoryFile file;
  simulation::Random random(5);
  std::string text;
  for (int i = 0; i < 20000; ++i) {
    const double value = std::bit_cast<double>(random.bits());
    if (!std::isfinite(value)) continue;
    char number[32];
    std::snprintf(number, sizeof number, "%.17g\n", value);
    text += number;
  }
  expect_read_as_stream_does<double>(file, text);
}

TEST(ReadNumber, EqualsTheStreamForNumbersOfManyDigits) {
  const MemoryFile file;
  simulation::Random random(6);
  for (int i = 0; i < 300 && !testing::Test::HasFailure(); ++i) {
    std::string text(static_cast<std::size_t>(random.index(3) * 400), '0');
    const int digits = 1 + random.index(1500);
    const int point = random.index(1600);
    for (int d = 0; d < digits; ++d) {
      if (d == point) text += '.';
      text += static_cast<char>('0' + random.index(10));
    }
    text += 'e' + std::to_string(random.index(900) - 600 - digits / 2);
    expect_read_as_stream_does<double>(file, text + " 12.5");
  }
}

// The middle between two neighbours has up to 767 digits; one digit more, anywhere after, decides.
TEST(ReadNumber, RoundsByADigitFarAfterTheMiddleBetweenTwoDoubles) {
  const MemoryFile file;
  constexpr double kLow = 0x1p-1022;  // even, so the exact middle rounds down to it
  constexpr double kHigh = 0x1.0000000000001p-1022;
  char middle[1200];
  std::snprintf(middle, sizeof middle, "%.1100Lf",
                (static_cast<long double>(kLow) + static_cast<long double>(kHigh)) / 2);
  const std::string zeros(3000, '0');
  expect_read_as_stream_does<double>(file, middle + zeros + "1");
  EXPECT_EQ(first_number<double>(middle + zeros), kLow);
  EXPECT_EQ(first_number<double>(middle + zeros + "1"), kHigh);
  const std::string odd_middle = "9007199254740993";  // 2^53 + 1, between two even integers
  EXPECT_EQ(first_number<double>(odd_middle + "." + zeros), 9007199254740992.0);
  EXPECT_EQ(first_number<double>(odd_middle + "." + zeros + "1"), 9007199254740994.0);
  EXPECT_EQ(first_number<double>(odd_middle + zeros + "1e-3001"), 9007199254740994.0);
}

TEST(ReadNumber, LeavesTheFileAfterTheNumberAsAStreamDoes) {
  const MemoryFile file;
  simulation::Random random(7);
  for (int i = 0; i < 5000 && !testing::Test::HasFailure(); ++i) {
    const std::string text = random_text(random);
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    InputFile in(file.hold(text), i % 2 == 0 ? kFileWindow : 3);
    for (bool good = true; good;) {
      double real[2] = {0.0, 0.0};
      std::int32_t whole[2] = {0, 0};
      const bool takes_real = random.index(2) == 0;
      good =
          takes_real ? static_cast<bool>(stream >> real[0]) : static_cast<bool>(stream >> whole[0]);
      ASSERT_EQ(takes_real ? read_number(in, real[1]) : read_number(in, whole[1]), good) << text;
      if (!good) break;
      ASSERT_EQ(real[0], real[1]) << text;
      ASSERT_EQ(whole[0], whole[1]) << text;
    }
  }
}

// What an earlier window held may still lie where the next character would be.
TEST(ReadNumber, FindsNothingAfterTheEndWhateverStoodThere) {
  const MemoryFile file;
  for (const char* text : {"-5", "+5", "5", " -5", "-5 "}) {
    InputFile in(file.hold(text));
    std::int32_t whole = 0;
    ASSERT_TRUE(read_number(in, whole)) << text;
    EXPECT_EQ(std::abs(whole), 5) << text;
    for (int again = 0; again < 3; ++again) EXPECT_FALSE(read_number(in, whole)) << text;
    InputFile other(file.hold(text));
    double real = 0.0;
    ASSERT_TRUE(read_number(other, real)) << text;
    EXPECT_EQ(std::abs(real), 5.0) << text;
    for (int again = 0; again < 3; ++again) EXPECT_FALSE(read_number(other, real)) << text;
  }
}

TEST(ReadNumber, ReadsANumberThatSpansManyWindows) {
  const std::string text =
      "1" + std::string(3 * kFileWindow, '0') + "e-" + std::to_string(3 * kFileWindow) + " 2";
  const MemoryFile file;
  InputFile in(file.hold(text));
  double value = 0.0;
  ASSERT_TRUE(read_number(in, value));
  EXPECT_EQ(value, 1.0);
  ASSERT_TRUE(read_number(in, value));
  EXPECT_EQ(value, 2.0);
  EXPECT_FALSE(read_number(in, value));
}

}  // namespace
}  // namespace kestrane
