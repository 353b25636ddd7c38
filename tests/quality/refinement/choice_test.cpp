#include "quality/refinement/choice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

#include "quality/refinement/penalty.h"
#include "quality/refinement/validation.h"
#include "tests/quality/refinement/small_problem.h"

namespace {

using namespace kestrane::quality::refinement;
using quality_tests::bent;
using quality_tests::SmallProblem;

using Errors = std::vector<double>;

// --- one comparison --------------------------------------------------------------------------

TEST(Caution, GrowsWithFewGroups) {
  EXPECT_EQ(caution(4), 1.3);
  EXPECT_EQ(caution(5), 1.3);
  EXPECT_EQ(caution(6), 1.1);
  EXPECT_EQ(caution(10), 1.1);
  EXPECT_EQ(caution(11), 1.0);
}

// By how many standard errors, caution included, the roots of the second errors are smaller.
double gain_of(const Errors& held, const Errors& other) {
  const auto n = static_cast<double>(held.size());
  double mean = 0.0, squares = 0.0;
  const auto difference = [&](std::size_t g) { return std::sqrt(held[g]) - std::sqrt(other[g]); };
  for (std::size_t g = 0; g < held.size(); ++g) mean += difference(g) / n;
  for (std::size_t g = 0; g < held.size(); ++g) squares += std::pow(difference(g) - mean, 2);
  return mean * std::sqrt(n) / std::sqrt(squares / (n - 1.0)) / caution(held.size());
}

TEST(SignificantlyBetter, IsSoByStandardErrorsOfTheRoots) {
  simulation::Random random(1);
  for (const std::size_t groups : {5U, 6U, 7U, 10U, 11U, 20U}) {
    Errors held, other;
    for (std::size_t g = 0; g < groups; ++g) {
      held.push_back(std::pow(random.uniform(1.0, 2.0), 2));
      other.push_back(std::pow(random.uniform(0.5, 1.5), 2));
    }
    const double gain = gain_of(held, other);
    ASSERT_GT(gain, 0.0);
    EXPECT_TRUE(is_significantly_better(held, other, gain * (1.0 - 1e-9))) << groups;
    EXPECT_FALSE(is_significantly_better(held, other, gain * (1.0 + 1e-9))) << groups;
    EXPECT_FALSE(is_significantly_better(other, held, 1e-9)) << groups;
  }
}

// Nine groups gain half of their error, one loses three times it: better in the mean of the roots,
// worse in that of the squares.
TEST(SignificantlyBetter, IsNothingThatIsWorseInTheMeanSquare) {
  const Errors held(10, 1.0);
  Errors other(10, 0.25);
  other[4] = 16.0;
  ASSERT_GT(gain_of(held, other), 0.0);
  EXPECT_FALSE(is_significantly_better(held, other, 1e-9));
  other[4] = 4.0;
  EXPECT_TRUE(is_significantly_better(held, other, 1e-9));
}

TEST(SignificantlyBetter, IsNothingBelowRounding) {
  EXPECT_FALSE(is_significantly_better({1e-19, 2e-19, 1e-19, 1e-19, 3e-19}, Errors(5, 0.0), 1e-9));
}

TEST(SignificantlyBetter, IsNothingWhereAnErrorIsUnknown) {
  Errors other = {0.1, 0.2, 0.1, 0.2, 0.1};
  EXPECT_TRUE(is_significantly_better(Errors(5, 1.0), other, 1.0));
  other[2] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(is_significantly_better(Errors(5, 1.0), other, 1.0));
  EXPECT_FALSE(is_significantly_better(other, Errors(5, 0.01), 1.0));
}

TEST(Scouts, AreEvenlySpreadAndAtMostFive) {
  using Groups = std::vector<std::size_t>;
  EXPECT_EQ(scouts_of(5), (Groups{0, 1, 2, 3, 4}));
  EXPECT_EQ(scouts_of(6), (Groups{0, 2, 4}));
  EXPECT_EQ(scouts_of(10), (Groups{0, 2, 4, 6, 8}));
  EXPECT_EQ(scouts_of(11), (Groups{0, 3, 6, 9}));
  EXPECT_EQ(scouts_of(20), (Groups{0, 4, 8, 12, 16}));
}

// Differences 1, 3 and 2: mean 2, deviation 1, so a standard error of 1 / sqrt 3.
TEST(Advantage, CountsStandardErrorsOfTheScoutedGroups) {
  const Errors held = {5.0, 99.0, 6.0, 7.0}, other = {4.0, 0.0, 3.0, 5.0};
  EXPECT_NEAR(advantage(held, other, {0, 2, 3}), 2.0 * std::sqrt(3.0), 1e-14);
  EXPECT_NEAR(advantage(other, held, {0, 2, 3}), -2.0 * std::sqrt(3.0), 1e-14);
  EXPECT_NEAR(advantage(held, other, {0, 2}), 2.0, 1e-14);  // 1 and 3: deviation sqrt 2
}

// --- the choice ------------------------------------------------------------------------------

struct Tried {
  Damping damping;
  double degrees;
  Errors errors;
  bool beaten;
};

// All dampings whose system has a factor: the one with fewer degrees of freedom of the next of
// either order, one after the other.
std::vector<Tried> plain_candidates(const NormalEquations& all,
                                    const BandedMatrix (&penalties)[2]) {
  std::vector<Tried> queues[2];
  for (const int order : {2, 3}) {
    const BandedMatrix& s = penalties[order - 2];
    for (int power = 5; power >= -5; --power) {
      const double lambda = std::stod("1e" + std::to_string(power));
      BandedMatrix factor;
      std::vector<double> values;
      if (!solve_damped(all, nullptr, s, lambda, factor, values)) continue;
      const double degrees = trace_of_product(invert(factor), all.matrix);
      queues[order - 2].push_back({{order, lambda}, degrees, {}, false});
    }
  }
  std::vector<Tried> candidates;
  auto second = queues[0].begin();
  auto third = queues[1].begin();
  while (second != queues[0].end() || third != queues[1].end()) {
    const bool takes_third =
        second == queues[0].end() || (third != queues[1].end() && third->degrees < second->degrees);
    candidates.push_back(takes_third ? *third++ : *second++);
  }
  return candidates;
}

class PlainChoice {
 public:
  using Change = void (*)(NormalEquations& all, BandedMatrix (&penalties)[2]);

