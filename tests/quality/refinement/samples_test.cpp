#include "quality/refinement/samples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "tests/support/bits.h"

namespace {

using namespace kestrane::quality::refinement;
using kestrane::quality::PointList;
using kestrane::quality::RefinementSettings;
using kestrane_test::kInf;
using kestrane_test::kNaN;

Samples usable(PointList points, const RefinementSettings& settings = {}) {
  return usable_samples(fan_nodes(), {points.data(), static_cast<std::int32_t>(points.size())},
                        settings);
}

double tangent(double degrees) { return std::tan(degrees * M_PI / 180.0); }

TEST(UsableSamples, AreFinite) {
  const Samples samples = usable({{kNaN, 0.0, 300.0, 0},
                                  {kInf, 0.0, 300.0, 0},
                                  {1.0, kNaN, 300.0, 0},
                                  {1.0, -kInf, 300.0, 0},
                                  {1.0, 0.0, kNaN, 0},
                                  {1.0, 0.0, kInf, 0},
                                  {1.0, 0.0, 300.0, 0}});
  EXPECT_EQ(samples.not_finite, 6);
  EXPECT_EQ(samples.outside, 0);
  EXPECT_EQ(samples.points.size(), 1U);
}

// 0.02 beyond the tangent of 30 degrees, and depths that are both taken.
TEST(UsableSamples, LieInTheFanAndBetweenTheDepths) {
  const double most = tangent(30.0) + 0.02;
  RefinementSettings settings;
  settings.depth_near = 200.0;
  settings.depth_far = 900.0;
  const Samples samples = usable({{1.0, 0.0, 200.0, 0},
                                  {1.0, 0.0, 900.0, 0},
                                  {1.0, 0.0, std::nextafter(200.0, 0.0), 0},
                                  {1.0, 0.0, std::nextafter(900.0, 1e3), 0},
                                  {1.0, 0.999999 * most * 500.0, 500.0, 0},
                                  {1.0, -0.999999 * most * 500.0, 500.0, 0},
                                  {1.0, 1.000001 * most * 500.0, 500.0, 0},
                                  {1.0, -1.000001 * most * 500.0, 500.0, 0}},
                                 settings);
  EXPECT_EQ(samples.points.size(), 4U);
  EXPECT_EQ(samples.outside, 4);
  EXPECT_EQ(samples.not_finite, 0);
}

Sample sample_at(double degrees, double z) {
  const Samples samples = usable({{1.0, tangent(degrees) * z, z, 0}});
  EXPECT_EQ(samples.points.size(), 1U);
  return samples.points.empty() ? Sample{} : samples.points.front();
}

TEST(UsableSamples, KnowTheCellOfTheNodesThatTheyLieIn) {
  EXPECT_EQ(sample_at(-29.0, 151.0).cell, 0);
  EXPECT_EQ(sample_at(29.0, 151.0).cell, 14);
  EXPECT_EQ(sample_at(-25.0, 178.0).cell, 15 + 1);
  EXPECT_EQ(sample_at(1.0, 160.0 + 27.0 * 20).cell, 15 * 20 + 7);
  EXPECT_EQ(sample_at(30.5, 1499.0).cell, 15 * 49 + 14);
  EXPECT_EQ(sample_at(-30.5, 130.0).cell, 0);
}

// Blocks divide the width at the depth where they begin into fifteen.
TEST(UsableSamples, KnowTheBlockOfTheTableThatTheyLieIn) {
  const auto at_share = [](double share, double z, int cell) {
    const double edge = tangent(30.0) * (150.0 + 27.0 * cell);
    return usable({{1.0, -edge + share * 2.0 * edge / 15.0, z, 0}}).points.at(0).block;
  };
  EXPECT_EQ(at_share(0.5, 160.0, 0), 0);
  EXPECT_EQ(at_share(14.5, 160.0, 0), 50 * 14);
  EXPECT_EQ(at_share(7.5, 700.0, 20), 50 * 7 + 20);
  EXPECT_EQ(at_share(14.5, 1490.0, 49), 50 * 14 + 49);
  EXPECT_EQ(at_share(-0.2, 700.0, 20), 20);   // toward zero
  EXPECT_EQ(at_share(15.01, 700.0, 20), -1);  // beyond the last block
  EXPECT_EQ(at_share(7.5, 130.0, 0), 50 * 7);
  EXPECT_EQ(at_share(7.5, 1500.0, 49), -1);
  EXPECT_EQ(at_share(-0.9, 176.0, 0), 0);
  EXPECT_EQ(at_share(-1.1, 176.0, 0), -1);  // as far from the first one
  EXPECT_EQ(at_share(7.5, std::nextafter(123.0, 150.0), 0), 50 * 7);
  EXPECT_EQ(at_share(7.5, 123.0, 0), -1);
}

TEST(UsableSamples, StandInOneOrderAndByTheirFramesRank) {
  const PointList points = {{2.0, 10.0, 300.0, 70}, {1.0, 10.0, 300.0, -5}, {1.0, 10.0, 300.0, -9},
                            {1.0, 9.0, 300.0, 70},  {1.0, 10.0, 299.0, 8},  {1.0, -90.0, 300.0, 8},
                            {1.0, 10.0, 200.0, -5}};
  const auto expect_order = [](const Samples& samples) {
    ASSERT_EQ(samples.points.size(), 7U);
    EXPECT_EQ(samples.frames, (std::vector<std::int32_t>{-9, -5, 8, 70}));
    const double expected[7][4] = {
        {1.0, 10.0, 200.0, 1}, {1.0, -90.0, 300.0, 2}, {1.0, 10.0, 299.0, 2}, {1.0, 9.0, 300.0, 3},
        {1.0, 10.0, 300.0, 0}, {1.0, 10.0, 300.0, 1},  {2.0, 10.0, 300.0, 3}};
    for (std::size_t n = 0; n < 7; ++n) {
      const Sample& s = samples.points[n];
      EXPECT_EQ(s.x, expected[n][0]) << n;
      EXPECT_EQ(s.y, expected[n][1]) << n;
      EXPECT_EQ(s.z, expected[n][2]) << n;
      EXPECT_EQ(s.frame, static_cast<std::int32_t>(expected[n][3])) << n;
    }
  };
  expect_order(usable(points));
  expect_order(usable({points.rbegin(), points.rend()}));
}

TEST(UsableSamples, AreFramesOfTheirOwnWhereAsked) {
  RefinementSettings settings;
  settings.frames = false;
  const Samples samples =
      usable({{1.0, 10.0, 800.0, 5}, {1.0, 10.0, 200.0, 5}, {1.0, 10.0, 500.0, 5}}, settings);
  EXPECT_EQ(samples.frames, (std::vector<std::int32_t>{0, 1, 2}));
  for (std::size_t n = 0; n < 3; ++n)
    EXPECT_EQ(samples.points[n].frame, static_cast<std::int32_t>(n));
}

TEST(Stencils, AreTheWeightsOfTheSamplesPlaces) {
  const FanNodes nodes = fan_nodes();
  const Samples samples = usable({{1.0, 10.0, 800.0, 5}, {1.0, -90.0, 200.0, 5}});
  const auto stencils = stencils_of(nodes, samples.points);
  ASSERT_EQ(stencils.size(), 2U);
  for (std::size_t n = 0; n < 2; ++n) {
    const Sample& s = samples.points[n];
    const Weights across = weights_across(nodes, s.y / s.z);
    const Weights along = weights_along(nodes, s.z);
    EXPECT_EQ(stencils[n].first_across, across.first);
    EXPECT_EQ(stencils[n].first_along, along.first);
    EXPECT_TRUE(kestrane_test::same_bits(stencils[n].across, across.w));
    EXPECT_TRUE(kestrane_test::same_bits(stencils[n].along, along.w));
  }
}

}  // namespace
