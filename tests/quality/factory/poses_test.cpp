#include "quality/factory/poses.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "simulation/random.h"
#include "tests/literal/factory_figures.h"

namespace {

using kestrane::quality::PlanePoints;
using kestrane::quality::pose_figures;
using kestrane::quality::PoseSpread;
using kestrane::quality::Spread;
using kestrane::quality::spread_of;

constexpr double kRounding = 1e-12;

// Residuals frame by frame.
PlanePoints points_of(const std::vector<std::vector<double>>& frames) {
  PlanePoints points;
  for (std::size_t f = 0; f < frames.size(); ++f) {
    for (const double r : frames[f]) {
      points.residual.push_back(r);
      points.block.push_back(0);
      points.pose.push_back(static_cast<std::int32_t>(f));
    }
  }
  return points;
}

constexpr Spread kWide{0.0, 100.0};  // nothing is an outlier

TEST(PoseFigures, HaveTheMedianOfEachFrame) {
  const PoseSpread result = pose_figures(points_of({{1.0, 2.0, 9.0}, {4.0, 0.0}}), {-3, 12}, kWide);
  ASSERT_EQ(result.poses.size(), 2U);
  EXPECT_EQ(result.poses[0].frame, -3);
  EXPECT_EQ(result.poses[0].median, 2.0);
  EXPECT_EQ(result.poses[0].points, 3);
  EXPECT_EQ(result.poses[1].frame, 12);
  EXPECT_EQ(result.poses[1].median, 2.0);
}

TEST(PoseFigures, AreNotDeterminedForAFrameWithoutValidPoints) {
  const PoseSpread result = pose_figures(points_of({{1.0}}), {0, 1}, kWide);
  EXPECT_EQ(result.poses[1].points, 0);
  EXPECT_TRUE(std::isnan(result.poses[1].median));
  EXPECT_FALSE(result.poses[1].off);
}

TEST(PoseFigures, CallAFrameOffBeyondFourSigma) {
  const PlanePoints points = points_of({{1.0}, {1.25}, {-1.0}, {-1.25}});
  const PoseSpread result = pose_figures(points, {0, 1, 2, 3}, {0.0, 0.25});
  EXPECT_FALSE(result.poses[0].off);
  EXPECT_TRUE(result.poses[1].off);
  EXPECT_FALSE(result.poses[2].off);
  EXPECT_TRUE(result.poses[3].off);
}

TEST(PoseFigures, CallAFrameOffByItsDistanceFromTheMedianOfAll) {
  const PoseSpread result = pose_figures(points_of({{3.0}, {2.5}, {0.5}}), {0, 1, 2}, {3.0, 0.25});
  EXPECT_FALSE(result.poses[0].off);
  EXPECT_FALSE(result.poses[1].off);
  EXPECT_TRUE(result.poses[2].off);
}

// Plus and minus 1 beside an outlier of 9 in each frame, all of them about 3: the scatter is that
// of the others.
TEST(PoseFigures, LeaveOutliersOutOfTheScatter) {
  const PoseSpread result =
      pose_figures(points_of({{4.0, 12.0, 2.0}, {12.0, 6.0, 4.0}}), {0, 1}, {3.0, 1.0});
  EXPECT_NEAR(result.within, 1.0, kRounding);
  EXPECT_NEAR(result.between, std::sqrt(1.0 - 0.5), kRounding);
}

// The median of a frame is that of all its points, the outliers too: else a bad frame would be left
// without points to show it by.
TEST(PoseFigures, FindAPlantedBadFrameByItsOutliers) {
  std::vector<std::vector<double>> frames(20, {-0.1, 0.0, 0.1, -0.05, 0.05});
  for (double& r : frames[7]) r += 3.0;
  const PlanePoints points = points_of(frames);
  std::vector<std::int32_t> numbers(20);
  for (int f = 0; f < 20; ++f) numbers[static_cast<std::size_t>(f)] = 100 + f;
  const PoseSpread result = pose_figures(points, numbers, spread_of(points.residual));
  for (const auto& pose : result.poses) EXPECT_EQ(pose.off, pose.frame == 107) << pose.frame;
  EXPECT_NEAR(result.poses[7].median, 3.0, kRounding);
  EXPECT_NEAR(result.between, 0.0, kRounding);  // without the outliers nothing differs
}

// Two frames of 4 with variance 1 about means of plus and minus 2: within 1, means of variance 4,
// of which a quarter of the 1 is the points' own.
TEST(PoseFigures, TellScatterWithinFromScatterBetween) {
  const PoseSpread result =
      pose_figures(points_of({{1.0, 3.0, 1.0, 3.0}, {-1.0, -3.0, -1.0, -3.0}}), {0, 1}, kWide);
  EXPECT_NEAR(result.within, 1.0, kRounding);
  EXPECT_NEAR(result.between, std::sqrt(4.0 - 0.25), kRounding);
}

TEST(PoseFigures, WeighFramesByTheirPoints) {
  // 6 points at 0 and 2 at 4: mean 1, (6 * 1 + 2 * 9) / 8 = 3.
  const PoseSpread result =
      pose_figures(points_of({{0, 0, 0, 0, 0, 0}, {4.0, 4.0}}), {0, 1}, kWide);
  EXPECT_NEAR(result.between, std::sqrt(3.0), kRounding);
  EXPECT_EQ(result.within, 0.0);
}

TEST(PoseFigures, HaveNoNegativeScatterBetweenFrames) {
  const PoseSpread result = pose_figures(points_of({{-1.0, 1.0}, {-1.0, 1.0}}), {0, 1}, kWide);
  EXPECT_EQ(result.between, 0.0);
  EXPECT_NEAR(result.within, 1.0, kRounding);
}

TEST(PoseFigures, HaveNoScatterBetweenFramesOfOne) {
  EXPECT_TRUE(std::isnan(pose_figures(points_of({{-1.0, 1.0}}), {0}, kWide).between));
  EXPECT_TRUE(std::isnan(pose_figures({}, {}, kWide).within));
}

TEST(PoseFigures, EqualAPlainTranscription) {
  simulation::Random random(21);
  std::vector<std::vector<double>> frames;
  std::vector<std::int32_t> numbers;
  for (int f = 0; f < 30; ++f) {
    const double shift = f == 11 ? 4.0 : 0.1 * random.gaussian();
    frames.emplace_back();
    for (int i = 0; i < 20 + 7 * f; ++i) frames.back().push_back(shift + 0.05 * random.gaussian());
    numbers.push_back(f * 3 - 20);
  }
  const PlanePoints points = points_of(frames);
  std::vector<literal::Valid> valid;
  for (std::size_t i = 0; i < points.size(); ++i) {
    valid.push_back({0, numbers[static_cast<std::size_t>(points.pose[i])], points.residual[i]});
  }
  const PoseSpread result = pose_figures(points, numbers, spread_of(points.residual));
  const literal::Poses expected = literal::poses(valid);
  EXPECT_NEAR(result.within, expected.within, kRounding);
  EXPECT_NEAR(result.between, expected.between, kRounding);
  for (const auto& pose : result.poses) {
    EXPECT_EQ(pose.median, expected.medians.at(pose.frame));
    EXPECT_EQ(pose.off, expected.off.at(pose.frame));
  }
}

}  // namespace
