#include "fast/residual_filter.h"

namespace kestrane {
namespace {

constexpr double kFarthest = 1.5;  // in the unit of the points

}  // namespace

void filter_point_by_residual(const PointSets& points, const ResidualSets& residuals,
                              PointSets& kept) {
  kept.resize(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    PlanePoints near(3, points[i].cols());
    Eigen::Index count = 0;
    for (Eigen::Index j = 0; j < points[i].cols(); ++j) {
      if (residuals[i][static_cast<std::size_t>(j)] > kFarthest) continue;
      near.col(count++) = points[i].col(j);
    }
    kept[i] = near.leftCols(count);
  }
}

}  // namespace kestrane