  PlainChoice(const SmallProblem& scene, std::int32_t folds, Change change = nullptr)
      : problem_(scene.problem()),
        all_(equations_of(problem_)),
        groups_(group_frames(problem_, scene.samples.frames.size(), folds)),
        penalties_{penalty(scene.nodes, scene.active, 2), penalty(scene.nodes, scene.active, 3)},
        validation_(problem_, all_, groups_) {
    if (change != nullptr) change(all_, penalties_);
    const std::size_t count = groups_.members.size();
    const std::size_t step = (count + 4) / 5;
    for (std::size_t g = 0; g < count; g += step) scouts_.push_back(g);
    choose_scouted();
  }

  Damping choice(double significance) const {
    if (groups_.members.size() < 5 || worth_.empty()) return kPlaneDamping;
    const Tried* held = &worth_.front();
    for (const Tried& other : worth_)
      if (is_significantly_better(held->errors, other.errors, significance)) held = &other;
    return held->damping;
  }
  Damping chosen(double significance) const {
    return choose_damping(problem_, all_, groups_, penalties_, significance);
  }
  // The significances at which the first candidate gives way to some other one.
  std::vector<double> edges() const {
    std::vector<double> edges;
    for (std::size_t n = 1; n < worth_.size(); ++n)
      edges.push_back(gain_of(worth_.front().errors, worth_[n].errors));
    return edges;
  }

