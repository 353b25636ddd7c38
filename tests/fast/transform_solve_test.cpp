#include "fast/transform_solve.h"

#include <pthread.h>
#include <sched.h>

#include <cstdio>
#include <iostream>
#include <streambuf>
#include <string>

#include "fast/residual_measurement.h"
#include "simulation/random.h"
#include "solver/quiet_solve.h"
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_solve.h"

namespace {

using namespace fast_support;
using kestrane::solve_transform;
using simulation::Random;

int blocks_of(const PointSets& points) {
  static const fast_scene::Standard standard = flat_standard(10);
  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &standard.table();
  double rotation[3] = {0, 0, 0}, translation[3] = {0, 0, 0};
  kestrane::ResidualParts parts;
  ceres::Problem problem(kestrane::borrowed_parts());
  kestrane::add_residual_blocks(problem, parts, points, &table, 0, rotation, translation);
  return problem.NumResidualBlocks();
}

PlanePoints on_sheet(int count) {
  PlanePoints points(3, count);
  for (int j = 0; j < count; ++j) points.col(j) << 128.0, -60.0 + 8.0 * (j % 16), 224.0 + 4.0 * j;
  return points;
}

TEST(AddResidualBlocks, TakesEverySecondPointAndTheFirst) {
  for (int count = 0; count <= 7; ++count) {
    EXPECT_EQ(blocks_of({on_sheet(count)}), (count + 1) / 2) << count;
  }
}

TEST(AddResidualBlocks, StartsAnewWithEachPlane) {
  EXPECT_EQ(blocks_of({on_sheet(3), on_sheet(0), on_sheet(1), on_sheet(4)}), 5);
}

TEST(AddResidualBlocks, GivesEachBlockRotationThenTranslationAndTheSharedLoss) {
  const fast_scene::Standard standard = flat_standard(2);
  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &standard.table();
  double rotation[3] = {0, 0, 0}, translation[3] = {0, 0, 0};
  kestrane::ResidualParts parts;
  ceres::Problem problem(kestrane::borrowed_parts());
  kestrane::add_residual_blocks(problem, parts, {on_sheet(4), on_sheet(2)}, &table, 0, rotation,
                                translation);
  std::vector<ceres::ResidualBlockId> blocks;
  problem.GetResidualBlocks(&blocks);
  ASSERT_EQ(blocks.size(), 3u);
  for (const auto& block : blocks) {
    std::vector<double*> parameters;
    problem.GetParameterBlocksForResidualBlock(block, &parameters);
    EXPECT_EQ(parameters, (std::vector<double*>{rotation, translation}));
    EXPECT_EQ(problem.GetLossFunctionForResidualBlock(block), &parts.loss);
  }
}

TEST(AddResidualBlocks, WeighsWithACauchyLossOfScaleOneTenth) {
  const fast_scene::Standard standard = flat_standard(1);
  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &standard.table();
  double rotation[3] = {0, 0, 0}, translation[3] = {0, 0, 0};
  kestrane::ResidualParts parts;
  ceres::Problem problem(kestrane::borrowed_parts());
  kestrane::add_residual_blocks(problem, parts, {columns({{130.0, 0, 300}})}, &table, 0, rotation,
                                translation);
  double cost = 0;
  problem.Evaluate({}, &cost, nullptr, nullptr, nullptr);
  constexpr double kRounding = 1e-15;
  EXPECT_NEAR(cost, 0.5 * 0.01 * std::log(1 + 2.0 * 2.0 / 0.01), kRounding);
}

// A cost function with value and derivatives at one motion.
struct Evaluated {
  double alone = -1;
  double value = -1;
  double by_rotation[3] = {-1, -1, -1};
  double by_translation[3] = {-1, -1, -1};

