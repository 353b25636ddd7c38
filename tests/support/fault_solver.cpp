// Marks the allocations of the nonlinear solver: the linker's option --wrap leads every call of the
// library into it through the functions below, by the labels that they carry.
#include <string>

#include "ceres/problem.h"
#include "ceres/solver.h"
#include "tests/support/fault_heap.h"

using fault_heap::Inside;
using fault_heap::Place;

void real_solve(
    const ceres::Solver::Options& options, ceres::Problem* problem,
    ceres::Solver::Summary*
        summary) asm("__real__ZN5ceres5SolveERKNS_6Solver7OptionsEPNS_7ProblemEPNS0_7SummaryE");
void marked_solve(
    const ceres::Solver::Options& options, ceres::Problem* problem,
    ceres::Solver::Summary*
        summary) asm("__wrap__ZN5ceres5SolveERKNS_6Solver7OptionsEPNS_7ProblemEPNS0_7SummaryE");
void marked_solve(const ceres::Solver::Options& options, ceres::Problem* problem,
                  ceres::Solver::Summary* summary) {
  const Inside solver(Place::kSolve);
  real_solve(options, problem, summary);
}

void* real_add(ceres::Problem* problem, ceres::CostFunction* cost, ceres::LossFunction* loss, double* const* blocks, int count) asm(
    "__real__ZN5ceres7Problem16AddResidualBlockEPNS_12CostFunctionEPNS_12LossFunctionEPKPdi");
void* marked_add(ceres::Problem* problem, ceres::CostFunction* cost, ceres::LossFunction* loss, double* const* blocks, int count) asm(
    "__wrap__ZN5ceres7Problem16AddResidualBlockEPNS_12CostFunctionEPNS_12LossFunctionEPKPdi");
void* marked_add(ceres::Problem* problem, ceres::CostFunction* cost, ceres::LossFunction* loss,
                 double* const* blocks, int count) {
  const Inside solver(Place::kProblem);
  return real_add(problem, cost, loss, blocks, count);
}

void real_bound_below(ceres::Problem* problem, double* values, int index,
                      double bound) asm("__real__ZN5ceres7Problem22SetParameterLowerBoundEPdid");
void marked_bound_below(ceres::Problem* problem, double* values, int index,
                        double bound) asm("__wrap__ZN5ceres7Problem22SetParameterLowerBoundEPdid");
void marked_bound_below(ceres::Problem* problem, double* values, int index, double bound) {
  const Inside solver(Place::kProblem);
  real_bound_below(problem, values, index, bound);
}

void real_bound_above(ceres::Problem* problem, double* values, int index,
                      double bound) asm("__real__ZN5ceres7Problem22SetParameterUpperBoundEPdid");
void marked_bound_above(ceres::Problem* problem, double* values, int index,
                        double bound) asm("__wrap__ZN5ceres7Problem22SetParameterUpperBoundEPdid");
void marked_bound_above(ceres::Problem* problem, double* values, int index, double bound) {
  const Inside solver(Place::kProblem);
  real_bound_above(problem, values, index, bound);
}

void real_make(ceres::Problem* problem, const ceres::Problem::Options& options) asm(
    "__real__ZN5ceres7ProblemC1ERKNS0_7OptionsE");
void marked_make(ceres::Problem* problem, const ceres::Problem::Options& options) asm(
    "__wrap__ZN5ceres7ProblemC1ERKNS0_7OptionsE");
void marked_make(ceres::Problem* problem, const ceres::Problem::Options& options) {
  const Inside solver(Place::kProblem);
  real_make(problem, options);
}

void real_drop(ceres::Problem* problem) asm("__real__ZN5ceres7ProblemD1Ev");
void marked_drop(ceres::Problem* problem) asm("__wrap__ZN5ceres7ProblemD1Ev");
void marked_drop(ceres::Problem* problem) {
  const Inside solver(Place::kProblem);
  real_drop(problem);
}

std::string real_report(const ceres::Solver::Summary* summary) asm(
    "__real__ZNK5ceres6Solver7Summary11BriefReportB5cxx11Ev");
std::string marked_report(const ceres::Solver::Summary* summary) asm(
    "__wrap__ZNK5ceres6Solver7Summary11BriefReportB5cxx11Ev");
std::string marked_report(const ceres::Solver::Summary* summary) {
  const Inside solver(Place::kSolve);
  return real_report(summary);
}
