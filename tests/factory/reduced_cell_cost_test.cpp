// The reduced cost of a cell, held against the functor over all its points.
#include "factory/reduced_cell_cost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "ceres/autodiff_cost_function.h"
#include "simulation/random.h"
#include "tests/support/sanitized.h"

namespace {

using kestrane::CellCorners;
using kestrane::OPTIMISIZE_COST_FUNCTION_FIT;
using kestrane::PointMatrix3;
using kestrane::ReducedCellCost;
using simulation::Random;
using FunctorCost = ceres::AutoDiffCostFunction<OPTIMISIZE_COST_FUNCTION_FIT, 1, 1, 1, 1, 1>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kUnset = -7.0;

// Of residual and derivative where distances are no smaller than a thousandth of the coordinates.
// The functor's offset is a sum of products up to the coordinates' size, rounded to some 1e-16 of
// it; in a derivative that stands over the distances.
constexpr double kAgreement = 3e-12;
constexpr double kLeastShare = 1e-3;

struct Cell {
  PointMatrix3 points;
  CellCorners corners;
  std::array<double, 4> x;
};

struct Evaluation {
  bool done = false;
  double residual = kUnset;
  std::array<double, 4> slopes = {kUnset, kUnset, kUnset, kUnset};
};

Evaluation evaluate(const ceres::CostFunction& cost, const std::array<double, 4>& x) {
  const double* const parameters[] = {&x[0], &x[1], &x[2], &x[3]};
  Evaluation result;
  std::array<double*, 4> slopes{};
  for (std::size_t k = 0; k < 4; ++k) slopes[k] = &result.slopes[k];
  result.done = cost.Evaluate(parameters, &result.residual, slopes.data());
  return result;
}

Evaluation reduced(const Cell& cell) {
  return evaluate(ReducedCellCost(cell.points, cell.corners), cell.x);
}

Evaluation by_points(const Cell& cell) {
  return evaluate(FunctorCost(new OPTIMISIZE_COST_FUNCTION_FIT(cell.points, cell.corners)), cell.x);
}

// A rectangle of `width` by `height` about (y, z), on the sheet x = 100.
Cell flat_cell(double width, double height, double y = 10.0, double z = 300.0) {
  Cell cell;
  cell.corners << kNaN, y - width / 2, z - height / 2,  //
      kNaN, y - width / 2, z + height / 2,              //
      kNaN, y + width / 2, z - height / 2,              //
      kNaN, y + width / 2, z + height / 2;
  cell.x = {100.0, 100.0, 100.0, 100.0};
  return cell;
}

double largest_coordinate(const Cell& cell) {
  double largest = 0.0;
  for (Eigen::Index i = 0; i < cell.points.rows(); i += 3) {
    largest = std::max(largest, cell.points.row(i).cwiseAbs().maxCoeff());
  }
  for (const double x : cell.x) largest = std::max(largest, std::abs(x));
  return std::max(largest, cell.corners.rightCols<2>().cwiseAbs().maxCoeff());
}

// Where distances are smaller against the coordinates the functor's own rounding grows with the
// quotient, and so does what it can be held to.
double tolerance_for(const Cell& cell, const Evaluation& expected) {
  const double depth = cell.corners.col(2).mean() / 450.0;
  const double share = std::abs(expected.residual / depth) / largest_coordinate(cell);
  return kAgreement * std::max(1.0, kLeastShare / share);
}

bool same_number(double a, double b, double tolerance) {
  if (!std::isfinite(b)) return std::isnan(a) == std::isnan(b) && (std::isnan(b) || a == b);
  return std::abs(a - b) <= tolerance;
}

// Line decision, residual, derivatives, and every value that is not finite.
testing::AssertionResult agree(const Cell& cell) {
  const Evaluation ours = reduced(cell);
  const Evaluation theirs = by_points(cell);
  if (ours.done != theirs.done) return testing::AssertionFailure() << "refused " << theirs.done;
  const double tolerance = tolerance_for(cell, theirs);
  const double size = std::max(1.0, std::abs(theirs.residual));
  bool same = same_number(ours.residual, theirs.residual, tolerance * size);
  for (std::size_t k = 0; k < 4; ++k) {
    same = same && same_number(ours.slopes[k], theirs.slopes[k], tolerance);
  }
  if (same) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << "residual " << ours.residual << " for " << theirs.residual << ", apart by "
         << ours.residual - theirs.residual << ", derivative " << ours.slopes[0] << " for "
         << theirs.slopes[0] << ", apart by " << ours.slopes[0] - theirs.slopes[0] << ", tolerance "
         << tolerance;
}

// --- By hand ------------------------------------------------------------------------------------

TEST(ReducedCellCost, IsTheVisitedDistanceOverAllPointsWeighedByDepth) {
  Cell cell = flat_cell(20.0, 27.0);
  cell.points = PointMatrix3(5, 3);
  cell.points << 100.25, 9.0, 300.0,  // visited
      150.0, 9.0, 300.0,              //
      kNaN, kInf, -1e300,             //
      99.5, 12.0, 301.0,              // visited
      1e6, 9.0, 300.0;
  const Evaluation result = reduced(cell);
  ASSERT_TRUE(result.done);
  const double distance = std::sqrt((0.25 * 0.25 + 0.5 * 0.5) / 5.0);
  EXPECT_NEAR(result.residual, distance * 300.0 / 450.0, kAgreement);
  // Half a square's slope, through an offset that falls by a quarter with each corner.
  const double slope = -(0.25 - 0.5) / 4.0 / (5.0 * distance) * 300.0 / 450.0;
  for (const double each : result.slopes) EXPECT_NEAR(each, slope, kAgreement);
}

TEST(ReducedCellCost, WritesOnlyTheDerivativesThatAreAskedFor) {
  for (const double x : {100.5, 100.0}) {  // from the sums, and point by point
    Cell cell = flat_cell(16.0, 32.0);
    cell.points = PointMatrix3(1, 3);
    cell.points << x, 10.0, 300.0;
    const ReducedCellCost cost(cell.points, cell.corners);
    const double* const parameters[] = {&cell.x[0], &cell.x[1], &cell.x[2], &cell.x[3]};
    const Evaluation whole = reduced(cell);
    double residual = kUnset;
    ASSERT_TRUE(cost.Evaluate(parameters, &residual, nullptr));
    EXPECT_EQ(residual, whole.residual);
    double slope = kUnset;
    double* slopes[] = {nullptr, nullptr, &slope, nullptr};
    ASSERT_TRUE(cost.Evaluate(parameters, &residual, slopes));
    EXPECT_TRUE(same_number(slope, whole.slopes[2], 0.0)) << slope;
  }
}

// --- Random cells -------------------------------------------------------------------------------

// Cells as a scanner has them and beyond: any depth, slope and twist, few points and many.
Cell random_cell(Random& random) {
  const double z = random.uniform(160.0, 1480.0);
  Cell cell = flat_cell(random.uniform(0.02, 0.14) * z, 27.0, random.uniform(-0.5, 0.5) * z, z);
  const double slope_y = random.uniform(-1.0, 1.0);
  const double slope_z = random.uniform(-1.0, 1.0);
  const double offset = random.uniform(-300.0, 300.0);
  const auto sheet = [&](double py, double pz) { return offset + slope_y * py + slope_z * pz; };
  for (std::size_t k = 0; k < 4; ++k) {
    const auto row = static_cast<Eigen::Index>(k);
    cell.x[k] = sheet(cell.corners(row, 1), cell.corners(row, 2)) + 0.5 * random.uniform(-1.0, 1.0);
  }
  const double noise = std::pow(10.0, random.uniform(-2.0, 0.5));
  cell.points = PointMatrix3(1 + random.index(90), 3);
  for (Eigen::Index i = 0; i < cell.points.rows(); ++i) {
    const double py = random.uniform(cell.corners(0, 1), cell.corners(2, 1));
    const double pz = random.uniform(cell.corners(0, 2), cell.corners(1, 2));
    cell.points.row(i) << sheet(py, pz) + noise * random.gaussian(), py, pz;
  }
  return cell;
}

// What no scanner measures. Each kind aims at one decision.
Cell hostile_cell(Random& random, int kind) {
  Cell cell = random_cell(random);
  const std::array<double, 10> odd = {9e153,  kNaN,  kInf, -kInf,     1e160,
                                      -1e160, 1e100, -0.0, 0x1p-1074, 1.7e308};
  const auto any = [&] { return odd[static_cast<std::size_t>(random.index(10))]; };
  const auto cell_on_a_slope = [&](double far) {
    const double slope = random.uniform(-1.0, 1.0);
    Cell tilted = flat_cell(20.0, 27.0, 10.0, 300.0 + far);
    for (std::size_t k = 0; k < 4; ++k) {
      tilted.x[k] = 100.0 + slope * (tilted.corners(static_cast<Eigen::Index>(k), 2) - 300.0);
    }
    tilted.points = PointMatrix3(1, 3);
    const double along = random.uniform(-13.0, 13.0);
    tilted.points << 100.0 + slope * along, random.uniform(0.0, 20.0), 300.0 + along;
    return tilted;
  };
  switch (kind) {
    case 0:  // about the limit of a line
      cell = flat_cell(27.0 * std::sqrt(0.0005 + random.uniform(-1e-6, 1e-6)), 27.0);
      break;
    case 1:  // thin, where the sums begin to decide
      cell = flat_cell(27.0 * std::sqrt(random.uniform(0.0005, 0.004)), 27.0);
      break;
    case 2:  // a line, or a single spot
      cell.corners.rightCols<2>().rowwise() = cell.corners.row(0).tail<2>();
      if (random.index(2) == 0) cell.x.fill(cell.x[0]);
      break;
    case 3:  // so small that the guard against a vanishing spread shows
      cell = flat_cell(1e-8 * random.uniform(), 1e-8 * random.uniform());
      break;
    case 4:  // as wide as it is deep: the corners' twist is no small part of their spread
      cell = flat_cell(random.uniform(0.1, 2.0), random.uniform(0.1, 2.0));
      for (double& x : cell.x) x += random.uniform(-1.0, 1.0);
      break;
    case 5:  // every visited point exactly on the plane
      cell = flat_cell(16.0, 32.0);
      break;
    case 6:
      cell.points(0, random.index(3)) = any();
      break;
    case 7:
      cell.points(cell.points.rows() / 2, random.index(3)) = any();
      break;
    case 8:
      cell.x[static_cast<std::size_t>(random.index(4))] = any();
      break;
    case 9:
      cell.corners(random.index(4), 1 + random.index(2)) = any();
      break;
    case 10:  // a single point on a tilted plane: rounding decides whether it lies on it
      cell = cell_on_a_slope(0.0);
      break;
    default:  // the same, far from the corners
      cell = cell_on_a_slope(random.uniform(1e5, 1e8));
      break;
  }
  if (cell.points.rows() == 0) {
    cell.points = PointMatrix3(1 + random.index(90), 3);
    for (Eigen::Index i = 0; i < cell.points.rows(); ++i) {
      const double off = kind == 5 ? 0.0 : random.gaussian();
      cell.points.row(i) << 100.0 + off, random.uniform(5.0, 15.0), random.uniform(290.0, 310.0);
    }
  }
  return cell;
}

constexpr int kHostileKinds = 12;

// In shares, each of which a search for changed instructions can afford; fewer cells show the
// sanitizers the same code.
constexpr int kScannerCells = kestrane_test::kSanitized ? 1000 : 12500;
constexpr int kHostileCells = kestrane_test::kSanitized ? 400 : 4200;

class ReducedCellCostInShares : public testing::TestWithParam<int> {};

TEST_P(ReducedCellCostInShares, AgreesWithTheFunctorOnCellsOfAScanner) {
  Random random(51 + 1000 * static_cast<std::uint64_t>(GetParam()));
  for (int n = 0; n < kScannerCells; ++n) ASSERT_TRUE(agree(random_cell(random))) << "cell " << n;
}

TEST_P(ReducedCellCostInShares, AgreesWithTheFunctorOnHostileCells) {
  Random random(52 + 1000 * static_cast<std::uint64_t>(GetParam()));
  for (int n = 0; n < kHostileCells; ++n) {
    ASSERT_TRUE(agree(hostile_cell(random, GetParam()))) << "cell " << n;
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReducedCellCostInShares, testing::Range(0, kHostileKinds));

TEST(ReducedCellCost, MeetsEveryDecisionAmongItsHostileCells) {
  Random random(52);
  int refused = 0, taken = 0, without_slope = 0, without_residual = 0;
  for (int n = 0; n < 50000; ++n) {
    const Evaluation result = by_points(hostile_cell(random, n % kHostileKinds));
    (result.done ? taken : refused) += 1;
    if (result.done && !std::isfinite(result.residual)) ++without_residual;
    if (result.done && std::isfinite(result.residual) && !std::isfinite(result.slopes[0])) {
      ++without_slope;
    }
  }
  EXPECT_GT(refused, 1000);
  EXPECT_GT(taken, 1000);
  EXPECT_GT(without_slope, 1000);
  EXPECT_GT(without_residual, 1000);
}

// --- Against the closed form --------------------------------------------------------------------

// Points at a height of a millionth over a flat cell: their distances are differences that are
// exact, and so is the slope, which the sums must not blur.
TEST(ReducedCellCost, KeepsADistanceOfAMillionth) {
  Cell cell = flat_cell(16.0, 32.0);
  cell.points = PointMatrix3(9, 3);
  Random random(53);
  for (Eigen::Index i = 0; i < 9; ++i) {
    cell.points.row(i) << 100.0 + 0x1p-20, random.uniform(2.0, 18.0), random.uniform(284.0, 316.0);
  }
  const Evaluation result = reduced(cell);
  ASSERT_TRUE(result.done);
  const double share = std::sqrt(3.0 / 9.0);
  constexpr double kRelative = 1e-9;  // rounding of 300 against a distance of 1e-6
  EXPECT_NEAR(result.residual, 0x1p-20 * share * 300.0 / 450.0, 0x1p-20 * kRelative);
  EXPECT_NEAR(result.slopes[0], -share / 4.0 * 300.0 / 450.0, kRelative);
}

// A cell far from its centroid's plane, with 30,000 points: no cancellation, however many there
// are.
TEST(ReducedCellCost, LosesNothingOverManyPoints) {
  Cell cell = flat_cell(20.0, 27.0, 10.0, 900.0);
  cell.points = PointMatrix3(30000, 3);
  long double squares = 0.0L;
  long double sum = 0.0L;
  Random random(54);
  for (Eigen::Index i = 0; i < 30000; ++i) {
    cell.points.row(i) << 100.0 + 0.05 * random.gaussian(), random.uniform(0.0, 20.0),
        random.uniform(886.5, 913.5);
    if (i % 3 != 0) continue;
    const long double distance = static_cast<long double>(cell.points(i, 0)) - 100.0L;
    squares += distance * distance;
    sum += distance;
  }
  const Evaluation result = reduced(cell);
  ASSERT_TRUE(result.done);
  const long double distance = std::sqrt(squares / 30000.0L);
  EXPECT_NEAR(result.residual, static_cast<double>(distance * 2.0L), 1e-14);
  EXPECT_NEAR(result.slopes[0], static_cast<double>(-sum / 4.0L / 30000.0L / distance * 2.0L),
              1e-13);
}

// ---- tilted cells ------------------------------------------------------------------------------

// Corners about (100, 20, z) at the ends of two vectors, one across the other, added and taken off.
Cell spanned_cell(const Eigen::Vector3d& first, const Eigen::Vector3d& second, double z = 300.0) {
  Cell cell;
  for (int k = 0; k < 4; ++k) {
    const Eigen::Vector3d corner = Eigen::Vector3d(100.0, 20.0, z) + (k < 2 ? -1.0 : 1.0) * first +
                                   (k % 2 == 0 ? -1.0 : 1.0) * second;
    cell.corners.row(k) << 50.0, corner.y(), corner.z();  // that x is not read
    cell.x[static_cast<std::size_t>(k)] = corner.x();
  }
  return cell;
}

// Two directions of a plane whose normal is (2, 1, 2) / 3.
const Eigen::Vector3d kAlong(1.0, -2.0, 0.0);
const Eigen::Vector3d kAcross(4.0, 2.0, -5.0);
const Eigen::Vector3d kUp(2.0, 1.0, 2.0);

bool evaluate_alone(const Cell& cell, double& residual) {
  const double* const x[] = {&cell.x[0], &cell.x[1], &cell.x[2], &cell.x[3]};
  return ReducedCellCost(cell.points, cell.corners).Evaluate(x, &residual, nullptr);
}

// From the sums, and point by point as the corners are nearly on a line; with derivatives and
// without.
TEST(ReducedCellCost, IsTheDistanceFromATiltedPlane) {
  for (const double along : {1.0, 0.125}) {
    Cell cell = spanned_cell(along * kAlong, kAcross);
    cell.points = PointMatrix3::Constant(8, 3, kNaN);
    const double heights[] = {0.75, -1.5, 0.375};
    double squares = 0.0, sum = 0.0;
    for (int i = 0; i < 3; ++i) {
      cell.points.row(3 * i) = (Eigen::Vector3d(100.0, 20.0, 300.0) + (0.5 - i) * kAlong +
                                0.25 * i * kAcross + heights[i] / 3.0 * kUp)
                                   .transpose();
      squares += heights[i] * heights[i];
      sum += heights[i];
    }
    constexpr double kRounding = 1e-11;  // of a normal across a narrow cell
    const double distance = std::sqrt(squares / 8.0);
    const double depth = 300.0 / 450.0;
    const Evaluation result = reduced(cell);
    ASSERT_TRUE(result.done);
    EXPECT_NEAR(result.residual, distance * depth, kRounding) << along;
    const double slope = -sum * (2.0 / 3.0) / 4.0 / (8.0 * distance) * depth;
    for (const double each : result.slopes) EXPECT_NEAR(each, slope, kRounding) << along;
    double alone = kUnset;
    ASSERT_TRUE(evaluate_alone(cell, alone));
    EXPECT_NEAR(alone, distance * depth, kRounding) << along;
  }
}

// Lines whose spread along one axis is as large as along the two others.
TEST(ReducedCellCost, RefusesALineInAnyDirection) {
  struct Line {
    Eigen::Vector3d along, across;
  };
  for (const Line& line :
       {Line{{3, 4, 5}, {4, -3, 0}}, Line{{3, 5, 4}, {4, 0, -3}}, Line{{5, 3, 4}, {0, 4, -3}},
        Line{{1, 0, 0}, {0, 1, 0}}, Line{{0, 1, 0}, {0, 0, 1}}, Line{{0, 0, 1}, {1, 0, 0}}}) {
    for (const double size : {1e-2, 1.0, 1e3}) {
      Cell cell = spanned_cell(size * line.along, 0.01 * size * line.across);
      cell.points = PointMatrix3::Constant(1, 3, 50.0);
      EXPECT_FALSE(reduced(cell).done) << line.along.transpose();
      double alone = kUnset;
      EXPECT_FALSE(evaluate_alone(cell, alone)) << line.along.transpose();
      EXPECT_EQ(alone, kUnset);
    }
  }
}

// Sums of 10,000 coordinates far from 0 are off by far more than the distances may be.
TEST(ReducedCellCost, LosesNothingOverManyPointsOfATiltedPlane) {
  Cell cell = spanned_cell(2.0 * kAlong, kAcross, 900.0);
  cell.corners.col(1).array() += 1980.0;
  cell.points = PointMatrix3(30000, 3);
  long double squares = 0.0L;
  long double sum = 0.0L;
  Random random(55);
  for (Eigen::Index i = 0; i < 30000; ++i) {
    const Eigen::Vector3d middle(100.0, 2000.0, 900.0);
    const Eigen::Vector3d point = middle + random.uniform(-2.0, 2.0) * kAlong +
                                  random.uniform(-1.0, 1.0) * kAcross +
                                  0.02 * random.gaussian() * kUp;
    cell.points.row(i) = point.transpose();
    if (i % 3 != 0) continue;
    const long double height =
        (kUp.cast<long double>().dot((point - middle).cast<long double>())) / 3.0L;
    squares += height * height;
    sum += height;
  }
  const Evaluation result = reduced(cell);
  ASSERT_TRUE(result.done);
  const long double distance = std::sqrt(squares / 30000.0L);
  constexpr double kRounding = 1e-12;  // of 2000
  EXPECT_NEAR(result.residual, static_cast<double>(distance * 2.0L), kRounding);
  EXPECT_NEAR(result.slopes[0], static_cast<double>(-sum / 6.0L / 30000.0L / distance * 2.0L),
              kRounding);
}

// ---- from the sums alone -----------------------------------------------------------------------

bool sums_decide(const Cell& cell) {
  const double* const x[] = {&cell.x[0], &cell.x[1], &cell.x[2], &cell.x[3]};
  double residual = kUnset;
  const bool decided =
      ReducedCellCost(cell.points, cell.corners).evaluate_by_sums(x, &residual, nullptr);
  EXPECT_EQ(decided ? reduced(cell).residual : kUnset, residual) << "what decides is the result";
  return decided;
}

// A scanner's cells are evaluated in the same time however many points they have. Left out are
// those whose corners lie nearly as far from a plane as from each other.
TEST(ReducedCellCost, NeedsNoPointsForCellsOfAScanner) {
  Random random(56);
  int decided = 0;
  constexpr int kCells = 1000;
  for (int n = 0; n < kCells; ++n) decided += sums_decide(random_cell(random)) ? 1 : 0;
  EXPECT_GT(decided, 99 * kCells / 100);
}

// The adjugate of a flat cell's scatter has its largest column along the normal; the other two are
// next to nothing and lead nowhere.
TEST(ReducedCellCost, NeedsNoPointsForFlatCellsAcrossAnyAxis) {
  const Eigen::Vector3d axes[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  for (int normal = 0; normal < 3; ++normal) {
    for (const double width : {3.0, 30.0}) {
      const Eigen::Vector3d first = width * axes[(normal + 1) % 3];
      const Eigen::Vector3d second = 10.0 * axes[(normal + 2) % 3];
      Cell cell = spanned_cell(first, second);
      cell.points = PointMatrix3(1, 3);
      cell.points.row(0) = (Eigen::Vector3d(100.0, 20.0, 300.0) + 0.5 * axes[normal]).transpose();
      EXPECT_TRUE(sums_decide(cell)) << normal << " " << width;
      const Evaluation result = reduced(cell);
      constexpr double kRounding = 1e-12;
      EXPECT_NEAR(result.residual, 0.5 * 300.0 / 450.0, kRounding) << normal << " " << width;
    }
  }
}

TEST(ReducedCellCost, LeavesLinesAndPointsOnThePlaneToTheFunctor) {
  Cell line = spanned_cell({0, 30, 0}, {0, 0, 0.5});
  line.points = PointMatrix3::Constant(1, 3, 50.0);
  EXPECT_FALSE(sums_decide(line));
  Cell on_plane = flat_cell(16.0, 32.0);
  on_plane.points = PointMatrix3(1, 3);
  on_plane.points << 100.0, 10.0, 300.0;
  EXPECT_FALSE(sums_decide(on_plane));
  on_plane.points(0, 0) = kInf;
  EXPECT_FALSE(sums_decide(on_plane));
}

}  // namespace
