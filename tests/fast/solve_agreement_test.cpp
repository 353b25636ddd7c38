// The solve in one block held against the literal solve, one block per point: over many kinds of
// input the same steps, the same costs and the same motion.
//
// A kind whose planes do not fix the motion (fewer than three that are not parallel) is judged by
// its steps and costs alone: what nothing fixes is left to rounding.
#include <algorithm>
#include <cmath>
#include <functional>
#include <ostream>
#include <string>

#include "fast/transform_solve.h"
#include "simulation/random.h"
#include "solver/solver_silence.h"
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_solve.h"
#include "tests/support/sanitized.h"

namespace {

using namespace fast_support;
using simulation::Random;

constexpr int kSeeds = kestrane_test::seeds_to_draw(12);
constexpr double kSameCost = 1e-12;      // of the initial cost: what the report tells
constexpr double kSameStepCost = 1e-10;  // on the way, where a step's rounding meets a steep cost
constexpr double kSameMotion = 1e-9;     // radians, and the unit of the points

// One plane per laser plane, the same in all its cells: x as a function of y and z.
struct Lean {
  double offset;
  double by_y;
  double by_z;

  double x(double y, double z) const { return offset + by_y * y + by_z * z; }
  kestrane::_LASER_TRIPLE table_form() const {
    return {{-1.0 / offset, by_y / offset, by_z / offset}};
  }
};

struct Problem {
  std::vector<Lean> planes;
  PointSets points;
  fast_scene::Standard standard{1};
};

struct Recipe {
  int planes = 6;
  int points = 1500;      // per plane; half of them, and more than 4096 blocks in all
  double lean = 0.4;      // of the planes against x
  double turn = 1e-3;     // of the device, radians
  double shift = 0.2;     // of the device
  double noise = 0.03;    // along x
  double outliers = 0.0;  // share of points
  double reach = 5.0;     // of outliers
  double lost = 0.0;      // share of points outside the fan
  double empty = 0.0;     // share of cells
  double low = 200.0;     // depths of the points
  double high = 400.0;
  double width = 0.5;  // of the fan that they cover, in y / z
};

Eigen::Matrix3d turn_about(Eigen::Vector3d vector) {
  const double angle = vector.norm();
  return angle > 0 ? Eigen::AngleAxisd(angle, vector / angle).toRotationMatrix()
                   : Eigen::Matrix3d::Identity();
}

// A point of the plane after the motion at (y, z): x solves n'(p - q) = 0.
double moved_x(const Lean& lean, const Eigen::Matrix3d& R, const Eigen::Vector3d& t, double y,
               double z) {
  const Eigen::Vector3d n = R * Eigen::Vector3d(1.0, -lean.by_y, -lean.by_z);
  const Eigen::Vector3d q = R * Eigen::Vector3d(lean.offset, 0.0, 0.0) + t;
  return q.x() - (n.y() * (y - q.y()) + n.z() * (z - q.z())) / n.x();
}

PlanePoints measure(const Recipe& recipe, const Lean& lean, const Eigen::Matrix3d& R,
                    const Eigen::Vector3d& t, Random& random) {
  PlanePoints set(3, recipe.points);
  for (Eigen::Index j = 0; j < set.cols(); ++j) {
    const double z = random.uniform(recipe.low, recipe.high);
    const double y = random.uniform(-recipe.width, recipe.width) * z;
    double x = moved_x(lean, R, t, y, z) + recipe.noise * random.gaussian();
    if (random.uniform() < recipe.outliers) x += random.uniform(-recipe.reach, recipe.reach);
    set.col(j) << x, y, random.uniform() < recipe.lost ? z + 5000 : z;
  }
  return set;
}

std::vector<Lean> leaning_planes(const Recipe& recipe, Random& random) {
  std::vector<Lean> planes;
  for (int p = 0; p < recipe.planes; ++p) {
    planes.push_back({100 + 40 * random.uniform(), recipe.lean * random.gaussian(),
                      recipe.lean * random.gaussian()});
  }
  return planes;
}

Problem problem_over(const Recipe& recipe, std::vector<Lean> planes, Random& random) {
  Problem problem{std::move(planes), {}, fast_scene::Standard(recipe.planes)};
  const auto draw = [&] {
    return Eigen::Vector3d(random.gaussian(), random.gaussian(), random.gaussian());
  };
  const Eigen::Matrix3d R = turn_about(recipe.turn * draw());
  const Eigen::Vector3d t = recipe.shift * draw();
  for (int p = 0; p < recipe.planes; ++p) {
    const Lean& lean = problem.planes[static_cast<std::size_t>(p)];
    problem.standard.fill(p, lean.table_form());
    problem.points.push_back(measure(recipe, lean, R, t, random));
    for (int cell = 0; cell < 750; ++cell) {
      if (random.uniform() < recipe.empty) {
        problem.standard.cell(p, cell / 50, cell % 50) = {{0, 0, 0}};
      }
    }
  }
  return problem;
}

Problem leaning(const Recipe& recipe, std::uint64_t seed) {
  Random random(seed);
  return problem_over(recipe, leaning_planes(recipe, random), random);
}

// The simulated device, whose sheets nearly share one direction.
Problem device(int planes, int points, double noise, std::uint64_t seed) {
  Random random(seed);
  const auto sheets = simulation::make_device({.planes = planes, .seed = seed});
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.points = points;
  settings.seed = 1000 * seed;
  settings.noise = noise;
  Problem problem{{}, {}, fast_scene::Standard(sheets)};
  const simulation::Placement moved = simulation::rigid_motion(
      {3e-4 * random.gaussian(), 3e-4 * random.gaussian(), 3e-4 * random.gaussian()},
      {0.1 * random.gaussian(), 0.1 * random.gaussian(), 0.1 * random.gaussian()});
  for (const List& list : fast_scene::measure_all(sheets, moved, settings)) {
    problem.points.push_back(matrix_of(list));
  }
  return problem;
}

Problem with_parallel_planes(double by_y, double by_z, std::uint64_t seed) {
  Random random(seed);
  const Recipe recipe;
  std::vector<Lean> planes;
  for (int p = 0; p < recipe.planes; ++p) planes.push_back({100.0 + 8 * p, by_y, by_z});
  return problem_over(recipe, planes, random);
}

struct Kind {
  const char* name;
  bool fixes_the_motion;
  std::function<Problem(std::uint64_t)> make;
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

Kind recipe_kind(const char* name, const Recipe& recipe) {
  return {name, true, [recipe](std::uint64_t seed) { return leaning(recipe, seed); }};
}

// Every point of a plane's matrix is its first one.
void repeat_first_point(PlanePoints& set) {
  const Eigen::Vector3d first = set.col(0);
  for (Eigen::Index j = 0; j < set.cols(); ++j) set.col(j) = first;
}

std::vector<Kind> kinds() {
  return {
      recipe_kind("AFieldCalibration", {}),
      recipe_kind("NoMotion", {.turn = 0, .shift = 0}),
      recipe_kind("ASmallMotion", {.turn = 1e-6, .shift = 1e-3}),
      recipe_kind("ALargeMotion", {.turn = 0.03, .shift = 5}),
      recipe_kind("AVeryLargeMotion", {.turn = 0.2, .shift = 20}),
      recipe_kind("ExactPoints", {.noise = 0}),
      recipe_kind("LittleNoise", {.noise = 1e-4}),
      recipe_kind("NoiseAboveTheLoss", {.noise = 0.3}),
      recipe_kind("NoiseFarAboveTheLoss", {.noise = 3}),
      recipe_kind("SomeOutliers", {.outliers = 0.05}),
      recipe_kind("ManyOutliers", {.outliers = 0.4}),
      recipe_kind("FarOutliers", {.outliers = 0.1, .reach = 1e6}),
      recipe_kind("OutliersBeyondReason", {.outliers = 0.01, .reach = 1e60}),
      recipe_kind("PointsOutsideTheFan", {.lost = 0.3}),
      recipe_kind("EmptyCells", {.empty = 0.3}),
      recipe_kind("ThreePlanes", {.planes = 3, .points = 3000}),
      recipe_kind("ManyPlanes", {.planes = 60, .points = 150}),
      recipe_kind("SteepPlanes", {.lean = 2}),
      recipe_kind("PlanesThatLeanLittle", {.lean = 0.05}),
      recipe_kind("TheWholeDepth", {.low = 150, .high = 1400}),
      recipe_kind("ANarrowFan", {.width = 0.05}),
      recipe_kind("ShallowPoints", {.low = 299, .high = 301}),
      {"APlaneThatIsOff", true,
       [](std::uint64_t seed) {
         Problem problem = leaning({}, seed);
         problem.points[0].row(0).array() += 4.0;
         return problem;
       }},
      {"APlaneWithoutPoints", true,
       [](std::uint64_t seed) {
         Problem problem = leaning({.points = 2000}, seed);
         problem.points[2].resize(3, 0);
         return problem;
       }},
      {"OnePointOverAndOver", true,
       [](std::uint64_t seed) {
         Problem problem = leaning({.planes = 12, .points = 800, .noise = 0.3}, seed);
         for (PlanePoints& set : problem.points) repeat_first_point(set);
         return problem;
       }},
      {"TheSimulatedDevice", true, [](std::uint64_t seed) { return device(6, 1500, 0.05, seed); }},
      {"TheSimulatedDeviceWithNoise", true,
       [](std::uint64_t seed) { return device(20, 500, 0.5, seed); }},
      {"TwoPlanes", false,
       [](std::uint64_t seed) { return leaning({.planes = 2, .points = 4500}, seed); }},
      {"OnePlane", false,
       [](std::uint64_t seed) { return leaning({.planes = 1, .points = 9000}, seed); }},
      {"ParallelPlanes", false,
       [](std::uint64_t seed) { return with_parallel_planes(0.3, -0.2, seed); }},
      {"TwoPointsOverAndOver", false,
       [](std::uint64_t seed) {
         Problem problem = leaning({.planes = 2, .points = 4500, .noise = 0.3}, seed);
         for (PlanePoints& set : problem.points) repeat_first_point(set);
         return problem;
       }},
      {"PlanesAcrossOneAxis", false,
       [](std::uint64_t seed) { return with_parallel_planes(0.0, 0.0, seed); }},
  };
}

struct Outcome {
  ceres::Solver::Summary summary;
  Eigen::Matrix<double, 6, 1> motion = Eigen::Matrix<double, 6, 1>::Zero();
};

Outcome solve(const Problem& problem) {
  Outcome outcome;
  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &problem.standard.table();
  outcome.summary = kestrane::solve_motion(problem.points, &table, 0, outcome.motion.data(),
                                           outcome.motion.data() + 3);
  return outcome;
}

Outcome solve_literally(const Problem& problem) {
  Outcome outcome;
  const kestrane::SolverSilence silence;
  outcome.summary = literal::solve_motion(problem.points, &problem.standard.table(), 0, 1,
                                          outcome.motion.data(), outcome.motion.data() + 3);
  return outcome;
}

void expect_the_same_steps(const Outcome& actual, const Outcome& expected) {
  EXPECT_EQ(actual.summary.termination_type, expected.summary.termination_type);
  EXPECT_EQ(actual.summary.num_successful_steps, expected.summary.num_successful_steps);
  EXPECT_EQ(actual.summary.num_unsuccessful_steps, expected.summary.num_unsuccessful_steps);
  const double cost = expected.summary.initial_cost;
  EXPECT_NEAR(actual.summary.initial_cost, cost, kSameCost * cost);
  EXPECT_NEAR(actual.summary.final_cost, expected.summary.final_cost, kSameCost * cost);
}

void expect_the_same_way(const Outcome& actual, const Outcome& expected) {
  EXPECT_EQ(actual.summary.num_residual_blocks, 1);
  EXPECT_NEAR((actual.motion - expected.motion).cwiseAbs().maxCoeff(), 0.0, kSameMotion);
  ASSERT_EQ(actual.summary.iterations.size(), expected.summary.iterations.size());
  for (std::size_t i = 0; i < expected.summary.iterations.size(); ++i) {
    EXPECT_NEAR(actual.summary.iterations[i].cost, expected.summary.iterations[i].cost,
                kSameStepCost * expected.summary.initial_cost)
        << "iteration " << i;
  }
}

class SolveAgreement : public testing::TestWithParam<Kind> {};

TEST_P(SolveAgreement, GoesTheWayOfOneBlockPerPoint) {
  for (std::uint64_t seed = 1; seed <= kSeeds; ++seed) {
    SCOPED_TRACE(seed);
    const Problem problem = GetParam().make(seed);
    const Outcome expected = solve_literally(problem);
    const Outcome actual = solve(problem);
    ASSERT_GT(expected.summary.num_residual_blocks, 4096);
    expect_the_same_steps(actual, expected);
    if (GetParam().fixes_the_motion) expect_the_same_way(actual, expected);
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, SolveAgreement, testing::ValuesIn(kinds()),
                         [](const auto& kind) { return std::string(kind.param.name); });

}  // namespace
