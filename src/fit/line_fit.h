// Least-squares lines in the plane, and the consensus search that sorts out outliers.
//
// in    points in 2D, one a row
// out   a line a x + b y + c = 0 with (a, b) of unit length, either sign; the rows that a search
//       keeps
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <vector>

namespace kestrane {

// N x 2, one point (x, y) a row, stored x0 y0 x1 y1 and so on.
using PointMatrix2 = Eigen::Matrix<double, Eigen::Dynamic, 2, Eigen::RowMajor>;

// a, b, c of a x + b y + c = 0.
using LineAbc = Eigen::Vector3d;

struct Point2 {
  double x;
  double y;
};

// What a consensus search is asked for.
struct ConsensusSettings {
  std::int32_t iterations;  // passes at most; the search lowers or raises it as it finds inliers
  double threshold;         // a point is in when it lies nearer to the line than this
  double min_ratio;         // share of the points that must be in
};

// Total least squares: the line through the mean along the principal axis, without rejection.
//
// line           the smaller axis of the scatter is its normal; (1, 0) for points that coincide
// mean_distance  of the points to the line
//
// Points or a scatter that are not finite give a line and a distance that are not numbers.
void fit_line_pca(const PointMatrix2& points, LineAbc& line, double& mean_distance);

// Appends the points nearer than `threshold` to the line through `origin` along `direction` (unit
// length), in order. A point at exactly `threshold` is out, and so is one whose distance is not a
// number.
void collect_line_inliers(Point2 direction, Point2 origin, const PointMatrix2& points,
                          double threshold, std::vector<Point2>& inliers);

// Draws pairs of points, one from each half of the list, and keeps the largest set of inliers of a
// line through a pair. Each call draws the same sequence; the process's own generator is not used.
//
// inliers  overwritten on success, in input order
//
// False when no line was tried, or when the share of inliers stays below `min_ratio`; `inliers` is
// untouched then.
bool fit_line_consensus(const PointMatrix2& points, const ConsensusSettings& settings,
                        PointMatrix2& inliers);

// fit_line_pca, with `consensus` on its inliers alone. False with fewer than two rows or when the
// search fails: nothing is written then.
bool fit_line_to(const PointMatrix2& points, const ConsensusSettings* consensus, LineAbc& line,
                 double& mean_distance);

}  // namespace kestrane
