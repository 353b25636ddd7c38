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

// A plane with the statistics of the rows that it was fitted to.
struct PlaneFit {
  PlaneAbcd plane;  // unit normal
  PlaneFitStats stats;
};

// The first `count` rows of a cloud that lives elsewhere.
struct PointRows {
  const double* xyz;
  Eigen::Index count;
};

inline PointRows rows_of(const PointMatrix3& points) { return {points.data(), points.rows()}; }

// Running sums of the coordinates, added point after point.
struct PointSums {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;

  void add(const double* point) {  // order fixed: the centroid is fixed to the last bit
    x += point[0];
    y += point[1];
    z += point[2];
  }
};

struct Centroid {
  double x;
  double y;
  double z;
};

inline Centroid centroid_of(const PointSums& sums, Eigen::Index count) {
  const auto n = static_cast<double>(count);
  return {sums.x / n, sums.y / n, sums.z / n};
}

inline PointSums sums_of(PointRows rows) {
  PointSums sums;
  for (Eigen::Index i = 0; i < rows.count; ++i) sums.add(rows.xyz + 3 * i);
  return sums;
}

}  // namespace kestrane
