#include "factory/cell_cost.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

#include "ceres/autodiff_cost_function.h"
#include "simulation/random.h"
#include "tests/support/bits.h"

namespace {

using kestrane::OPTIMISIZE_COST_FUNCTION_FIT;
using kestrane::PointMatrix3;
using simulation::Random;
using Jet = ceres::Jet<double, 4>;

// A hundred roundings of values near 1.
constexpr double kRounding = 1e-13;

struct Cell {
  PointMatrix3 points;
  PointMatrix3 corners{4, 3};
};

// Corners of a rectangle at x = 100, `width` by `height` about (y, z) = (10, 300).
Cell flat_cell(double width, double height) {
  Cell cell;
  cell.corners << 100.0, 10.0 - width / 2, 300.0 - height / 2,  //
      100.0, 10.0 - width / 2, 300.0 + height / 2,              //
      100.0, 10.0 + width / 2, 300.0 - height / 2,              //
      100.0, 10.0 + width / 2, 300.0 + height / 2;
  return cell;
}

bool residual_of(const Cell& cell, const std::array<double, 4>& x, double& residual) {
  const OPTIMISIZE_COST_FUNCTION_FIT cost(cell.points, cell.corners);
  return cost(&x[0], &x[1], &x[2], &x[3], &residual);
}

bool jet_of(const Cell& cell, const std::array<double, 4>& x, Jet& residual) {
  const OPTIMISIZE_COST_FUNCTION_FIT cost(cell.points, cell.corners);
  std::array<Jet, 4> jets;
  for (int k = 0; k < 4; ++k)
    jets[static_cast<std::size_t>(k)] = Jet(x[static_cast<std::size_t>(k)], k);
  return cost(&jets[0], &jets[1], &jets[2], &jets[3], &residual);
}

// As the solver asks for it: a value alone, or with its four derivatives.
using SolverCost = ceres::AutoDiffCostFunction<OPTIMISIZE_COST_FUNCTION_FIT, 1, 1, 1, 1, 1>;

struct Evaluation {
  bool done;
  double residual;
};

Evaluation evaluate(const Cell& cell, const std::array<double, 4>& x, bool with_derivatives) {
  const SolverCost cost(new OPTIMISIZE_COST_FUNCTION_FIT(cell.points, cell.corners));
  const double* const parameters[] = {&x[0], &x[1], &x[2], &x[3]};
  double derivatives[4];
  double* jacobians[] = {&derivatives[0], &derivatives[1], &derivatives[2], &derivatives[3]};
  Evaluation evaluation{false, -7.0};
  evaluation.done =
      cost.Evaluate(parameters, &evaluation.residual, with_derivatives ? jacobians : nullptr);
  return evaluation;
}

constexpr std::array<double, 4> kFlat = {100.0, 100.0, 100.0, 100.0};

TEST(CellCost, IsTheVisitedDistanceOverAllPointsWeighedByDepth) {
  Cell cell = flat_cell(20.0, 27.0);
  cell.points = PointMatrix3(5, 3);
  cell.points << 100.3, 9.0, 300.0,  // visited
      150.0, 9.0, 300.0,             //
      -50.0, 9.0, 300.0,             //
      99.6, 12.0, 301.0,             // visited
      1e6, 9.0, 300.0;
  double residual = 0.0;
  ASSERT_TRUE(residual_of(cell, kFlat, residual));
  const double expected = std::sqrt((0.3 * 0.3 + 0.4 * 0.4) / 5.0) * 300.0 / 450.0;
  EXPECT_NEAR(residual, expected, 1e-12);  // the distances are differences of numbers near 100
}

TEST(CellCost, VisitsTheFirstPointAloneOfUpToThree) {
  for (int count = 1; count <= 3; ++count) {
    Cell cell = flat_cell(20.0, 27.0);
    cell.points = PointMatrix3::Constant(count, 3, 777.0);
    cell.points.row(0) << 100.5, 9.0, 300.0;
    double residual = 0.0;
    ASSERT_TRUE(residual_of(cell, kFlat, residual));
    EXPECT_NEAR(residual, std::sqrt(0.25 / count) * 300.0 / 450.0, 1e-12);
  }
}

TEST(CellCost, TakesTheMeanDepthOfTheCornersForItsWeight) {
  Cell cell = flat_cell(20.0, 27.0);
  cell.points = PointMatrix3(1, 3);
  cell.points << 100.5, 10.0, 300.0;
  double near = 0.0;
  double far = 0.0;
  ASSERT_TRUE(residual_of(cell, kFlat, near));
  cell.corners.col(2).array() += 600.0;
  ASSERT_TRUE(residual_of(cell, kFlat, far));
  EXPECT_NEAR(far / near, 3.0, kRounding * 100);
}

TEST(CellCost, ReadsNoXOfTheStoredCorners) {
  Cell cell = flat_cell(20.0, 27.0);
  cell.points = PointMatrix3(1, 3);
  cell.points << 100.5, 10.0, 300.0;
  double first = 0.0;
  double second = 0.0;
  ASSERT_TRUE(residual_of(cell, kFlat, first));
  cell.corners.col(0).setConstant(-9e9);
  ASSERT_TRUE(residual_of(cell, kFlat, second));
  EXPECT_EQ(first, second);
}

TEST(CellCost, RefusesCornersOnALineAndLeavesTheResidualUnset) {
  Cell cell;
  cell.corners << 0, 0, 300, 0, 10, 310, 0, 20, 320, 0, 30, 330;
  cell.points = PointMatrix3::Zero(1, 3);
  double residual = -7.0;
  EXPECT_FALSE(residual_of(cell, {1.0, 2.0, 3.0, 4.0}, residual));
  EXPECT_EQ(residual, -7.0);
}

TEST(CellCost, RefusesCornersThatCoincide) {
  // No spread at all: the guard in the divisor makes the ratios 0 and not 0 / 0.
  Cell cell = flat_cell(0.0, 0.0);
  cell.points = PointMatrix3::Zero(1, 3);
  double residual = -7.0;
  EXPECT_FALSE(residual_of(cell, kFlat, residual));
  EXPECT_EQ(residual, -7.0);
}

TEST(CellCost, TellsTheSolverOfCornersOnALine) {
  Cell line = flat_cell(0.0, 27.0);
  line.points = PointMatrix3::Constant(4, 3, 101.0);
  Cell sheet = flat_cell(20.0, 27.0);
  sheet.points = line.points;
  for (const bool with_derivatives : {false, true}) {
    const Evaluation of_line = evaluate(line, kFlat, with_derivatives);
    EXPECT_FALSE(of_line.done);
    EXPECT_EQ(of_line.residual, -7.0);
    const Evaluation of_sheet = evaluate(sheet, kFlat, with_derivatives);
    EXPECT_TRUE(of_sheet.done);
    // Distance 1 of two visited points among four, at depth 300.
    EXPECT_NEAR(of_sheet.residual, std::sqrt(0.5) * 300.0 / 450.0, kRounding);
  }
}

TEST(CellCost, DrawsTheLineAtASpreadOfFiveInTenThousand) {
  // Scatter of a rectangle: width^2 against height^2.
  double residual = -7.0;
  Cell cell = flat_cell(27.0 * std::sqrt(0.000499), 27.0);
  cell.points = PointMatrix3::Constant(1, 3, 50.0);
  EXPECT_FALSE(residual_of(cell, kFlat, residual));
  cell = flat_cell(27.0 * std::sqrt(0.000501), 27.0);
  cell.points = PointMatrix3::Constant(1, 3, 50.0);
  EXPECT_TRUE(residual_of(cell, kFlat, residual));
}

TEST(CellCost, HasFourEqualDerivativesThroughTheOffsetAlone) {
  Random random(9);
  for (int round = 0; round < 200; ++round) {
    Cell cell = flat_cell(random.uniform(8.0, 40.0), 27.0);
    cell.points = PointMatrix3(30, 3);
    for (int i = 0; i < 30; ++i) {
      cell.points.row(i) << 100.0 + random.uniform(-0.5, 0.5), random.uniform(0.0, 20.0),
          random.uniform(287.0, 313.0);
    }
    std::array<double, 4> x;
    for (double& value : x) value = 100.0 + random.uniform(-0.5, 0.5);
    Jet residual;
    ASSERT_TRUE(jet_of(cell, x, residual));
    double plain = 0.0;
    ASSERT_TRUE(residual_of(cell, x, plain));
    EXPECT_NEAR(residual.a, plain, kRounding * plain);

    // Moving all corners together in x changes the offset and never the tilt, so there the frozen
    // normal is no approximation: the sum of the four derivatives is the true slope.
    constexpr double kStep = 1e-5;
    double above = 0.0;
    double below = 0.0;
    ASSERT_TRUE(residual_of(cell, {x[0] + kStep, x[1] + kStep, x[2] + kStep, x[3] + kStep}, above));
    ASSERT_TRUE(residual_of(cell, {x[0] - kStep, x[1] - kStep, x[2] - kStep, x[3] - kStep}, below));
    constexpr double kDifference = 1e-6;  // truncation of a central difference of that step
    EXPECT_NEAR(residual.v.sum(), (above - below) / (2.0 * kStep), kDifference);
    for (int k = 1; k < 4; ++k) EXPECT_EQ(residual.v[k], residual.v[0]);
  }
}

TEST(CellCost, SeesTheTiltInItsValueButNotInItsDerivatives) {
  // Points on a plane that is tilted about the cell's centre: the offset is right, the tilt is not.
  Cell cell = flat_cell(20.0, 20.0);
  cell.points = PointMatrix3(4, 3);
  cell.points << 101.0, 20.0, 300.0, 0, 0, 0, 0, 0, 0, 99.0, 0.0, 300.0;
  Jet flat;
  ASSERT_TRUE(jet_of(cell, kFlat, flat));
  EXPECT_GT(flat.a, 0.1);
  EXPECT_NEAR(flat.v[0], 0.0, 1e-12);
  double tilted = 1.0;
  ASSERT_TRUE(residual_of(cell, {99.0, 99.0, 101.0, 101.0}, tilted));
  EXPECT_NEAR(tilted, 0.0, 1e-12);
}

TEST(CellCost, HasNoFiniteDerivativeWherePointsLieOnThePlane) {
  Cell cell = flat_cell(16.0, 32.0);
  cell.points = PointMatrix3(1, 3);
  cell.points << 100.0, 10.0, 300.0;
  Jet residual;
  ASSERT_TRUE(jet_of(cell, kFlat, residual));
  EXPECT_EQ(residual.a, 0.0);
  EXPECT_FALSE(std::isfinite(residual.v[0]));
}

TEST(CellCost, TurnsIntoNaNWithACornerThatIsNotFinite) {
  for (const double bad : {kestrane_test::kNaN, kestrane_test::kInf}) {
    Cell cell = flat_cell(20.0, 27.0);
    cell.points = PointMatrix3::Constant(2, 3, 100.0);
    double residual = 0.0;
    EXPECT_TRUE(residual_of(cell, {100.0, bad, 100.0, 100.0}, residual));
    EXPECT_TRUE(std::isnan(residual));
    for (const bool with_derivatives : {false, true}) {
      // Derivatives that are not numbers are the solver's to judge.
      EXPECT_TRUE(
          std::isnan(evaluate(cell, {100.0, bad, 100.0, 100.0}, with_derivatives).residual));
    }
  }
}

// The scatter of the corners is finite, its eigenvalues are not.
TEST(CellCost, TurnsIntoNaNWhereTheSpreadOverflows) {
  Cell cell = flat_cell(20.0, 27.0);
  cell.points = PointMatrix3::Constant(2, 3, 100.0);
  constexpr double kSize = 6.4e153;  // four squares make 1.64e308
  cell.corners << 0, kSize, kSize, 0, kSize, kSize, 0, -kSize, -kSize, 0, -kSize, -kSize;
  double residual = 0.0;
  EXPECT_TRUE(residual_of(cell, kFlat, residual));
  EXPECT_TRUE(std::isnan(residual));
  for (const bool with_derivatives : {false, true})
    EXPECT_TRUE(std::isnan(evaluate(cell, kFlat, with_derivatives).residual));
}

// The normal of smallest scatter by cyclic Jacobi rotations: slow, plain, and no kin of the solver
// that the cost uses.
Eigen::Vector3d smallest_axis(double m[3][3]) {
  double v[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  for (int sweep = 0; sweep < 60; ++sweep) {
    for (int p = 0; p < 2; ++p) {
      for (int q = p + 1; q < 3; ++q) {
        if (m[p][q] == 0.0) continue;
        const double angle = 0.5 * std::atan2(2.0 * m[p][q], m[q][q] - m[p][p]);
        const double c = std::cos(angle);
        const double s = std::sin(angle);
        for (int k = 0; k < 3; ++k) {
          const double a = m[k][p];
          const double b = m[k][q];
          m[k][p] = c * a - s * b;
          m[k][q] = s * a + c * b;
        }
        for (int k = 0; k < 3; ++k) {
          const double a = m[p][k];
          const double b = m[q][k];
          m[p][k] = c * a - s * b;
          m[q][k] = s * a + c * b;
          const double d = v[k][p];
          const double e = v[k][q];
          v[k][p] = c * d - s * e;
          v[k][q] = s * d + c * e;
        }
      }
    }
  }
  int best = 0;
  for (int k = 1; k < 3; ++k) {
    if (m[k][k] < m[best][best]) best = k;
  }
  return {v[0][best], v[1][best], v[2][best]};
}

TEST(CellCost, AgreesWithASlowFormOnRandomCells) {
  Random random(21);
  for (int round = 0; round < 500; ++round) {
    Cell cell = flat_cell(random.uniform(5.0, 60.0), 27.0);
    cell.corners.col(2).array() += random.uniform(-100.0, 900.0);
    const int count = 1 + random.index(40);
    cell.points = PointMatrix3(count, 3);
    for (int i = 0; i < count; ++i) {
      cell.points.row(i) << 100.0 + random.uniform(-1.0, 1.0), random.uniform(0.0, 20.0),
          cell.corners(0, 2) + random.uniform(0.0, 27.0);
    }
    std::array<double, 4> x;
    for (double& value : x) value = 100.0 + random.uniform(-0.5, 0.5);
    double residual = 0.0;
    ASSERT_TRUE(residual_of(cell, x, residual));

    double mean[3] = {0, 0, 0};
    double rows[4][3];
    for (int r = 0; r < 4; ++r) {
      rows[r][0] = x[static_cast<std::size_t>(r)];
      rows[r][1] = cell.corners(r, 1);
      rows[r][2] = cell.corners(r, 2);
      for (int k = 0; k < 3; ++k) mean[k] += rows[r][k] / 4.0;
    }
    double scatter[3][3] = {};
    for (int r = 0; r < 4; ++r) {
      for (int a = 0; a < 3; ++a) {
        for (int b = 0; b < 3; ++b)
          scatter[a][b] += (rows[r][a] - mean[a]) * (rows[r][b] - mean[b]);
      }
    }
    const Eigen::Vector3d n = smallest_axis(scatter);
    const double d = -(n.x() * mean[0] + n.y() * mean[1] + n.z() * mean[2]);
    double squares = 0.0;
    for (int i = 0; i < count; i += 3) {
      const double e = n.dot(cell.points.row(i).transpose()) + d;
      squares += e * e;
    }
    // Distances are differences of numbers near 1000; their rounding is seen against the distance.
    constexpr double kAbsolute = 1e-9;
    EXPECT_NEAR(residual, std::sqrt(squares / count) * mean[2] / 450.0, kAbsolute);
  }
}

}  // namespace
