#include "fast/motion_cost.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <new>

#include "simulation/random.h"
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_solve.h"

namespace {

using namespace fast_support;
using kestrane::MotionCost;
using kestrane::SumOfLosses;
using simulation::Random;
using Vector6 = Eigen::Matrix<double, 6, 1>;
using Matrix6 = Eigen::Matrix<double, 6, 6>;

// What the solver reads of a problem at one motion.
struct Seen {
  bool evaluated = false;
  double cost = 0.0;
  Vector6 gradient = Vector6::Zero();  // J' r
  Matrix6 squares = Matrix6::Zero();   // J' J
};

Seen seen_of(ceres::Problem& problem) {
  Seen seen;
  std::vector<double> residuals;
  std::vector<double> gradient;
  ceres::CRSMatrix jacobian;
  seen.evaluated = problem.Evaluate({}, &seen.cost, &residuals, &gradient, &jacobian);
  if (!seen.evaluated) return seen;
  for (int i = 0; i < 6; ++i) seen.gradient[i] = gradient[static_cast<std::size_t>(i)];
  for (std::size_t r = 0; r + 1 < jacobian.rows.size(); ++r) {
    Vector6 row = Vector6::Zero();
    for (int e = jacobian.rows[r]; e < jacobian.rows[r + 1]; ++e) {
      row[jacobian.cols[static_cast<std::size_t>(e)]] =
          jacobian.values[static_cast<std::size_t>(e)];
    }
    seen.squares += row * row.transpose();
  }
  return seen;
}

Seen seen_in_one_block(const PointSets& points, const fast_scene::Standard& standard,
                       Vector6 motion) {
  MotionCost cost(points, standard.table(), 0);
  SumOfLosses loss(cost);
  ceres::Problem::Options options;
  options.cost_function_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
  options.loss_function_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
  ceres::Problem problem(options);
  problem.AddResidualBlock(&cost, &loss, motion.data(), motion.data() + 3);
  return seen_of(problem);
}

Seen seen_block_by_block(const PointSets& points, const fast_scene::Standard& standard,
                         Vector6 motion) {
  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &standard.table();
  ceres::Problem problem;
  auto* loss = new ceres::CauchyLoss(0.1);
  for (std::size_t i = 0; i < points.size(); ++i) {
    for (Eigen::Index j = 0; j < points[i].cols(); j += 2) {
      problem.AddResidualBlock(
          new ceres::AutoDiffCostFunction<literal::CellDistance, 1, 3, 3>(
              new literal::CellDistance{points[i](0, j), points[i](1, j), points[i](2, j), &table,
                                        static_cast<std::int32_t>(i), 1.0}),
          loss, motion.data(), motion.data() + 3);
    }
  }
  return seen_of(problem);
}

// A table of planes that lean in all directions through each cell's middle, with empty cells.
fast_scene::Standard leaning_standard(std::uint64_t seed, int planes) {
  Random random(seed);
  fast_scene::Standard standard(planes);
  for (int p = 0; p < planes; ++p) {
    const double a = random.gaussian(), b = 0.5 * random.gaussian(), c = 0.5 * random.gaussian();
    for (int j = 0; j < 15; ++j) {
      for (int k = 0; k < 50; ++k) {
        const double d = a * 100 + c * depth_of(k);
        standard.cell(p, j, k) = {{-a / d, -b / d, -c / d}};
        if (random.index(30) == 0) standard.cell(p, j, k) = {{0, 0, 0}};
      }
    }
  }
  return standard;
}

PointSets scattered_points(std::uint64_t seed, int planes, int most, double noise) {
  Random random(seed);
  PointSets sets;
  for (int p = 0; p < planes; ++p) {
    PlanePoints set(3, random.index(most));
    for (Eigen::Index j = 0; j < set.cols(); ++j) {
      const double z = random.uniform(140, 900);
      set.col(j) << 100 + noise * random.gaussian(), random.uniform(-0.7, 0.7) * z, z;
    }
    sets.push_back(set);
  }
  return sets;
}

void expect_close(const Seen& actual, const Seen& expected, double rounding) {
  ASSERT_TRUE(actual.evaluated);
  ASSERT_TRUE(expected.evaluated);
  EXPECT_NEAR(actual.cost, expected.cost, rounding * expected.cost);
  for (int i = 0; i < 6; ++i) {
    // What cancels in a sum leaves the rounding of its parts: of J' r at most the root of both
    // sides' squares, and the cost is below the squares of the residuals that it weighs.
    const double pull = std::sqrt(expected.squares(i, i) * 2.0 * expected.cost);
    EXPECT_NEAR(actual.gradient[i], expected.gradient[i], rounding * pull) << i;
    for (int j = 0; j < 6; ++j) {
      const double size = std::sqrt(expected.squares(i, i) * expected.squares(j, j));
      EXPECT_NEAR(actual.squares(i, j), expected.squares(i, j), rounding * size) << i << j;
    }
  }
}

TEST(MotionCost, HasTheProductsAndTheCostOfOneBlockPerPoint) {
  constexpr double kRounding = 1e-11;
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    Random random(seed);
    const fast_scene::Standard standard = leaning_standard(seed, 5);
    const PointSets points =
        scattered_points(seed, 5, seed % 4 == 0 ? 8 : 900, std::pow(10.0, random.uniform(-2, 2)));
    Vector6 motion = Vector6::Zero();
    const double turn = std::pow(10.0, random.uniform(-4, 0.4));
    if (seed % 5 != 0) {
      for (int i = 0; i < 3; ++i) motion[i] = turn * random.gaussian();
      for (int i = 3; i < 6; ++i) motion[i] = random.gaussian();
    }
    SCOPED_TRACE(seed);
    expect_close(seen_in_one_block(points, standard, motion),
                 seen_block_by_block(points, standard, motion), kRounding);
  }
}

