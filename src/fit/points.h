// Clouds and planes as the fits see them.
#pragma once

#include <Eigen/Core>
#include <cstdint>

namespace kestrane {

// N x 3, one point (x, y, z) a row, stored x0 y0 z0 x1 y1 z1 and so on.
using PointMatrix3 = Eigen::Matrix<double, Eigen::Dynamic, 3, Eigen::RowMajor>;

// a, b, c, d of a x + b y + c z + d = 0.
using PlaneAbcd = Eigen::Vector4d;

// Lowest and highest accepted z of a plane fit, both included.
struct DepthBand {
  std::int32_t lowest;
  std::int32_t highest;
};

// Statistics of the unsigned point-to-plane distances of a fit's own points.
struct PlaneFitStats {
  double max_distance;
  double mean_distance;
  double std_distance;  // root mean square about the mean, divided by N
};

}  // namespace kestrane
