// Comparison of doubles to the last bit, where the order of operations fixes every bit.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <span>

namespace kestrane_test {

inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kInf = std::numeric_limits<double>::infinity();

inline std::uint64_t bits_of(double x) { return std::bit_cast<std::uint64_t>(x); }

// Equal bits, or both not a number: an operation's NaN has the sign and payload that the compiler
// and the processor chose. Zeros of different sign differ. A failure prints both in hex.
inline testing::AssertionResult same_bits(double actual, double expected) {
  if (bits_of(actual) == bits_of(expected) || (std::isnan(actual) && std::isnan(expected))) {
    return testing::AssertionSuccess();
  }
  char text[128];  // gtest forgets a stream's manipulators from one << to the next
  std::snprintf(text, sizeof text, "%a instead of %a (%g and %g)", actual, expected, actual,
                expected);
  return testing::AssertionFailure() << text;
}

// The same number by number; the first one that differs is printed.
inline testing::AssertionResult same_bits(std::span<const double> actual,
                                          std::span<const double> expected) {
  if (actual.size() != expected.size()) {
    return testing::AssertionFailure()
           << actual.size() << " numbers instead of " << expected.size();
  }
  for (std::size_t i = 0; i < actual.size(); ++i) {
    if (auto outcome = same_bits(actual[i], expected[i]); !outcome) {
      return outcome << ", number " << i << " of " << actual.size();
    }
  }
  return testing::AssertionSuccess();
}

}  // namespace kestrane_test
