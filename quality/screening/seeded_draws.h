// Draws that belong to one call: the same on every run, whatever else the process draws.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrane::quality {

class SeededDraws {
 public:
  explicit SeededDraws(std::uint64_t seed) : state_(seed) {}

  // Of 0 to count - 1, where count is above 0 and below 2^32.
  std::size_t below(std::size_t count) {
    return static_cast<std::size_t>(((next() >> 32) * static_cast<std::uint64_t>(count)) >> 32);
  }

 private:
  // A Weyl sequence, its steps mixed to independence.
  std::uint64_t next() {
    state_ += 0x9E3779B97F4A7C15U;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
    return mixed ^ (mixed >> 31);
  }

  std::uint64_t state_;
};

// One index of each of `picks` even pieces of 0 to count - 1, ascending: no period in the order of
// the points can favour one kind of them. All indices where picks >= count.
template <class Take>
void for_each_spread_pick(std::size_t count, std::size_t picks, SeededDraws& draws, Take take) {
  if (picks >= count) {
    for (std::size_t i = 0; i < count; ++i) take(i);
    return;
  }
  for (std::size_t k = 0; k < picks; ++k) {
    const std::size_t begin = k * count / picks;
    const std::size_t end = (k + 1) * count / picks;
    take(begin + draws.below(end - begin));
  }
}

}  // namespace kestrane::quality
