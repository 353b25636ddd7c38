#include "quality/screening/robust_sheet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "quality/screening/frame_accounts.h"
#include "quality/screening/seeded_draws.h"
#include "quality/screening/sheet_start.h"
#include "quality/screening/sheet_terms.h"
#include "quality/screening/sizes.h"
#include "quality/screening/unit_check.h"
#include "simulation/random.h"
#include "tests/literal/robust_sheet.h"
#include "tests/quality/point_clouds.h"
#include "tests/support/bits.h"

namespace {

using namespace kestrane::quality;  // NOLINT: everything under test stands there
using quality_tests::bowed_x;
using quality_tests::fan_grid;

using kestrane_test::same_bits;

constexpr double kRounding = 1e-9;

// --- sizes -----------------------------------------------------------------------------------

TEST(MedianOfSizes, IsTheMiddleOrTheMeanOfTheMiddleTwo) {
  std::vector<double> odd = {5.0, 1.0, 3.0};
  std::vector<double> even = {7.0, 1.0, 5.0, 2.0};
  std::vector<double> one = {4.0};
  EXPECT_EQ(median_of_sizes(odd), 3.0);
  EXPECT_EQ(median_of_sizes(even), 3.5);
  EXPECT_EQ(median_of_sizes(one), 4.0);
}

TEST(SizeOf, GivesEverythingAnOrder) {
  constexpr double most = std::numeric_limits<double>::max();
  EXPECT_EQ(size_of(-2.0), 2.0);
  EXPECT_EQ(size_of(-std::numeric_limits<double>::infinity()), most);
  EXPECT_EQ(size_of(std::numeric_limits<double>::quiet_NaN()), most);
}

// --- draws -----------------------------------------------------------------------------------

TEST(SeededDraws, StayBelowTheirCountAndReachAll) {
  SeededDraws draws(1);
  std::vector<int> seen(7);
  for (int n = 0; n < 7000; ++n) ++seen.at(draws.below(7));
  for (const int count : seen) EXPECT_NEAR(count, 1000, 150);
}

TEST(SpreadPicks, TakeOneOfEachPiece) {
  SeededDraws draws(1);
  std::vector<std::size_t> picks;
  for_each_spread_pick(103, 10, draws, [&](std::size_t i) { picks.push_back(i); });
  ASSERT_EQ(picks.size(), 10U);
  for (std::size_t k = 0; k < 10; ++k) {
    EXPECT_GE(picks[k], k * 103 / 10);
    EXPECT_LT(picks[k], (k + 1) * 103 / 10);
  }
  picks.clear();
  for_each_spread_pick(3, 10, draws, [&](std::size_t i) { picks.push_back(i); });
  EXPECT_EQ(picks, (std::vector<std::size_t>{0, 1, 2}));
}

// --- terms -----------------------------------------------------------------------------------

TEST(TermSums, SolveLeastSquares) {
  // Values 1, 2, 3, 4 at u = -1 and 1, v = -1 and 1 over three terms: mean and two half
  // differences.
  TermSums sums(3);
  sums.add({-1.0, -1.0, 1.0});
  sums.add({1.0, -1.0, 2.0});
  sums.add({-1.0, 1.0, 3.0});
  sums.add({1.0, 1.0, 4.5});
  double c[6] = {9, 9, 9, 9, 9, 9};
  sums.solve(c);
  EXPECT_NEAR(c[0], 2.625, 1e-14);
  EXPECT_NEAR(c[1], 0.625, 1e-14);
  EXPECT_NEAR(c[2], 1.125, 1e-14);
  for (int i = 3; i < 6; ++i) EXPECT_EQ(c[i], 0.0);
}

TEST(TermSums, GiveDirectionsThatNothingFixesNoPart) {
  TermSums sums(3);
  for (const double u : {-1.0, 0.0, 1.0}) sums.add({u, 0.0, 5.0 + 2.0 * u});
  double c[6];
  sums.solve(c);
  EXPECT_NEAR(c[0], 5.0, 1e-14);
  EXPECT_NEAR(c[1], 2.0, 1e-14);
  EXPECT_EQ(c[2], 0.0);
}

// A direction whose weight is far below 1e-13 of the largest one carries rounding alone: a weight
// of 4e-10 beside 4e6, where x rises by 1 over 1e-5 in v.
TEST(TermSums, GiveDirectionsThatHardlyAnythingFixesNoPart) {
  TermSums sums(3);
  for (const double u : {-1e3, 1e3}) {
    for (const double v : {-1e-5, 1e-5}) sums.add({u, v, 2.0 * u + 1e5 * v});
  }
  double c[6];
  sums.solve(c);
  EXPECT_NEAR(c[1], 2.0, 1e-14);
  EXPECT_NEAR(c[2], 0.0, 1e-9);
  // Beside weights of 4 the same direction counts.
  TermSums light(3);
  for (const double u : {-1.0, 1.0}) {
    for (const double v : {-1e-5, 1e-5}) light.add({u, v, 2.0 * u + 1e5 * v});
  }
  light.solve(c);
  EXPECT_NEAR(c[2], 1e5, 1e-3);
}

TEST(ScaledCondition, IsThatOfColumnsOfLength1) {
  // Columns (1, 1, 1, 1) and u, v of +-1 are orthogonal whatever their length.
  const std::vector<SheetPoint> square = {
      {-1, -1e-6, 0}, {1, -1e-6, 0}, {-1, 1e-6, 0}, {1, 1e-6, 0}};
  EXPECT_NEAR(scaled_condition(square.data(), 4, 3), 1.0, 1e-12);
  // v = u + e: unit columns at an angle with cosine 1 / sqrt(1 + e^2).
  const double e = 0.01;
  const std::vector<SheetPoint> narrow = {
      {-1, -1 - e, 0}, {1, 1 - e, 0}, {-1, -1 + e, 0}, {1, 1 + e, 0}};
  const double cosine = 1.0 / std::sqrt(1.0 + e * e);
  EXPECT_NEAR(scaled_condition(narrow.data(), 4, 3), std::sqrt((1.0 + cosine) / (1.0 - cosine)),
              1e-6);
}

TEST(ScaledCondition, IsEndlessWhereAColumnVanishesOrPointsAreTooFew) {
  const std::vector<SheetPoint> line = {{-1, 0, 0}, {0, 0, 0}, {1, 0, 0}};
  EXPECT_TRUE(std::isinf(scaled_condition(line.data(), 3, 3)));
  EXPECT_TRUE(std::isinf(scaled_condition(line.data(), 2, 3)));
  const std::vector<SheetPoint> two = {{-1, 0.5, 0}, {1, 0.25, 0}};
  EXPECT_TRUE(std::isinf(scaled_condition(two.data(), 2, 3)));
}

TEST(Residual, IsXLessTheSheets) {
  const double c[6] = {1, 2, 3, 4, 5, 6};
  // 1 + 2 * 2 + 3 * 3 + 4 * 4 + 5 * 6 + 6 * 9
  EXPECT_EQ(residual(c, {2.0, 3.0, 120.0}), 120.0 - 114.0);
}

// --- the start -------------------------------------------------------------------------------

// Half of the sample and a few more on a sheet, the others on another one 15 above.
TEST(StartSheet, IsTheOneThatMoreThanHalfSupport) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    simulation::Random random(seed);
    std::vector<SheetPoint> sample;
    for (int i = 0; i < 600; ++i) {
      const double u = random.uniform(-1.0, 1.0);
      const double v = random.uniform(-1.0, 1.0);
      const double other = i % 5 < 2 ? 15.0 : 0.0;
      sample.push_back({u, v, 3.0 + u - 2.0 * v + 0.5 * u * u + other + 0.02 * random.gaussian()});
    }
    SeededDraws draws(seed);
    const SheetStart start = start_sheet(sample, 6, draws);
    ASSERT_TRUE(start.found);
    EXPECT_NEAR(start.c[0], 3.0, 0.05) << seed;
    EXPECT_NEAR(start.c[3], 0.5, 0.05) << seed;
    EXPECT_LT(start.median, 0.05) << seed;
    EXPECT_GE(start.support.size(), 300U);
    EXPECT_LE(start.support.size(), 301U);
  }
}

