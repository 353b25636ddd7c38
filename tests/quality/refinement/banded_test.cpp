#include "quality/refinement/banded.h"

#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "simulation/random.h"
#include "tests/quality/refinement/dense.h"
#include "tests/support/bits.h"

namespace {

using namespace kestrane::quality::refinement;
using quality_tests::dense;

constexpr double kRelative = 1e-12;

BandedMatrix random_band(int rows, int width, std::uint64_t seed) {
  simulation::Random random(seed);
  BandedMatrix a(rows, width);
  for (int r = 0; r < rows; ++r) {
    for (int d = 1; d <= width && r + d < rows; ++d) a.row(r)[d] = random.uniform(-1.0, 1.0);
    a.row(r)[0] = 2.0 * width + random.uniform(1.0, 2.0);  // dominant, so definite
  }
  return a;
}

struct Shape {
  int rows;
  int width;
};
// Around the block of four rows, and a whole fan's.
constexpr Shape kShapes[] = {{1, 0}, {3, 1}, {4, 2}, {5, 4}, {9, 3}, {40, 15}, {97, 51}, {120, 0}};

TEST(Factorise, EqualsADenseDecomposition) {
  std::uint64_t seed = 1;
  for (const Shape& shape : kShapes) {
    const BandedMatrix a = random_band(shape.rows, shape.width, seed++);
    BandedMatrix r = a;
    ASSERT_TRUE(factorise(r));
    const Eigen::MatrixXd upper = dense(a).llt().matrixU();
    for (int i = 0; i < shape.rows; ++i)
      for (int d = 0; d <= shape.width && i + d < shape.rows; ++d)
        EXPECT_NEAR(r.row(i)[d], upper(i, i + d), kRelative * upper.norm());
  }
}

TEST(Factorise, LeavesThePaddingAtZero) {
  BandedMatrix r = random_band(30, 7, 3);
  ASSERT_TRUE(factorise(r));
  const Band band = r.band();
  for (int i = 0; i < band.rows; ++i)
    for (int d = 0; d < band.stride; ++d)
      if (d > band.width || i + d >= band.rows) {
        EXPECT_EQ(band.entries[i * band.stride + d], 0.0);
      }
}

TEST(Factorise, RefusesWhatIsNotPositive) {
  for (const double bad : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(),
                           std::numeric_limits<double>::infinity()}) {
    for (const int row : {0, 5, 6, 9}) {
      for (const Vectors form : {Vectors::kBaseline, best_vectors()}) {
        BandedMatrix a = random_band(10, 3, 4);
        a.row(row)[0] = bad;
        EXPECT_FALSE(factorise_band(a.band(), form)) << bad << " in row " << row;
      }
    }
  }
}

TEST(Solve, EqualsADenseSolution) {
  std::uint64_t seed = 11;
  for (const Shape& shape : kShapes) {
    const BandedMatrix a = random_band(shape.rows, shape.width, seed++);
    simulation::Random random(seed);
    std::vector<double> b(static_cast<std::size_t>(shape.rows));
    for (double& value : b) value = random.uniform(-1.0, 1.0);
    const Eigen::VectorXd expected =
        dense(a).llt().solve(Eigen::Map<Eigen::VectorXd>(b.data(), shape.rows));
    BandedMatrix r = a;
    ASSERT_TRUE(factorise(r));
    solve(r, b);
    for (int i = 0; i < shape.rows; ++i)
      EXPECT_NEAR(b[static_cast<std::size_t>(i)], expected[i], kRelative * expected.norm());
  }
}

TEST(Invert, GivesTheBandOfTheDenseInverse) {
  std::uint64_t seed = 21;
  for (const Shape& shape : kShapes) {
    const BandedMatrix a = random_band(shape.rows, shape.width, seed++);
    const Eigen::MatrixXd expected = dense(a).inverse();
    BandedMatrix r = a;
    ASSERT_TRUE(factorise(r));
    const BandedMatrix inverse = invert(r);
    for (int i = 0; i < shape.rows; ++i)
      for (int d = 0; d <= shape.width && i + d < shape.rows; ++d)
        EXPECT_NEAR(inverse.row(i)[d], expected(i, i + d), kRelative * expected.norm())
            << shape.rows << " x " << shape.width;
  }
}

TEST(TraceOfProduct, CountsTheEntriesBesideTheDiagonalTwice) {
  const BandedMatrix a = random_band(23, 6, 31);
  const BandedMatrix b = random_band(23, 6, 32);
  EXPECT_NEAR(trace_of_product(a, b), (dense(a) * dense(b)).trace(), 1e-10);
}

