#include "quality/factory/size_quantiles.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "quality/factory/order_statistics.h"

namespace kestrane::quality {
namespace {

constexpr std::array<std::size_t, 2> kPercents = {95, 99};

// A bin holds the sizes that share their exponent and the first bits of their mantissa. Smaller
// sizes than the first bin's share it, larger ones than the last bin's share that one.
constexpr int kMantissaBits = 7;
constexpr std::uint64_t kLeastExponent = 1023 - 40;  // 1e-12
constexpr std::uint64_t kExponents = 64;
constexpr std::uint64_t kFirst = kLeastExponent << kMantissaBits;
constexpr std::uint64_t kBins = kExponents << kMantissaBits;

}  // namespace

SizeQuantiles::SizeQuantiles() : counts_(kBins, 0) {}

// The bits of a number that is not negative rise with it.
std::size_t SizeQuantiles::bin_of(double size) {
  const std::uint64_t leading = std::bit_cast<std::uint64_t>(size) >> (52 - kMantissaBits);
  return leading < kFirst ? 0 : std::min(leading - kFirst, kBins - 1);
}

void SizeQuantiles::add_counts(const SizeQuantiles& other) {
  for (std::size_t bin = 0; bin < counts_.size(); ++bin) counts_[bin] += other.counts_[bin];
  all_ += other.all_;
  largest_ = std::max(largest_, other.largest_);
}

void SizeQuantiles::look_for_them() {
  if (all_ == 0) return;
  for (std::size_t q = 0; q < wanted_.size(); ++q) {
    std::size_t place = quantile_place(all_, kPercents[q]);
    std::size_t bin = 0;
    while (place >= counts_[bin]) place -= counts_[bin++];
    wanted_[q].bin = bin;
    wanted_[q].place = place;
  }
}

double SizeQuantiles::largest() const {
  return all_ == 0 ? std::numeric_limits<double>::quiet_NaN() : largest_;
}

double SizeQuantiles::chosen(Wanted& wanted) const {
  if (all_ == 0) return std::numeric_limits<double>::quiet_NaN();
  const auto at = wanted.sizes.begin() + static_cast<std::ptrdiff_t>(wanted.place);
  std::nth_element(wanted.sizes.begin(), at, wanted.sizes.end());
  return *at;
}

}  // namespace kestrane::quality
