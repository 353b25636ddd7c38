#include "fast/residual_filter.h"

namespace kestrane {
namespace {

constexpr double kFarthestResidual = 1.5;  // in the unit of the points

}  // namespace

void drop_far_points(const ResidualSets& residuals, PointSets& points) {
  for (std::size_t i = 0; i < points.size(); ++i) {
    Eigen::Index count = 0;
    for (Eigen::Index j = 0; j < points[i].cols(); ++j) {
      if (residuals[i][static_cast<std::size_t>(j)] > kFarthestResidual) continue;
      points[i].col(count++) = points[i].col(j);
    }
    points[i].conservativeResize(3, count);
  }
}

void filter_point_by_residual(const PointSets& points, const ResidualSets& residuals,
                              PointSets& kept) {
  kept = points;
  drop_far_points(residuals, kept);
}

}  // namespace kestrane