 private:
  double error(const Tried& tried, std::size_t group) {
    const Squares squares =
        validation_.errors_of(group, validation_.equations_of_group(group),
                              penalties_[tried.damping.order - 2], tried.damping.lambda);
    return squares.sum / static_cast<double>(squares.count);
  }
  double gain(const Tried& held, const Tried& other) const {
    return advantage(held.errors, other.errors, scouts_);
  }
  void choose_scouted() {
    std::vector<Tried> tried;
    int beaten = 0;
    for (Tried& next : plain_candidates(all_, penalties_)) {
      if (beaten == 4) break;
      next.errors.assign(groups_.members.size(), std::numeric_limits<double>::quiet_NaN());
      for (const std::size_t g : scouts_) next.errors[g] = error(next, g);
      for (const Tried& simpler : tried)
        if (!(gain(simpler, next) > 1.0)) next.beaten = true;
      beaten = next.beaten ? beaten + 1 : 0;
      tried.push_back(next);
    }
    for (std::size_t n = 0; n < tried.size(); ++n) {
      bool passed = false;
      for (std::size_t later = n; later < tried.size(); ++later)
        passed = passed || (!tried[later].beaten && gain(tried[n], tried[later]) > 5.0);
      if (!tried[n].beaten && !(passed && n > 0)) worth_.push_back(tried[n]);
    }
    for (Tried& candidate : worth_)
      for (std::size_t g = 0; g < candidate.errors.size(); ++g)
        if (std::isnan(candidate.errors[g])) candidate.errors[g] = error(candidate, g);
  }

