// All powers of ten that a double holds exactly: one multiplication or division by one of them is
// one rounding.
#pragma once

namespace kestrane {

inline constexpr int kLargestExactPower = 22;
inline constexpr double kPowersOfTen[kLargestExactPower + 1] = {
    1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// value * 10^power for a power of -22 to 22.
inline double times_power_of_ten(double value, int power) {
  return power < 0 ? value / kPowersOfTen[-power] : value * kPowersOfTen[power];
}

}  // namespace kestrane
