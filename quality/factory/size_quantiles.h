// Quantiles of the sizes of all residuals of a device, in memory that does not grow with them.
//
// in    every size twice, in any order: once to count it, once to be found
// out   the 95 % and the 99 % quantile and the largest
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrane::quality {

// First all sizes go through `count`, then `look_for_them` is called, then all go through `find`.
//
// The first round counts sizes by bins that are a 128th of their size wide, the second gathers
// those of the two bins that the quantiles lie in: one size in several hundred, as residuals are
// spread. Where nearly all are equal they all are gathered.
class SizeQuantiles {
 public:
  SizeQuantiles();

  void count(double size) {
    ++counts_[bin_of(size)];
    ++all_;
    if (size > largest_) largest_ = size;
  }

  // Counts all that `other` has counted.
  void add_counts(const SizeQuantiles& other);

  void look_for_them();

  void find(double size) {
    const std::size_t bin = bin_of(size);
    for (Wanted& wanted : wanted_) {
      if (wanted.bin == bin) wanted.sizes.push_back(size);
    }
  }

  // Not a number without sizes. Each may be asked for once both rounds are done.
  double q95() { return chosen(wanted_[0]); }
  double q99() { return chosen(wanted_[1]); }
  double largest() const;

 private:
  // A quantile: the size at `place` of its bin, in ascending order.
  struct Wanted {
    std::size_t bin = 0;
    std::size_t place = 0;
    std::vector<double> sizes;
  };

  static std::size_t bin_of(double size);
  double chosen(Wanted& wanted) const;

  std::vector<std::uint64_t> counts_;
  std::uint64_t all_ = 0;
  double largest_ = 0.0;
  std::array<Wanted, 2> wanted_;
};

}  // namespace kestrane::quality
