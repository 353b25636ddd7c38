// Random draws that are the same on every platform: raw 64-bit Mersenne Twister output, turned into
// doubles here, since the standard distributions differ between libraries.
#pragma once

#include <cstdint>
#include <random>

namespace simulation {

class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  std::uint64_t bits() { return engine_(); }

  // In [0, 1), a multiple of 2^-53.
  double uniform();

  // In [low, high).
  double uniform(double low, double high);

  // Of 0 to count - 1.
  int index(int count);

  // Mean 0, standard deviation 1; the sum of twelve uniform draws, which never leaves -6 to 6.
  double gaussian();

 private:
  std::mt19937_64 engine_;
};

}  // namespace simulation
