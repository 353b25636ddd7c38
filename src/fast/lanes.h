// Four doubles that are worked side by side.
//
// Sums over many rows run in these four lanes and are added up in one fixed order, so that they
// have the same bits whatever vectors the compiler makes of them.
#pragma once

#include <cstring>

namespace kestrane {

inline constexpr int kLanes = 4;

class Lanes {
 public:
  Lanes() : low_{0.0, 0.0}, high_{0.0, 0.0} {}
  explicit Lanes(double all) : low_{all, all}, high_{all, all} {}

  static Lanes load(const double* from) {
    Lanes lanes;
    std::memcpy(&lanes.low_, from, sizeof lanes.low_);
    std::memcpy(&lanes.high_, from + 2, sizeof lanes.high_);
    return lanes;
  }
  void store(double* to) const {
    std::memcpy(to, &low_, sizeof low_);
    std::memcpy(to + 2, &high_, sizeof high_);
  }

  friend Lanes operator+(Lanes a, Lanes b) { return {a.low_ + b.low_, a.high_ + b.high_}; }
  friend Lanes operator-(Lanes a, Lanes b) { return {a.low_ - b.low_, a.high_ - b.high_}; }
  friend Lanes operator*(Lanes a, Lanes b) { return {a.low_ * b.low_, a.high_ * b.high_}; }

  double sum() const { return (low_[0] + low_[1]) + (high_[0] + high_[1]); }  // order fixed

 private:
  using Pair = double __attribute__((vector_size(16)));  // as wide as every processor has it
  Lanes(Pair low, Pair high) : low_(low), high_(high) {}

  Pair low_;
  Pair high_;
};

}  // namespace kestrane
