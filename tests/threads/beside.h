// One job alone and beside another one: two threads with objects of their own must not notice each
// other.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <functional>
#include <latch>
#include <thread>
#include <vector>

#include "tests/support/bits.h"

namespace threads {

// All that a job has to show. A job makes its objects, works on the data of device 0 or 1, and
// gives the same figures each time.
using Figures = std::vector<double>;
using Job = std::function<Figures(int device)>;

struct Beside {
  Figures alone[2];  // of either device, one after the other
  Figures beside[2];
};

// Both threads begin at the same moment and go through the job `rounds` times, so that every step
// of one meets every step of the other.
inline Beside run_beside(const Job& job, int rounds) {
  Beside figures;
  for (int device = 0; device < 2; ++device) figures.alone[device] = job(device);
  std::latch start(2);
  const auto work = [&](int device) {
    start.arrive_and_wait();
    for (int round = 0; round < rounds; ++round) figures.beside[device] = job(device);
  };
  std::thread other(work, 1);
  work(0);
  other.join();
  return figures;
}

// Root mean square of the differences.
inline double apart(const Figures& a, const Figures& b) {
  double squares = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) squares += std::pow(a[i] - b[i], 2);
  return std::sqrt(squares / static_cast<double>(a.size()));
}

inline void expect_equal_bits(const Job& job, int rounds) {
  const Beside figures = run_beside(job, rounds);
  // Devices that look alike would hide a mix-up.
  EXPECT_NE(figures.alone[0], figures.alone[1]);
  for (int device = 0; device < 2; ++device) {
    const Figures& alone = figures.alone[device];
    const Figures& beside = figures.beside[device];
    ASSERT_FALSE(alone.empty());
    EXPECT_TRUE(kestrane_test::same_bits(beside, alone)) << "device " << device;
  }
}

// For figures that come from the solver. The two devices lie at least ten times as far apart.
inline void expect_equal_to_rounding(const Job& job, int rounds, double rounding) {
  const Beside figures = run_beside(job, rounds);
  EXPECT_GT(apart(figures.alone[0], figures.alone[1]), 10.0 * rounding);
  for (int device = 0; device < 2; ++device) {
    const Figures& alone = figures.alone[device];
    const Figures& beside = figures.beside[device];
    ASSERT_FALSE(alone.empty());
    ASSERT_EQ(beside.size(), alone.size());
    EXPECT_LT(apart(alone, beside), rounding) << "device " << device;
  }
}

}  // namespace threads