TEST(StartSheet, IsNotFoundWithoutEnoughPlaces) {
  SeededDraws draws(1);
  EXPECT_FALSE(start_sheet({{0, 0, 1}, {1, 0, 1}}, 3, draws).found);
  EXPECT_FALSE(start_sheet({}, 3, draws).found);
  const SheetStart one_place = start_sheet(std::vector<SheetPoint>(50, {0.5, 0.5, 1.0}), 3, draws);
  EXPECT_FALSE(one_place.found);
  EXPECT_TRUE(one_place.support.empty());
}

// A sheet with noise, and a share of points anywhere up to 8 off it.
std::vector<SheetPoint> scattered(std::size_t count, double share, std::uint64_t seed) {
  simulation::Random random(seed);
  std::vector<SheetPoint> sample;
  for (std::size_t i = 0; i < count; ++i) {
    const double u = random.uniform(-1.0, 1.0);
    const double v = random.uniform(-1.0, 1.0);
    double x = 3.0 + u - 2.0 * v + 0.5 * u * u - 0.75 * u * v + 0.3 * random.gaussian();
    if (random.uniform() < share) x += random.uniform(-8.0, 8.0);
    sample.push_back({u, v, x});
  }
  return sample;
}

std::vector<double> numbers_of(const std::vector<SheetPoint>& points) {
  std::vector<double> numbers;
  for (const SheetPoint& p : points) numbers.insert(numbers.end(), {p.u, p.v, p.x});
  return numbers;
}

