#include "quality/refinement/start.h"

#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "quality/refinement/choice.h"
#include "simulation/random.h"
#include "tests/support/bits.h"

namespace {

using namespace kestrane::quality::refinement;
using kestrane::quality::RefinementSettings;
using kestrane_test::same_bits;

using Taken = std::vector<std::uint8_t>;
using Terms = Eigen::Matrix<double, 6, 1>;

struct Cloud {
  int samples;
  int frames;
  double bow;  // x at 100 from the middle
  double noise;
  std::uint64_t seed;
};

// On a sheet bowed both ways; every 23rd point lies off, and of ten frames or more the fourth, by
// no more than its points scatter. Frames lie anywhere or are lines at one depth each.
Samples samples_of(const Cloud& cloud, bool lines = false) {
  simulation::Random random(cloud.seed);
  Samples samples;
  for (int f = 0; f < cloud.frames; ++f) samples.frames.push_back(10 * f);
  for (int n = 0; n < cloud.samples; ++n) {
    const int frame = n % cloud.frames;
    const double y = random.uniform(-80.0, 120.0);
    const double anywhere = random.uniform(200.0, 700.0);
    const double z = lines ? 200.0 + 500.0 * frame / cloud.frames : anywhere;
    const double v = y / 100.0, w = (z - 450.0) / 100.0;
    double x = 118.0 + 2.0 * v - 20.0 * w + cloud.bow * (v * v - 0.5 * v * w + 0.3 * w * w) +
               cloud.noise * random.gaussian();
    if (n % 23 == 7) x += random.uniform(-6.0, 6.0) * cloud.noise;
    if (cloud.frames >= 10 && frame == 3) x += 2.0 * cloud.noise;
    samples.points.push_back({x, y, z, frame, 0, 0});
  }
  return samples;
}

TEST(ResidualsAgainst, AreXMinusTheSheet) {
  const Samples samples = samples_of({30, 3, 1.0, 0.1, 1});
  const Sheet sheet{6, 30.0, 400.0, 50.0, 100.0, {118.0, 0.5, -20.0, 0.75, -0.25, 1.5}};
  const std::vector<double> residuals = residuals_against(samples.points, sheet);
  ASSERT_EQ(residuals.size(), 30U);
  for (std::size_t n = 0; n < 30; ++n) {
    const Sample& s = samples.points[n];
    EXPECT_TRUE(same_bits(residuals[n], s.x - sheet.at(s.y, s.z)));
  }
}

// The start, step by step, with the significance at which the quadratic gives way to the plane.
struct PlainStart {
  Taken taken;
  FittedSheet plane, quadratic;
  double edge = 0.0;
};

// Mean squared error of polynomials on each group that the other groups give.
std::vector<double> errors_left_out(
    const std::vector<std::vector<std::pair<Terms, double>>>& groups, int terms) {
  std::vector<double> errors;
  for (std::size_t out = 0; out < groups.size(); ++out) {
    Eigen::MatrixXd normal = Eigen::MatrixXd::Zero(terms, terms);
    Eigen::VectorXd right = Eigen::VectorXd::Zero(terms);
    for (std::size_t g = 0; g < groups.size(); ++g) {
      if (g == out) continue;
      for (const auto& [basis, x] : groups[g]) {
        normal += basis.head(terms) * basis.head(terms).transpose();
        right += x * basis.head(terms);
      }
    }
    const Eigen::VectorXd c = normal.ldlt().solve(right);
    double squares = 0.0;
    for (const auto& [basis, x] : groups[out]) squares += std::pow(x - c.dot(basis.head(terms)), 2);
    errors.push_back(squares / static_cast<double>(groups[out].size()));
  }
  return errors;
}

double edge_of(const std::vector<double>& held, const std::vector<double>& other) {
  const auto n = static_cast<double>(held.size());
  double mean = 0.0, squares = 0.0;
  const auto d = [&](std::size_t g) { return std::sqrt(held[g]) - std::sqrt(other[g]); };
  for (std::size_t g = 0; g < held.size(); ++g) mean += d(g) / n;
  for (std::size_t g = 0; g < held.size(); ++g) squares += std::pow(d(g) - mean, 2);
  return mean * std::sqrt(n) / std::sqrt(squares / (n - 1.0)) / caution(held.size());
}

PlainStart plain_start(const Samples& samples, const RefinementSettings& settings) {
  const std::vector<Sample>& points = samples.points;
  const Spread spread = spread_of(points);
  const Taken all(samples.frames.size(), 1);
  PlainStart start;
  start.plane = *improve(points, all, *absolute_fit(points, all, spread, 3), Weighting::kHuber);
  start.quadratic = *improve(points, all, *absolute_fit(points, all, spread, 6), Weighting::kHuber);

  std::vector<double> scratch;
  const auto medians_of = [&](const FittedSheet& fitted) {
    return frame_medians(points, residuals_against(points, fitted.sheet), samples.frames.size(),
                         scratch);
  };
  const FrameMedians of_plane = medians_of(start.plane);
  const FrameMedians of_quadratic = medians_of(start.quadratic);
  start.taken = of_quadratic.spread < of_plane.spread
                    ? taken_frames(of_quadratic, start.quadratic.scale, settings.frame_cut)
                    : taken_frames(of_plane, start.plane.scale, settings.frame_cut);
  start.plane = *improve(points, start.taken, start.plane, Weighting::kTukey);
  start.quadratic = *improve(points, start.taken, start.quadratic, Weighting::kTukey);

  std::vector<std::size_t> rank(samples.frames.size());
  std::size_t frames = 0;
  for (std::size_t f = 0; f < rank.size(); ++f)
    if (start.taken[f] != 0) rank[f] = frames++;
  const std::size_t count = std::min(frames, static_cast<std::size_t>(settings.folds));
  std::vector<std::vector<std::pair<Terms, double>>> groups(count);
  const Sheet& q = start.quadratic.sheet;
  for (const Sample& s : points) {
    const auto frame = static_cast<std::size_t>(s.frame);
    if (start.taken[frame] == 0) continue;
    const double from_plane = s.x - start.plane.sheet.at(s.y, s.z);
    const bool near_plane = std::abs(from_plane) <= settings.cut * start.plane.scale;
    const bool near_quadratic =
        std::abs(s.x - q.at(s.y, s.z)) <= settings.cut * start.quadratic.scale;
    if (!near_plane && !near_quadratic) continue;
    const double v = (s.y - q.y0) / q.ys, w = (s.z - q.z0) / q.zs;
    groups[rank[frame] % count].push_back({Terms{1.0, v, w, v * v, v * w, w * w}, from_plane});
  }
  start.edge = edge_of(errors_left_out(groups, 3), errors_left_out(groups, 6));
  return start;
}

void expect_start(const std::optional<Start>& start, const Samples& samples,
                  const PlainStart& expected, bool bent) {
  ASSERT_TRUE(start);
  EXPECT_EQ(start->taken, expected.taken);
  EXPECT_TRUE(same_bits(start->plane.c, expected.plane.sheet.c));
  const FittedSheet& nearer = bent ? expected.quadratic : expected.plane;
  EXPECT_TRUE(same_bits(start->residuals, residuals_against(samples.points, nearer.sheet)));
  EXPECT_TRUE(same_bits(start->scale, nearer.scale));
}

// On either side of the significance at which the frames support a bow no more.
TEST(RobustStart, TakesTheQuadraticWhereFramesSupportIt) {
  const Cloud clouds[] = {{600, 12, 0.05, 0.05, 1},
                          {601, 5, 0.1, 0.05, 2},
                          {500, 9, 2.0, 0.05, 3},
                          {700, 25, 0.02, 0.02, 4}};
  for (const Cloud& cloud : clouds) {
    const Samples samples = samples_of(cloud);
    for (const std::int32_t folds : {5, 7, 20}) {
      RefinementSettings settings;
      settings.folds = folds;
      const PlainStart expected = plain_start(samples, settings);
      ASSERT_GT(expected.edge, 0.0) << cloud.seed;
      const Spread spread = spread_of(samples.points);
      settings.significance = expected.edge * (1.0 - 1e-6);
      expect_start(robust_start(samples, spread, settings), samples, expected, true);
      settings.significance = expected.edge * (1.0 + 1e-6);
      expect_start(robust_start(samples, spread, settings), samples, expected, false);
      EXPECT_EQ(expected.taken[3], cloud.frames >= 10 ? 0 : 1);
    }
  }
}

// Frames that are lines: against a plane a bow scatters them all, against a quadratic one that is
// off bends it.
TEST(RobustStart, ChecksFramesAgainstTheSheetAboutWhichTheyScatterLess) {
  int by_quadratic = 0, by_plane = 0;
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    Samples samples = samples_of({300, 10, seed % 2 == 0 ? 0.0 : 1.0, 0.1, seed}, true);
    if (seed % 2 == 0) {  // errors that all points of a frame share, one of them large
      simulation::Random random(100 + seed);
      std::vector<double> offsets(10);
      for (double& offset : offsets) offset = 0.05 * random.gaussian();
      offsets[seed % 10] += 0.5;
      for (Sample& s : samples.points) s.x += offsets[static_cast<std::size_t>(s.frame)];
    }
    const Spread spread = spread_of(samples.points);
    const Taken all(10, 1);
    std::vector<double> scratch;
    FrameMedians medians[2];
    Taken taken[2];
    for (const int n : {0, 1}) {
      const auto fitted =
          improve(samples.points, all, *absolute_fit(samples.points, all, spread, n == 0 ? 3 : 6),
                  Weighting::kHuber);
      medians[n] = frame_medians(samples.points, residuals_against(samples.points, fitted->sheet),
                                 10, scratch);
      taken[n] = taken_frames(medians[n], fitted->scale, 5.0);
    }
    const int nearer = medians[1].spread < medians[0].spread ? 1 : 0;
    if (taken[0] != taken[1]) ++(nearer == 1 ? by_quadratic : by_plane);
    const auto start = robust_start(samples, spread, {});
    ASSERT_TRUE(start);
    EXPECT_EQ(start->taken, taken[nearer]) << seed;
  }
  EXPECT_GT(by_quadratic, 0);
  EXPECT_GT(by_plane, 0);
}