// The solver's rotation is linear below an angle of 1.5e-8, and the derivative follows it as far
// as such an angle shows.
TEST(MotionCost, FollowsTheRotationThroughItsSmallestAngles) {
  constexpr double kSmallAngle = 1e-7;
  const fast_scene::Standard standard = leaning_standard(3, 4);
  const PointSets points = scattered_points(3, 4, 500, 1.0);
  for (const double angle : {1e-12, 1e-9, 1.4e-8, 1.6e-8, 1e-7, 9e-6, 1.1e-5}) {
    Vector6 motion = Vector6::Zero();
    motion.head<3>() = Eigen::Vector3d(0.6, 0.48, 0.64) * angle;
    SCOPED_TRACE(angle);
    expect_close(seen_in_one_block(points, standard, motion),
                 seen_block_by_block(points, standard, motion), kSmallAngle);
  }
}

double half_rho(double distance) { return 0.5 * 0.01 * std::log(1.0 + distance * distance / 0.01); }

double cost_at_zero(const PointSets& points, const fast_scene::Standard& standard) {
  return seen_in_one_block(points, standard, Vector6::Zero()).cost;
}

constexpr double kRounding = 1e-13;

TEST(MotionCost, TakesEverySecondPointAndTheFirst) {
  const fast_scene::Standard standard = flat_standard(2);
  const PointSets points = {columns({{129, 0, 300}, {999, 0, 300}, {131, 0, 300}, {999, 0, 300}}),
                            columns({{127, 0, 300}})};
  const double expected = 2 * half_rho(1) + half_rho(3);
  EXPECT_NEAR(cost_at_zero(points, standard), expected, kRounding);
}

TEST(MotionCost, TakesTheTableOfTheFirstPlaneForTheFirstMatrix) {
  fast_scene::Standard standard = flat_standard(2);
  standard.fill(1, {{-0.00390625, 0, 0}});  // x = 256
  const MotionCost second({columns({{258, 0, 300}})}, standard.table(), 1);
  const double zeros[3] = {0, 0, 0};
  const double* at[2] = {zeros, zeros};
  double residuals[7];
  ASSERT_TRUE(second.Evaluate(at, residuals, nullptr));
  EXPECT_NEAR(0.5 * second.sum_of_losses(), half_rho(2), kRounding);
}

