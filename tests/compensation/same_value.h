// Comparison of doubles to the last bit, where the order of operations fixes every bit.
#pragma once

#include <bit>
#include <cstdint>

namespace kestrane_test {

inline std::uint64_t bits_of(double x) { return std::bit_cast<std::uint64_t>(x); }

// Equal bits, or both not a number: an operation's NaN has the sign that the compiler chose.
inline bool same_value(double a, double b) {
  return bits_of(a) == bits_of(b) || (a != a && b != b);
}

}  // namespace kestrane_test
