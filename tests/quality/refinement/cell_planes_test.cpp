#include "quality/refinement/cell_planes.h"

#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <array>
#include <cmath>
#include <vector>

#include "quality/refinement/normal_equations.h"
#include "records/fan.h"
#include "simulation/random.h"

namespace {

using namespace kestrane::quality::refinement;
using kestrane::_LASER_PLANE_GRIDS;

using Counts = std::array<std::int32_t, 16>;

_LASER_PLANE_GRIDS fan_grids() {
  _LASER_PLANE_GRIDS grids = {};
  kestrane::fill_grids(grids);
  return grids;
}

// A place of a block by shares of its rectangle.
Sample sample_in(const _LASER_PLANE_GRIDS& grids, int block, double across, double along) {
  const int line = block / 50, k = block % 50;
  return {0.0,
          grids.grid_y_start[k] + (line + across) * grids.grid_y_step[k],
          150.0 + 27.0 * k + 27.0 * along,
          0,
          0,
          static_cast<std::int16_t>(block)};
}

TEST(BlockPlane, IsTakenAboutItsMiddle) {
  const BlockPlane plane{10.0, 300.0, {5.0, 0.25, -0.5}};
  EXPECT_EQ(plane.at(10.0, 300.0), 5.0);
  EXPECT_EQ(plane.at(14.0, 300.0), 6.0);
  EXPECT_EQ(plane.at(10.0, 304.0), 3.0);
  EXPECT_EQ(plane.at(6.0, 298.0), 5.0 - 1.0 + 1.0);
}

TEST(PartCounts, CountEachSixteenthOfABlock) {
  const auto grids = fan_grids();
  const int blocks[] = {0, 50 * 7 + 20, 50 * 14 + 49, 50 * 3 + 1};
  std::vector<Sample> samples;
  std::vector<Counts> expected(750, Counts{});
  for (const int block : blocks) {
    for (int s = 0; s < 4; ++s) {
      for (int t = 0; t < 4; ++t) {
        for (int n = 0; n < 1 + 4 * s + t; ++n) {
          samples.push_back(sample_in(grids, block, 0.25 * s + 0.1, 0.25 * t + 0.15));
          ++expected[static_cast<std::size_t>(block)][static_cast<std::size_t>(4 * s + t)];
        }
      }
    }
  }
  EXPECT_EQ(part_counts(grids, samples, std::vector<std::uint8_t>(samples.size(), 1)), expected);
}

TEST(PartCounts, TakeWhatIsBesideABlockToItsNearestPart) {
  const auto grids = fan_grids();
  const std::vector<Sample> samples = {sample_in(grids, 0, -0.4, -0.3),
                                       sample_in(grids, 0, 1.3, 0.3),
                                       sample_in(grids, 0, 0.3, 1.4)};
  const auto counts = part_counts(grids, samples, {1, 1, 1});
  EXPECT_EQ(counts[0], (Counts{1, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0}));
}

TEST(PartCounts, LeaveOutWhatDoesNotCountOrHasNoBlock) {
  const auto grids = fan_grids();
  std::vector<Sample> samples(5, sample_in(grids, 60, 0.1, 0.1));
  samples[2].block = -1;
  const auto counts = part_counts(grids, samples, {1, 0, 1, 1, 0});
  int sum = 0;
  for (const Counts& block : counts)
    for (const std::int32_t n : block) sum += n;
  EXPECT_EQ(sum, 2);
  EXPECT_EQ(counts[60][0], 2);
}

// Weighted least squares over the middles of the 4 x 4 parts.
Eigen::Vector3d plane_over_parts(const FanNodes& nodes, const _LASER_PLANE_GRIDS& grids, int block,
                                 const Counts& counts, const std::vector<double>& values) {
  const int line = block / 50, k = block % 50;
  const double width = grids.grid_y_step[k];
  const double y0 = grids.grid_y_start[k] + line * width;
  const double z0 = 150.0 + 27.0 * k;
  double all = 0.0;
  for (const std::int32_t n : counts) all += n;
  Eigen::MatrixXd rows(16, 3);
  Eigen::VectorXd heights(16);
  for (int s = 0; s < 4; ++s) {
    for (int t = 0; t < 4; ++t) {
      const double y = y0 + (0.125 + 0.25 * s) * width;
      const double z = z0 + (0.125 + 0.25 * t) * 27.0;
      const double root =
          std::sqrt(counts[static_cast<std::size_t>(4 * s + t)] + std::max(0.25, 0.1 * all / 16.0));
      rows.row(4 * s + t) << root, root * (y - y0 - 0.5 * width), root * (z - z0 - 13.5);
      heights[4 * s + t] =
          root *
          surface_at(stencil_of(weights_across(nodes, y / z), weights_along(nodes, z)), values);
    }
  }
  return rows.colPivHouseholderQr().solve(heights);
}

TEST(BlockMap, GivesThePlaneThatFollowsTheSurfaceBest) {
  const FanNodes nodes = fan_nodes();
  const auto grids = fan_grids();
  simulation::Random random(2);
  std::vector<double> values(kNodes);
  for (double& value : values) value = random.uniform(-1.0, 1.0);
  Counts few = {};
  few[3] = 2;
  Counts many = {};
  for (std::int32_t& n : many) n = random.index(200);
  for (const int block : {0, 50 * 7 + 20, 50 * 14 + 49, 50 * 14, 49, 50 * 3 + 1}) {
    for (const Counts& counts : {Counts{}, few, many}) {
      const BlockPlane plane = BlockMap(nodes, grids, block, counts).plane_of(values);
      const Eigen::Vector3d expected = plane_over_parts(nodes, grids, block, counts, values);
      const int line = block / 50, k = block % 50;
      EXPECT_NEAR(plane.y0, grids.grid_y_start[k] + (line + 0.5) * grids.grid_y_step[k], 1e-10);
      EXPECT_EQ(plane.z0, 150.0 + 27.0 * k + 13.5);
      for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(plane.p[static_cast<std::size_t>(c)], expected[c], 1e-11) << block;
    }
  }
}

}  // namespace
