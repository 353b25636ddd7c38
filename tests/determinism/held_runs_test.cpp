// The same bits on one core and on two, in every run; and what they must be near.
//
// Each run has a process of its own, held to its cores before anything of the library or of the
// solver's libraries is loaded. A BLAS that would start threads of its own is told to use one: how
// it shares out its sums is its own affair.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/determinism/held_scenes.h"
#include "tests/literal/factory_calibration.h"
#include "tests/literal/fast_solve.h"
#include "tests/literal/plane_fit.h"

namespace {

// The first `count` of the cores that this process may use; fewer where there are not as many.
std::vector<int> first_cores(int count) {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  sched_getaffinity(0, sizeof allowed, &allowed);
  std::vector<int> cores;
  for (int core = 0; core < CPU_SETSIZE && std::ssize(cores) < count; ++core) {
    if (CPU_ISSET(core, &allowed)) cores.push_back(core);
  }
  return cores;
}

[[noreturn]] void become_held_run(const std::string& job, const std::vector<int>& cores, int end) {
  cpu_set_t held;
  CPU_ZERO(&held);
  for (const int core : cores) CPU_SET(core, &held);
  if (sched_setaffinity(0, sizeof held, &held) != 0) _exit(3);
  for (const char* name :
       {"OPENBLAS_NUM_THREADS", "OMP_NUM_THREADS", "MKL_NUM_THREADS", "BLIS_NUM_THREADS"}) {
    setenv(name, "1", 1);
  }
  constexpr int kResults = 3;
  dup2(end, kResults);
  if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(3);
  execl(HELD_RUN, HELD_RUN, job.c_str(), nullptr);
  _exit(4);
}

// All that a run has to tell, as it told it; empty where it failed.
std::string run_held(const std::string& job, const std::vector<int>& cores) {
  int ends[2];
  if (pipe(ends) != 0) return "";
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) become_held_run(job, cores, ends[1]);
  close(ends[1]);
  std::string told;
  std::array<char, 4096> part;
  for (ssize_t count = 0; (count = read(ends[0], part.data(), part.size())) > 0;) {
    told.append(part.data(), static_cast<std::size_t>(count));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? told : "";
}

std::vector<double> numbers_of(const std::string& told) {
  std::vector<double> numbers;
  const char* at = told.c_str();
  while (*at != '\0') {
    char* end = nullptr;
    numbers.push_back(std::strtod(at, &end));
    at = *end == '\n' ? end + 1 : end;
  }
  return numbers;
}

class HeldRuns : public testing::TestWithParam<const char*> {};

TEST_P(HeldRuns, GiveTheSameBitsOnOneCoreAndOnTwo) {
  const std::vector<int> two = first_cores(2);
  if (two.size() < 2) GTEST_SKIP() << "one core alone";
  const std::string first = run_held(GetParam(), {two[0]});
  ASSERT_FALSE(first.empty());
  EXPECT_EQ(run_held(GetParam(), {two[0]}), first);
  EXPECT_EQ(run_held(GetParam(), two), first);
  EXPECT_EQ(run_held(GetParam(), two), first);
}

INSTANTIATE_TEST_SUITE_P(Jobs, HeldRuns, testing::Values("factory", "field", "small_field"),
                         [](const auto& job) { return std::string(job.param); });

TEST(HeldRun, FailsWithoutAJob) { EXPECT_EQ(run_held("nothing", first_cores(1)), ""); }

// --- The transform ------------------------------------------------------------------------------

// Quaternion x, y, z, w, then the translation.
using Motion = std::array<double, 7>;

struct PinnedMotion {
  const char* job;
  int points_per_plane;
  Motion motion;
};

// The literal form's, which a test runs again: no formula gives where the steps end.
constexpr PinnedMotion kMotions[] = {
    {"field",
     held_scenes::kManyPoints,
     {0x1.4047b35bad725p-11, -0x1.1538fe5475996p-10, 0x1.a44cf41b8d835p-11, 0x1.ffffdc31b8dcp-1,
      0x1.404e2b830c389p-2, -0x1.50f7367dad7b4p-3, 0x1.d3f7556ff761cp-3}},
    {"small_field",
     held_scenes::kFewPoints,
     {0x1.cb26d105000eep-12, -0x1.239d1bb772d5dp-10, 0x1.a2acf64f7d2cdp-11, 0x1.ffffdd52aca04p-1,
      0x1.649fd67e58878p-2, -0x1.0e712efe46c5fp-2, 0x1.a9dcdc4feb8cap-3}}};

// Distributions differ in solver and BLAS, and they in their last digits.
constexpr double kAcrossLibraries = 1e-9;

void expect_motion(const double* numbers, const PinnedMotion& pin) {
  for (std::size_t i = 0; i < pin.motion.size(); ++i) {
    EXPECT_NEAR(numbers[i], pin.motion[i], kAcrossLibraries) << pin.job << ", number " << i;
  }
}

TEST(HeldRun, FindsThePinnedMotion) {
  for (const PinnedMotion& pin : kMotions) {
    const std::vector<double> numbers = numbers_of(run_held(pin.job, first_cores(1)));
    ASSERT_EQ(numbers.size(), 10U);
    expect_motion(numbers.data(), pin);
  }
}

Motion literal_motion(int points_per_plane) {
  const fast_scene::Standard standard(held_scenes::flat_sheets());
  const auto fit = [](const literal::PointMatrix3& cloud, double* plane) {
    literal::PlaneAbcd abcd(plane);
    literal::PlaneFitStats stats{};
    literal::PointMatrix3 inliers;
    literal::fit_plane_robust(cloud, abcd, stats, inliers, {220, 350}, 0);
    for (int i = 0; i < 4; ++i) plane[i] = abcd[i];
  };
  _MRV_EXTRINSIC_PARAM found{};
  literal::Indicators indicators{};
  EXPECT_TRUE(literal::calib_Rt(held_scenes::field_lists(points_per_plane), standard.table(), 0,
                                fit, found, indicators));
  Eigen::Matrix3d R;
  for (int i = 0; i < 9; ++i) R(i / 3, i % 3) = found.R[i];
  const Eigen::Quaterniond q = Eigen::Quaterniond(R).normalized();
  return {q.x(), q.y(), q.z(), q.w(), found.T[0], found.T[1], found.T[2]};
}

TEST(HeldRun, PinsTheMotionThatTheLiteralFormFinds) {
  for (const PinnedMotion& pin : kMotions) {
    const Motion motion = literal_motion(pin.points_per_plane);
    expect_motion(motion.data(), pin);
  }
}

// The motion of held_scenes.h, see derive_pins.py.
constexpr Motion kTrueMotion = {0x1.3a929bcbf249bp-11,
                                -0x1.1340485274007p-10,
                                0x1.a36e250fedb79p-11,
                                0x1.ffffdcb9d5352p-1,
                                0.31,
                                -0.17,
                                0.23};

TEST(HeldRun, PinsMotionsNearTheTrueOne) {
  constexpr double kNoise = 0.15;  // of a translation along the fan, from 4 x 250 points
  for (const PinnedMotion& pin : kMotions) {
    for (std::size_t i = 0; i < kTrueMotion.size(); ++i) {
      EXPECT_NEAR(pin.motion[i], kTrueMotion[i], i < 4 ? kNoise / 300.0 : kNoise) << pin.job;
    }
  }
}

// --- The final cost -----------------------------------------------------------------------------

// Half the sum of the loss over all cells, by the literal form of a cell's cost.
double cost_of(const literal::FactoryRun& run) {
  constexpr double kScale = 0.1;
  double cost = 0.0;
  for (std::size_t i = 0; i < 15; ++i) {
    for (std::size_t j = 0; j < 50; ++j) {
      if (run.cell_points[i][j].rows() == 0) continue;
      const literal::PointMatrix3 corners = literal::corners_of(run.grid_corners, i, j);
      const literal::CellCost cell{run.cell_points[i][j], corners};
      double residual = 0.0;
      EXPECT_TRUE(cell(&corners(0, 0), &corners(1, 0), &corners(2, 0), &corners(3, 0), &residual));
      cost += 0.5 * kScale * kScale * std::log1p(residual * residual / (kScale * kScale));
    }
  }
  return cost;
}

// Between two solvers, or two orders of one sum, the steps part in their last digits.
constexpr double kShareOfTheCost = 0.01;

// The literal form's, which the second test runs again: no formula gives where the steps end.
constexpr double kFinalCost = 0.0092687924772;

literal::FactoryRun literal_run() {
  literal::FactoryRun run;
  EXPECT_TRUE(literal::calibrate_plane(held_scenes::factory_cloud().points, true, run));
  return run;
}

TEST(HeldRun, EndsTheOptimisationAtThePinnedCost) {
  const std::vector<double> numbers = numbers_of(run_held("factory", first_cores(1)));
  ASSERT_EQ(numbers.size(), std::size_t{3 * (16 * 51 + 1 + 15 * 50)});
  literal::FactoryRun run = literal_run();
  for (std::size_t i = 0; i < 16; ++i) {
    for (std::size_t k = 0; k < 51; ++k) run.grid_corners[i][k].x() = numbers[3 * (51 * i + k)];
  }
  EXPECT_NEAR(cost_of(run) / kFinalCost, 1.0, kShareOfTheCost);
}

TEST(HeldRun, PinsTheCostThatTheLiteralFormEndsAt) {
  EXPECT_NEAR(cost_of(literal_run()) / kFinalCost, 1.0, kShareOfTheCost);
}

// A pin that held without the optimisation would tell nothing of it.
TEST(HeldRun, HasMuchToOptimise) {
  literal::FactoryRun run;
  ASSERT_TRUE(literal::calibrate_plane(held_scenes::factory_cloud().points, false, run));
  EXPECT_GT(cost_of(run), 1.1 * kFinalCost);
}

}  // namespace
