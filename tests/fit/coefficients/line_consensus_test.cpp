#include "fit/coefficients/line_consensus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <vector>

#include "fit/laser_geometry_fitter.h"
#include "tests/fit/coefficients/line_clouds.h"

namespace kestrane {
namespace {

constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();

// The search in its plainest form, with the library's generator written out once more.
std::vector<Point2> literal_consensus(const PointMatrix2& points, std::int32_t iterations,
                                      double threshold) {
  std::uint32_t state = 65536;
  const auto draw = [&state] {
    state = state * 214013U + 2531011U;
    const double r = (state >> 16) % 32768U;
    return (r + r) / 32767.0 - 1.0;
  };
  const auto n = static_cast<std::int32_t>(points.rows());
  std::vector<Point2> best;
  std::int32_t passes = iterations;
  for (std::int32_t i = 0; i < passes; ++i) {
    const double u[2] = {draw(), draw()};
    std::int32_t row[2];
    for (int k = 0; k < 2; ++k)
      row[k] = static_cast<std::int32_t>((u[k] + 1.0) * 0.5 * n * 0.5 + k * (n * 0.5)) % n;
    const double dx = points(row[1], 0) - points(row[0], 0);
    const double dy = points(row[1], 1) - points(row[0], 1);
    const double length = std::sqrt(dx * dx + dy * dy);
    if (!(length > 2.220446049250313e-16)) continue;
    std::vector<Point2> inliers;
    for (Eigen::Index j = 0; j < n; ++j) {
      const double off = (points(j, 0) - points(row[0], 0)) * -(dy / length) +
                         (points(j, 1) - points(row[0], 1)) * (dx / length);
      if (threshold > std::abs(off)) inliers.push_back({points(j, 0), points(j, 1)});
    }
    if (inliers.size() <= best.size()) continue;
    best = inliers;
    const double ratio = static_cast<double>(best.size()) / n;
    if (best.size() == static_cast<std::size_t>(n)) break;
    passes = static_cast<std::int32_t>(
        std::min(std::log(0.01) / std::log(1.0 - ratio * ratio * ratio), 1e9));
  }
  return best;
}

LaserGeometryFitter fitter_with(bool consensus, std::int32_t iterations, double threshold,
                                double min_ratio) {
  LaserGeometryFitter fitter;
  fitter.set_params(consensus, iterations, threshold, min_ratio);
  return fitter;
}

// Twenty points on a line and ten far off it, mixed.
PointMatrix2 cloud_with_outliers() {
  std::vector<Point2> points = points_on_line(30, 0.5, 1.0);
  for (int i = 0; i < 30; i += 3)
    points[static_cast<std::size_t>(i)].y += 40.0 + 11.0 * i * (i % 2 == 0 ? 1 : -1);
  return rows_from(points);
}

TEST(FitLine, RefusesFewerThanTwoPointsAndWritesNothing) {
  for (const bool consensus : {false, true}) {
    for (int count = 0; count < 2; ++count) {
      LineAbc line(7.0, 8.0, 9.0);
      double mean = 5.0;
      EXPECT_FALSE(fitter_with(consensus, 100, 1.0, 0.0)
                       .fit_line(rows_from(points_on_line(count, 1.0, 0.0)), line, mean));
      EXPECT_EQ(line, LineAbc(7.0, 8.0, 9.0));
      EXPECT_EQ(mean, 5.0);
    }
  }
}

TEST(FitLine, GoesThroughTwoPoints) {
  LineAbc line;
  double mean = 1.0;
  ASSERT_TRUE(fitter_with(false, 0, 0.0, 0.0).fit_line(rows_from({{1, 2}, {4, 6}}), line, mean));
  EXPECT_NEAR(distance(line, 1, 2), 0.0, kRounding);
  EXPECT_NEAR(distance(line, 4, 6), 0.0, kRounding);
  EXPECT_NEAR(line.head<2>().norm(), 1.0, kRounding);
  EXPECT_NEAR(mean, 0.0, kRounding);
}

TEST(CollectLineInliers, KeepsPointsStrictlyNearerThanTheThresholdInOrder) {
  const PointMatrix2 points = rows_from({{0, 0.5}, {1, -0.25}, {2, -0.5}, {3, 0.0}, {4, 0.49}});
  std::vector<Point2> inliers = {{9, 9}};
  collect_line_inliers({1, 0}, {0, 0}, points, 0.5, inliers);
  ASSERT_EQ(inliers.size(), 4U);
  EXPECT_EQ(inliers[0].x, 9.0);
  EXPECT_EQ(inliers[1].x, 1.0);
  EXPECT_EQ(inliers[2].x, 3.0);
  EXPECT_EQ(inliers[3].x, 4.0);
}

TEST(CollectLineInliers, DropsPointsWhoseDistanceIsNaN) {
  std::vector<Point2> inliers;
  collect_line_inliers({1, 0}, {0, 0}, rows_from({{0, std::nan("")}, {1, 0}}), 0.5, inliers);
  EXPECT_EQ(inliers.size(), 1U);
}

TEST(CollectLineInliers, MeasuresAcrossTheDirectionFromTheOrigin) {
  std::vector<Point2> inliers;
  // 3-4-5: (5, 0) lies 4 * 5 / 5 = 4 away from the line through (0, 0) along (3, 4) / 5.
  collect_line_inliers({0.6, 0.8}, {10, 20}, rows_from({{15, 20}}), 3.999, inliers);
  EXPECT_TRUE(inliers.empty());
  collect_line_inliers({0.6, 0.8}, {10, 20}, rows_from({{15, 20}}), 4.001, inliers);
  EXPECT_EQ(inliers.size(), 1U);
}

TEST(FitLineConsensus, FindsNothingWithoutAPass) {
  const PointMatrix2 points = rows_from(points_on_line(10, 1.0, 0.0));
  for (const std::int32_t iterations : {0, -1, kLowest}) {
    PointMatrix2 inliers = rows_from({{5, 5}});
    EXPECT_FALSE(fit_line_consensus(points, {iterations, 1.0, 0.0}, inliers));
    EXPECT_EQ(inliers.rows(), 1);
    EXPECT_EQ(inliers(0, 0), 5.0);
  }
}

TEST(FitLineConsensus, FindsNothingAmongNoPoints) {
  PointMatrix2 inliers;
  EXPECT_FALSE(fit_line_consensus(PointMatrix2(0, 2), {100, 1.0, 0.0}, inliers));
}

TEST(FitLineConsensus, FindsNothingWhereAllPointsCoincide) {
  PointMatrix2 inliers;
  const PointMatrix2 points = rows_from(std::vector<Point2>(10, {1, 1}));
  EXPECT_FALSE(fit_line_consensus(points, {100, 1.0, 0.0}, inliers));
}

TEST(FitLineConsensus, FindsNothingWithinAThresholdOfZero) {
  PointMatrix2 inliers;
  const PointMatrix2 points = rows_from(points_on_line(10, 1.0, 0.0));
  EXPECT_FALSE(fit_line_consensus(points, {100, 0.0, 0.0}, inliers));
  EXPECT_FALSE(fit_line_consensus(points, {100, std::nan(""), 0.0}, inliers));
}

TEST(FitLineConsensus, KeepsThePointsOfTheLineAndDropsTheOthersInOrder) {
  PointMatrix2 inliers;
  const PointMatrix2 points = cloud_with_outliers();
  ASSERT_TRUE(fit_line_consensus(points, {1000, 0.1, 0.5}, inliers));
  ASSERT_EQ(inliers.rows(), 20);
  for (int i = 0, row = 0; i < 30; ++i) {
    if (i % 3 == 0) continue;
    EXPECT_EQ(inliers.row(row++), points.row(i));
  }
}

TEST(FitLineConsensus, FailsBelowTheLeastShareOfInliersAndNotAtIt) {
  PointMatrix2 inliers;
  const PointMatrix2 points = cloud_with_outliers();  // 20 of 30 on the line
  EXPECT_TRUE(fit_line_consensus(points, {1000, 0.1, 20.0 / 30.0}, inliers));
  PointMatrix2 untouched = rows_from({{5, 5}});
  EXPECT_FALSE(fit_line_consensus(points, {1000, 0.1, 21.0 / 30.0}, untouched));
  EXPECT_EQ(untouched.rows(), 1);
}

TEST(FitLineConsensus, TakesAllPointsAtTheFirstGoodPair) {
  PointMatrix2 inliers;
  const PointMatrix2 points = rows_from(points_on_line(1000, 0.25, 3.0));
  ASSERT_TRUE(fit_line_consensus(points, {1, 1e-6, 1.0}, inliers));
  EXPECT_EQ(inliers, points);
}

TEST(FitLineConsensus, TakesNoDirectionFromPointsCloserThanTheGuard) {
  PointMatrix2 inliers;
  EXPECT_FALSE(fit_line_consensus(rows_from({{0, 0}, {2.2e-16, 0}}), {100, 1.0, 0.0}, inliers));
  EXPECT_TRUE(fit_line_consensus(rows_from({{0, 0}, {2.3e-16, 0}}), {100, 1.0, 0.0}, inliers));
}

// A pair whose share is so small that 1 - share^3 rounds to 1 makes the budget minus infinity.
TEST(FitLineConsensus, EndsAtOnceWhereTheShareOfInliersVanishes) {
  simulation::Random random(3);
  std::vector<Point2> points(400000);
  for (Point2& p : points) p = {random.uniform(-1e9, 1e9), random.uniform(-1e9, 1e9)};
  PointMatrix2 inliers;
  constexpr std::int32_t kMany = std::numeric_limits<std::int32_t>::max();
  ASSERT_TRUE(fit_line_consensus(rows_from(points), {kMany, 1e-3, 0.0}, inliers));
  EXPECT_LE(inliers.rows(), 3);
}

TEST(FitLineConsensus, EndsAtOnceWhereTheBudgetDoesNotFitThirtyTwoBits) {
  simulation::Random random(4);
  std::vector<Point2> points(20000);  // log(0.01) / log(1 - 1e-12) is near 5e12
  for (Point2& p : points) p = {random.uniform(-1e9, 1e9), random.uniform(-1e9, 1e9)};
  PointMatrix2 inliers;
  constexpr std::int32_t kMany = std::numeric_limits<std::int32_t>::max();
  ASSERT_TRUE(fit_line_consensus(rows_from(points), {kMany, 1e-3, 0.0}, inliers));
  EXPECT_LE(inliers.rows(), 3);
}

TEST(FitLineConsensus, DrawsTheSameSequenceInEveryCallAndLeavesTheProcessItsOwn) {
  simulation::Random random(5);
  PointMatrix2 points = random_cloud(random, 200);
  PointMatrix2 first, second;
  std::srand(99);
  const int expected = std::rand();
  std::srand(99);
  ASSERT_TRUE(fit_line_consensus(points, {5, 0.4, 0.0}, first));
  EXPECT_EQ(std::rand(), expected);
  ASSERT_TRUE(fit_line_consensus(points, {5, 0.4, 0.0}, second));
  EXPECT_EQ(first, second);
}

// With two points the second draw can reach 2, which wraps to row 0: such a pass finds no pair and
// the next one has to.
// Points all over the place, so that each pair of them has other inliers.
TEST(FitLineConsensus, EqualsThePlainSearchPassByPass) {
  simulation::Random random(12);
  for (int run = 0; run < 300; ++run) {
    std::vector<Point2> points;
    for (int i = 2 + random.index(40); i > 0; --i)
      points.push_back({random.uniform(-5.0, 5.0), random.uniform(-5.0, 5.0)});
    const PointMatrix2 rows = rows_from(points);
    const std::int32_t iterations = 1 + random.index(6);
    const double threshold = random.uniform(0.1, 1.5);
    PointMatrix2 inliers;
    ASSERT_TRUE(fit_line_consensus(rows, {iterations, threshold, 0.0}, inliers)) << run;
    EXPECT_EQ(inliers, rows_from(literal_consensus(rows, iterations, threshold))) << run;
  }
}

TEST(FitLineConsensus, SurvivesEveryDrawAmongFewPoints) {
  for (int count = 2; count < 12; ++count) {
    PointMatrix2 inliers;
    const PointMatrix2 points = rows_from(points_on_line(count, 1.0, 0.0));
    ASSERT_TRUE(fit_line_consensus(points, {100000, 1e-6, 1.0}, inliers)) << count;
    EXPECT_EQ(inliers.rows(), count);
  }
}

// The search told pass by pass, on the same draws: a 15-bit congruential generator.
std::vector<Point2> literal_search(const PointMatrix2& points, const ConsensusSettings& settings) {
  std::uint32_t state = 65536;
  const auto draw = [&state] {
    state = 214013U * state + 2531011U;
    const double r = (state >> 16) % 32768U;
    return (r + r) / 32767.0 - 1.0;
  };
  const int n = static_cast<int>(points.rows());
  std::vector<Point2> best;
  long long passes = settings.iterations;
  for (long long i = 0; i < passes; ++i) {
    Point2 p[2];
    const double u[2] = {draw(), draw()};
    for (int k = 0; k < 2; ++k) {
      const int row = static_cast<int>((u[k] + 1.0) * 0.5 * n * 0.5 + k * (n * 0.5)) % n;
      p[k] = {points(row, 0), points(row, 1)};
    }
    const double dx = p[1].x - p[0].x, dy = p[1].y - p[0].y;
    const double length = std::sqrt(dx * dx + dy * dy);
    if (!(length > 2.220446049250313e-16)) continue;
    std::vector<Point2> inliers;
    collect_line_inliers({dx / length, dy / length}, p[0], points, settings.threshold, inliers);
    if (inliers.size() <= best.size()) continue;
    best = inliers;
    const double ratio = static_cast<double>(best.size()) / n;
    if (std::abs(ratio - 1.0) < 2.220446049250313e-16) break;
    passes = static_cast<long long>(std::log(0.01) / std::log(1.0 - ratio * ratio * ratio));
  }
  return best;
}

// Whole coordinates make many pairs coincide and many sets of inliers equally large.
TEST(FitLineConsensus, KeepsWhatAPlainSearchOverTheSameDrawsKeeps) {
  simulation::Random random(6);
  for (int run = 0; run < 3000; ++run) {
    const int n = 2 + random.index(40);
    PointMatrix2 points(n, 2);
    for (int i = 0; i < n; ++i) points.row(i) << random.index(6), random.index(6);
    const ConsensusSettings settings{random.index(60) - 2, random.uniform(0.01, 1.0),
                                     random.uniform(0.0, 1.0)};
    const std::vector<Point2> best = literal_search(points, settings);
    const bool enough =
        !best.empty() && !(n * settings.min_ratio > static_cast<double>(best.size()));
    PointMatrix2 inliers = rows_from({{55, 55}});
    ASSERT_EQ(fit_line_consensus(points, settings, inliers), enough) << run;
    ASSERT_EQ(inliers, enough ? rows_from(best) : rows_from({{55, 55}})) << run;
  }
}

TEST(FitLine, FitsTheInliersAloneWithConsensus) {
  LineAbc line;
  double mean = 1.0;
  ASSERT_TRUE(fitter_with(true, 1000, 0.1, 0.5).fit_line(cloud_with_outliers(), line, mean));
  EXPECT_NEAR(-line[0] / line[1], 0.5, kRounding);
  EXPECT_NEAR(-line[2] / line[1], 1.0, kRounding);
  EXPECT_NEAR(mean, 0.0, kRounding);
}

TEST(FitLine, LeavesLineAndDistanceAloneWhenTheSearchFails) {
  LineAbc line(7.0, 8.0, 9.0);
  double mean = 5.0;
  EXPECT_FALSE(fitter_with(true, 1000, 0.1, 0.9).fit_line(cloud_with_outliers(), line, mean));
  EXPECT_EQ(line, LineAbc(7.0, 8.0, 9.0));
  EXPECT_EQ(mean, 5.0);
}

TEST(FitLine, IgnoresTheSearchSettingsWithoutConsensus) {
  LineAbc line, plain;
  double mean = 0.0, plain_mean = 0.0;
  ASSERT_TRUE(fitter_with(false, 0, 0.0, 2.0).fit_line(cloud_with_outliers(), line, mean));
  fit_line_pca(cloud_with_outliers(), plain, plain_mean);
  EXPECT_EQ(line, plain);
  EXPECT_EQ(mean, plain_mean);
}

}  // namespace
}  // namespace kestrane
