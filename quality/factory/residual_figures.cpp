#include "quality/factory/residual_figures.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>

#include "quality/factory/grouping.h"
#include "quality/factory/order_statistics.h"

namespace kestrane::quality {
namespace {

constexpr std::size_t kBlocksOfPlane = 750;
constexpr std::size_t kUpper = 95;    // percent
constexpr std::size_t kHighest = 99;  // percent

// Quantiles of sizes of which the lowest `left_out` were dropped unseen.
void write_quantiles(std::span<double> sizes, std::size_t left_out, ResidualFigures& figures) {
  const std::size_t count = sizes.size() + left_out;
  const std::size_t upper = quantile_place(count, kUpper) - left_out;
  const std::size_t highest = quantile_place(count, kHighest) - left_out;
  const auto place = [&](std::size_t at) {
    return sizes.begin() + static_cast<std::ptrdiff_t>(at);
  };
  std::nth_element(sizes.begin(), place(upper), sizes.end());
  figures.q95 = sizes[upper];
  std::nth_element(place(upper), place(highest), sizes.end());
  figures.q99 = sizes[highest];
  figures.max = *std::max_element(place(highest), sizes.end());
}

ResidualFigures figures_of(const ResidualSums& sums, std::span<double> sizes,
                           std::size_t left_out) {
  ResidualFigures figures;
  figures.points = sums.count;
  if (sums.count == 0) return figures;
  const auto n = static_cast<double>(sums.count);
  figures.rms = std::sqrt(sums.squares / n);
  figures.bias = sums.sum / n;
  write_quantiles(sizes, left_out, figures);
  return figures;
}

}  // namespace

void ResidualSums::add(const ResidualSums& other) {
  count += other.count;
  sum += other.sum;
  squares += other.squares;
}

ResidualFigures figures_of(const ResidualSums& sums, std::span<double> sizes) {
  return figures_of(sums, sizes, 0);
}

// Of n sizes the 95 % quantile is the (n / 20 + 1)-th from above, rounded down: no smaller one is
// ever asked for, and with fewer sizes than foreseen no more of them are.
LargestSizes::LargestSizes(std::int64_t most) : keep_(static_cast<std::size_t>(most) / 20 + 1) {
  constexpr std::size_t kSlack = 1024;
  sizes_.reserve(keep_ + std::max(kSlack, keep_ / 8));
}

void LargestSizes::add(std::span<const double> sizes) {
  for (const double size : sizes) {
    if (size <= smallest_) continue;
    if (sizes_.size() == sizes_.capacity()) cut();
    sizes_.push_back(size);
  }
}

void LargestSizes::cut() {
  const auto last = sizes_.begin() + static_cast<std::ptrdiff_t>(keep_ - 1);
  std::nth_element(sizes_.begin(), last, sizes_.end(), std::greater<>());
  smallest_ = *last;
  sizes_.resize(keep_);
}

ResidualFigures LargestSizes::figures(const ResidualSums& sums) {
  return figures_of(sums, sizes_, static_cast<std::size_t>(sums.count) - sizes_.size());
}

FiguresOfPlane residual_figures(const PlanePoints& points, const Spread& spread,
                                LargestSizes* device) {
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
  if (device != nullptr) device->add(sizes.all());
  figures.plane = figures_of(figures.sums, sizes.all());
  return figures;
}

}  // namespace kestrane::quality