TEST(StartSheet, EqualsAPlainTranscriptionBitByBit) {
  bool ended_by_steps = false;
  for (const std::size_t count : {3U, 6U, 7U, 50U, 127U, 128U, 129U, 600U, 1024U}) {
    for (const int terms : {3, 6}) {
      for (const double share : {0.0, 0.3, 0.9}) {
        SCOPED_TRACE(testing::Message() << count << " points, " << terms << " terms, " << share);
        const std::vector<SheetPoint> sample = scattered(count, share, count + 1);
        SeededDraws draws(count);
        literal::Draws expected_draws{count};
        const SheetStart start = start_sheet(sample, terms, draws);
        const literal::Start expected = literal::start_of(sample, terms, expected_draws);
        ASSERT_EQ(start.found, expected.found);
        EXPECT_TRUE(same_bits(start.c, expected.c));
        EXPECT_TRUE(same_bits(start.median, expected.median));
        EXPECT_TRUE(same_bits(numbers_of(start.support), numbers_of(expected.support)));
        EXPECT_EQ(draws.below(1U << 31), expected_draws.below(1U << 31));
        ended_by_steps = ended_by_steps || expected.steps == 8;
      }
    }
  }
  EXPECT_TRUE(ended_by_steps);  // and not by a half that stays
}

// --- the whole -------------------------------------------------------------------------------

TEST(RobustSheet, FindsTheSheetUnderAThirdOfOutliers) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    simulation::Random random(seed);
    PointList points = fan_grid(80, 80, 120.0, 980.0, bowed_x);
    for (auto& point : points) {
      point.x += 0.05 * random.gaussian();
      if (random.index(3) == 0) point.x += random.uniform(0.0, 200.0);
    }
    const SheetFit fit = fit_robust_sheet(points, 3.0);
    ASSERT_EQ(fit.residuals.size(), points.size());
    double farthest = 0.0;
    for (std::size_t i = 0; i < points.size(); ++i) {
      const double sheet_x = points[i].x - fit.residuals[i];
      farthest = std::max(farthest, std::abs(sheet_x - bowed_x(points[i].y, points[i].z)));
    }
    EXPECT_LT(farthest, 0.2) << seed;
  }
}