TEST(MotionCost, CountsAPointWithoutACellAsTenAway) {
  fast_scene::Standard standard = flat_standard(1);
  standard.cell(0, 7, 8) = {{0, 0, 0}};
  const PlanePoints outside = columns({{128, 0, 2000}});
  const PlanePoints in_an_empty_cell = columns({{128, 0, 380}});
  const PlanePoints nowhere = columns({{128, 0, kNaN}});
  for (const PlanePoints& lost : {outside, in_an_empty_cell, nowhere}) {
    EXPECT_NEAR(cost_at_zero({lost}, standard), half_rho(10), kRounding);
    const Seen seen = seen_in_one_block({lost}, standard, Vector6::Ones());
    EXPECT_EQ(seen.gradient, Vector6::Zero());
    EXPECT_EQ(seen.squares, Matrix6::Zero());
  }
  std::vector<Eigen::Vector3d> around;  // every second one counts
  for (int cells = 1; cells <= 60; ++cells) {
    for (const double y : {-1900.0, -190.0, 0.0, 190.0, 1900.0}) {
      around.insert(around.end(), 2, Eigen::Vector3d(128.0, y, 150.0 - 27.0 * (cells + 0.5)));
      around.insert(around.end(), 2, Eigen::Vector3d(128.0, y, 1500.0 + 27.0 * (cells - 0.5)));
    }
  }
  const auto lost = static_cast<double>(around.size() / 2);
  EXPECT_NEAR(cost_at_zero({columns(around)}, flat_standard(1)), lost * half_rho(10),
              lost * kRounding)
      << "nearer than the fan and farther";
  const PointSets both = {columns({{129, 0, 300}}), outside, columns({{131, 0, 300}})};
  EXPECT_NEAR(cost_at_zero(both, flat_standard(3)), half_rho(1) + half_rho(10) + half_rho(3),
              kRounding);
}

// Sixteen terms of 1e20 and more leave the range of doubles.
TEST(MotionCost, TakesLogarithmsOneByOneWhereTheirProductOverflows) {
  const fast_scene::Standard standard = flat_standard(1);
  for (const double away : {1e8, 1e30, 1e150}) {
    PlanePoints points(3, 600);
    for (Eigen::Index j = 0; j < points.cols(); ++j) points.col(j) << 128 + away, 0, 300;
    const double expected = 300 * half_rho(128 + away - 128);
    EXPECT_NEAR(cost_at_zero({points}, standard), expected, kRounding * expected) << away;
  }
}

// Sixteen products run side by side over a chunk of points, and one logarithm is taken of each.
TEST(MotionCost, TakesOneLogarithmForEachSixteenthTerm) {
  constexpr double kWidth = kestrane::kLossScale * kestrane::kLossScale;
  const fast_scene::Standard standard = flat_standard(1);
  Random random(16);
  for (int run = 0; run < 20; ++run) {
    PlanePoints points(3, 2 * 40);
    double products[16];
    std::fill(std::begin(products), std::end(products), 1.0);
    for (int i = 0; i < 40; ++i) {
      const double x = 128.0 + random.gaussian();
      points.col(2 * i) << x, 0, 300;
      points.col(2 * i + 1) << kNaN, kNaN, kNaN;  // takes no part
      products[i % 16] *= 1.0 + (128.0 - x) * (128.0 - x) * (1.0 / kWidth);
    }
    double logs = 0.0;
    for (const double product : products) logs += std::log(product);
    const MotionCost cost({points}, standard.table(), 0);
    const double zeros[3] = {0, 0, 0};
    const double* at[2] = {zeros, zeros};
    double residuals[7];
    ASSERT_TRUE(cost.Evaluate(at, residuals, nullptr));
    EXPECT_TRUE(same_bits(cost.sum_of_losses(), kWidth * logs)) << run;
  }
}

bool evaluates(const PointSets& points, const fast_scene::Standard& standard, double shift = 0) {
  const MotionCost cost(points, standard.table(), 0);
  const double rotation[3] = {0, 0, 0};
  const double translation[3] = {shift, 0, 0};
  const double* at[2] = {rotation, translation};
  double residuals[7];
  return cost.Evaluate(at, residuals, nullptr);
}

