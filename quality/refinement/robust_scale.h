// How far residuals scatter, whatever a part of them does.
#pragma once

#include <algorithm>
#include <span>

#include "quality/factory/order_statistics.h"
#include "quality/screening/sizes.h"

namespace kestrane::quality::refinement {

inline constexpr double kLeastScale = 1e-9;

// The scale of residuals from their sizes, at least 1e-9. Reorders `sizes`.
inline double scale_of(std::span<double> sizes) {
  return std::max(kNormalMad * median_of(sizes), kLeastScale);
}

}  // namespace kestrane::quality::refinement
