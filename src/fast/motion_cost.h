// The residuals of all points of a solve as one cost function.
//
// in    points per laser plane, the standard
// out   seven residuals over rotation and translation, with the J' J, J' r and cost that one block
//       per point has under a Cauchy loss
//
// One block per point costs the solver far more in keeping its blocks than in their arithmetic.
// Under that loss it does nothing to a block but to scale its residual and derivatives by
// sqrt(rho'). So the rows of all points are scaled here and folded into a triangle, whose last
// column is the residual.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "ceres/loss_function.h"
#include "ceres/sized_cost_function.h"
#include "fast/point_sets.h"
#include "fast/row_folding.h"

namespace kestrane {

// Scale of the Cauchy loss on each point's distance, in the unit of the points.
inline constexpr double kLossScale = 0.1;

class MotionCost : public ceres::SizedCostFunction<kRowSize, 3, 3> {
 public:
  // Takes every second point of each matrix, the first included, and the cells that they fall on.
  MotionCost(const PointSets& points, const _LASER_PLANE_BLOCK_INFOS& standard,
             std::int32_t first_plane);

  // parameters  angle-axis rotation, translation
  // residuals   zeros where no derivatives are asked for: the solver then reads the cost alone,
  //             which comes from SumOfLosses
  //
  // False where a distance or a derivative is not finite. One evaluation at a time.
  bool Evaluate(const double* const* parameters, double* residuals,
                double** jacobians) const override;

  // Whether the points pull on each of the six parameters at zero, with finite forces. Where they
  // do not, as over sheets that are exactly parallel to two axes, the solver's way depends on the
  // rounding of each block.
  bool pulls_every_way() const;

  // The sum of rho over all points, those without a cell included, of the last evaluation.
  double sum_of_losses() const { return last_.sum_of_losses; }

  struct Cell {
    double normal[3];  // of length 1
    double point[3];   // on the plane
  };

 private:
  using Motion = std::array<double, 6>;  // angle-axis rotation, translation

  // What the last evaluated motion gave. The solver asks for a motion's cost before it asks for the
  // derivatives there.
  struct Evaluation {
    Motion motion = {std::numeric_limits<double>::quiet_NaN()};  // none: it equals no other
    bool has_losses = false;
    bool has_triangle = false;
    double sum_of_losses = 0.0;
    RowTriangle triangle;  // its derivatives are by a further turn, not by the angle-axis vector
  };

  void add_plane(const PlanePoints& points, const _LASER_PLANE_BLOCK_INFOS& standard,
                 std::int32_t plane);
  bool evaluate(const Motion& motion, bool with_triangle) const;
  void move_cells(const Motion& motion) const;
  double fold_points(const Motion& motion, RowTriangle& triangle) const;
  double sum_terms() const;
  bool every_distance_is_finite() const;
  template <class Work>
  void for_each_cell(std::size_t begin, std::size_t end, std::size_t& cell, Work work) const;

  std::vector<double> x_;  // of the points that have a cell, those of one cell side by side
  std::vector<double> y_;
  std::vector<double> z_;
  std::vector<Cell> cells_;
  std::vector<std::size_t> ends_;  // where each cell's points end
  double losses_without_cell_ = 0.0;

  mutable std::vector<Cell> moved_;
  mutable Evaluation last_;
};

// The loss of a MotionCost: the sum that its last evaluation found, with derivative 1, since its
// rows are scaled already.
class SumOfLosses : public ceres::LossFunction {
 public:
  explicit SumOfLosses(const MotionCost& cost) : cost_(cost) {}
  void Evaluate(double squares, double* rho) const override;

 private:
  const MotionCost& cost_;
};

}  // namespace kestrane
