// Values gathered by a small whole number, such as the residuals of each block.
//
// in    a key of 0 to groups - 1 and a value per item
// out   the values of each group one after the other, in the order in which they came
#pragma once

#include <cstddef>
#include <numeric>
#include <span>
#include <vector>

namespace kestrane::quality {

class Groups {
 public:
  // `visit(take)` calls `take(key, value)` for each item, in the same order each time it is called:
  // once to count, once to place.
  template <class Visit>
  Groups(std::size_t groups, const Visit& visit) : ends_(groups + 1, 0) {
    visit([this](std::size_t key, double) { ++ends_[key + 1]; });
    std::partial_sum(ends_.begin(), ends_.end(), ends_.begin());
    values_.resize(ends_.back());
    std::vector<std::size_t> next(ends_.begin(), ends_.end() - 1);
    visit([this, &next](std::size_t key, double value) { values_[next[key]++] = value; });
  }

  std::size_t size() const { return ends_.size() - 1; }

  // May be put into another order.
  std::span<double> of(std::size_t group) {
    return std::span(values_).subspan(ends_[group], ends_[group + 1] - ends_[group]);
  }
  std::span<double> all() { return values_; }

 private:
  std::vector<std::size_t> ends_;  // where each group ends, after a leading 0
  std::vector<double> values_;
};

}  // namespace kestrane::quality
