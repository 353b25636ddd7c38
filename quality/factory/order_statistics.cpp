#include "quality/factory/order_statistics.h"

#include <algorithm>
#include <limits>

namespace kestrane::quality {
namespace {

constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();

double select(std::span<double> values, std::size_t place) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(place);
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

}  // namespace

double median_of(std::span<double> values) {
  if (values.empty()) return kNothing;
  const std::size_t upper = values.size() / 2;
  const double high = select(values, upper);
  if (values.size() % 2 == 1) return high;
  const double low =
      *std::max_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(upper));
  return (low + high) / 2.0;
}

// In whole numbers: a product with 0.95 could be rounded to the far side of a place.
std::size_t quantile_place(std::size_t count, std::size_t percent) {
  return (count * percent + 99) / 100 - 1;
}

double quantile_of(std::span<double> values, std::size_t percent) {
  return values.empty() ? kNothing : select(values, quantile_place(values.size(), percent));
}

}  // namespace kestrane::quality
