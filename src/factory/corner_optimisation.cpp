#include "factory/corner_optimisation.h"

#include <array>
#include <deque>

#include "ceres/loss_function.h"
#include "ceres/problem.h"
#include "factory/grid_corners.h"
#include "factory/reduced_cell_cost.h"
#include "solver/quiet_solve.h"

namespace kestrane {
namespace {

constexpr double kLossScale = 0.1;
constexpr double kReach = 0.5;  // how far a corner's x may move, in the unit of the points

// What the residual blocks are made of. It outlives the problem, which only refers to it: the loss
// has an owner without any block too, and no failed allocation can lose a part.
struct CellParts {
  ceres::CauchyLoss loss{kLossScale};  // shared by all blocks
  std::deque<ReducedCellCost> costs;
};

void add_cell(const PointMatrix3& points, GridCorners& corners, std::size_t i, std::size_t j,
              CellParts& parts, ceres::Problem& problem) {
  PointMatrix3 matrix(4, 3);
  gather_cell_corners(corners, i, j, matrix);
  ReducedCellCost& cost = parts.costs.emplace_back(points, matrix);
  const std::array<double*, 4> x = {&corners[i][j].x(), &corners[i][j + 1].x(),
                                    &corners[i + 1][j].x(), &corners[i + 1][j + 1].x()};
  problem.AddResidualBlock(&cost, &parts.loss, x[0], x[1], x[2], x[3]);
  for (double* corner_x : x) {
    problem.SetParameterLowerBound(corner_x, 0, *corner_x - kReach);
    problem.SetParameterUpperBound(corner_x, 0, *corner_x + kReach);
  }
}

}  // namespace

void optimize_grid_corners(const CellPoints& cell_points, GridCorners& grid_corners) {
  CellParts parts;
  ceres::Problem problem(borrowed_parts());
  for (std::size_t i = 0; i < cell_points.size(); ++i) {
    for (std::size_t j = 0; j < cell_points[i].size(); ++j) {
      if (cell_points[i][j].rows() == 0) continue;
      add_cell(cell_points[i][j], grid_corners, i, j, parts, problem);
    }
  }

  ceres::Solver::Options options;
  options.linear_solver_type = ceres::SPARSE_SCHUR;
  solve_quietly(options, problem);
}

}  // namespace kestrane
