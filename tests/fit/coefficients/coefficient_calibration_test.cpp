#include "fit/coefficients/coefficient_calibration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "kestrane/buffers.h"
#include "simulation/random.h"
#include "tests/files/records_under_test.h"
#include "tests/support/bits.h"

namespace kestrane {
namespace {

constexpr double kEpsilon = 2.220446049250313e-16;

// The records of one call: two planes, no block measured, models x(t) = 0.01 t + 5.
struct Case {
  Case() : source(2, 2, 1), result(2, 2, 2) {
    EXPECT_EQ(indicator_manager.init(2), KESTRANE_OK);
    EXPECT_EQ(corner_manager.init(2), KESTRANE_OK);
    for (int p = 0; p < 2; ++p)
      for (int j = 0; j < 16; ++j)
        for (int k = 0; k < 51; ++k)
          source->opt_coeffs->planes[p].lines[j].cells[k] = {{-0.02, 2.0, -10.0}};
  }

  void measure(int plane, int line, int cell, double x) {
    indicator_manager.planes[plane].lines[line].cells[cell].v[1] = 0.3;
    corner_manager.planes[plane].lines[line].cells[cell].v[0] = x;
  }

  _KESTRANE_STATUS run(double condition) {
    return calibrate_coefficients(indicator_manager, corner_manager, condition, *source, *result);
  }

  _LASER_TRIPLE& source_cell(int p, int j, int k) {
    return source->opt_coeffs->planes[p].lines[j].cells[k];
  }
  _LASER_TRIPLE& result_cell(int p, int j, int k) {
    return result->opt_coeffs->planes[p].lines[j].cells[k];
  }