  Evaluated(const ceres::CostFunction& cost, const double* rotation, const double* translation) {
    const double* parameters[2] = {rotation, translation};
    double* jacobians[2] = {by_rotation, by_translation};
    EXPECT_TRUE(cost.Evaluate(parameters, &alone, nullptr));
    EXPECT_TRUE(cost.Evaluate(parameters, &value, jacobians));
  }
};

// Cells whose largest component lies along any axis, and motions of any size.
TEST(AddResidualBlocks, EqualsTheLiteralCostInValueAndDerivativesToTheLastBit) {
  Random random(31);
  constexpr int kBlocks = 8;
  for (int i = 0; i < 600; ++i) {
    fast_scene::Standard standard = flat_standard(1);
    const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &standard.table();
    for (double& v : standard.cell(0, 7, 5).v) v = random.gaussian();
    if (random.index(4) == 0) standard.cell(0, 7, 5).v[random.index(3)] = 0.0;
    const double x = random.uniform(-200, 200);
    const double y = random.uniform(-10, 10);
    const double z = random.uniform(286, 310);
    double rotation[3], translation[3];
    const double size = i % 50 == 0 ? 0.0 : std::pow(10.0, random.uniform(-12, 0.6));
    for (double& v : rotation) v = size * random.gaussian();
    for (double& v : translation) v = random.gaussian();
    kestrane::ResidualParts parts;
    ceres::Problem problem(kestrane::borrowed_parts());
    PlanePoints points(3, 2 * kBlocks);
    for (int j = 0; j < 2 * kBlocks; ++j) points.col(j) << x + j, y, z;
    kestrane::add_residual_blocks(problem, parts, {points}, &table, 0, rotation, translation);
    for (int b = 0; b < kBlocks; ++b) {
      const ceres::AutoDiffCostFunction<literal::CellDistance, 1, 3, 3> plain(
          new literal::CellDistance{x + 2 * b, y, z, &table, 0, 1.0});
      const Evaluated actual(parts.costs[static_cast<std::size_t>(b)], rotation, translation);
      const Evaluated expected(plain, rotation, translation);
      ASSERT_NE(expected.value, 10.0) << "no cell there";
      ASSERT_TRUE(same_bits(actual.alone, expected.alone));
      ASSERT_TRUE(same_bits(actual.value, expected.value));
      for (int d = 0; d < 3; ++d) {
        ASSERT_TRUE(same_bits(actual.by_rotation[d], expected.by_rotation[d])) << d;
        ASSERT_TRUE(same_bits(actual.by_translation[d], expected.by_translation[d])) << d;
      }
    }
  }
}

// A solve with both outputs captured.
struct Solved {
  _KESTRANE_STATUS status;
  Eigen::Matrix4d transform = Eigen::Matrix4d::Constant(-7);
  std::string report;
  std::string complaints;
};

Solved solve(const PointSets& points, const fast_scene::Standard& standard, int first = 0) {
  Solved result;
  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &standard.table();
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  result.status = solve_transform(points, &table, first, 0, result.transform);
  result.complaints = testing::internal::GetCapturedStderr();
  result.report = testing::internal::GetCapturedStdout();
  return result;
}

void expect_identity(const Eigen::Matrix4d& transform) {
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) EXPECT_EQ(transform(i, j), i == j ? 1.0 : 0.0);
  }
}

TEST(SolveTransform, LeavesPointsOnTheirCellsWhereTheyAre) {
  const Solved solved = solve({on_sheet(24)}, flat_standard(1));
  EXPECT_EQ(solved.status, KESTRANE_OK);
  expect_identity(solved.transform);
}

TEST(SolveTransform, EndsWithTheIdentityWithoutPoints) {
  for (const PointSets& points : {PointSets{}, PointSets(3, PlanePoints(3, 0))}) {
    const Solved solved = solve(points, flat_standard(1));
    EXPECT_EQ(solved.status, KESTRANE_OK);
    expect_identity(solved.transform);
  }
}

TEST(SolveTransform, EndsWithTheIdentityWherePointsHaveNoCells) {
  const Solved solved = solve({columns({{128, 0, 2000}, {128, 0, 300}})}, flat_standard(1));
  EXPECT_EQ(solved.status, KESTRANE_OK);
  expect_identity(solved.transform);
}

TEST(SolveTransform, CannotUseAPointThatIsNotANumber) {
  const Solved solved =
      solve({columns({{128, 0, 300}, {0, 0, 0}, {kNaN, 0, 300}})}, flat_standard(1));
  EXPECT_EQ(solved.status, KESTRANE_ERR_SOLVE_FAILED);
  expect_identity(solved.transform);
}

TEST(SolveTransform, DoesNotSeeThePointsInBetween) {
  const Solved solved =
      solve({columns({{128, 0, 300}, {kNaN, 0, 300}, {128, 9, 310}})}, flat_standard(1));
  EXPECT_EQ(solved.status, KESTRANE_OK);
  expect_identity(solved.transform);
}

TEST(SolveTransform, WritesOneReportAndNothingElse) {
  const Solved solved = solve({on_sheet(24)}, flat_standard(1));
  EXPECT_EQ(solved.report.rfind("Ceres Solver Report: Iterations: ", 0), 0u) << solved.report;
  EXPECT_NE(solved.report.find("Termination: CONVERGENCE\n"), std::string::npos);
  EXPECT_EQ(solved.report.find('\n'), solved.report.size() - 1);
  EXPECT_EQ(solved.complaints, "");
}

