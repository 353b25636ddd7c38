#include "quality/factory/outliers.h"

#include <algorithm>
#include <vector>

#include "quality/factory/order_statistics.h"

namespace kestrane::quality {
namespace {

constexpr double kDeviationsPerMedian = 1.4826;  // of a normal distribution
constexpr double kSmallestSigma = 1e-9;          // points that lie on the plane to rounding

}  // namespace

Spread spread_of(std::span<const double> residuals) {
  std::vector<double> scratch(residuals.begin(), residuals.end());
  const double median = median_of(scratch);
  for (double& value : scratch) value = std::abs(value - median);
  const double distance = median_of(scratch);
  // Written so that the figure of no residuals at all stays not a number.
  const double sigma = kDeviationsPerMedian * distance;
  return {median, sigma < kSmallestSigma ? kSmallestSigma : sigma};
}

}  // namespace kestrane::quality
