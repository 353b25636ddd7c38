#include "solver/quiet_solve.h"

#include "solver/solver_silence.h"

namespace kestrane {

ceres::Solver::Summary solve_quietly(ceres::Solver::Options options, ceres::Problem& problem) {
  options.num_threads = 1;
  options.logging_type = ceres::SILENT;
  options.minimizer_progress_to_stdout = false;
  const SolverSilence silence;
  ceres::Solver::Summary summary;
  ceres::Solve(options, &problem, &summary);
  return summary;
}

ceres::Problem::Options borrowed_parts() {
  ceres::Problem::Options options;
  options.cost_function_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
  options.loss_function_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
  return options;
}

}  // namespace kestrane