TEST(MotionCost, FailsWhereADistanceIsNotFinite) {
  const fast_scene::Standard standard = flat_standard(1);
  for (const double x : {kNaN, kInf, -kInf}) {
    PlanePoints points(3, 900);
    for (Eigen::Index j = 0; j < points.cols(); ++j) points.col(j) << 128, 0, 300;
    points(0, 802) = x;
    EXPECT_FALSE(evaluates({points}, standard)) << x;
    points(0, 802) = 128;
    points(0, 803) = x;  // takes no part
    EXPECT_TRUE(evaluates({points}, standard)) << x;
  }
  EXPECT_FALSE(evaluates({columns({{128, 0, 300}})}, standard, kNaN));
  fast_scene::Standard bad_cell = flat_standard(1);
  bad_cell.cell(0, 7, 5) = {{kNaN, 0.5, 0.25}};
  EXPECT_FALSE(evaluates({columns({{128, 0, 300}})}, bad_cell));
}

TEST(MotionCost, WritesNothingWhereItFails) {
  const fast_scene::Standard standard = flat_standard(1);
  const MotionCost cost({columns({{kNaN, 0, 300}})}, standard.table(), 0);
  constexpr double kUnset = -7;
  const double zeros[3] = {0, 0, 0};
  const double* at[2] = {zeros, zeros};
  double residuals[7], by_rotation[21];
  double* jacobians[2] = {by_rotation, nullptr};
  std::fill(std::begin(residuals), std::end(residuals), kUnset);
  std::fill(std::begin(by_rotation), std::end(by_rotation), kUnset);
  EXPECT_FALSE(cost.Evaluate(at, residuals, nullptr));
  EXPECT_FALSE(cost.Evaluate(at, residuals, jacobians));
  for (const double residual : residuals) EXPECT_EQ(residual, kUnset);
  for (const double derivative : by_rotation) EXPECT_EQ(derivative, kUnset);
}

// As the sum over single blocks: the distances are numbers, their squares are too large.
TEST(MotionCost, HasAnInfiniteCostWhereOnlySquaresOverflow) {
  const fast_scene::Standard standard = flat_standard(1);
  const PointSets points = {columns({{1e200, 0, 300}})};
  const MotionCost cost(points, standard.table(), 0);
  const double zeros[3] = {0, 0, 0};
  const double* at[2] = {zeros, zeros};
  double residuals[7];
  EXPECT_TRUE(cost.Evaluate(at, residuals, nullptr));
  EXPECT_EQ(cost.sum_of_losses(), kInf);
  EXPECT_FALSE(cost.pulls_every_way());
}

// The planes of the cells of line 7 one after another, from depth 150 on.
fast_scene::Standard standard_of(const std::vector<kestrane::_LASER_TRIPLE>& cells) {
  fast_scene::Standard standard = flat_standard(1);
  int k = 0;
  for (const kestrane::_LASER_TRIPLE& cell : cells) standard.cell(0, 7, k++) = cell;
  return standard;
}

// A point of each given x, in the cell of that number; every second column counts.
PlanePoints in_cells(const std::vector<double>& x) {
  PlanePoints points = PlanePoints::Zero(3, 2 * static_cast<Eigen::Index>(x.size()));
  for (std::size_t i = 0; i < x.size(); ++i) {
    points.col(2 * static_cast<Eigen::Index>(i)) << x[i], 0.0,
        163.5 + 27.0 * static_cast<double>(i);
  }
  return points;
}

bool evaluates_at(const PlanePoints& points, const fast_scene::Standard& standard,
                  const Eigen::Vector3d& translation) {
  const MotionCost cost({points}, standard.table(), 0);
  const double rotation[3] = {0, 0, 0};
  const double* at[2] = {rotation, translation.data()};
  double residuals[7];
  const bool evaluated = cost.Evaluate(at, residuals, nullptr);
  if (evaluated) {
    EXPECT_EQ(cost.sum_of_losses(), kInf);
  }
  return evaluated;
}

