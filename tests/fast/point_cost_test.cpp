#include "fast/point_cost.h"

#include "simulation/random.h"
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_solve.h"

namespace {

using namespace fast_support;
using kestrane::DIST_RESIDUAL_CHANGE_PLANE;
using simulation::Random;
using Jet = ceres::Jet<double, 6>;

// Derivatives against the three rotation and the three translation components.
struct Seeded {
  Jet rotation[3];
  Jet translation[3];

  Seeded(const double* r, const double* t) {
    for (int i = 0; i < 3; ++i) {
      rotation[i] = Jet(r[i], i);
      translation[i] = Jet(t[i], 3 + i);
    }
  }
};

constexpr double kZero[3] = {0, 0, 0};

class PlaneDistance : public testing::Test {
 protected:
  DIST_RESIDUAL_CHANGE_PLANE functor(double x, double y, double z, int plane = 0) {
    return {x, y, z, &table_, plane, 1.0};
  }

  double residual(const DIST_RESIDUAL_CHANGE_PLANE& cost, const double* r, const double* t) {
    double value = -1;
    EXPECT_TRUE(cost(r, t, &value));
    return value;
  }

  fast_scene::Standard standard_ = flat_standard(2);
  const kestrane::_LASER_PLANE_BLOCK_INFOS* table_ = &standard_.table();
};

TEST_F(PlaneDistance, IsTheDistanceToTheCellsPlane) {
  EXPECT_EQ(residual(functor(131, 0, 300), kZero, kZero), 3.0);
  EXPECT_EQ(residual(functor(120, 0, 300), kZero, kZero), 8.0);
  standard_.cell(1, 7, 5) = {{0.0, 0.0, -0.0078125}};  // z = 128
  EXPECT_EQ(residual(functor(5, 0, 300, 1), kZero, kZero), 172.0);
}

TEST_F(PlaneDistance, MovesThePlaneByTheTranslation) {
  const double shift[3] = {3, 50, -70};
  EXPECT_EQ(residual(functor(131, 0, 300), kZero, shift), 0.0);
}

TEST_F(PlaneDistance, TurnsThePlaneAboutTheOrigin) {
  const double half_turn_about_z[3] = {0, 0, 3.14159265358979323846};
  // cos and sin of a half turn are exact to one rounding.
  constexpr double kRounding = 1e-12;
  EXPECT_NEAR(residual(functor(-128, 0, 300), half_turn_about_z, kZero), 0.0, kRounding);
  EXPECT_NEAR(residual(functor(128, 0, 300), half_turn_about_z, kZero), 256.0, kRounding);
}

TEST_F(PlaneDistance, IsTenWithZeroDerivativesWithoutACell) {
  const DIST_RESIDUAL_CHANGE_PLANE cost = functor(128, 0, 2000);
  EXPECT_EQ(residual(cost, kZero, kZero), 10.0);
  const double r[3] = {0.1, 0.2, 0.3};
  const Seeded at(r, r);
  Jet value(0.0, 1);
  EXPECT_TRUE(cost(at.rotation, at.translation, &value));
  EXPECT_EQ(value.a, 10.0);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(value.v[i], 0.0);
}

TEST_F(PlaneDistance, KeepsTheCellOfTheMeasuredPosition) {
  standard_.fill(0, {{0, 0, 0}});
  standard_.cell(0, 7, 5) = kSheetAt128;
  const double far[3] = {0, 4000, 4000};
  EXPECT_EQ(residual(functor(130, 0, 300), kZero, far), 2.0);
}

TEST_F(PlaneDistance, TakesACellWithoutX) {
  standard_.cell(0, 7, 5) = {{0.0, 0.0, -0.00390625}};  // z = 256
  EXPECT_EQ(residual(functor(7, 0, 300), kZero, kZero), 44.0);
}

TEST_F(PlaneDistance, HasTheDerivativesOfTheDistanceAtZero) {
  // r = |n (p - t) - n p0 + (w x n) p|: here n = (-1, 0, 0), p on the far side.
  const DIST_RESIDUAL_CHANGE_PLANE cost = functor(130, 16, 300);
  const Seeded at(kZero, kZero);
  Jet value;
  EXPECT_TRUE(cost(at.rotation, at.translation, &value));
  EXPECT_EQ(value.a, 2.0);
  const double expected[6] = {0, -300, 16, -1, 0, 0};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(value.v[i], expected[i]) << i;
}

TEST_F(PlaneDistance, EqualsTheLiteralFormWithDoublesAndJets) {
  Random random(5);
  int cells = 0;
  for (int i = 0; i < 5000; ++i) {
    for (double& v : standard_.cell(0, 7, 5).v) v = random.gaussian();
    if (random.index(5) == 0) standard_.cell(0, 7, 5).v[0] = 0.0;
    const double z = random.uniform(280, 310);
    const double y = random.uniform(-12, 12);
    double r[3], t[3];
    const double size = std::pow(10.0, random.uniform(-12, 0.6));
    for (double& v : r) v = size * random.gaussian();
    for (double& v : t) v = random.gaussian();
    if (i % 50 == 0) r[0] = r[1] = r[2] = 0.0;
    const double x = random.uniform(-200, 200);
    const DIST_RESIDUAL_CHANGE_PLANE fast = functor(x, y, z);
    const literal::CellDistance plain{x, y, z, &table_, 0, 1.0};
    double value, expected;
    ASSERT_TRUE(fast(r, t, &value));
    ASSERT_TRUE(plain(r, t, &expected));
    ASSERT_TRUE(same_bits(value, expected));
    const Seeded at(r, t);
    Jet jet, jet_expected;
    ASSERT_TRUE(fast(at.rotation, at.translation, &jet));
    ASSERT_TRUE(plain(at.rotation, at.translation, &jet_expected));
    ASSERT_TRUE(same_bits(jet.a, jet_expected.a));
    for (int d = 0; d < 6; ++d) ASSERT_TRUE(same_bits(jet.v[d], jet_expected.v[d])) << d;
    cells += value == 10.0 ? 0 : 1;
  }
  EXPECT_GT(cells, 2000);
}

}  // namespace