TEST(RobustSheet, SeesAPeriodInTheOrderOfThePoints) {
  for (const std::size_t period : {2U, 3U, 5U, 16U}) {
    PointList points = fan_grid(96, 96, 120.0, 980.0, bowed_x);
    for (std::size_t i = 0; i < points.size(); ++i) {
      if (i % period == 0 && (period > 2 || i % 4 == 0)) points[i].x += 15.0;
    }
    const SheetFit fit = fit_robust_sheet(points, 3.0);
    for (std::size_t i = 1; i < points.size(); i += period)
      ASSERT_NEAR(fit.residuals[i], 0.0, kRounding) << period;
  }
}

TEST(RobustSheet, IsNoneForTooFewPoints) {
  EXPECT_EQ(fit_robust_sheet({}, 3.0).sheet.degree, -1);
  EXPECT_EQ(fit_robust_sheet({{1, 2, 300, 0}, {1, 3, 400, 0}}, 3.0).sheet.degree, -1);
  EXPECT_TRUE(fit_robust_sheet({{1, 2, 300, 0}}, 3.0).residuals.empty());
  const ScreeningSheet none = fit_robust_sheet({}, 3.0).sheet;
  EXPECT_EQ(none.y0, 0.0);
  EXPECT_EQ(none.zs, 1.0);
}

void expect_transcription_of(const PointList& points, double gross) {
  const SheetFit fit = fit_robust_sheet(points, gross);
  const literal::RobustSheet expected = literal::robust_sheet(points, gross);
  ASSERT_EQ(fit.sheet.degree, expected.sheet.degree);
  EXPECT_TRUE(same_bits(fit.sheet.c, expected.sheet.c));
  EXPECT_TRUE(same_bits(fit.sheet.y0, expected.sheet.y0));
  EXPECT_TRUE(same_bits(fit.sheet.ys, expected.sheet.ys));
  EXPECT_TRUE(same_bits(fit.sheet.z0, expected.sheet.z0));
  EXPECT_TRUE(same_bits(fit.sheet.zs, expected.sheet.zs));
  EXPECT_TRUE(same_bits(fit.sheet.scale, expected.sheet.scale));
  EXPECT_TRUE(same_bits(fit.sheet.limit, expected.sheet.limit));
  EXPECT_TRUE(same_bits(fit.residuals, expected.residuals));
}

// A bowed sheet with noise and outliers, and a share of the points beside the fan.
PointList bad_cloud(std::size_t count, double beside, std::uint64_t seed) {
  simulation::Random random(seed);
  PointList points;
  for (std::size_t i = 0; i < count; ++i) {
    const double z = random.uniform(120.0, 980.0);
    const bool out = random.uniform() < beside;
    const double y = z * (out ? random.uniform(0.7, 3.0) : random.uniform(-0.5, 0.55));
    double x = bowed_x(y, z) + 0.3 * random.gaussian();
    if (random.index(4) == 0) x += random.uniform(0.0, 30.0);
    points.push_back({x, y, z, 0});
  }
  return points;
}

TEST(RobustSheet, EqualsAPlainTranscriptionBitByBit) {
  for (const std::size_t count : {3U, 8U, 60U, 501U, 1000U, 1024U, 1025U, 3000U}) {
    for (const double beside : {0.0, 0.2, 0.8}) {
      SCOPED_TRACE(testing::Message() << count << " points, beside the fan " << beside);
      expect_transcription_of(bad_cloud(count, beside, count), 3.0);
      expect_transcription_of(bad_cloud(count, beside, count + 1), 0.01);
    }
  }
}