// Once the cost is infinite each distance is looked at, with the plane of its own cell. Here all of
// them are numbers, though parts that stand beside each other in them are near the end of the
// range.
TEST(MotionCost, LooksAtEachDistanceWhereTheCostIsInfinite) {
  constexpr double kHuge = 1.6e308;
  EXPECT_TRUE(
      evaluates_at(in_cells({kHuge, 0}), standard_of({kSheetAt128, kSheetAt128}), {kHuge, 0, 0}))
      << "a point that has moved as far as its plane";
  EXPECT_TRUE(evaluates_at(in_cells({0.1 * kHuge}), standard_of({{{-1e-4, 0, -0.01}}}), {0, 0, 0}))
      << "a plane that leans by little";
  const kestrane::_LASER_TRIPLE x_and_y = {{-0.006, -0.008, 0}};
  const kestrane::_LASER_TRIPLE x_against_y = {{-0.006, 0.008, 0}};
  const kestrane::_LASER_TRIPLE x_and_z = {{-0.006, 0, -0.008}};
  EXPECT_TRUE(evaluates_at(in_cells({0}), standard_of({x_and_y}), {kHuge, -0.7 * kHuge, 0}));
  EXPECT_TRUE(evaluates_at(in_cells({0}), standard_of({x_and_z}), {kHuge, 0, -0.7 * kHuge}));
  EXPECT_TRUE(evaluates_at(in_cells({0, 0, -kHuge}),
                           standard_of({kSheetAt128, x_and_y, x_against_y}), {0, kHuge, 0}))
      << "the planes of single cells";
  EXPECT_FALSE(evaluates_at(in_cells({0, -kHuge, 0}),
                            standard_of({kSheetAt128, x_and_y, x_against_y}), {0, kHuge, 0}));
  EXPECT_FALSE(
      evaluates_at(in_cells({0, 0}), standard_of({kSheetAt128, {{kNaN, 0.5, 0.25}}}), {0, 0, 0}))
      << "the second cell's plane";
}

// The distances are numbers, but what no motion explains of them is too large to be squared, even
// times the root of the loss's slope.
TEST(MotionCost, FailsWhereTheTriangleIsNotFinite) {
  const fast_scene::Standard standard = flat_standard(1);
  const MotionCost cost({in_cells({1.7e308, -1.7e308, 1.7e308})}, standard.table(), 0);
  const double zeros[3] = {0, 0, 0};
  const double* at[2] = {zeros, zeros};
  double residuals[7], by_rotation[21], by_translation[21];
  double* jacobians[2] = {by_rotation, by_translation};
  EXPECT_FALSE(cost.Evaluate(at, residuals, jacobians));
  EXPECT_TRUE(cost.Evaluate(at, residuals, nullptr));
}

// No motion is taken for the one that was seen last before there was any.
TEST(MotionCost, MovesItsCellsForTheFirstMotionWhateverStoodInItsMemory) {
  alignas(MotionCost) static std::byte zeroed[sizeof(MotionCost)];
  const fast_scene::Standard standard = flat_standard(1);
  auto* const cost =
      new (static_cast<void*>(zeroed)) MotionCost({columns({{131, 0, 300}})}, standard.table(), 0);
  const double zeros[3] = {0, 0, 0};
  const double* at[2] = {zeros, zeros};
  double residuals[7];
  EXPECT_TRUE(cost->Evaluate(at, residuals, nullptr));
  EXPECT_NEAR(0.5 * cost->sum_of_losses(), half_rho(3), kRounding);
  cost->~MotionCost();
}

TEST(MotionCost, HasTheSameCostWithAndWithoutDerivatives) {
  const fast_scene::Standard standard = leaning_standard(8, 4);
  const PointSets points = scattered_points(8, 4, 900, 1.0);
  const MotionCost alone(points, standard.table(), 0), with(points, standard.table(), 0);
  Random random(8);
  for (int i = 0; i < 20; ++i) {
    double rotation[3], translation[3], residuals[7], by_rotation[21], by_translation[21];
    for (double& v : rotation) v = 0.01 * random.gaussian();
    for (double& v : translation) v = random.gaussian();
    const double* at[2] = {rotation, translation};
    double* jacobians[2] = {by_rotation, by_translation};
    ASSERT_TRUE(alone.Evaluate(at, residuals, nullptr));
    ASSERT_TRUE(with.Evaluate(at, residuals, jacobians));
    EXPECT_EQ(alone.sum_of_losses(), with.sum_of_losses());
    ASSERT_TRUE(alone.Evaluate(at, residuals, jacobians)) << "derivatives after the cost";
    EXPECT_EQ(alone.sum_of_losses(), with.sum_of_losses());
  }
}