TEST(RobustStart, TakesThePlaneWhereFramesAreFewerThanFive) {
  const Samples samples = samples_of({600, 4, 5.0, 0.01, 5});
  RefinementSettings settings;
  settings.significance = 1e-9;
  expect_start(robust_start(samples, spread_of(samples.points), settings), samples,
               plain_start(samples, settings), false);
}

// Two lines in (y, z) fix a plane but no quadratic.
TEST(RobustStart, TakesThePlaneWhereThereIsNoQuadratic) {
  Samples samples = samples_of({400, 8, 5.0, 0.01, 6});
  for (Sample& s : samples.points) s.y = s.y > 0.0 ? 60.0 : -60.0;
  const auto start = robust_start(samples, spread_of(samples.points), {});
  ASSERT_TRUE(start);
  EXPECT_EQ(start->plane.terms, 3);
  EXPECT_TRUE(same_bits(start->residuals, residuals_against(samples.points, start->plane)));
}

TEST(RobustStart, IsNothingWhereThePointsFixNoPlane) {
  Samples samples = samples_of({100, 8, 0.0, 0.01, 7});
  for (Sample& s : samples.points) s.y = 40.0;
  EXPECT_FALSE(robust_start(samples, spread_of(samples.points), {}));
}

// Six frames on one line of depth, and two on another one that lie off to either side: what is left
// of the frames fixes no plane.
TEST(RobustStart, IsNothingWhereTheFramesThatAreTakenFixNoPlane) {
  simulation::Random random(8);
  Samples samples;
  for (int f = 0; f < 8; ++f) samples.frames.push_back(f);
  for (int n = 0; n < 320; ++n) {
    const int frame = n % 8;
    const double y = -100.0 + 5.0 * (n / 8);
    const double x = 118.0 + 0.01 * random.gaussian();
    const double off = frame == 6 ? 50.0 : frame == 7 ? -50.0 : 0.0;
    samples.points.push_back({x + off, y, frame < 6 ? 400.0 : 500.0, frame, 0, 0});
  }
  EXPECT_FALSE(robust_start(samples, spread_of(samples.points), {}));
}

}  // namespace
