// Sizes of residuals and their median.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace kestrane::quality {

// Scale of a normal distribution from its median absolute deviation.
inline constexpr double kNormalMad = 1.4826;

// |residual|; one that is infinite or not a number is as far away as a number can be, so that sizes
// have an order.
inline double size_of(double residual) {
  constexpr double kFarthest = std::numeric_limits<double>::max();
  const double size = std::abs(residual);
  return size <= kFarthest ? size : kFarthest;
}

// The middle size, of an even number the mean of the middle two, each halved first: the sum of two
// that are as far away as can be would overflow. The sizes, of which there is at least one, are put
// into another order.
inline double median_of_sizes(std::vector<double>& sizes) {
  const auto upper = sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2);
  std::nth_element(sizes.begin(), upper, sizes.end());
  if (sizes.size() % 2 == 1) return *upper;
  return 0.5 * *std::max_element(sizes.begin(), upper) + 0.5 * *upper;
}

}  // namespace kestrane::quality
