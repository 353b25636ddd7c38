#include "quality/refinement/continuation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "simulation/random.h"

namespace {

using namespace kestrane::quality::refinement;

constexpr ActiveNodes kPart{4, 5, 20, 6};  // rays 4 to 8, depths 20 to 25

// The straight line through (x0, f0) and (x1, f1) at x.
double straight(double x0, double f0, double x1, double f1, double x) {
  return f0 + (f1 - f0) * (x - x0) / (x1 - x0);
}

// Along a ray beyond its last two active nodes.
double on_ray(const FanNodes& nodes, const std::vector<double>& values, int i, int j) {
  const auto at = [&](int k) { return values[static_cast<std::size_t>(kPart.number(i, k))]; };
  const auto& z = nodes.z;
  const double here = z[static_cast<std::size_t>(j)];
  if (j < 20) return straight(z[20], at(20), z[21], at(21), here);
  if (j > 25) return straight(z[25], at(25), z[24], at(24), here);
  return at(j);
}

double on_fan(const FanNodes& nodes, const std::vector<double>& values, int i, int j) {
  const auto at = [&](int k) { return on_ray(nodes, values, k, j); };
  const auto& u = nodes.u;
  const double here = u[static_cast<std::size_t>(i)];
  if (i < 4) return straight(u[4], at(4), u[5], at(5), here);
  if (i > 8) return straight(u[8], at(8), u[7], at(7), here);
  return at(i);
}

TEST(Continuation, GoesStraightOnAlongTheRaysAndThenAcross) {
  const FanNodes nodes = fan_nodes();
  const Continuation continuation(nodes, kPart);
  simulation::Random random(1);
  std::vector<double> values(static_cast<std::size_t>(kPart.count()));
  for (double& value : values) value = random.uniform(-1.0, 1.0);
  std::vector<double> all = {7.0};  // any content
  continuation.apply(values, all);
  ASSERT_EQ(all.size(), static_cast<std::size_t>(kNodes));
  for (int j = 0; j < kAlong; ++j)
    for (int i = 0; i < kAcross; ++i)
      EXPECT_NEAR(all[node_index(i, j)], on_fan(nodes, values, i, j), 1e-10) << i << ", " << j;
}

TEST(Continuation, TakesOneTwoOrFourActiveNodes) {
  const FanNodes nodes = fan_nodes();
  const Continuation continuation(nodes, kPart);
  for (int j = 0; j < kAlong; ++j) {
    for (int i = 0; i < kAcross; ++i) {
      const Combination& sum = continuation.at(i, j);
      const bool active_ray = i >= 4 && i <= 8;
      const bool active_depth = j >= 20 && j <= 25;
      EXPECT_EQ(sum.count, (active_ray ? 1 : 2) * (active_depth ? 1 : 2)) << i << ", " << j;
      if (!active_ray || !active_depth) continue;
      EXPECT_EQ(sum.number[0], kPart.number(i, j));
      EXPECT_EQ(sum.factor[0], 1.0);
    }
  }
}

// Along the ray, and then across at the depth.
TEST(Continuation, MeasuresTheWayFromTheActiveNodes) {
  const FanNodes nodes = fan_nodes();
  const Continuation continuation(nodes, kPart);
  const auto distance = [&](int i, int j) { return continuation.at(i, j).distance; };
  const auto& u = nodes.u;
  EXPECT_EQ(distance(4, 20), 0.0);
  EXPECT_EQ(distance(8, 25), 0.0);
  EXPECT_NEAR(distance(5, 27), 54.0 * std::hypot(1.0, u[5]), 1e-10);
  EXPECT_NEAR(distance(5, 17), 81.0 * std::hypot(1.0, u[5]), 1e-10);
  EXPECT_NEAR(distance(11, 22), (u[11] - u[8]) * (150.0 + 27.0 * 22), 1e-10);
  EXPECT_NEAR(distance(0, 22), (u[4] - u[0]) * (150.0 + 27.0 * 22), 1e-10);
  EXPECT_NEAR(distance(0, 27), 54.0 * std::hypot(1.0, u[4]) + (u[4] - u[0]) * (150.0 + 27.0 * 27),
              1e-10);
}

}  // namespace
