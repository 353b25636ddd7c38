#include "solver/quiet_solve.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "ceres/autodiff_cost_function.h"
#include "ceres/loss_function.h"
#include "ceres/sized_cost_function.h"

namespace {

using kestrane::borrowed_parts;
using kestrane::solve_quietly;

// The distance of a number to three.
struct FromThree {
  template <class T>
  bool operator()(const T* x, T* residual) const {
    *residual = *x - T(3.0);
    return true;
  }
};

using ThreeCost = ceres::AutoDiffCostFunction<FromThree, 1, 1>;

struct Written {
  std::string output;
  std::string error;
};

template <class Work>
Written written_by(Work&& work) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  work();
  return {testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

TEST(SolveQuietly, LeavesTheSolutionInTheParameters) {
  ceres::Problem problem;
  double x = 0.0;
  problem.AddResidualBlock(new ThreeCost(new FromThree), nullptr, &x);
  const ceres::Solver::Summary summary = solve_quietly({}, problem);
  EXPECT_TRUE(summary.IsSolutionUsable());
  constexpr double kSolver = 1e-6;
  EXPECT_NEAR(x, 3.0, kSolver);
}

TEST(SolveQuietly, OverrulesOptionsThatTalk) {
  ceres::Problem problem;
  double x = 0.0;
  problem.AddResidualBlock(new ThreeCost(new FromThree), nullptr, &x);
  ceres::Solver::Options loud;
  loud.minimizer_progress_to_stdout = true;
  loud.logging_type = ceres::PER_MINIMIZER_ITERATION;
  const Written written = written_by([&] { solve_quietly(loud, problem); });
  EXPECT_EQ(written.output, "");
  EXPECT_EQ(written.error, "");
}

// Counts the blocks that are evaluated away from the thread that solves.
class OnThread : public ceres::SizedCostFunction<1, 1> {
 public:
  explicit OnThread(int& elsewhere) : elsewhere_(elsewhere) {}
  bool Evaluate(const double* const* x, double* residual, double** jacobian) const override {
    if (std::this_thread::get_id() != solving_) ++elsewhere_;
    *residual = x[0][0] - 3.0;
    if (jacobian != nullptr && jacobian[0] != nullptr) jacobian[0][0] = 1.0;
    return true;
  }

 private:
  std::thread::id solving_ = std::this_thread::get_id();
  int& elsewhere_;
};

TEST(SolveQuietly, StaysOnTheCallingThreadWhateverIsAskedFor) {
  int elsewhere = 0;
  ceres::Problem problem;
  double x[64] = {};
  for (double& value : x) problem.AddResidualBlock(new OnThread(elsewhere), nullptr, &value);
  ceres::Solver::Options options;
  options.num_threads = 2;
  const ceres::Solver::Summary summary = solve_quietly(options, problem);
  EXPECT_EQ(summary.num_threads_given, 1);
  EXPECT_EQ(elsewhere, 0);
}

TEST(SolveQuietly, KeepsTheOptionsThatAreTheCallers) {
  ceres::Problem problem;
  double x = 1e6;
  problem.AddResidualBlock(new ThreeCost(new FromThree), new ceres::CauchyLoss(0.1), &x);
  ceres::Solver::Options options;
  options.max_num_iterations = 1;
  EXPECT_EQ(solve_quietly(options, problem).termination_type, ceres::NO_CONVERGENCE);
}

// Tells when it ends.
class Mortal : public ceres::SizedCostFunction<1, 1> {
 public:
  explicit Mortal(bool& ended) : ended_(ended) {}
  ~Mortal() override { ended_ = true; }
  bool Evaluate(const double* const*, double*, double**) const override { return true; }

 private:
  bool& ended_;
};

TEST(BorrowedParts, StayTheirOwners) {
  bool ended = false;
  double x = 0.0;
  {
    Mortal cost(ended);
    ceres::CauchyLoss loss(1.0);
    {
      ceres::Problem problem(borrowed_parts());
      problem.AddResidualBlock(&cost, &loss, &x);
    }
    EXPECT_FALSE(ended);
  }
  EXPECT_TRUE(ended);
}

}  // namespace
