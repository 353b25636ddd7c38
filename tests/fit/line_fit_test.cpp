#include "fit/line_fit.h"

#include <gtest/gtest.h>

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <vector>

#include "fit/laser_geometry_fitter.h"
#include "simulation/random.h"

namespace kestrane {
namespace {

// Sums of some dozens of products, each off by one part in 2^53.
constexpr double kRounding = 1e-12;
constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();

PointMatrix2 rows_of(const std::vector<Point2>& points) {
  PointMatrix2 rows(static_cast<Eigen::Index>(points.size()), 2);
  for (std::size_t i = 0; i < points.size(); ++i)
    rows.row(static_cast<Eigen::Index>(i)) << points[i].x, points[i].y;
  return rows;
}

// Points on y = slope x + offset, at x = 0, 1, 2 ...
std::vector<Point2> points_on_line(int count, double slope, double offset) {
  std::vector<Point2> points;
  for (int i = 0; i < count; ++i) points.push_back({1.0 * i, slope * i + offset});
  return points;
}

PointMatrix2 random_cloud(simulation::Random& random, int count) {
  const double slope = random.uniform(-3.0, 3.0), spread = random.uniform(0.0, 2.0);
  std::vector<Point2> points;
  for (int i = 0; i < count; ++i) {
    const double x = random.uniform(-50.0, 50.0);
    points.push_back({x, slope * x + spread * random.gaussian() + 7.0});
  }
  return rows_of(points);
}

double distance(const LineAbc& line, double x, double y) {
  return std::abs(line[0] * x + line[1] * y + line[2]);
}

// The direction of least spread from the angle of the scatter, without any eigenvalue solver.
Point2 closed_form_normal(const PointMatrix2& points) {
  const double n = static_cast<double>(points.rows());
  const double mx = points.col(0).sum() / n, my = points.col(1).sum() / n;
  double xx = 0.0, xy = 0.0, yy = 0.0;
  for (Eigen::Index i = 0; i < points.rows(); ++i) {
    const double dx = points(i, 0) - mx, dy = points(i, 1) - my;
    xx += dx * dx, xy += dx * dy, yy += dy * dy;
  }
  const double angle = 0.5 * std::atan2(2.0 * xy, xx - yy);  // of the long axis
  return {-std::sin(angle), std::cos(angle)};
}

// The fit as it is defined, with matrices of dynamic size throughout.
LineAbc dynamic_fit(const PointMatrix2& points, double& mean_distance) {
  double sx = 0.0, sy = 0.0;
  for (Eigen::Index i = 0; i < points.rows(); ++i) sx += points(i, 0), sy += points(i, 1);
  const double n = static_cast<double>(points.rows());
  const double mx = sx / n, my = sy / n;
  PointMatrix2 centred = points;
  for (Eigen::Index i = 0; i < points.rows(); ++i) centred(i, 0) -= mx, centred(i, 1) -= my;
  const Eigen::MatrixXd scatter = centred.transpose() * centred;
  const Eigen::EigenSolver<Eigen::MatrixXd> solver(scatter, true);
  Eigen::Index smallest = 0;
  for (Eigen::Index i = 1; i < 2; ++i)
    if (solver.eigenvalues()[i].real() < solver.eigenvalues()[smallest].real()) smallest = i;
  const Eigen::MatrixXcd vectors = solver.eigenvectors();
  const double nx = vectors(0, smallest).real(), ny = vectors(1, smallest).real();
  double sum = 0.0;
  for (Eigen::Index i = 0; i < points.rows(); ++i)
    sum += std::abs((points(i, 0) - mx) * nx + (points(i, 1) - my) * ny);
  mean_distance = sum / n;
  return {nx, ny, -(nx * mx + ny * my)};
}

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
  return rows_of(points);
}

TEST(FitLine, RefusesFewerThanTwoPointsAndWritesNothing) {
  for (const bool consensus : {false, true}) {
    for (int count = 0; count < 2; ++count) {
      LineAbc line(7.0, 8.0, 9.0);
      double mean = 5.0;
      EXPECT_FALSE(fitter_with(consensus, 100, 1.0, 0.0)
                       .fit_line(rows_of(points_on_line(count, 1.0, 0.0)), line, mean));
      EXPECT_EQ(line, LineAbc(7.0, 8.0, 9.0));
      EXPECT_EQ(mean, 5.0);
    }
  }
}

TEST(FitLine, GoesThroughTwoPoints) {
  LineAbc line;
  double mean = 1.0;
  ASSERT_TRUE(fitter_with(false, 0, 0.0, 0.0).fit_line(rows_of({{1, 2}, {4, 6}}), line, mean));
  EXPECT_NEAR(distance(line, 1, 2), 0.0, kRounding);
  EXPECT_NEAR(distance(line, 4, 6), 0.0, kRounding);
  EXPECT_NEAR(line.head<2>().norm(), 1.0, kRounding);
  EXPECT_NEAR(mean, 0.0, kRounding);
}

TEST(FitLinePca, StandsUprightThroughPointsThatCoincide) {
  LineAbc line;
  double mean = 1.0;
  fit_line_pca(rows_of(std::vector<Point2>(5, {3.0, -2.0})), line, mean);
  EXPECT_EQ(line, LineAbc(1.0, 0.0, -3.0));
  EXPECT_EQ(mean, 0.0);
}

TEST(FitLinePca, LeavesNothingBetweenAPerfectLineAndItsPoints) {
  LineAbc line;
  double mean = 1.0;
  fit_line_pca(rows_of(points_on_line(50, -2.5, 4.0)), line, mean);
  EXPECT_NEAR(mean, 0.0, kRounding);
  EXPECT_NEAR(line[0] / line[1], 2.5, kRounding);
  EXPECT_NEAR(line[2] / line[1], -4.0, kRounding);
}

TEST(FitLinePca, TakesTheFirstOfEqualAxes) {
  LineAbc line;
  double mean = 1.0;
  fit_line_pca(rows_of({{1, 0}, {-1, 0}, {0, 1}, {0, -1}}), line, mean);
  EXPECT_EQ(line.cwiseAbs(), LineAbc(1.0, 0.0, 0.0));
  EXPECT_EQ(mean, 0.5);
}

TEST(FitLinePca, ReportsTheMeanOfTheDistances) {
  LineAbc line;
  double mean = 0.0;
  fit_line_pca(rows_of({{-10, 1}, {-10, -1}, {10, 1}, {10, -1}}), line, mean);
  EXPECT_NEAR(std::abs(line[1]), 1.0, kRounding);
  EXPECT_NEAR(mean, 1.0, kRounding);
}

TEST(FitLinePca, EqualsTheClosedForm) {
  constexpr double kAngleRounding = 1e-9;  // nearly round clouds have a soft axis
  simulation::Random random(1);
  for (int run = 0; run < 3000; ++run) {
    const PointMatrix2 points = random_cloud(random, 3 + random.index(40));
    LineAbc line;
    double mean = 0.0;
    fit_line_pca(points, line, mean);
    const Point2 normal = closed_form_normal(points);
    const double along = line[0] * normal.x + line[1] * normal.y;
    ASSERT_NEAR(std::abs(along), 1.0, kAngleRounding);
    ASSERT_NEAR(line[0] * normal.y - line[1] * normal.x, 0.0, kAngleRounding);
  }
}

TEST(FitLinePca, EqualsTheDynamicSolverToTheLastBit) {
  simulation::Random random(2);
  for (int run = 0; run < 20000; ++run) {
    const PointMatrix2 points = random_cloud(random, run % 2 == 0 ? 11 : 2 + random.index(30));
    LineAbc line;
    double mean = 0.0, expected_mean = 0.0;
    fit_line_pca(points, line, mean);
    const LineAbc expected = dynamic_fit(points, expected_mean);
    ASSERT_EQ(line, expected);
    ASSERT_EQ(mean, expected_mean);
  }
}

TEST(FitLinePca, GivesALineOfNoNumbersForPointsThatAreNotFinite) {
  for (const double bad : {std::nan(""), HUGE_VAL, 1e200}) {  // the scatter of 1e200 overflows
    std::vector<Point2> points = points_on_line(11, 1.0, 0.0);
    points[4].y = bad;
    LineAbc line(1.0, 1.0, 1.0);
    double mean = 1.0;
    fit_line_pca(rows_of(points), line, mean);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(std::isnan(line[i]));
    EXPECT_TRUE(std::isnan(mean));
  }
}

TEST(CollectLineInliers, KeepsPointsStrictlyNearerThanTheThresholdInOrder) {
  const PointMatrix2 points = rows_of({{0, 0.5}, {1, -0.25}, {2, -0.5}, {3, 0.0}, {4, 0.49}});
  std::vector<Point2> inliers = {{9, 9}};
  collect_line_inliers({1, 0}, {0, 0}, points, 0.5, inliers);
  ASSERT_EQ(inliers.size(), 4U);
  EXPECT_EQ(inliers[0].x, 9.0);
  EXPECT_EQ(inliers[1].x, 1.0);
  EXPECT_EQ(inliers[2].x, 3.0);
  EXPECT_EQ(inliers[3].x, 4.0);
}

// A scatter of finite numbers, whose larger eigenvalue 2.56e308 is none.
TEST(FitLinePca, IsNotANumberWhereOnlyAnEigenvalueOverflows) {
  constexpr double kSize = 8e153;
  LineAbc line = LineAbc::Zero();
  double mean = 0.0;
  fit_line_pca(rows_of({{-kSize, -kSize}, {kSize, kSize}}), line, mean);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(std::isnan(line[i]));
  EXPECT_TRUE(std::isnan(mean));
}

TEST(CollectLineInliers, DropsPointsWhoseDistanceIsNaN) {
  std::vector<Point2> inliers;
  collect_line_inliers({1, 0}, {0, 0}, rows_of({{0, std::nan("")}, {1, 0}}), 0.5, inliers);
  EXPECT_EQ(inliers.size(), 1U);
}

TEST(CollectLineInliers, MeasuresAcrossTheDirectionFromTheOrigin) {
  std::vector<Point2> inliers;
  // 3-4-5: (5, 0) lies 4 * 5 / 5 = 4 away from the line through (0, 0) along (3, 4) / 5.
  collect_line_inliers({0.6, 0.8}, {10, 20}, rows_of({{15, 20}}), 3.999, inliers);
  EXPECT_TRUE(inliers.empty());
  collect_line_inliers({0.6, 0.8}, {10, 20}, rows_of({{15, 20}}), 4.001, inliers);
  EXPECT_EQ(inliers.size(), 1U);
}

TEST(FitLineConsensus, FindsNothingWithoutAPass) {
  const PointMatrix2 points = rows_of(points_on_line(10, 1.0, 0.0));
  for (const std::int32_t iterations : {0, -1, kLowest}) {
    PointMatrix2 inliers = rows_of({{5, 5}});
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
  const PointMatrix2 points = rows_of(std::vector<Point2>(10, {1, 1}));
  EXPECT_FALSE(fit_line_consensus(points, {100, 1.0, 0.0}, inliers));
}

TEST(FitLineConsensus, FindsNothingWithinAThresholdOfZero) {
  PointMatrix2 inliers;
  const PointMatrix2 points = rows_of(points_on_line(10, 1.0, 0.0));
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
  PointMatrix2 untouched = rows_of({{5, 5}});
  EXPECT_FALSE(fit_line_consensus(points, {1000, 0.1, 21.0 / 30.0}, untouched));
  EXPECT_EQ(untouched.rows(), 1);
}

TEST(FitLineConsensus, TakesAllPointsAtTheFirstGoodPair) {
  PointMatrix2 inliers;
  const PointMatrix2 points = rows_of(points_on_line(1000, 0.25, 3.0));
  ASSERT_TRUE(fit_line_consensus(points, {1, 1e-6, 1.0}, inliers));
  EXPECT_EQ(inliers, points);
}

TEST(FitLineConsensus, TakesNoDirectionFromPointsCloserThanTheGuard) {
  PointMatrix2 inliers;
  EXPECT_FALSE(fit_line_consensus(rows_of({{0, 0}, {2.2e-16, 0}}), {100, 1.0, 0.0}, inliers));
  EXPECT_TRUE(fit_line_consensus(rows_of({{0, 0}, {2.3e-16, 0}}), {100, 1.0, 0.0}, inliers));
}

// A pair whose share is so small that 1 - share^3 rounds to 1 makes the budget minus infinity.
TEST(FitLineConsensus, EndsAtOnceWhereTheShareOfInliersVanishes) {
  simulation::Random random(3);
  std::vector<Point2> points(400000);
  for (Point2& p : points) p = {random.uniform(-1e9, 1e9), random.uniform(-1e9, 1e9)};
  PointMatrix2 inliers;
  constexpr std::int32_t kMany = std::numeric_limits<std::int32_t>::max();
  ASSERT_TRUE(fit_line_consensus(rows_of(points), {kMany, 1e-3, 0.0}, inliers));
  EXPECT_LE(inliers.rows(), 3);
}

TEST(FitLineConsensus, EndsAtOnceWhereTheBudgetDoesNotFitThirtyTwoBits) {
  simulation::Random random(4);
  std::vector<Point2> points(20000);  // log(0.01) / log(1 - 1e-12) is near 5e12
  for (Point2& p : points) p = {random.uniform(-1e9, 1e9), random.uniform(-1e9, 1e9)};
  PointMatrix2 inliers;
  constexpr std::int32_t kMany = std::numeric_limits<std::int32_t>::max();
  ASSERT_TRUE(fit_line_consensus(rows_of(points), {kMany, 1e-3, 0.0}, inliers));
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
    const PointMatrix2 rows = rows_of(points);
    const std::int32_t iterations = 1 + random.index(6);
    const double threshold = random.uniform(0.1, 1.5);
    PointMatrix2 inliers;
    ASSERT_TRUE(fit_line_consensus(rows, {iterations, threshold, 0.0}, inliers)) << run;
    EXPECT_EQ(inliers, rows_of(literal_consensus(rows, iterations, threshold))) << run;
  }
}

TEST(FitLineConsensus, SurvivesEveryDrawAmongFewPoints) {
  for (int count = 2; count < 12; ++count) {
    PointMatrix2 inliers;
    const PointMatrix2 points = rows_of(points_on_line(count, 1.0, 0.0));
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
    PointMatrix2 inliers = rows_of({{55, 55}});
    ASSERT_EQ(fit_line_consensus(points, settings, inliers), enough) << run;
    ASSERT_EQ(inliers, enough ? rows_of(best) : rows_of({{55, 55}})) << run;
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
