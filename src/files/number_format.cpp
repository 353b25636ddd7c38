#include "files/number_format.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "files/powers_of_ten.h"

namespace kestrane {
namespace {

constexpr int kDigits = 6;
constexpr double kDigitsLow = 1e5;  // six digits before the point
constexpr double kDigitsHigh = 1e6;

constexpr double kSmallest = 1e-16;  // range in which one exact power scales to six digits
constexpr double kLargest = 1e27;

// Six digits and the decimal exponent of the first of them.
struct Decimal {
  unsigned digits;
  int exponent;
};

// The decimal exponent of a normal `value` above 0, or one less: never too large. The product is
// floor(binary * log10(2)) for every binary exponent of a double.
int exponent_below(double value) {
  const int binary = static_cast<int>(std::bit_cast<std::uint64_t>(value) >> 52) - 1023;
  return (binary * 315653) >> 20;
}

// Rounds kSmallest <= value <= kLargest to six digits. False when the value lies so near to the
// middle between two candidates that the rounding of the scaling could decide.
bool round_to_digits(double value, Decimal& decimal) {
  constexpr double kScalingError = 1e-9;  // the scaled value is off by at most 1.2e-10
  int exponent = exponent_below(value);
  double shifted = times_power_of_ten(value, kDigits - 1 - exponent);
  if (shifted >= kDigitsHigh) {
    ++exponent;
    shifted = times_power_of_ten(value, kDigits - 1 - exponent);
  }
  auto digits = static_cast<int>(shifted);
  const double rest = shifted - digits;
  if (std::abs(rest - 0.5) < kScalingError) return false;
  if (rest > 0.5) ++digits;
  if (digits >= static_cast<int>(kDigitsHigh)) {
    digits = static_cast<int>(kDigitsLow);
    ++exponent;
  }
  decimal = {static_cast<unsigned>(digits), exponent};
  return true;
}

// So many bytes are copied whatever the number of digits is.
constexpr std::size_t kCopied = 8;

// Six digits and room after them, so that a copy may begin at each of them.
using DigitText = char[kDigits + kCopied];

char* put(char* to, const char* from, int count) {
  std::memcpy(to, from, kCopied);
  return to + count;
}

// d.ddde+XX, two digits of exponent: the range of round_to_digits needs no third.
char* put_scientific(char* to, const char* digits, int used, int exponent) {
  *to++ = digits[0];
  if (used > 1) {
    *to++ = '.';
    std::memcpy(to, digits + 1, kDigits - 1);
    to += used - 1;
  }
  *to++ = 'e';
  *to++ = exponent < 0 ? '-' : '+';
  const auto size = static_cast<unsigned>(std::abs(exponent));
  *to++ = static_cast<char>('0' + size / 10);
  *to++ = static_cast<char>('0' + size % 10);
  return to;
}

char* put_fixed(char* to, const DigitText& digits, int used, int exponent) {
  if (exponent < 0) {
    constexpr DigitText kZeros = "0.000";
    return put(put(to, kZeros, 1 - exponent), digits, used);
  }
  const int whole = exponent + 1;
  char* end = put(to, digits, whole);
  if (used <= whole) return end;
  *end++ = '.';
  return put(end, digits + whole, used - whole);
}

char* put_general(char* to, Decimal decimal) {
  DigitText digits = {};
  for (int i = kDigits - 1; i >= 0; --i) {
    digits[i] = static_cast<char>('0' + decimal.digits % 10);
    decimal.digits /= 10;
  }
  int used = kDigits;
  while (digits[used - 1] == '0') --used;  // the first digit is never 0
  const bool fixed = decimal.exponent >= -4 && decimal.exponent < kDigits;
  return fixed ? put_fixed(to, digits, used, decimal.exponent)
               : put_scientific(to, digits, used, decimal.exponent);
}

}  // namespace

char* put_plain_decimal(char* to, double value) {
  const double size = std::abs(value);
  Decimal decimal;
  if (!(size >= kSmallest && size <= kLargest) || !round_to_digits(size, decimal)) return nullptr;
  if (value < 0.0) *to++ = '-';
  return put_general(to, decimal);
}

char* format_number(char* to, double value) {
  if (char* const end = put_plain_decimal(to, value)) return end;
  return std::to_chars(to, to + kLongestNumber, value, std::chars_format::general, kDigits).ptr;
}

char* format_number(char* to, std::int32_t value) {
  return std::to_chars(to, to + kLongestNumber, value).ptr;
}

}  // namespace kestrane