// A number that is not one, whose bits change with whatever is done to it.
constexpr std::uint64_t kUntouched = 0x7ff0000000000001;

// The widest form of this processor against the baseline: the same on both where it has no more.
// Neither reads what stands beside its numbers or is told to be scratch.
TEST(BandedKernel, GivesTheSameBitsInAllForms) {
  const BandedMatrix a = random_band(97, 51, 41);
  std::vector<double> b(97);
  simulation::Random random(42);
  for (double& value : b) value = random.uniform(-1.0, 1.0);
  std::vector<double> results[2];
  const Vectors forms[2] = {Vectors::kBaseline, best_vectors()};
  for (int form = 0; form < 2; ++form) {
    BandedMatrix r = a;
    ASSERT_TRUE(factorise_band(r.band(), forms[form]));
    std::vector<double> x = b;
    x.resize(97 + 60, std::bit_cast<double>(kUntouched));
    solve_band(r.band(), x.data(), forms[form]);
    for (std::size_t n = 97; n < x.size(); ++n)
      ASSERT_EQ(kestrane_test::bits_of(x[n]), kUntouched) << n;
    x.resize(97);
    const auto rest = static_cast<std::ptrdiff_t>(r.entries().size());
    BandedMatrix longer(100, 51), inverse(100, 51);
    for (BandedMatrix* matrix : {&longer, &inverse})
      std::fill(matrix->entries().begin() + rest, matrix->entries().end(),
                std::bit_cast<double>(kUntouched));
    std::copy(r.entries().begin(), r.entries().end(), longer.entries().begin());
    std::vector<double> window(2 * 52 * 52, kestrane_test::kNaN), scratch(2 * 52, 1e300);
    const int stride = r.band().stride;
    invert_band({longer.entries().data(), 97, 51, stride},
                {inverse.entries().data(), 97, 51, stride}, window.data(), scratch.data(),
                forms[form]);
    for (auto at = inverse.entries().begin() + rest; at != inverse.entries().end(); ++at)
      ASSERT_EQ(kestrane_test::bits_of(*at), kUntouched);
    inverse.entries().resize(static_cast<std::size_t>(rest));
    for (const double value : inverse.entries()) ASSERT_TRUE(std::isfinite(value));
    BandedMatrix sums(45, 18);
    std::vector<double> right(45);
    const Stencil stencils[] = {{{0.1, 0.2, 0.3, 0.4}, {0.5, -0.1, 0.7, -0.1}, 2, 4},
                                {{0.3, 0.2, -0.3, 0.8}, {0.25, 0.25, 0.4, 0.1}, 3, 8}};
    const double values[] = {0.7, -1.3};
    const int members[] = {1, 0, 1};
    add_samples(stencils, values, members, 3, {2, 3, 5}, sums.band(), right.data(), forms[form]);
    EXPECT_EQ(right[4], 0.0);
    EXPECT_NEAR(right[5], 0.7 * 0.5 * 0.1, 1e-15);  // depth 4 of those from 3 on, ray 2 of 2
    EXPECT_NEAR(right[26], 2.0 * -1.3 * 0.25 * 0.3, 1e-15);
    for (const auto& part : {r.entries(), x, inverse.entries(), sums.entries(), right})
      results[form].insert(results[form].end(), part.begin(), part.end());
  }
  EXPECT_TRUE(kestrane_test::same_bits(results[1], results[0]));
}

TEST(AddSamples, AddsTheOuterProductOfTheWeights) {
  simulation::Random random(51);
  Stencil stencil{{}, {}, 1, 2};
  for (double& w : stencil.across) w = random.uniform(-1.0, 1.0);
  for (double& w : stencil.along) w = random.uniform(-1.0, 1.0);
  constexpr int kAcrossNodes = 6;
  Eigen::VectorXd a = Eigen::VectorXd::Zero(kAcrossNodes * 7);
  for (int j = 0; j < 4; ++j)
    for (int i = 0; i < 4; ++i)
      a[kAcrossNodes * (2 + j) + 1 + i] = stencil.along[j] * stencil.across[i];
  BandedMatrix sums(kAcrossNodes * 7, 3 * kAcrossNodes + 3);
  std::vector<double> right(static_cast<std::size_t>(kAcrossNodes * 7));
  const double value = 1.7;
  const int member = 0;
  add_samples(&stencil, &value, &member, 1, {0, 0, kAcrossNodes}, sums.band(), right.data(),
              best_vectors());
  EXPECT_LT((dense(sums) - a * a.transpose()).norm(), 1e-14);
  for (int n = 0; n < a.size(); ++n)
    EXPECT_NEAR(right[static_cast<std::size_t>(n)], value * a[n], 1e-15);
}

}  // namespace
