#include "quality/factory/residual_figures.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "quality/factory/grouping.h"
#include "quality/factory/order_statistics.h"

namespace kestrane::quality {
namespace {

constexpr std::size_t kBlocksOfPlane = 750;
constexpr std::size_t kUpper = 95;    // percent
constexpr std::size_t kHighest = 99;  // percent

void write_quantiles(std::span<double> sizes, ResidualFigures& figures) {
  const std::size_t upper = quantile_place(sizes.size(), kUpper);
  const std::size_t highest = quantile_place(sizes.size(), kHighest);
  const auto place = [&](std::size_t at) {
    return sizes.begin() + static_cast<std::ptrdiff_t>(at);
  };
  std::nth_element(sizes.begin(), place(upper), sizes.end());
  figures.q95 = sizes[upper];
  std::nth_element(place(upper), place(highest), sizes.end());
  figures.q99 = sizes[highest];
  figures.max = *std::max_element(place(highest), sizes.end());
}

ResidualFigures moments_of(const ResidualSums& sums) {
  ResidualFigures figures;
  figures.points = sums.count;
  if (sums.count == 0) return figures;
  const auto n = static_cast<double>(sums.count);
  figures.rms = std::sqrt(sums.squares / n);
  figures.bias = sums.sum / n;
  return figures;
}

}  // namespace

void ResidualSums::add(const ResidualSums& other) {
  count += other.count;
  sum += other.sum;
  squares += other.squares;
}

ResidualFigures figures_of(const ResidualSums& sums, std::span<double> sizes) {
  ResidualFigures figures = moments_of(sums);
  if (sums.count > 0) write_quantiles(sizes, figures);
  return figures;
}

ResidualFigures figures_of(const ResidualSums& sums, SizeQuantiles& sizes) {
  ResidualFigures figures = moments_of(sums);
  figures.q95 = sizes.q95();
  figures.q99 = sizes.q99();
  figures.max = sizes.largest();
  return figures;
}

FiguresOfPlane residual_figures(const PlanePoints& points, const Spread& spread,
                                SizeQuantiles* device) {
  FiguresOfPlane figures;
  std::vector<ResidualSums> sums(kBlocksOfPlane);
  for (std::size_t i = 0; i < points.size(); ++i) {
    const double residual = points.residual[i];
    if (spread.is_outlier(residual)) {
      ++figures.outliers;
      continue;
    }
    figures.sums.add(residual);
    sums[points.block[i]].add(residual);
  }
  Groups sizes(kBlocksOfPlane, [&](auto take) {
    for (std::size_t i = 0; i < points.size(); ++i) {
      if (spread.is_outlier(points.residual[i])) continue;
      take(points.block[i], std::abs(points.residual[i]));
    }
  });
  figures.blocks.reserve(kBlocksOfPlane);
  for (std::size_t b = 0; b < kBlocksOfPlane; ++b) {
    figures.blocks.push_back(figures_of(sums[b], sizes.of(b)));
  }
  if (device != nullptr) {
    for (const double size : sizes.all()) device->count(size);
  }
  figures.plane = figures_of(figures.sums, sizes.all());
  return figures;
}

}  // namespace kestrane::quality
