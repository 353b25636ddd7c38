#include "quality/field/direction_words.h"

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <Eigen/QR>

#include "simulation/random.h"

namespace {

using kestrane::quality::along_axes;
using kestrane::quality::direction_words;
using kestrane::quality::Vector6;

using Basis = Eigen::Matrix<double, 6, Eigen::Dynamic>;

constexpr double kRounding = 1e-13;  // of a few products of numbers of size 1

Vector6 vector_of(double a, double b, double c, double d, double e, double f) {
  Vector6 vector;
  vector << a, b, c, d, e, f;
  return vector;
}

// The same space in another orthonormal basis.
Basis rotated(const Basis& basis, std::uint64_t seed) {
  simulation::Random random(seed);
  Eigen::MatrixXd draws(basis.cols(), basis.cols());
  for (Eigen::Index i = 0; i < draws.size(); ++i) draws.data()[i] = random.gaussian();
  return basis * Eigen::MatrixXd(Eigen::HouseholderQR<Eigen::MatrixXd>(draws).householderQ());
}

Basis orthonormal(const Basis& columns) {
  const Eigen::MatrixXd q = Eigen::HouseholderQR<Eigen::MatrixXd>(columns).householderQ();
  return q.leftCols(columns.cols());
}

TEST(DirectionWords, NamesEachOfTheSixAxes) {
  const char* words[] = {"turn about x",  "turn about y",  "turn about z",
                         "shift along x", "shift along y", "shift along z"};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(direction_words(Vector6::Unit(i)), words[i]);
}

TEST(DirectionWords, SignsDoNotMatter) {
  EXPECT_EQ(direction_words(vector_of(0, -0.8, 0, 0.6, 0, 0)), "turn about y (with shift along x)");
}

TEST(DirectionWords, NamesFurtherComponentsAbove035LargestFirst) {
  EXPECT_EQ(direction_words(vector_of(0.4, 0.1, 0, 0.5, 0, 0.75)),
            "shift along z (with shift along x, turn about x)");
}

TEST(DirectionWords, LeavesOutAComponentOfExactly035) {
  EXPECT_EQ(direction_words(vector_of(0.35, 0.9, 0, 0, 0, 0.25)), "turn about y");
  EXPECT_EQ(direction_words(vector_of(0.3501, 0.9, 0, 0, 0, 0.25)),
            "turn about y (with turn about x)");
}

TEST(DirectionWords, NamesAllSixWhereNoneStandsOut) {
  EXPECT_EQ(direction_words(Vector6::Constant(0.408)),
            "turn about x (with turn about y, turn about z, shift along x, shift along y, "
            "shift along z)");
}

TEST(DirectionWords, TakesTheFirstOfComponentsThatAreEqualButForRounding) {
  const double half = std::sqrt(0.5);
  EXPECT_EQ(direction_words(vector_of(0, half, 0, 0, half + 1e-14, 0)),
            "turn about y (with shift along y)");
  EXPECT_EQ(direction_words(vector_of(0, half + 1e-14, 0, 0, half, 0)),
            "turn about y (with shift along y)");
}

TEST(AlongAxes, FindsTheAxesThatSpanASpaceInWhateverBasis) {
  Basis axes = Basis::Zero(6, 3);
  axes(0, 0) = axes(4, 1) = axes(5, 2) = 1.0;
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    EXPECT_LE((along_axes(rotated(axes, seed)) - axes).cwiseAbs().maxCoeff(), kRounding);
  }
}

TEST(AlongAxes, GivesOneDirectionBackWithItsLargestComponentPositive) {
  const Basis one = -vector_of(0, 0.6, 0, 0, 0.8, 0);
  EXPECT_LE((along_axes(one) + one).cwiseAbs().maxCoeff(), kRounding);
}

TEST(AlongAxes, GivesEachColumnAComponentThatAllOthersLack) {
  Basis slanted(6, 2);
  slanted.col(0) = vector_of(0.1, 0.9, 0, 0.2, 0.1, 0);
  slanted.col(1) = vector_of(0, 0.3, 0.1, 0, 0.8, 0.2);
  const Basis found = along_axes(orthonormal(slanted));
  EXPECT_NEAR(found(4, 0), 0.0, kRounding);
  EXPECT_NEAR(found(1, 1), 0.0, kRounding);
  EXPECT_GT(found(1, 0), 0.8);
  EXPECT_GT(found(4, 1), 0.8);
  EXPECT_NEAR(found.col(0).norm(), 1.0, kRounding);
  EXPECT_NEAR(found.col(1).norm(), 1.0, kRounding);
  // Still the same space.
  const Basis space = orthonormal(slanted);
  EXPECT_LE((found - space * (space.transpose() * found)).cwiseAbs().maxCoeff(), kRounding);
}

TEST(AlongAxes, DependsOnTheSpaceAndNotOnItsBasis) {
  simulation::Random random(7);
  for (Eigen::Index count = 1; count <= 6; ++count) {
    Basis columns(6, count);
    for (Eigen::Index i = 0; i < columns.size(); ++i) columns.data()[i] = random.gaussian();
    const Basis space = orthonormal(columns);
    const Basis found = along_axes(space);
    for (std::uint64_t seed = 1; seed <= 5; ++seed) {
      EXPECT_LE((along_axes(rotated(space, seed)) - found).cwiseAbs().maxCoeff(), 1e-11);
    }
  }
}

}  // namespace
