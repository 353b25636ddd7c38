#include "quality/factory/residual_histogram.h"

#include <cmath>
#include <cstddef>

namespace kestrane::quality {
namespace {

constexpr std::size_t kHistogramBins = 80;
constexpr std::size_t kBinFromZero = kHistogramBins / 2;  // the one whose lower bound is 0
constexpr double kReach = 4.0;                            // RMS to either side
constexpr double kBinsPerRms = 10.0;                      // kHistogramBins / (2 kReach)

}  // namespace

ResidualHistogram bins_for(const ResidualSums& sums) {
  ResidualHistogram histogram;
  histogram.counts.assign(kHistogramBins, 0);
  if (sums.count == 0) return histogram;
  const double rms = std::sqrt(sums.squares / static_cast<double>(sums.count));
  if (!std::isfinite(rms)) return histogram;
  histogram.low = -kReach * rms;
  histogram.width = rms / kBinsPerRms;
  return histogram;
}

void count(double residual, ResidualHistogram& histogram) {
  if (std::isnan(histogram.width)) return;
  const double place = histogram.width > 0.0 ? (residual - histogram.low) / histogram.width
                                             : static_cast<double>(kBinFromZero);
  if (!(place >= 0.0)) {
    ++histogram.below;
  } else if (!(place < static_cast<double>(kHistogramBins))) {
    ++histogram.above;
  } else {
    ++histogram.counts[static_cast<std::size_t>(place)];
  }
}

}  // namespace kestrane::quality
