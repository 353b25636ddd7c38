#include "fit/coefficients/line_fit.h"

#include <gtest/gtest.h>

#include <Eigen/Eigenvalues>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "tests/fit/coefficients/line_clouds.h"

namespace kestrane {
namespace {

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

TEST(FitLinePca, StandsUprightThroughPointsThatCoincide) {
  LineAbc line;
  double mean = 1.0;
  fit_line_pca(rows_from(std::vector<Point2>(5, {3.0, -2.0})), line, mean);
  EXPECT_EQ(line, LineAbc(1.0, 0.0, -3.0));
  EXPECT_EQ(mean, 0.0);
}

TEST(FitLinePca, LeavesNothingBetweenAPerfectLineAndItsPoints) {
  LineAbc line;
  double mean = 1.0;
  fit_line_pca(rows_from(points_on_line(50, -2.5, 4.0)), line, mean);
  EXPECT_NEAR(mean, 0.0, kRounding);
  EXPECT_NEAR(line[0] / line[1], 2.5, kRounding);
  EXPECT_NEAR(line[2] / line[1], -4.0, kRounding);
}

TEST(FitLinePca, TakesTheFirstOfEqualAxes) {
  LineAbc line;
  double mean = 1.0;
  fit_line_pca(rows_from({{1, 0}, {-1, 0}, {0, 1}, {0, -1}}), line, mean);
  EXPECT_EQ(line.cwiseAbs(), LineAbc(1.0, 0.0, 0.0));
  EXPECT_EQ(mean, 0.5);
}

TEST(FitLinePca, ReportsTheMeanOfTheDistances) {
  LineAbc line;
  double mean = 0.0;
  fit_line_pca(rows_from({{-10, 1}, {-10, -1}, {10, 1}, {10, -1}}), line, mean);
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

TEST(FitLinePca, GivesALineOfNansForPointsThatAreNotFinite) {
  for (const double bad : {std::nan(""), HUGE_VAL, 1e200}) {  // the scatter of 1e200 overflows
    std::vector<Point2> points = points_on_line(11, 1.0, 0.0);
    points[4].y = bad;
    LineAbc line(1.0, 1.0, 1.0);
    double mean = 1.0;
    fit_line_pca(rows_from(points), line, mean);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(std::isnan(line[i]));
    EXPECT_TRUE(std::isnan(mean));
  }
}

// A scatter of finite numbers, whose larger eigenvalue 2.56e308 is none.
TEST(FitLinePca, IsNotANumberWhereOnlyAnEigenvalueOverflows) {
  constexpr double kSize = 8e153;
  LineAbc line = LineAbc::Zero();
  double mean = 0.0;
  fit_line_pca(rows_from({{-kSize, -kSize}, {kSize, kSize}}), line, mean);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(std::isnan(line[i]));
  EXPECT_TRUE(std::isnan(mean));
}

}  // namespace
}  // namespace kestrane