  Problem problem_;
  NormalEquations all_;
  Groups groups_;
  BandedMatrix penalties_[2];
  Validation validation_;
  std::vector<std::size_t> scouts_;
  std::vector<Tried> worth_;
};

double rippled(double u, double z) { return bent(u, z) + 0.3 * std::sin(0.15 * z + 8.0 * u); }
double flat(double u, double z) { return 3.0 + 0.02 * z * u - 0.01 * z; }

struct Case {
  SmallProblem::Settings settings;
  double (*surface)(double, double);
  std::int32_t folds;
  PlainChoice::Change change = nullptr;
};

// Where the plain choice changes along a fine scale of significances, on both sides, and at the
// edges of the first candidate, and at some more `between`. Gives how many dampings were chosen.
std::size_t expect_plain_choices(const Case& c, const std::vector<double>& between = {}) {
  const SmallProblem scene(c.settings, c.surface);
  const PlainChoice plain(scene, c.folds, c.change);
  std::vector<double> significances = between;
  significances.push_back(1e-2);
  for (double s = 1e-2; s < 1e4; s *= 1.1) {
    const Damping here = plain.choice(s), next = plain.choice(1.1 * s);
    if (here.order != next.order || here.lambda != next.lambda)
      significances.insert(significances.end(), {s, 1.1 * s});
  }
  for (const double edge : plain.edges())
    for (const double side : {1.0 - 1e-5, 1.0 + 1e-5})
      if (edge > 0.0) significances.push_back(edge * side);
  std::set<std::pair<int, double>> seen;
  for (const double significance : significances) {
    const Damping expected = plain.choice(significance);
    const Damping chosen = plain.chosen(significance);
    EXPECT_EQ(chosen.order, expected.order) << c.settings.seed << ", " << significance;
    EXPECT_EQ(chosen.lambda, expected.lambda) << c.settings.seed << ", " << significance;
    seen.insert({expected.order, expected.lambda});
  }
  return seen.size();
}

TEST(ChooseDamping, TakesTheSimplestSurfaceThatTheFramesSupport) {
  expect_plain_choices({{240, 7, 0.05, 0.0, 1}, flat, 20});
  EXPECT_GE(expect_plain_choices({{240, 7, 0.05, 0.0, 2}, bent, 20}), 2U);
  expect_plain_choices({{300, 12, 0.3, 0.0, 4}, bent, 20});
  expect_plain_choices({{300, 16, 0.05, 0.1, 5}, bent, 11});
}

TEST(ChooseDamping, FollowsARippleStepByStep) {
  EXPECT_GE(expect_plain_choices({{300, 12, 0.02, 0.0, 3}, rippled, 20}), 2U);
  expect_plain_choices({{300, 6, 0.01, 0.02, 6}, rippled, 5});
  expect_plain_choices({{300, 15, 0.1, 0.05, 7}, rippled, 20});
}

// What a later one has passed is not held, however significant the step to that has to be.
TEST(ChooseDamping, FollowsABendWithLittleNoise) {
  const std::vector<double> between = {3.0, 5.0, 8.0, 12.0, 20.0, 35.0, 60.0};
  EXPECT_GE(expect_plain_choices({{300, 20, 0.005, 0.0, 12}, bent, 20}, between), 2U);
  expect_plain_choices({{300, 12, 0.02, 0.0, 14}, bent, 20}, between);
  expect_plain_choices({{300, 10, 0.0, 0.002, 13}, bent, 10}, between);
}

// The frames that are tried first lie on a flat sheet, all others on a bent one: what bends is
// beaten by the plane on the former, and is no candidate any more, although it is better over all.
TEST(ChooseDamping, DropsWhatIsBeatenOnTheScoutedFrames) {
  SmallProblem scene({400, 20, 0.02, 0.0, 15}, flat);
  for (std::size_t n = 0; n < scene.values.size(); ++n) {
    const Sample& sample = scene.samples.points[n];
    if (sample.frame % 4 != 0) scene.values[n] += 3.0 * std::pow(sample.z / 200.0 - 1.0, 2);
  }
  const PlainChoice plain(scene, 20);
  for (double significance = 1e-2; significance < 10.0; significance *= 1.5) {
    EXPECT_EQ(plain.chosen(significance).order, plain.choice(significance).order) << significance;
    EXPECT_EQ(plain.chosen(significance).lambda, plain.choice(significance).lambda) << significance;
  }
}

TEST(ChooseDamping, PassesOverSystemsWithoutAFactor) {
  expect_plain_choices({{240, 7, 0.02, 0.0, 8}, bent, 7, [](auto&, auto& penalties) {
                          penalties[0].row(20)[0] = -1e9;  // none of the second order
                        }});
  expect_plain_choices({{240, 7, 0.02, 0.0, 9}, bent, 7, [](auto&, auto& penalties) {
                          penalties[1].row(20)[0] = -1e9;  // none of the third
                        }});
  expect_plain_choices({{240, 7, 0.02, 0.0, 10}, rippled, 7, [](auto& all, auto&) {
                          all.matrix.row(20)[0] -= 15.0;  // none of the freer ones
                        }});
  expect_plain_choices({{240, 7, 0.02, 0.0, 10}, bent, 7, [](auto& all, auto& penalties) {
                          all.matrix.row(20)[0] -= 2e4;  // none but the first of either order
                          for (auto& penalty : penalties) penalty.row(20)[0] += 1.0;
                        }});
  expect_plain_choices(
      {{240, 7, 0.02, 0.0, 10}, bent, 7, [](auto& all, auto&) { all.matrix.row(20)[0] -= 170.0; }});
  expect_plain_choices({{240, 7, 0.02, 0.0, 11}, rippled, 7, [](auto&, auto& penalties) {
                          penalties[0].row(0)[0] -= 10.0;  // none that damps more
                          penalties[1].row(41)[0] -= 1e4;
                        }});
}

TEST(ChooseDamping, KeepsAPlaneWhereNoSystemHasAFactor) {
  const SmallProblem scene({240, 12, 0.001}, rippled);
  const PlainChoice plain(scene, 12, [](NormalEquations& all, BandedMatrix(&)[2]) {
    all.matrix.row(20)[0] = std::numeric_limits<double>::quiet_NaN();
  });
  EXPECT_EQ(plain.chosen(1e-3).order, 2);
  EXPECT_EQ(plain.chosen(1e-3).lambda, 1e5);
}

TEST(ChooseDamping, KeepsAPlaneWithFewerThanFiveGroups) {
  const SmallProblem scene({240, 12, 0.001}, rippled);
  EXPECT_EQ(PlainChoice(scene, 4).chosen(1e-3).lambda, 1e5);
  EXPECT_EQ(PlainChoice(scene, 4).chosen(1e-3).order, 2);
  EXPECT_LT(PlainChoice(scene, 5).chosen(1e-3).lambda, 1e5);
}

}  // namespace