TEST(MotionCost, WritesOnlyTheDerivativesThatAreAskedFor) {
  const fast_scene::Standard standard = leaning_standard(9, 4);
  const MotionCost cost(scattered_points(9, 4, 300, 1.0), standard.table(), 0);
  const double rotation[3] = {0.1, 0.2, 0.3}, translation[3] = {1, 2, 3};
  const double* at[2] = {rotation, translation};
  double residuals[7], by_rotation[21], by_translation[21], alone[21];
  double* both[2] = {by_rotation, by_translation};
  ASSERT_TRUE(cost.Evaluate(at, residuals, both));
  double* first[2] = {alone, nullptr};
  ASSERT_TRUE(cost.Evaluate(at, residuals, first));
  for (int i = 0; i < 21; ++i) EXPECT_EQ(alone[i], by_rotation[i]);
  double* second[2] = {nullptr, alone};
  ASSERT_TRUE(cost.Evaluate(at, residuals, second));
  for (int i = 0; i < 21; ++i) EXPECT_EQ(alone[i], by_translation[i]);
}

TEST(PullsEveryWay, HoldsForPlanesThatLean) {
  EXPECT_TRUE(MotionCost(scattered_points(1, 4, 400, 1.0), leaning_standard(1, 4).table(), 0)
                  .pulls_every_way());
}

TEST(PullsEveryWay, DoesNotHoldForPlanesAcrossOneAxis) {
  const PointSets points = scattered_points(1, 4, 400, 1.0);
  EXPECT_FALSE(MotionCost(points, flat_standard(4).table(), 0).pulls_every_way());
  fast_scene::Standard nearly = flat_standard(4);
  for (int p = 0; p < 4; ++p) nearly.fill(p, {{-0.0078125, 1e-19, 1e-19}});
  EXPECT_FALSE(MotionCost(points, nearly.table(), 0).pulls_every_way()) << "to rounding";
  const PointSets near = scattered_points(1, 4, 400, 0.01);  // squares add up to far more than 1
  for (int p = 0; p < 4; ++p) nearly.fill(p, {{-0.01, 5e-17, 5e-17}});
  EXPECT_FALSE(MotionCost(near, nearly.table(), 0).pulls_every_way()) << "some rounding errors";
  for (int p = 0; p < 4; ++p) nearly.fill(p, {{-0.01, 5e-16, 5e-16}});
  EXPECT_TRUE(MotionCost(near, nearly.table(), 0).pulls_every_way()) << "more than those";
  for (int p = 0; p < 4; ++p) nearly.fill(p, {{-0.0078125, 1e-9, 1e-9}});
  EXPECT_TRUE(MotionCost(points, nearly.table(), 0).pulls_every_way()) << "they lean";
}

// Every turn shows there, and shifts along two axes.
TEST(PullsEveryWay, DoesNotHoldForPlanesAlongOneAxis) {
  const PointSets points = scattered_points(1, 4, 400, 1.0);
  for (const kestrane::_LASER_TRIPLE& along :
       {kestrane::_LASER_TRIPLE{{-0.008, 0, -0.002}}, kestrane::_LASER_TRIPLE{{-0.008, -0.002, 0}},
        kestrane::_LASER_TRIPLE{{0, -0.002, -0.004}}}) {
    fast_scene::Standard standard = flat_standard(4);
    for (int p = 0; p < 4; ++p) standard.fill(p, along);
    EXPECT_FALSE(MotionCost(points, standard.table(), 0).pulls_every_way());
  }
}

TEST(PullsEveryWay, DoesNotHoldWithoutPointsThatHaveACell) {
  EXPECT_FALSE(MotionCost({}, flat_standard(1).table(), 0).pulls_every_way());
  EXPECT_FALSE(
      MotionCost({columns({{1, 0, 2000}})}, flat_standard(1).table(), 0).pulls_every_way());
}

TEST(PullsEveryWay, DoesNotHoldForNumbersThatAreNotFinite) {
  PointSets points = scattered_points(1, 4, 400, 1.0);
  for (PlanePoints& set : points) set.row(2).setConstant(300), set.row(1).setZero();
  const fast_scene::Standard standard = leaning_standard(2, 4);
  for (const double x : {kNaN, kInf, 1e200}) {
    points[0](0, 0) = x;
    EXPECT_FALSE(MotionCost(points, standard.table(), 0).pulls_every_way()) << x;
  }
}

}  // namespace
