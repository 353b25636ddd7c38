#include "simulation/random.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using simulation::Random;

TEST(Random, RepeatsItsDrawsForTheSameSeed) {
  Random a(7);
  Random b(7);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(a.gaussian(), b.gaussian());
}

TEST(Random, GivesTheTenThousandthDrawThatTheStandardNames) {
  Random random(std::mt19937_64::default_seed);
  std::uint64_t last = 0;
  for (int i = 0; i < 10000; ++i) last = random.bits();
  EXPECT_EQ(last, 9981545732273789042u);
}

TEST(Random, KeepsUniformDrawsInsideTheirHalfOpenRange) {
  Random random(1);
  for (int i = 0; i < 10000; ++i) {
    const double u = random.uniform(-2.0, 3.0);
    EXPECT_GE(u, -2.0);
    EXPECT_LT(u, 3.0);
    const int n = random.index(5);
    EXPECT_GE(n, 0);
    EXPECT_LT(n, 5);
  }
}

TEST(Random, HasUnitVarianceAboutZeroInItsGaussian) {
  Random random(2);
  constexpr int kDraws = 200000;
  double sum = 0.0;
  double squares = 0.0;
  for (int i = 0; i < kDraws; ++i) {
    const double g = random.gaussian();
    sum += g;
    squares += g * g;
  }
  const double kFiveSigma = 5.0 / std::sqrt(double{kDraws});
  EXPECT_NEAR(sum / kDraws, 0.0, kFiveSigma);
  EXPECT_NEAR(squares / kDraws, 1.0, 2.0 * kFiveSigma);
}

}  // namespace