// As many points beside the fan as inside: those inside alone shape the sheet.
TEST(RobustSheet, EqualsAPlainTranscriptionWhereHalfLiesBesideTheFan) {
  PointList points = bad_cloud(200, 0.0, 5);
  const PointList beside = bad_cloud(200, 1.0, 6);
  points.insert(points.begin() + 70, beside.begin(), beside.end());
  expect_transcription_of(points, 3.0);
}

// Points along a line, which fix the first degree alone, and at one place, which fix none.
TEST(RobustSheet, EqualsAPlainTranscriptionOfLowerDegrees) {
  simulation::Random random(9);
  PointList line;
  for (int i = 0; i < 400; ++i) {
    const double y = -100.0 + 0.5 * i;
    const double z = 400.0 + 0.1 * y + 1e-3 * random.uniform(-1.0, 1.0);
    line.push_back({bowed_x(y, z) + 0.05 * random.gaussian(), y, z, 0});
  }
  expect_transcription_of(line, 3.0);
  EXPECT_EQ(fit_robust_sheet(line, 3.0).sheet.degree, 1);
  expect_transcription_of(PointList(40, {100.0, 5.0, 300.0, 0}), 3.0);
}

// --- accounts --------------------------------------------------------------------------------

TEST(FrameNumbers, AreAscendingHoweverFarApart) {
  const std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
  const std::int32_t highest = std::numeric_limits<std::int32_t>::max();
  for (const std::vector<std::int32_t>& ids :
       {std::vector<std::int32_t>{3, 3, 1, 2, 3, 1}, {highest, 0, lowest, 0, highest}, {-5}}) {
    PointList points;
    for (const std::int32_t id : ids) points.push_back({0, 0, 0, id});
    const FrameNumbers numbers(points.data(), points.size());
    for (std::size_t n = 1; n < numbers.ascending().size(); ++n)
      EXPECT_LT(numbers.ascending()[n - 1], numbers.ascending()[n]);
    for (const std::int32_t id : ids) EXPECT_EQ(numbers.ascending().at(numbers.place_of(id)), id);
  }
  EXPECT_TRUE(FrameNumbers(nullptr, 0).ascending().empty());
}

// Part of a list whose frame began before it.
TEST(FrameNumbers, DoNotLookAtWhatLiesBeforeTheirPoints) {
  const PointList points = {{0, 0, 0, 7}, {0, 0, 0, 7}, {0, 0, 0, 9}};
  EXPECT_EQ(FrameNumbers(&points[1], 2).ascending(), (std::vector<std::int32_t>{7, 9}));
}

// --- units -----------------------------------------------------------------------------------

TEST(UnitCheck, NeedsMostPointsToMissAndMostToHit) {
  const auto hint = [](int good, int metres, int nowhere) {
    PointList points;
    for (int i = 0; i < good; ++i) points.push_back({0, 0, 300.0, 0});
    for (int i = 0; i < metres; ++i) points.push_back({0, 0, 0.3, 0});
    for (int i = 0; i < nowhere; ++i) points.push_back({0, 0, 1e5, 0});
    UnitCheck check;
    check.add(points.data(), points.size());
    return check.hint();
  };
  EXPECT_EQ(hint(0, 0, 0), "");
  EXPECT_EQ(hint(5, 5, 0), "");
  EXPECT_EQ(hint(0, 5, 5), "");
  EXPECT_NE(hint(4, 5, 0), "");
  EXPECT_NE(hint(0, 6, 5), "");
}

TEST(UnitCheck, HasBothBoundsOfEachUnit) {
  const auto hint = [](double z) {
    const PointList points(3, {0, 0, z, 0});
    UnitCheck check;
    check.add(points.data(), points.size());
    return check.hint();
  };
  for (const double z : {0.15, 1.5}) EXPECT_NE(hint(z).find("metres"), std::string::npos) << z;
  for (const double z : {-0.3, 0.1499, 1.501, 5.9, 59.1}) EXPECT_EQ(hint(z), "") << z;
  for (const double z : {5.91, 59.0}) EXPECT_NE(hint(z).find("inches"), std::string::npos) << z;
}

}  // namespace