TEST(SolveTransform, ReportsASolveThatIsNotUsableToo) {
  const Solved solved = solve({columns({{kInf, 0, 300}})}, flat_standard(1));
  EXPECT_EQ(solved.status, KESTRANE_ERR_SOLVE_FAILED);
  EXPECT_NE(solved.report.find("Termination: FAILURE\n"), std::string::npos) << solved.report;
}

TEST(SolveTransform, FlushesTheReport) {
  const fast_scene::Standard standard = flat_standard(1);
  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &standard.table();
  class CountingBuffer : public std::stringbuf {
   public:
    int flushes = 0;

   protected:
    int sync() override {
      ++flushes;
      return 0;
    }
  } buffer;
  std::streambuf* before = std::cout.rdbuf(&buffer);
  Eigen::Matrix4d transform;
  solve_transform({on_sheet(4)}, &table, 0, 0, transform);
  std::cout.rdbuf(before);
  EXPECT_GE(buffer.flushes, 1);
  EXPECT_EQ(buffer.str().back(), '\n');
}

// Standard output that takes nothing, as on a full disk, of a host that wants to know.
class FullOutput {
 public:
  FullOutput() : before_(std::cout.rdbuf(&full_)) { std::cout.exceptions(kAll); }
  ~FullOutput() {
    std::cout.exceptions(std::ios::goodbit);
    std::cout.rdbuf(before_);
    std::cout.clear();
  }
  FullOutput(const FullOutput&) = delete;
  FullOutput& operator=(const FullOutput&) = delete;

 private:
  static constexpr std::ios::iostate kAll = std::ios::badbit | std::ios::failbit | std::ios::eofbit;
  class Full : public std::streambuf {
    int sync() override { return -1; }
  } full_;
  std::streambuf* before_;
};

TEST(SolveTransform, DoesNotThrowWhereStandardOutputIsFull) {
  const fast_scene::Standard standard = flat_standard(1);
  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &standard.table();
  Eigen::Matrix4d transform;
  const FullOutput full;
  _KESTRANE_STATUS status = KESTRANE_ERR_FAILED;
  EXPECT_NO_THROW(status = solve_transform({on_sheet(4)}, &table, 0, 0, transform));
  EXPECT_EQ(status, KESTRANE_OK);
  EXPECT_TRUE(std::cout.bad()) << "the host can see it";
}

// A host may end its thread in a stream of its own: that is no exception to be caught.
TEST(SolveTransform, LetsAThreadEndInsideStandardOutput) {
  class Ending : public std::streambuf {
    int overflow(int) override { pthread_exit(this); }
    std::streamsize xsputn(const char*, std::streamsize) override { pthread_exit(this); }
  } ending;
  std::streambuf* before = std::cout.rdbuf(&ending);
  pthread_t thread;
  const auto solve_one = [](void*) -> void* {
    const fast_scene::Standard standard = flat_standard(1);
    const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &standard.table();
    Eigen::Matrix4d transform;
    solve_transform({on_sheet(4)}, &table, 0, 0, transform);
    return nullptr;  // not reached
  };
  const bool started = pthread_create(&thread, nullptr, solve_one, nullptr) == 0;
  void* ended_by = nullptr;
  if (started) pthread_join(thread, &ended_by);
  std::cout.rdbuf(before);
  std::cout.clear();
  ASSERT_TRUE(started);
  EXPECT_EQ(ended_by, &ending);
}

TEST(SolveTransform, StaysOffStandardErrorWhateverThePointsAre) {
  fast_scene::Standard odd = flat_standard(2);
  odd.cell(0, 7, 5) = {{0.0, 0.5, 0.25}};
  odd.cell(0, 7, 6) = {{kNaN, 0.5, 0.25}};
  odd.cell(0, 7, 7) = {{kInf, 0.0, 0.0}};
  odd.cell(0, 7, 8) = {{1e200, 1e-200, 0.0}};
  odd.cell(0, 7, 9) = {{1e-15, 0.0, 0.0}};
  const std::vector<Eigen::Vector3d> points = {
      {128, 0, 300},    {kNaN, 0, 300},   {kInf, 0, 300}, {-kInf, 0, 300},  {128, 0, 325},
      {128, 0, 350},    {128, 0, 380},    {128, 0, 410},  {1e200, 0, 300},  {1e308, 0, 425},
      {-1e160, 0, 440}, {128, kNaN, 300}, {128, 0, kNaN}, {128, kInf, 300}, {1e154, 0, 500}};
  for (const Eigen::Vector3d& point : points) {
    const Solved alone = solve({columns({point})}, odd);
    EXPECT_EQ(alone.complaints, "") << point.transpose();
    const Solved among = solve({on_sheet(24), columns({point, point, point})}, odd);
    EXPECT_EQ(among.complaints, "") << point.transpose();
  }
}