  LASER_PLANE_INDICATOR_MANAGER indicator_manager;
  LASER_PLANE_GRID_CORNERS_MANAGER corner_manager;
  Coefficients source;
  Coefficients result;
};

testing::AssertionResult same_bits(const _LASER_TRIPLE& a, const _LASER_TRIPLE& b) {
  return kestrane_test::same_bits(a.v, b.v);
}

bool is_corner(const ValidCorner& corner, int line, int cell, double x) {
  return corner.line == line && corner.cell == cell && corner.x == x;
}

double x_at(const _LASER_TRIPLE& line, double t) {
  return -(line.v[0] * t + line.v[2]) / line.v[1];
}

// The refit by hand: total least squares through the angle of the scatter.
_LASER_TRIPLE refit_by_angle(const _LASER_TRIPLE& cell, double x, double condition) {
  const double s = cell.v[1] + kEpsilon, m = cell.v[0] / s, n = cell.v[2] / s;
  const double predicted = -(m * condition) - n;
  x = std::fmin(std::fmax(x, predicted - 0.01), predicted + 0.01);
  double t[11], u[11], mt = 0.0, mu = 0.0;
  for (int i = 0; i < 10; ++i) t[i] = 22.0 + 2.0 * i, u[i] = -(m * t[i]) - n;
  t[10] = condition, u[10] = x;
  for (int i = 0; i < 11; ++i) mt += t[i] / 11.0, mu += u[i] / 11.0;
  double tt = 0.0, tu = 0.0, uu = 0.0;
  for (int i = 0; i < 11; ++i) {
    tt += (t[i] - mt) * (t[i] - mt), tu += (t[i] - mt) * (u[i] - mu),
        uu += (u[i] - mu) * (u[i] - mu);
  }
  const double angle = 0.5 * std::atan2(2.0 * tu, tt - uu);
  const double a = -std::sin(angle), b = std::cos(angle);
  return {{a, b, -(a * mt + b * mu)}};
}

// The eleven samples as they are defined, and the same fit kernel.
_LASER_TRIPLE refit_by_definition(const _LASER_TRIPLE& cell, double x, double condition) {
  const double s = cell.v[1] + 2.220446049250313e-16;
  const double m = cell.v[0] / s;
  const double n = cell.v[2] / s;
  PointMatrix2 samples(11, 2);
  for (int i = 0; i < 10; ++i) {
    const double t = 2 * i + 22.0;
    samples(i, 0) = t;
    samples(i, 1) = -(m * t) - n;
  }
  const double predicted = -(m * condition) - n;
  if (x > predicted + 0.01)
    x = predicted + 0.01;
  else if (predicted - 0.01 > x)
    x = predicted - 0.01;
  samples(10, 0) = condition;
  samples(10, 1) = x;
  LineAbc line;
  double mean = 0.0;
  fit_line_pca(samples, line, mean);
  return {{line[0], line[1], line[2]}};
}

_LASER_TRIPLE refit(_LASER_TRIPLE cell, double x, double condition) {
  PointMatrix2 samples;
  refit_coefficient_cell(x, condition, samples, cell);
  return cell;
}

_LASER_TRIPLE random_cell(simulation::Random& random) {
  const double scale = random.uniform(0.5, 3.0) * (random.index(2) == 0 ? 1.0 : -1.0);
  return {{random.uniform(-0.05, 0.05) * scale, scale, random.uniform(-300.0, 300.0) * scale}};
}

TEST(CalibrateCoefficients, ChecksItsInputsInOrderAndWritesNothing) {
  Case c;
  const std::string before = c.result.all_bytes();
  auto* indicators = c.indicator_manager.planes;
  auto* corners = c.corner_manager.planes;
  auto* table = c.source->opt_coeffs;
  c.indicator_manager.plane_count = 0, c.indicator_manager.planes = nullptr;
  c.corner_manager.plane_count = 0, c.corner_manager.planes = nullptr;
  c.source->plane_count = 0, c.source->opt_coeffs = nullptr;
  EXPECT_EQ(c.run(30.0), KESTRANE_ERR_INVALID_PARAM);
  c.indicator_manager.plane_count = 2;
  EXPECT_EQ(c.run(30.0), KESTRANE_ERR_NULL_POINTER);
  c.indicator_manager.planes = indicators;
  EXPECT_EQ(c.run(30.0), KESTRANE_ERR_INVALID_PARAM);
  c.corner_manager.plane_count = 2;
  EXPECT_EQ(c.run(30.0), KESTRANE_ERR_NULL_POINTER);
  c.corner_manager.planes = corners;
  EXPECT_EQ(c.run(30.0), KESTRANE_ERR_INVALID_PARAM);
  c.source->plane_count = -1;
  EXPECT_EQ(c.run(30.0), KESTRANE_ERR_INVALID_PARAM);
  c.source->plane_count = 1;
  EXPECT_EQ(c.run(30.0), KESTRANE_ERR_NULL_POINTER);
  EXPECT_TRUE(c.result.all_bytes() == before);
  c.source->opt_coeffs = table;
  c.source->plane_count = 2;
  EXPECT_EQ(c.run(30.0), KESTRANE_OK);
}

TEST(CalibrateCoefficients, TakesANegativeNumberOfIndicatorPlanesAsNone) {
  Case c;
  c.measure(0, 0, 0, 5.3);
  c.indicator_manager.plane_count = -2;
  c.corner_manager.plane_count = -2;
  EXPECT_EQ(c.run(30.0), KESTRANE_OK);
  EXPECT_TRUE(same_bits(c.result_cell(0, 0, 0), c.source_cell(0, 0, 0)));
}

TEST(CalibrateCoefficients, CopiesTheSourceWithIdentityTransformsWhereNothingIsMeasured) {
  Case c;
  Coefficients counterpart(2, 2, 2);
  c.source->opt_coeffs->planes[1].count = 3;
  c.source->opt_coeffs->planes[0].lines[2].count = 7;
  c.source->range_count = 3;
  const std::string source = c.source.all_bytes();
  ASSERT_EQ(c.run(30.0), KESTRANE_OK);
  EXPECT_TRUE(c.source.all_bytes() == source);
  EXPECT_EQ(c.result->opt_coeffs->planes[1].count, 3);
  EXPECT_EQ(c.result->opt_coeffs->planes[0].lines[2].count, 7);
  EXPECT_TRUE(same_bits(c.result_cell(0, 2, 6), c.source_cell(0, 2, 6)));
  // What no count reaches keeps what the result held.
  EXPECT_TRUE(
      same_bits(c.result_cell(0, 2, 7), counterpart->opt_coeffs->planes[0].lines[2].cells[7]));
  EXPECT_EQ(c.result->range_count, 3);
  for (int r = 0; r < 20; ++r) {
    EXPECT_EQ(c.result->range_first[r], (r < 3 ? c.source : counterpart)->range_first[r]);
    EXPECT_EQ(c.result->range_last[r], (r < 3 ? c.source : counterpart)->range_last[r]);
  }
  const double identity[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
  for (int p = 0; p < 2; ++p)
    for (int i = 0; i < 12; ++i) EXPECT_EQ(c.result->Mbs_factory_to_user[12 * p + i], identity[i]);
  EXPECT_EQ(std::memcmp(c.result->Mbs_factory_to_user + 24, counterpart->Mbs_factory_to_user + 24,
                        (1200 - 24) * sizeof(double)),
            0);
}

TEST(CalibrateCoefficients, CopiesCountsAndCapacities) {
  Case c;
  Coefficients large(5, 5, 3);
  c.source->plane_count = 1;
  ASSERT_EQ(calibrate_coefficients(c.indicator_manager, c.corner_manager, 30.0, *c.source, *large),
            KESTRANE_OK);
  EXPECT_EQ(large->plane_count, 1);
  EXPECT_EQ(large->plane_capacity, 2);
  EXPECT_EQ(large->opt_coeffs->plane_count, 2);
  EXPECT_EQ(large->opt_coeffs->plane_capacity, 2);
}

// The record's planes and the table's are two counts.
TEST(CalibrateCoefficients, ResetsTransformsByThePlanesOfTheRecord) {
  for (const int planes : {1, 100}) {
    Case c;
    std::fill_n(c.result->Mbs_factory_to_user, 1200, 7.0);
    c.source->plane_count = planes;
    ASSERT_EQ(c.run(30.0), KESTRANE_OK);
    for (int i = 0; i < 1200; ++i) {
      const double unit = i % 12 == 0 || i % 12 == 4 || i % 12 == 8 ? 1.0 : 0.0;
      ASSERT_EQ(c.result->Mbs_factory_to_user[i], i < 12 * planes ? unit : 7.0) << i;
    }
  }
}

TEST(CalibrateCoefficients, CopiesAllTwentyRangesAndANegativeCountWithNone) {
  Case c;
  c.source->range_count = 20;
  ASSERT_EQ(c.run(30.0), KESTRANE_OK);
  EXPECT_EQ(c.result->range_last[19], c.source->range_last[19]);
  Case d;
  d.source->range_count = -1;
  const std::int32_t kept = d.result->range_first[0];
  ASSERT_EQ(d.run(30.0), KESTRANE_OK);
  EXPECT_EQ(d.result->range_count, -1);
  EXPECT_EQ(d.result->range_first[0], kept);
}

TEST(CalibrateCoefficients, RefitsTheMeasuredCellsAndNoOther) {
  Case c;
  c.measure(0, 0, 0, 5.3);
  c.measure(1, 14, 49, 5.295);
  c.indicator_manager.planes[0].lines[3].cells[4].v[1] = -kEpsilon;  // just large enough
  c.indicator_manager.planes[0].lines[3].cells[5].v[1] = 0.5 * kEpsilon;
  c.indicator_manager.planes[0].lines[3].cells[6].v[1] = std::nan("");
  c.indicator_manager.planes[0].lines[3].cells[7].v[0] = 1.0;  // only the mean distance counts
  c.indicator_manager.planes[0].lines[3].cells[7].v[2] = 1.0;
  ASSERT_EQ(c.run(30.0), KESTRANE_OK);
  int refitted = 0;
  for (int p = 0; p < 2; ++p)
    for (int j = 0; j < 16; ++j)
      for (int k = 0; k < 51; ++k)
        if (!same_bits(c.result_cell(p, j, k), c.source_cell(p, j, k))) ++refitted;
  EXPECT_EQ(refitted, 3);
  EXPECT_TRUE(same_bits(c.result_cell(0, 0, 0), refit(c.source_cell(0, 0, 0), 5.3, 30.0)));
  EXPECT_TRUE(same_bits(c.result_cell(1, 14, 49), refit(c.source_cell(1, 14, 49), 5.295, 30.0)));
  EXPECT_TRUE(same_bits(c.result_cell(0, 3, 4), refit(c.source_cell(0, 3, 4), 0.0, 30.0)));
}

TEST(CalibrateCoefficients, GivesTheSameResultWhenSourceAndResultAreOne) {
  Case apart, one;
  one.measure(1, 5, 6, 5.31);
  apart.measure(1, 5, 6, 5.31);
  ASSERT_EQ(apart.run(30.0), KESTRANE_OK);
  ASSERT_EQ(calibrate_coefficients(one.indicator_manager, one.corner_manager, 30.0, *one.source,
                                   *one.source),
            KESTRANE_OK);
  EXPECT_EQ(one.source->Mbs_factory_to_user[0], 1.0);
  EXPECT_EQ(one.source->Mbs_factory_to_user[13], 0.0);
  for (int k = 0; k < 51; ++k) {
    EXPECT_TRUE(same_bits(one.source_cell(1, 5, k), apart.result_cell(1, 5, k)));
    EXPECT_TRUE(same_bits(one.source_cell(0, 5, k), apart.result_cell(0, 5, k)));
  }
}

TEST(CollectValidCorners, ListsBlocksLineByLineWithTheirCorners) {
  Case c;
  c.measure(1, 2, 9, 1.0);
  c.measure(1, 0, 49, 2.0);
  c.measure(1, 14, 0, 3.0);
  c.measure(0, 0, 0, 4.0);
  std::vector<ValidCorner> valid(5);
  collect_valid_corners(c.indicator_manager, c.corner_manager, 1, valid);
  ASSERT_EQ(valid.size(), 3U);
  EXPECT_TRUE(is_corner(valid[0], 0, 49, 2.0));
  EXPECT_TRUE(is_corner(valid[1], 2, 9, 1.0));
  EXPECT_TRUE(is_corner(valid[2], 14, 0, 3.0));
}

TEST(RefitCoefficientCell, EqualsTheDefinitionToTheLastBit) {
  simulation::Random random(11);
  for (int i = 0; i < 20000; ++i) {
    const _LASER_TRIPLE cell = random_cell(random);
    const double condition = random.uniform(0.0, 60.0);
    const double x = x_at(cell, condition) + random.uniform(-0.02, 0.02);
    ASSERT_TRUE(same_bits(refit(cell, x, condition), refit_by_definition(cell, x, condition)));
  }
}

TEST(RefitCoefficientCell, EqualsTotalLeastSquaresByAngle) {
  constexpr double kTolerance = 1e-9;  // x of some hundreds, through an angle and a centroid
  simulation::Random random(12);
  for (int i = 0; i < 5000; ++i) {
    const _LASER_TRIPLE cell = random_cell(random);
    const double condition =
        i % 5 == 0 ? 22.0 + 2.0 * random.index(10) : random.uniform(-10.0, 90.0);
    const double x = x_at(cell, condition) + random.uniform(-0.03, 0.03);
    const _LASER_TRIPLE got = refit(cell, x, condition);
    const _LASER_TRIPLE expected = refit_by_angle(cell, x, condition);
    for (const double t : {22.0, 31.0, 40.0, condition})
      ASSERT_NEAR(x_at(got, t), x_at(expected, t), kTolerance);
    ASSERT_NEAR(std::hypot(got.v[0], got.v[1]), 1.0, kTolerance);
  }
}

// b of 1 and a of 0 with c = -0.5 predict 0.5 (up to the guard in b) at every condition.
TEST(RefitCoefficientCell, HoldsAReadingExactlyAHundredthFromThePrediction) {
  const _LASER_TRIPLE cell{{0.0, 1.0, -0.5}};
  const double predicted = 0.5 / (1.0 + kEpsilon);
  const double high = predicted + 0.01, low = predicted - 0.01;
  for (const double beyond : {std::nextafter(high, 1.0), 0.6, 1e9, HUGE_VAL})
    EXPECT_TRUE(same_bits(refit(cell, beyond, 50.0), refit(cell, high, 50.0))) << beyond;
  for (const double beyond : {std::nextafter(low, 0.0), 0.4, -1e9, -HUGE_VAL})
    EXPECT_TRUE(same_bits(refit(cell, beyond, 50.0), refit(cell, low, 50.0))) << beyond;
  const double inside = predicted + 0.0099;
  EXPECT_FALSE(same_bits(refit(cell, inside, 50.0), refit(cell, high, 50.0)));
  EXPECT_TRUE(same_bits(refit(cell, high, 50.0), refit_by_definition(cell, high, 50.0)));
}

TEST(RefitCoefficientCell, KeepsAModelThatTheReadingConfirms) {
  constexpr double kRounding = 1e-11;
  const _LASER_TRIPLE cell{{-0.02, 2.0, -10.0}};
  const _LASER_TRIPLE got = refit(cell, x_at(cell, 33.0), 33.0);
  for (const double t : {0.0, 22.0, 40.0}) EXPECT_NEAR(x_at(got, t), x_at(cell, t), kRounding);
}

TEST(RefitCoefficientCell, GivesAReadingFarOutsideTheSamplesMoreLeverage) {
  const _LASER_TRIPLE cell{{0.0, 1.0, -5.0}};
  const double near = refit(cell, 5.01, 31.0).v[0], far = refit(cell, 5.01, 80.0).v[0];
  EXPECT_GT(std::abs(far), 1e-5);
  EXPECT_LT(std::abs(near), 1e-9);
}

TEST(RefitCoefficientCell, MakesNansOfNans) {
  const double nan = std::nan("");
  const _LASER_TRIPLE good{{0.0, 1.0, -5.0}};
  for (const _LASER_TRIPLE& got :
       {refit(good, nan, 30.0), refit(good, 5.0, nan), refit(good, 5.0, HUGE_VAL),
        refit({{1.0, -kEpsilon, 3.0}}, 5.0, 30.0)})
    for (const double v : got.v) EXPECT_TRUE(std::isnan(v));
}

}  // namespace
}  // namespace kestrane
