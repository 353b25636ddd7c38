// The solve: one rotation and one translation for all laser planes of the range.
//
// in    points per laser plane, the standard
// out   the transform that carries the standard onto the points
//
// A large problem goes to the solver as one cost function over all its points, a small or a
// degenerate one block by block. Steps and cost are the same either way.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <deque>

#include "ceres/autodiff_cost_function.h"
#include "ceres/loss_function.h"
#include "ceres/problem.h"
#include "ceres/solver.h"
#include "fast/motion_cost.h"
#include "fast/point_cost.h"
#include "fast/point_sets.h"

namespace kestrane {

using PointCost = ceres::AutoDiffCostFunction<DIST_RESIDUAL_CHANGE_PLANE, 1, 3, 3>;

// What the residual blocks of one problem are made of. It outlives the problem, which only refers
// to it: side by side the parts are faster to make, to read and to drop than one by one, and no
// failed allocation can lose one of them.
struct ResidualParts {
  ceres::CauchyLoss loss{kLossScale};  // shared by all blocks
  std::deque<DIST_RESIDUAL_CHANGE_PLANE> functors;
  std::deque<PointCost> costs;
};

// Adds a residual block for every second point of each matrix, the first included.
//
// problem      made with borrowed_parts()
// parts        without functors and costs
// rotation     angle-axis, 3 numbers, the first parameter block of each residual
// translation  3 numbers, the second one
//
// Without points the problem gets no block.
void add_residual_blocks(ceres::Problem& problem, ResidualParts& parts, const PointSets& points,
                         const _LASER_PLANE_BLOCK_INFOS* const* standard, std::int32_t first_plane,
                         double* rotation, double* translation);

// Solves from where the parameters stand.
//
// standard     where the engine keeps the address of its table
// rotation     angle-axis, 3 numbers
// translation  3 numbers
ceres::Solver::Summary solve_motion(const PointSets& points,
                                    const _LASER_PLANE_BLOCK_INFOS* const* standard,
                                    std::int32_t first_plane, double* rotation,
                                    double* translation);

// Solves from zero and writes the solver's brief report to standard output.
//
// last_plane not read
// transform  homogeneous, from standard coordinates to present ones
//
// KESTRANE_ERR_SOLVE_FAILED  nothing usable came out; `transform` is the identity
_KESTRANE_STATUS solve_transform(const PointSets& points,
                                 const _LASER_PLANE_BLOCK_INFOS* const* standard,
                                 const std::int32_t& first_plane, const std::int32_t& last_plane,
                                 Eigen::Matrix4d& transform);

}  // namespace kestrane
