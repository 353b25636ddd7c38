#include "quality/refinement/robust_scale.h"

#include <algorithm>
#include <limits>

namespace kestrane::quality::refinement {

double median_of(std::span<double> values) {
  if (values.empty()) return std::numeric_limits<double>::quiet_NaN();
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 != 0) return *middle;
  return 0.5 * (*middle + *std::max_element(values.begin(), middle));
}

}  // namespace kestrane::quality::refinement
