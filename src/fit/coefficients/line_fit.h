// Least-squares lines in the plane.
//
// in    points in 2D, one per row
// out   a line a x + b y + c = 0 with (a, b) of unit length, either sign
#pragma once

#include <Eigen/Core>

namespace kestrane {

// N x 2, one point (x, y) a row, stored x0 y0 x1 y1 and so on.
using PointMatrix2 = Eigen::Matrix<double, Eigen::Dynamic, 2, Eigen::RowMajor>;

// a, b, c of a x + b y + c = 0.
using LineAbc = Eigen::Vector3d;

struct Point2 {
  double x;
  double y;
};

// Total least squares: the line through the mean along the principal axis, without rejection.
//
// line           the smaller axis of the scatter is its normal; (1, 0) for points that coincide
// mean_distance  of the points to the line
//
// Points or a scatter that are not finite give a line and a distance that are not numbers.
void fit_line_pca(const PointMatrix2& points, LineAbc& line, double& mean_distance);

}  // namespace kestrane
