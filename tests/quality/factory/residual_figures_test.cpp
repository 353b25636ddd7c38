#include "quality/factory/residual_figures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "simulation/random.h"
#include "tests/literal/factory_figures.h"

namespace {

using kestrane::quality::FiguresOfPlane;
using kestrane::quality::PlanePoints;
using kestrane::quality::residual_figures;
using kestrane::quality::ResidualFigures;
using kestrane::quality::Spread;
using kestrane::quality::spread_of;

constexpr double kRounding = 1e-14;

// Residuals in turn on the blocks of a list.
PlanePoints points_with(const std::vector<double>& residuals,
                        const std::vector<std::uint16_t>& blocks = {0}) {
  PlanePoints points;
  for (std::size_t i = 0; i < residuals.size(); ++i) {
    points.residual.push_back(residuals[i]);
    points.block.push_back(blocks[i % blocks.size()]);
    points.pose.push_back(0);
  }
  return points;
}

FiguresOfPlane figures_of(const PlanePoints& points) {
  return residual_figures(points, spread_of(points.residual), nullptr);
}

TEST(SpreadOf, IsTheScaledMedianDistanceFromTheMedian) {
  const Spread spread = spread_of(std::vector<double>{1.0, 2.0, 3.0, 4.0, 100.0});
  EXPECT_EQ(spread.median, 3.0);
  EXPECT_EQ(spread.sigma, 1.4826);  // distances 2, 1, 0, 1, 97
}

TEST(SpreadOf, HasAFloorWherePointsLieOnThePlane) {
  EXPECT_EQ(spread_of(std::vector<double>{0.5, 0.5, 0.5}).sigma, 1e-9);
}

TEST(SpreadOf, IsNotANumberWithoutResiduals) {
  EXPECT_TRUE(std::isnan(spread_of({}).median));
  EXPECT_TRUE(std::isnan(spread_of({}).sigma));
}

TEST(IsOutlier, StartsBeyondFourSigmaFromTheMedian) {
  const Spread spread{0.0, 0.25};
  EXPECT_FALSE(spread.is_outlier(1.0));
  EXPECT_FALSE(spread.is_outlier(-1.0));
  EXPECT_TRUE(spread.is_outlier(std::nextafter(1.0, 2.0)));
  EXPECT_TRUE(spread.is_outlier(std::nextafter(-1.0, -2.0)));
  const Spread shifted{3.0, 0.25};
  EXPECT_FALSE(shifted.is_outlier(4.0));
  EXPECT_TRUE(shifted.is_outlier(1.75));
}

TEST(ResidualFiguresOfAPlane, AreThoseOfTheTextbook) {
  const FiguresOfPlane figures = figures_of(points_with({1.0, -1.0, 2.0, -2.0}));
  EXPECT_EQ(figures.plane.points, 4);
  EXPECT_NEAR(figures.plane.rms, std::sqrt(2.5), kRounding);
  EXPECT_NEAR(figures.plane.bias, 0.0, kRounding);
  EXPECT_EQ(figures.plane.q95, 2.0);
  EXPECT_EQ(figures.plane.max, 2.0);
  EXPECT_EQ(figures.outliers, 0);
}

TEST(ResidualFiguresOfAPlane, AreNotDeterminedWithoutPoints) {
  const FiguresOfPlane figures = figures_of({});
  EXPECT_EQ(figures.plane.points, 0);
  EXPECT_TRUE(std::isnan(figures.plane.rms));
  EXPECT_TRUE(std::isnan(figures.plane.bias));
  EXPECT_TRUE(std::isnan(figures.plane.max));
}

// Of 1000 residuals of plus and minus 0.1, 30 lie at 5: exactly these are outliers.
TEST(ResidualFiguresOfAPlane, LeaveOutThePlantedShareOfOutliers) {
  std::vector<double> residuals;
  for (int i = 0; i < 970; ++i) residuals.push_back(i % 2 == 0 ? 0.1 : -0.1);
  residuals.insert(residuals.begin() + 400, 30, 5.0);
  const FiguresOfPlane figures = figures_of(points_with(residuals));
  EXPECT_EQ(figures.outliers, 30);
  EXPECT_EQ(figures.plane.points, 970);
  EXPECT_NEAR(figures.plane.rms, 0.1, kRounding);
  EXPECT_EQ(figures.plane.max, 0.1);
}

TEST(ResidualFiguresOfAPlane, TellBlocksApart) {
  const FiguresOfPlane figures =
      figures_of(points_with({0.1, -0.3, 0.1, -0.3, 0.1, -0.3}, {12, 700}));
  EXPECT_EQ(figures.blocks.size(), 750U);
  EXPECT_EQ(figures.blocks[12].points, 3);
  EXPECT_NEAR(figures.blocks[12].bias, 0.1, kRounding);
  EXPECT_NEAR(figures.blocks[700].bias, -0.3, kRounding);
  EXPECT_NEAR(figures.blocks[700].rms, 0.3, kRounding);
  EXPECT_EQ(figures.blocks[700].q95, 0.3);
  EXPECT_EQ(figures.blocks[13].points, 0);
}

TEST(ResidualFiguresOfAPlane, EqualAPlainTranscription) {
  simulation::Random random(5);
  std::vector<double> residuals;
  std::vector<std::uint16_t> blocks;
  for (int i = 0; i < 5000; ++i) {
    residuals.push_back(0.05 * random.gaussian() * (i % 50 == 0 ? 40.0 : 1.0));
    blocks.push_back(static_cast<std::uint16_t>(random.index(40) * 17));
  }
  const PlanePoints points = points_with(residuals, blocks);
  std::vector<literal::Valid> valid;
  for (std::size_t i = 0; i < points.size(); ++i) {
    valid.push_back({points.block[i], 0, points.residual[i]});
  }
  const literal::Middle middle = literal::middle_of(literal::residuals_of(valid));
  const FiguresOfPlane figures = figures_of(points);
  for (int block = -1; block < 750; ++block) {
    const literal::Figures expected = literal::figures(literal::kept(valid, middle, block));
    const ResidualFigures& found =
        block < 0 ? figures.plane : figures.blocks[static_cast<std::size_t>(block)];
    ASSERT_EQ(static_cast<std::size_t>(found.points), expected.points) << block;
    if (expected.points == 0) continue;
    EXPECT_NEAR(found.rms, expected.rms, kRounding);
    EXPECT_NEAR(found.bias, expected.bias, kRounding);
    EXPECT_EQ(found.q95, expected.q95);
    EXPECT_EQ(found.q99, expected.q99);
    EXPECT_EQ(found.max, expected.max);
  }
}

}  // namespace
