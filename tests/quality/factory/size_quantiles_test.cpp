#include "quality/factory/size_quantiles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "simulation/random.h"
#include "tests/literal/factory_figures.h"

namespace {

using kestrane::quality::SizeQuantiles;

SizeQuantiles of(const std::vector<double>& sizes) {
  SizeQuantiles quantiles;
  for (const double size : sizes) quantiles.count(size);
  quantiles.look_for_them();
  for (const double size : sizes) quantiles.find(size);
  return quantiles;
}

void expect_those_of_sorted(const std::vector<double>& sizes) {
  SizeQuantiles quantiles = of(sizes);
  EXPECT_EQ(quantiles.q95(), literal::quantile(sizes, 95));
  EXPECT_EQ(quantiles.q99(), literal::quantile(sizes, 99));
  EXPECT_EQ(quantiles.largest(), literal::quantile(sizes, 100));
}

TEST(SizeQuantiles, AreNotDeterminedWithoutSizes) {
  SizeQuantiles quantiles = of({});
  EXPECT_TRUE(std::isnan(quantiles.q95()));
  EXPECT_TRUE(std::isnan(quantiles.q99()));
  EXPECT_TRUE(std::isnan(quantiles.largest()));
}

TEST(SizeQuantiles, AreThoseOfFewSizes) {
  for (int count = 1; count < 70; ++count) {
    std::vector<double> sizes;
    for (int i = 0; i < count; ++i) sizes.push_back((i * 37) % count + 1.0);
    expect_those_of_sorted(sizes);
  }
}

TEST(SizeQuantiles, AreThoseOfManySizes) {
  simulation::Random random(6);
  std::vector<double> sizes;
  for (int i = 0; i < 50000; ++i) sizes.push_back(std::abs(random.gaussian()));
  expect_those_of_sorted(sizes);
}

TEST(SizeQuantiles, AreThoseOfEqualSizes) {
  expect_those_of_sorted(std::vector<double>(1000, 0.25));
  expect_those_of_sorted(std::vector<double>(1000, 0.0));
}

// Beyond the bins at either end, where several decades share one.
TEST(SizeQuantiles, AreThoseOfSizesOfAllDecades) {
  simulation::Random random(7);
  std::vector<double> tiny = {0.0, std::numeric_limits<double>::denorm_min()};
  std::vector<double> huge = {std::numeric_limits<double>::max()};
  std::vector<double> all;
  for (int i = 0; i < 2000; ++i) {
    tiny.push_back(std::pow(10.0, random.uniform(-300.0, -13.0)));
    huge.push_back(std::pow(10.0, random.uniform(8.0, 300.0)));
    all.push_back(std::pow(10.0, random.uniform(-20.0, 20.0)));
  }
  std::vector<double> tiny_and_others(50, 1e-14);
  for (int i = 1; i <= 50; ++i) tiny_and_others.push_back(i);
  expect_those_of_sorted(tiny_and_others);
  expect_those_of_sorted(tiny);
  expect_those_of_sorted(huge);
  expect_those_of_sorted(all);
}

}  // namespace
