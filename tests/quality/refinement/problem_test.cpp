// The equations of a small problem and what follows from them, beside full matrices.
#include "quality/refinement/problem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "quality/refinement/free_quadratic.h"
#include "quality/refinement/penalty.h"
#include "quality/refinement/uncertainty.h"
#include "quality/refinement/validation.h"
#include "tests/quality/refinement/dense.h"
#include "tests/quality/refinement/small_problem.h"

namespace {

using namespace kestrane::quality::refinement;
using quality_tests::bent;
using quality_tests::dense;
using quality_tests::SmallProblem;

constexpr double kNear = 1e-8;

const auto kEverySample = [](std::size_t) { return true; };

// --- groups of frames ------------------------------------------------------------------------

TEST(GroupFrames, GoRoundByTheRankOfFramesThatCount) {
  SmallProblem scene({60, 7}, bent);
  const auto frame_of = [&](std::int32_t n) {
    return scene.samples.points[static_cast<std::size_t>(n)].frame;
  };
  for (std::size_t n = 0; n < scene.counted.size(); ++n)
    if (frame_of(static_cast<std::int32_t>(n)) == 2) scene.counted[n] = 0;  // ranks 0 1 - 2 3 4 5
  const Groups groups = group_frames(scene.problem(), 7, 4);
  EXPECT_EQ(groups.frames, 6);
  ASSERT_EQ(groups.members.size(), 4U);
  const std::set<std::int32_t> expected[] = {{0, 5}, {1, 6}, {3}, {4}};
  std::size_t members = 0;
  for (std::size_t g = 0; g < 4; ++g) {
    std::set<std::int32_t> frames;
    for (const std::int32_t n : groups.members[g]) {
      EXPECT_NE(scene.counted[static_cast<std::size_t>(n)], 0);
      frames.insert(frame_of(n));
    }
    EXPECT_EQ(frames, expected[g]) << g;
    EXPECT_TRUE(std::is_sorted(groups.members[g].begin(), groups.members[g].end()));
    EXPECT_EQ(groups.members[g].capacity(), groups.members[g].size());
    members += groups.members[g].size();
  }
  EXPECT_EQ(members,
            static_cast<std::size_t>(std::count(scene.counted.begin(), scene.counted.end(), 1)));
  EXPECT_EQ(group_frames(scene.problem(), 7, 20).members.size(), 6U);
}

// --- equations and solutions -----------------------------------------------------------------

TEST(EquationsOf, AreTheSumsOverSamplesThatCount) {
  const SmallProblem scene({80, 5}, bent);
  Eigen::MatrixXd matrix = Eigen::MatrixXd::Zero(42, 42);
  Eigen::VectorXd right = Eigen::VectorXd::Zero(42);
  for (std::size_t n = 0; n < 80; ++n) {
    if (scene.counted[n] == 0) continue;
    matrix += scene.row(n).transpose() * scene.row(n);
    right += scene.values[n] * scene.row(n).transpose();
  }
  const NormalEquations equations = equations_of(scene.problem());
  EXPECT_EQ(equations.samples, std::count(scene.counted.begin(), scene.counted.end(), 1));
  EXPECT_LT((dense(equations.matrix) - matrix).norm(), 1e-12 * matrix.norm());
  for (int n = 0; n < 42; ++n)
    EXPECT_NEAR(equations.right[static_cast<std::size_t>(n)], right[n], 1e-11);
}

TEST(SolveDamped, MinimisesResidualsAndBending) {
  const SmallProblem scene({240, 5}, bent);
  const Problem problem = scene.problem();
  const NormalEquations all = equations_of(problem);
  const Groups groups = group_frames(problem, 5, 5);
  const NormalEquations group =
      equations_of(problem.active, problem.stencils, problem.values, groups.members[2]);
  const BandedMatrix s = penalty(scene.nodes, scene.active, 2);
  BandedMatrix factor;
  std::vector<double> values;
  const auto expect_solution = [&](const Eigen::VectorXd& expected) {
    for (int n = 0; n < 42; ++n)
      EXPECT_NEAR(values[static_cast<std::size_t>(n)], expected[n], kNear) << n;
  };
  ASSERT_TRUE(solve_damped(all, nullptr, s, 1e-2, factor, values));
  expect_solution(scene.solution(dense(s), 1e-2, kEverySample));
  ASSERT_TRUE(solve_damped(all, &group, s, 1e-2, factor, values));
  expect_solution(scene.solution(dense(s), 1e-2, [&](std::size_t n) {
    const auto& members = groups.members[2];
    return std::count(members.begin(), members.end(), static_cast<std::int32_t>(n)) == 0;
  }));
}

TEST(SolveDamped, RefusesASystemWithoutAFactor) {
  const SmallProblem scene({20, 5}, bent);
  const NormalEquations none(scene.active);
  const BandedMatrix nothing(scene.active.count(), scene.active.band());
  BandedMatrix factor;
  std::vector<double> values;
  EXPECT_FALSE(solve_damped(none, nullptr, nothing, 1.0, factor, values));
  EXPECT_FALSE(solve_damped(equations_of(scene.problem()), nullptr, nothing, 1.0, factor, values));
}

// Quadratics are free under the third order, so what they are taken out of and put back to is the
// solution again, whatever values they are fitted to. Beyond the fan's edge, where the surface goes
// on straight, none is reproduced: no sample there counts.
TEST(FreeQuadratic, LeavesTheSolution) {
  SmallProblem scene({240, 5}, bent);
  for (std::size_t n = 0; n < scene.counted.size(); ++n) {
    const Sample& sample = scene.samples.points[n];
    if (sample.y > scene.nodes.u[15] * sample.z) scene.counted[n] = 0;
  }
  const BandedMatrix s = penalty(scene.nodes, scene.active, 3);
  BandedMatrix factor;
  std::vector<double> solved;
  ASSERT_TRUE(solve_damped(equations_of(scene.problem()), nullptr, s, 1e-2, factor, solved));
  simulation::Random random(3);
  std::vector<double> values(solved.size());
  for (double& value : values) value = random.uniform(-10.0, 10.0);
  free_quadratic(scene.problem(), factor, values);
  for (std::size_t n = 0; n < values.size(); ++n) EXPECT_NEAR(values[n], solved[n], 1e-7) << n;
}

// Where bending is damped so much that the solution loses digits, it gives an exact quadratic back.
TEST(FreeQuadratic, KeepsTheDigitsOfAQuadratic) {
  const auto quadratic = [](double u, double z) {
    const double y = u * z;
    return 100.0 + 0.5 * y - 0.2 * z + 2e-4 * y * y - 3e-4 * y * z + 1e-4 * z * z;
  };
  SmallProblem scene({240, 5, 0.0}, quadratic);
  for (std::size_t n = 0; n < scene.counted.size(); ++n) {
    const Sample& sample = scene.samples.points[n];
    if (sample.y > scene.nodes.u[15] * sample.z) scene.counted[n] = 0;
  }
  const BandedMatrix s = penalty(scene.nodes, scene.active, 3);
  BandedMatrix factor;
  std::vector<double> values;
  ASSERT_TRUE(solve_damped(equations_of(scene.problem()), nullptr, s, 1e5, factor, values));
  const auto error = [&] {
    double largest = 0.0;
    for (int j = 9; j < 16; ++j)
      for (int i = 10; i < 16; ++i)
        largest = std::max(
            largest,
            std::abs(values[static_cast<std::size_t>(scene.active.number(i, j))] -
                     quadratic(scene.nodes.u[static_cast<std::size_t>(i)], 150.0 + 27.0 * j)));
    return largest;
  };
  const double before = error();
  EXPECT_GT(before, 1e-7);
  free_quadratic(scene.problem(), factor, values);
  EXPECT_LT(error(), 1e-2 * before);
}

// --- frames left out -------------------------------------------------------------------------

// Squared residuals of a group against the block planes that all other frames give.
Squares plain_errors(const SmallProblem& scene, const Groups& groups, std::size_t group,
                     const BandedMatrix& s, double lambda) {
  const auto& members = groups.members[group];
  const auto is_member = [&](std::size_t n) {
    return std::count(members.begin(), members.end(), static_cast<std::int32_t>(n)) > 0;
  };
  const Eigen::VectorXd solved =
      scene.solution(dense(s), lambda, [&](std::size_t n) { return !is_member(n); });
  std::vector<double> fan;
  Continuation(scene.nodes, scene.active).apply({solved.begin(), solved.end()}, fan);
  const auto counts = part_counts(scene.grids, scene.samples.points, scene.counted);
  Squares squares;
  for (std::size_t n = 0; n < scene.values.size(); ++n) {
    const Sample& sample = scene.samples.points[n];
    if (!is_member(n) || sample.block < 0) continue;
    const BlockMap map(scene.nodes, scene.grids, sample.block,
                       counts[static_cast<std::size_t>(sample.block)]);
    squares.sum += std::pow(scene.values[n] - map.plane_of(fan).at(sample.y, sample.z), 2);
    ++squares.count;
  }
  return squares;
}

TEST(Validation, MeasuresAGroupAgainstThePlanesOfTheOthers) {
  const SmallProblem scene({240, 7}, bent);
  const Problem problem = scene.problem();
  const NormalEquations all = equations_of(problem);
  const Groups groups = group_frames(problem, 7, 4);
  Validation validation(problem, all, groups);
  for (const int order : {2, 3}) {
    const BandedMatrix s = penalty(scene.nodes, scene.active, order);
    for (const std::size_t group : {std::size_t{0}, std::size_t{3}}) {
      const Squares squares =
          validation.errors_of(group, validation.equations_of_group(group), s, 1e-2);
      const Squares expected = plain_errors(scene, groups, group, s, 1e-2);
      EXPECT_EQ(squares.count, expected.count);
      EXPECT_LT(squares.count, static_cast<std::int64_t>(groups.members[group].size()));
      EXPECT_NEAR(squares.sum, expected.sum, kNear);
    }
  }
}

TEST(Validation, CountsNothingWhereNoFrameIsLeft) {
  const SmallProblem scene({60, 3}, bent);
  const Problem problem = scene.problem();
  const NormalEquations all = equations_of(problem);
  Groups groups = group_frames(problem, 3, 3);
  for (const std::size_t other : {std::size_t{1}, std::size_t{2}})
    groups.members[0].insert(groups.members[0].end(), groups.members[other].begin(),
                             groups.members[other].end());
  groups.members.resize(1);
  std::sort(groups.members[0].begin(), groups.members[0].end());
  Validation validation(problem, all, groups);
  const BandedMatrix s = penalty(scene.nodes, scene.active, 2);
  EXPECT_EQ(validation.errors_of(0, validation.equations_of_group(0), s, 0.0).count, 0);
}

TEST(LeaveOutGroups, KeepsEverySolutionAndTheMeanSquare) {
  const SmallProblem scene({240, 7}, bent);
  const Problem problem = scene.problem();
  const NormalEquations all = equations_of(problem);
  const BandedMatrix s = penalty(scene.nodes, scene.active, 2);
  const Groups groups = group_frames(problem, 7, 3);
  const LeftOut left_out = leave_out_groups(problem, all, groups, s, {2, 1e-2});
  ASSERT_EQ(left_out.values.size(), 3U);
  Squares sum;
  Validation validation(problem, all, groups);
  for (std::size_t group = 0; group < 3; ++group) {
    const Squares squares =
        validation.errors_of(group, validation.equations_of_group(group), s, 1e-2);
    EXPECT_EQ(left_out.values[group], validation.values());
    sum.sum += squares.sum;
    sum.count += squares.count;
  }
  EXPECT_NEAR(left_out.squared_error, sum.sum / static_cast<double>(sum.count), 1e-14);
}

TEST(LeaveOutGroups, HasNoErrorOfASingleGroup) {
  const SmallProblem scene({60, 1}, bent);
  const Problem problem = scene.problem();
  const LeftOut left_out =
      leave_out_groups(problem, equations_of(problem), group_frames(problem, 1, 5),
                       penalty(scene.nodes, scene.active, 2), {2, 1e-2});
  EXPECT_TRUE(left_out.values.empty());
  EXPECT_TRUE(std::isnan(left_out.squared_error));
}

// --- standard deviations ---------------------------------------------------------------------

TEST(NodeSigma, IsTheLargerOfScatterAndFramesAndWhatBendingMayDo) {
  const SmallProblem scene({240, 7}, bent);
  const BandedMatrix s = penalty(scene.nodes, scene.active, 2);
  BandedMatrix factor;
  std::vector<double> values;
  ASSERT_TRUE(solve_damped(equations_of(scene.problem()), nullptr, s, 1e-2, factor, values));
  const BandedMatrix inverse = invert(factor);
  const Eigen::MatrixXd full = dense(inverse);
  const Continuation continuation(scene.nodes, scene.active);
  simulation::Random random(4);

  double bending = 0.0;  // mean square of the second differences along the rays
  for (int j = 1; j < 6; ++j)
    for (int i = 0; i < 6; ++i) {
      const auto at = [&](int k) { return values[static_cast<std::size_t>(6 * k + i)]; };
      bending += std::pow(at(j - 1) - 2.0 * at(j) + at(j + 1), 2) / 30.0;
    }
  const double curvature = std::sqrt(bending) / (27.0 * 27.0);

  for (const std::size_t m : {std::size_t{4}, std::size_t{5}, std::size_t{8}}) {
    for (const double wander : {1e-4, 1.0}) {
      LeftOut left_out;
      left_out.values.assign(m, values);
      for (auto& list : left_out.values)
        for (double& value : list) value += wander * random.uniform(-1.0, 1.0);
      const auto sigma = node_sigma(scene.active, continuation, inverse, 0.25, values, left_out);
      ASSERT_EQ(sigma.size(), static_cast<std::size_t>(kNodes));
      for (int j = 0; j < kAlong; ++j) {
        for (int i = 0; i < kAcross; ++i) {
          const Combination& sum = continuation.at(i, j);
          Eigen::VectorXd factors = Eigen::VectorXd::Zero(42);
          for (std::size_t t = 0; t < static_cast<std::size_t>(sum.count); ++t)
            factors[sum.number[t]] = sum.factor[t];
          double own = 0.25 * factors.dot(full * factors);
          double mean = 0.0, squares = 0.0;
          const auto of = [&](const std::vector<double>& list) {
            return factors.dot(Eigen::Map<const Eigen::VectorXd>(list.data(), 42));
          };
          for (const auto& list : left_out.values) mean += of(list) / static_cast<double>(m);
          for (const auto& list : left_out.values) squares += std::pow(of(list) - mean, 2);
          const auto groups = static_cast<double>(m);
          if (m >= 5)
            own = std::max(own, squares * std::pow(groups - 1.0, 2) / groups / (groups - 3.0));
          const double unseen = 0.5 * curvature * std::pow(sum.distance, 2);
          const double expected = std::sqrt(own + unseen * unseen);
          ASSERT_NEAR(sigma[node_index(i, j)] / expected, 1.0, 1e-9) << i << ", " << j;
        }
      }
    }
  }
}

}  // namespace
