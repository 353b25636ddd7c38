// Which of a plane's points take part in its figures.
//
// in    the residuals of all valid points
// out   their middle, their spread, and the residuals that are not outliers
#pragma once

#include <cmath>
#include <span>

namespace kestrane::quality {

// Middle and spread of residuals; not a number without any.
struct Spread {
  double median;
  double sigma;  // 1.4826 times the median distance from the median, at least 1e-9

  // How far from the median an outlier, or the median of a frame that is off, lies at least.
  double reach() const { return kReach * sigma; }
  bool is_outlier(double residual) const { return std::abs(residual - median) > reach(); }

  static constexpr double kReach = 4.0;
};

Spread spread_of(std::span<const double> residuals);

}  // namespace kestrane::quality
