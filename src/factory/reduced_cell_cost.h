// The cost of a cell as the solver is given it: the points enter through their sums alone.
//
// in    a cell's points and corners, once; the x of the four corners, in each evaluation
// out   the residual of cell_cost.h and its four derivatives, which are one number
#pragma once

#include "ceres/sized_cost_function.h"
#include "factory/cell_cost.h"
#include "fit/triangle_reduction.h"

namespace kestrane {

// Over the visited points p with their centroid c, for a unit normal n and the corners' mean m,
//
//   sum (n . (p - m))^2 = |R n|^2 + count (n . (c - m))^2
//
// with R the triangle of the centred points. R takes their place, so that an evaluation costs the
// same for any number of points; and its square cannot fall below 0, as a difference of sums could.
class ReducedCellCost final : public ceres::SizedCostFunction<1, 1, 1, 1, 1> {
 public:
  // points   at least one; the cost refers to them, so they stay in place while it lives
  // corners  only y and z are read
  ReducedCellCost(const PointMatrix3& points, const CellCorners& corners);

  // Equal to rounding to the functor's evaluation. Where rounding decides - corners nearly on a
  // line, points on the plane, numbers that are not finite - it is the functor's evaluation, so
  // that both refuse the same corners and give a NaN in the same places.
  bool Evaluate(double const* const* x, double* residual, double** jacobians) const override;

  // The same from the sums alone; false, with nothing written, where the functor decides.
  bool evaluate_by_sums(double const* const* x, double* residual, double** jacobians) const;

 private:
  bool evaluate_by_points(double const* const* x, double* residual, double** jacobians) const;

  PointRows points_;
  CellCorners corners_;
  Eigen::RowVector3d mean_;  // of the corners; its x is not used
  double visited_;           // number of visited points
  Centroid centroid_;        // of the visited points
  Triangle triangle_;        // of the visited points about their centroid
  double reach_;             // sum of the squared coordinates of the visited points
};

}  // namespace kestrane
