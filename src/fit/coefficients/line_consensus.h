// The consensus search that sorts outliers out before a line is fitted. No job of the library walks
// it: coefficient lines have no outliers.
//
// in    points in 2D, one per row
// out   the rows that a search keeps; a line through them
#pragma once

#include <cstdint>
#include <vector>

#include "fit/coefficients/line_fit.h"

namespace kestrane {

// What a consensus search is asked for.
struct ConsensusSettings {
  std::int32_t iterations;  // passes at most; the search lowers or raises it as it finds inliers
  double threshold;         // a point is in when it lies nearer to the line than this
  double min_ratio;         // share of the points that must be in
};

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
