#include "quality/refinement/interpolation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

#include "quality/refinement/normal_equations.h"
#include "simulation/random.h"

namespace {

using namespace kestrane::quality::refinement;

// Values up to 1500^2 times a rounding, and the cancellation of 16 terms.
constexpr double kRelative = 1e-12;

using Function = std::function<double(double y, double z)>;

std::vector<double> at_nodes(const FanNodes& nodes, const Function& f) {
  std::vector<double> values(kNodes);
  for (int j = 0; j < kAlong; ++j) {
    for (int i = 0; i < kAcross; ++i) {
      const double z = nodes.z[static_cast<std::size_t>(j)];
      values[node_index(i, j)] = f(nodes.u[static_cast<std::size_t>(i)] * z, z);
    }
  }
  return values;
}

double surface(const FanNodes& nodes, const std::vector<double>& values, double u, double z) {
  return surface_at(stencil_of(weights_across(nodes, u), weights_along(nodes, z)), values);
}

TEST(FanNodes, StandOnTheNominalRaysAndDepths) {
  const FanNodes nodes = fan_nodes();
  EXPECT_NEAR(nodes.u[0], -std::tan(30.0 * M_PI / 180.0), 1e-15);
  EXPECT_NEAR(nodes.u[8], std::tan(2.0 * M_PI / 180.0), 1e-15);
  EXPECT_NEAR(nodes.u[15], std::tan(30.0 * M_PI / 180.0), 1e-15);
  EXPECT_EQ(nodes.z[0], 150.0);
  EXPECT_EQ(nodes.z[50], 1500.0);
}

TEST(Interval, HoldsItsLowerNodeAndClampsOutside) {
  const FanNodes nodes = fan_nodes();
  EXPECT_EQ(interval_across(nodes, nodes.u[3]), 3);
  EXPECT_EQ(interval_across(nodes, -1.0), 0);
  EXPECT_EQ(interval_across(nodes, 1.0), 14);
  EXPECT_EQ(interval_across(nodes, nodes.u[15]), 14);
  EXPECT_EQ(interval_along(177.0), 1);
  EXPECT_EQ(interval_along(120.0), 0);
  EXPECT_EQ(interval_along(1500.0), 49);
}

TEST(Weights, SumToOneEverywhere) {
  const FanNodes nodes = fan_nodes();
  simulation::Random random(1);
  for (int n = 0; n < 1000; ++n) {
    const Weights across = weights_across(nodes, random.uniform(-0.7, 0.7));
    const Weights along = weights_along(nodes, random.uniform(100.0, 1600.0));
    EXPECT_NEAR(across.w[0] + across.w[1] + across.w[2] + across.w[3], 1.0, kRelative);
    EXPECT_NEAR(along.w[0] + along.w[1] + along.w[2] + along.w[3], 1.0, kRelative);
  }
}

TEST(Surface, ReproducesQuadraticsInsideTheFan) {
  const FanNodes nodes = fan_nodes();
  const Function monomials[] = {
      [](double, double) { return 1.0; },     [](double y, double) { return y; },
      [](double, double z) { return z; },     [](double y, double) { return y * y; },
      [](double, double z) { return z * z; }, [](double y, double z) { return y * z; }};
  simulation::Random random(2);
  for (const Function& f : monomials) {
    const std::vector<double> values = at_nodes(nodes, f);
    for (int n = 0; n < 500; ++n) {
      const double z = random.uniform(150.0, 1500.0);
      const double u = random.uniform(nodes.u[0], nodes.u[15]);
      EXPECT_NEAR(surface(nodes, values, u, z), f(u * z, z), kRelative * 1500.0 * 1500.0);
    }
  }
}

TEST(Surface, TakesTheValuesOfItsNodes) {
  const FanNodes nodes = fan_nodes();
  simulation::Random random(3);
  std::vector<double> values(kNodes);
  for (double& value : values) value = random.uniform(-1.0, 1.0);
  for (int j = 0; j < kAlong; ++j)
    for (int i = 0; i < kAcross; ++i)
      EXPECT_NEAR(surface(nodes, values, nodes.u[static_cast<std::size_t>(i)],
                          nodes.z[static_cast<std::size_t>(j)]),
                  values[node_index(i, j)], 1e-14);
}

// Slopes from both sides of an inner node of either direction, by differences that are exact for
// cubics up to h^2.
TEST(Surface, HasContinuousSlopesAcrossItsCells) {
  const FanNodes nodes = fan_nodes();
  simulation::Random random(4);
  std::vector<double> values(kNodes);
  for (double& value : values) value = random.uniform(-1.0, 1.0);
  const auto slope = [](const std::function<double(double)>& f, double at, double h) {
    return (-1.5 * f(at) + 2.0 * f(at + h) - 0.5 * f(at + 2.0 * h)) / h;
  };
  for (int i = 1; i + 1 < kAcross; ++i) {
    const double u = nodes.u[static_cast<std::size_t>(i)];
    const auto f = [&](double at) { return surface(nodes, values, at, 700.0); };
    EXPECT_NEAR(slope(f, u, 1e-5), slope(f, u, -1e-5), 1e-4) << i;
  }
  for (int j = 1; j + 1 < kAlong; ++j) {
    const double z = nodes.z[static_cast<std::size_t>(j)];
    const auto f = [&](double at) { return surface(nodes, values, 0.1, at); };
    EXPECT_NEAR(slope(f, z, 1e-3), slope(f, z, -1e-3), 1e-6) << j;
  }
}

TEST(Surface, GoesOnStraightOutside) {
  const FanNodes nodes = fan_nodes();
  simulation::Random random(5);
  std::vector<double> values(kNodes);
  for (double& value : values) value = random.uniform(-1.0, 1.0);
  const auto at = [&](double u, double z) { return surface(nodes, values, u, z); };
  const double edge = nodes.u[15];
  EXPECT_NEAR(at(edge + 0.02, 400.0) - at(edge + 0.01, 400.0),
              at(edge + 0.01, 400.0) - at(edge, 400.0), 1e-12);
  EXPECT_NEAR(at(0.1, 130.0) - at(0.1, 140.0), at(0.1, 140.0) - at(0.1, 150.0), 1e-12);
  // And with the slope that it has at the edge.
  EXPECT_NEAR(at(0.1, 150.0) - at(0.1, 149.0), (at(0.1, 150.0 + 1e-4) - at(0.1, 150.0)) / 1e-4,
              1e-5);
}

}  // namespace