// Leaves this thread one processor while it lives, so that the solver runs on one thread.
class OneProcessor {
 public:
  OneProcessor() {
    EXPECT_EQ(sched_getaffinity(0, sizeof before_, &before_), 0);
    cpu_set_t single;
    CPU_ZERO(&single);
    for (int cpu = 0; cpu < CPU_SETSIZE && CPU_COUNT(&single) == 0; ++cpu) {
      if (CPU_ISSET(cpu, &before_)) CPU_SET(cpu, &single);
    }
    EXPECT_EQ(sched_setaffinity(0, sizeof single, &single), 0);
  }
  ~OneProcessor() { sched_setaffinity(0, sizeof before_, &before_); }
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

 private:
  cpu_set_t before_;
};

// Points of four sheets that are off by a lot, over which a solve takes its time.
PointSets scattered(std::uint64_t seed, const std::vector<simulation::Sheet>& sheets) {
  Random random(seed);
  constexpr double kScatter[3] = {0.3, 3.0, 20.0};
  PointSets points;
  for (std::size_t i = 0; i < 4; ++i) {
    PlanePoints set(3, 40 + random.index(60));
    for (Eigen::Index j = 0; j < set.cols(); ++j) {
      const double z = random.uniform(220, 350);
      const double y = random.uniform(-0.5, 0.5) * z;
      set.col(j) << simulation::sheet_x(sheets[i], y, z) + kScatter[seed % 3] * random.gaussian(),
          y, z;
    }
    points.push_back(set);
  }
  return points;
}

// The report of a solve on one thread with these settings and the solver's own for all others.
std::string report_with(ceres::LinearSolverType linear, int iterations, const PointSets& points,
                        const fast_scene::Standard& standard) {
  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &standard.table();
  double rotation[3] = {0, 0, 0}, translation[3] = {0, 0, 0};
  kestrane::ResidualParts parts;
  ceres::Problem problem(kestrane::borrowed_parts());
  kestrane::add_residual_blocks(problem, parts, points, &table, 0, rotation, translation);
  ceres::Solver::Options options;
  options.linear_solver_type = linear;
  options.max_num_iterations = iterations;
  options.logging_type = ceres::SILENT;
  ceres::Solver::Summary summary;
  ceres::Solve(options, &problem, &summary);
  return summary.BriefReport() + "\n";
}

TEST(SolveTransform, StopsAfterFiftyIterationsOfTheIterativeSolver) {
  const OneProcessor one;  // all bits are the same then
  const auto sheets = simulation::make_device({.planes = 4});
  const fast_scene::Standard standard(sheets);
  int at_the_limit = 0, told_apart = 0;
  for (std::uint64_t seed = 0; seed < 12; ++seed) {
    const PointSets points = scattered(seed, sheets);
    const Solved solved = solve(points, standard);
    EXPECT_EQ(solved.report, report_with(ceres::ITERATIVE_SCHUR, 50, points, standard)) << seed;
    told_apart += solved.report == report_with(ceres::DENSE_QR, 50, points, standard) ? 0 : 1;
    EXPECT_EQ(solved.status, KESTRANE_OK) << "usable also at the limit";
    if (solved.report.find("NO_CONVERGENCE") == std::string::npos) continue;
    ++at_the_limit;
    EXPECT_NE(solved.report.find("Iterations: 51,"), std::string::npos) << solved.report;
    EXPECT_NE(solved.transform(0, 3), 0.0) << "what was reached counts";
  }
  EXPECT_GT(at_the_limit, 0);
  EXPECT_GT(told_apart, 0);
}

TEST(SolveTransform, AsksForNoMoreThreadsThanThereAre) {
  const OneProcessor one;
  const Solved solved = solve({on_sheet(24)}, flat_standard(1));
  EXPECT_EQ(solved.status, KESTRANE_OK);
  EXPECT_EQ(solved.complaints, "");
}

