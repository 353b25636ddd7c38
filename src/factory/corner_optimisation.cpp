#include "factory/corner_optimisation.h"

#include <array>
#include <memory>

#include "ceres/autodiff_cost_function.h"
#include "ceres/loss_function.h"
#include "ceres/problem.h"
#include "ceres/solver.h"
#include "factory/cell_cost.h"
#include "factory/depth_cells.h"
#include "fit/solver_silence.h"
#include "fit/solver_threads.h"

namespace kestrane {
namespace {

constexpr double kLossScale = 0.1;
constexpr double kReach = 0.5;  // how far a corner's x may move, in the unit of the points

using CellCost = ceres::AutoDiffCostFunction<OPTIMISIZE_COST_FUNCTION_FIT, 1, 1, 1, 1, 1>;

void add_cell(const PointMatrix3& points, GridCorners& corners, std::size_t i, std::size_t j,
              ceres::LossFunction& loss, ceres::Problem& problem) {
  PointMatrix3 matrix(4, 3);
  gather_cell_corners(corners, i, j, matrix);
  auto functor = std::make_unique<OPTIMISIZE_COST_FUNCTION_FIT>(points, std::move(matrix));
  auto cost = std::make_unique<CellCost>(functor.get());
  static_cast<void>(functor.release());  // the cost function owns it now
  const std::array<double*, 4> x = {&corners[i][j].x(), &corners[i][j + 1].x(),
                                    &corners[i + 1][j].x(), &corners[i + 1][j + 1].x()};
  problem.AddResidualBlock(cost.release(), &loss, x[0], x[1], x[2], x[3]);
  for (double* corner_x : x) {
    problem.SetParameterLowerBound(corner_x, 0, *corner_x - kReach);
    problem.SetParameterUpperBound(corner_x, 0, *corner_x + kReach);
  }
}

}  // namespace

void optimize_grid_corners(const CellPoints& cell_points, GridCorners& grid_corners) {
  // The loss outlives the problem, which may end up without a block that would own it.
  ceres::CauchyLoss loss(kLossScale);
  ceres::Problem::Options ownership;
  ownership.loss_function_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
  ceres::Problem problem(ownership);
  for (std::size_t i = 0; i < cell_points.size(); ++i) {
    for (std::size_t j = 0; j < cell_points[i].size(); ++j) {
      if (cell_points[i][j].rows() == 0) continue;
      add_cell(cell_points[i][j], grid_corners, i, j, loss, problem);
    }
  }

  ceres::Solver::Options options;
  options.linear_solver_type = ceres::SPARSE_SCHUR;
  options.num_threads = solver_threads();
  options.minimizer_progress_to_stdout = false;
  options.logging_type = ceres::SILENT;
  ceres::Solver::Summary summary;
  const SolverSilence silence;
  ceres::Solve(options, &problem, &summary);
}

}  // namespace kestrane
