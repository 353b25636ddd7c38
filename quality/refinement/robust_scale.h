// How far residuals scatter, whatever a part of them does.
#pragma once

#include <cmath>
#include <span>
#include <vector>

namespace kestrane::quality::refinement {

inline constexpr double kNormal =
    1.4826;  // deviation of a normal distribution over its median size
inline constexpr double kLeastScale = 1e-9;

// The mean of the middle two of an even number; not a number without values. Reorders `values`.
double median_of(std::span<double> values);

// 1.4826 times the median size of the residuals, at least 1e-9. `sizes` is scratch.
template <class Residuals>
double robust_scale(const Residuals& residuals, std::vector<double>& sizes) {
  sizes.clear();
  for (const double r : residuals) sizes.push_back(std::abs(r));
  const double scale = kNormal * median_of(sizes);
  return scale > kLeastScale ? scale : kLeastScale;
}

}  // namespace kestrane::quality::refinement
