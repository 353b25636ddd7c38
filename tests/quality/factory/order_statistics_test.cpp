#include "quality/factory/order_statistics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "simulation/random.h"
#include "tests/literal/factory_figures.h"

namespace {

using kestrane::quality::median_of;
using kestrane::quality::quantile_of;
using kestrane::quality::quantile_place;

TEST(MedianOf, IsNotANumberWithoutValues) {
  std::vector<double> none;
  EXPECT_TRUE(std::isnan(median_of(none)));
}

TEST(MedianOf, IsTheMiddleOneOfAnOddNumber) {
  std::vector<double> values = {5.0, -1.0, 2.0};
  EXPECT_EQ(median_of(values), 2.0);
}

TEST(MedianOf, IsTheMeanOfTheMiddleTwoOfAnEvenNumber) {
  std::vector<double> values = {9.0, 1.0, 2.0, 4.0};
  EXPECT_EQ(median_of(values), 3.0);
  std::vector<double> two = {1.0, -4.0};
  EXPECT_EQ(median_of(two), -1.5);
}

TEST(QuantileOf, IsNotANumberWithoutValues) {
  std::vector<double> none;
  EXPECT_TRUE(std::isnan(quantile_of(none, 95)));
}

// Of 20 values 19 are exactly 95 %; of 21, 20 are needed.
TEST(QuantileOf, TakesTheSmallestValueThatEnoughDoNotExceed) {
  std::vector<double> twenty;
  for (int i = 20; i >= 1; --i) twenty.push_back(i);
  EXPECT_EQ(quantile_of(twenty, 95), 19.0);
  EXPECT_EQ(quantile_of(twenty, 99), 20.0);
  EXPECT_EQ(quantile_of(twenty, 100), 20.0);
  std::vector<double> one_more = twenty;
  one_more.push_back(21.0);
  EXPECT_EQ(quantile_of(one_more, 95), 20.0);
  std::vector<double> single = {7.0};
  EXPECT_EQ(quantile_of(single, 95), 7.0);
}

TEST(QuantilePlace, IsExactWhereAProductWithAFractionIsRounded) {
  for (std::size_t n = 1; n < 5000; ++n) {
    const std::size_t place = quantile_place(n, 99);
    ASSERT_GE(100 * (place + 1), 99 * n) << n;
    ASSERT_LT(100 * place, 99 * n) << n;
  }
}

TEST(OrderStatistics, EqualThoseOfSortedValuesBitByBit) {
  simulation::Random random(3);
  for (const int count : {1, 2, 3, 10, 99, 100, 101, 1000}) {
    std::vector<double> values;
    for (int i = 0; i < count; ++i) values.push_back(random.gaussian());
    std::vector<double> scratch = values;
    EXPECT_EQ(median_of(scratch), literal::median(values));
    EXPECT_EQ(quantile_of(scratch, 95), literal::quantile(values, 95));
    EXPECT_EQ(quantile_of(scratch, 99), literal::quantile(values, 99));
  }
}

}  // namespace
