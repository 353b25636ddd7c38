#include "factory/nominal_grid.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using kestrane::build_fan_dividers;
using kestrane::build_nominal_grid;

// Ten units in the last place of a tangent below 1: two ways to write an angle differ by that much.
constexpr double kAngleRounding = 1e-15;

double degrees(double value) { return value * 3.14159265358979323846 / 180.0; }

kestrane::_LASER_PLANE_GRIDS built_grids() {
  kestrane::_LASER_PLANE_GRIDS grids{};
  kestrane::NominalRays rays;
  build_nominal_grid(grids, rays);
  return grids;
}

kestrane::NominalRays built_rays() {
  kestrane::_LASER_PLANE_GRIDS grids{};
  kestrane::NominalRays rays;
  build_nominal_grid(grids, rays);
  return rays;
}

TEST(NominalGrid, RunsFrom150To1500InStepsOf27) {
  const auto grids = built_grids();
  EXPECT_EQ(grids.z_start, 150.0);
  EXPECT_EQ(grids.z_step, 27.0);
  EXPECT_EQ(grids.grid_z[0], 150.0);
  EXPECT_EQ(grids.grid_z[1], 177.0);
  EXPECT_EQ(grids.grid_z[50], 1500.0);
}

TEST(NominalGrid, DividesEachDepthEvenlyInY) {
  const auto grids = built_grids();
  volatile double half_fan = (60.0 * 3.14159265358979323846 / 180.0) * -0.5;
  for (int k = 0; k <= 50; ++k) {
    const double z = k * 27.0 + 150.0;
    const double w = std::tan(std::abs(half_fan)) * z;
    EXPECT_EQ(grids.grid_z[k], z);
    EXPECT_EQ(grids.grid_y_start[k], w * -1.0);
    EXPECT_EQ(grids.grid_y_step[k], (w + w) / 15);
  }
}

TEST(NominalGrid, LeavesTheHeadOfTheHostAlone) {
  kestrane::_LASER_PLANE_GRIDS grids{{1, 2, 3, 4}, {}, {}, {}, 0.0, 0.0};
  kestrane::NominalRays rays;
  build_nominal_grid(grids, rays);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(grids.grid_head[i], i + 1);
}

TEST(NominalGrid, HasSixteenRaysOfFiftyOnePositions) {
  const auto rays = built_rays();
  ASSERT_EQ(rays.size(), 16u);
  for (const auto& ray : rays) ASSERT_EQ(ray.size(), 51u);
}

TEST(NominalGrid, DividesTheFanEvenlyInAngle) {
  const auto rays = built_rays();
  for (std::size_t i = 0; i < 16; ++i) {
    const double slope = std::tan(degrees(4.0 * static_cast<double>(i) - 30.0));
    for (std::size_t k = 0; k < 51; ++k) {
      const double z = static_cast<double>(k) * 27.0 + 150.0;
      EXPECT_EQ(rays[i][k].z, z);
      EXPECT_NEAR(rays[i][k].y, slope * z, kAngleRounding * z);
    }
  }
}

TEST(NominalGrid, FollowsTheWrittenOrderOfOperations) {
  const auto rays = built_rays();
  volatile double degrees_of_fan = 60.0;
  const double fan = degrees_of_fan * 3.14159265358979323846 / 180.0;
  const double half = fan * -0.5;
  const double angle_step = fan / 15;
  for (int i = 0; i <= 15; ++i) {
    const double t = std::tan(i * angle_step + half);
    for (int k = 0; k <= 50; ++k) {
      const double z = k * 27.0 + 150.0;
      EXPECT_EQ(rays[static_cast<std::size_t>(i)][static_cast<std::size_t>(k)].y, t * z);
    }
  }
}

TEST(NominalGrid, KeepsRaysAndBoundsApartBetweenTheEdges) {
  const auto grids = built_grids();
  const auto rays = built_rays();
  EXPECT_NEAR(rays[1][0].y, std::tan(degrees(-26.0)) * 150.0, kAngleRounding * 150.0);
  const double bound = grids.grid_y_start[0] + grids.grid_y_step[0];
  EXPECT_GT(std::abs(rays[1][0].y - bound), 1.0);
}

TEST(NominalGrid, ReplacesTheRaysOfAnEarlierBuild) {
  kestrane::_LASER_PLANE_GRIDS grids{};
  kestrane::NominalRays rays(3);
  build_nominal_grid(grids, rays);
  build_nominal_grid(grids, rays);
  EXPECT_EQ(rays.size(), 16u);
}

TEST(FanDividers, StandEveryFourDegrees) {
  kestrane::FanDividers normals(2, Eigen::Vector3d::Ones());
  build_fan_dividers(normals);
  ASSERT_EQ(normals.size(), 16u);
  for (int i = 0; i < 16; ++i) {
    volatile double angle = i * 0.06981317007977318 - 0.5235987755982988;
    const auto& n = normals[static_cast<std::size_t>(i)];
    EXPECT_EQ(n.x(), 0.0);
    EXPECT_EQ(n.y(), 1.0);
    EXPECT_EQ(n.z(), -std::tan(angle));
    EXPECT_NEAR(n.z(), -std::tan(degrees(4.0 * i - 30.0)), kAngleRounding);
  }
}

}  // namespace