TEST(SolveTransform, FindsTheShiftOfASheet) {
  PlanePoints points = on_sheet(200);
  for (Eigen::Index j = 0; j < points.cols(); ++j) {
    points.col(j) << 128.5, -60.0 + 0.6 * static_cast<double>(j),
        220.0 + 0.6 * static_cast<double>((j * 37) % 200);
  }
  const Solved solved = solve({points}, flat_standard(1));
  ASSERT_EQ(solved.status, KESTRANE_OK);
  // The solver stops at a relative change of the cost of 1e-6; in x that is far below this.
  constexpr double kSolver = 1e-4;
  const Eigen::Matrix3d R = solved.transform.topLeftCorner<3, 3>();
  const Eigen::Vector3d t = solved.transform.topRightCorner<3, 1>();
  const Eigen::Vector3d normal = R.col(0);
  for (Eigen::Index j = 0; j < points.cols(); ++j) {
    EXPECT_NEAR(normal.dot(points.col(j) - (128.0 * normal + t)), 0.0, kSolver);
  }
  constexpr double kOrthonormal = 1e-14;
  EXPECT_NEAR((R * R.transpose() - Eigen::Matrix3d::Identity()).norm(), 0.0, kOrthonormal);
  EXPECT_EQ(solved.transform(3, 0), 0.0);
  EXPECT_EQ(solved.transform(3, 3), 1.0);
}

TEST(SolveTransform, AgreesWithTheLiteralSolve) {
  const auto sheets = simulation::make_device({.planes = 6});
  const fast_scene::Standard standard(sheets);
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.points = 800;
  PointSets points;
  for (const List& list : fast_scene::measure_all(
           sheets, simulation::rigid_motion({3e-4, -2e-4, 4e-4}, {0.15, 0.0, -0.1}), settings)) {
    points.push_back(matrix_of(list));
  }
  const Solved solved = solve(points, standard);
  _MRV_EXTRINSIC_PARAM expected;
  ASSERT_TRUE(literal::solve_transform(points, &standard.table(), 0, expected));
  // The literal solve may run on two threads, whose sums differ in their order; that is enlarged
  // along y, which the sheets hardly fix.
  constexpr double kThreads = 1e-7;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      EXPECT_NEAR(solved.transform(i, j), expected.R[3 * i + j], kThreads);
    }
  }
  EXPECT_NEAR(solved.transform(0, 3), expected.T[0], kThreads);
  EXPECT_NEAR(solved.transform(2, 3), expected.T[2], kThreads);
}

// Points on planes that lean in all directions.
struct Leaning {
  fast_scene::Standard standard{4};
  PointSets points;

  explicit Leaning(int points_per_plane) {
    Random random(17);
    for (int p = 0; p < 4; ++p) {
      const double b = 0.3 * random.gaussian(), c = 0.3 * random.gaussian();
      standard.fill(p, {{-1.0 / 128, b / 128, c / 128}});
      PlanePoints set(3, points_per_plane);
      for (Eigen::Index j = 0; j < set.cols(); ++j) {
        const double z = random.uniform(220, 350), y = random.uniform(-100, 100);
        set.col(j) << 128 + b * y + c * z + 0.05 * random.gaussian(), y, z;
      }
      points.push_back(set);
    }
  }
};

int blocks_solved(const PointSets& points, const fast_scene::Standard& standard) {
  const kestrane::_LASER_PLANE_BLOCK_INFOS* table = &standard.table();
  double rotation[3] = {0, 0, 0}, translation[3] = {0, 0, 0};
  return kestrane::solve_motion(points, &table, 0, rotation, translation).num_residual_blocks;
}

TEST(SolveMotion, GivesUpTo4096PointsABlockEach) {
  Leaning scene(2048);
  EXPECT_EQ(blocks_solved(scene.points, scene.standard), 4096);
  scene.points[3].conservativeResize(3, 2049);
  scene.points[3].col(2048) = scene.points[3].col(0);
  EXPECT_EQ(blocks_solved(scene.points, scene.standard), 1);
  scene.points[3](2, 2048) = 5000;
  EXPECT_EQ(blocks_solved(scene.points, scene.standard), 1) << "a point without a cell counts";
}

TEST(SolveMotion, GivesEachPointABlockOverPlanesAcrossOneAxis) {
  const Leaning scene(2400);
  EXPECT_EQ(blocks_solved(scene.points, flat_standard(4)), 4800);
}

TEST(SolveMotion, GivesEachPointABlockWhereOneIsNotFinite) {
  Leaning scene(2400);
  scene.points[1](0, 6) = kNaN;
  EXPECT_EQ(blocks_solved(scene.points, scene.standard), 4800);
}

TEST(SolveMotion, HasTheSameBitsInEveryRun) {
  const Leaning scene(3000);
  const Solved first = solve(scene.points, scene.standard);
  const Solved second = solve(scene.points, scene.standard);
  EXPECT_EQ(first.transform, second.transform);
  EXPECT_EQ(first.report, second.report);
}

}  // namespace
