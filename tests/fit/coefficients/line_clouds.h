// Points that the tests of the line fit share.
#pragma once

#include <cmath>
#include <vector>

#include "fit/coefficients/line_fit.h"
#include "simulation/random.h"

namespace kestrane {

// Sums of some dozens of products, each off by one part in 2^53.
inline constexpr double kRounding = 1e-12;
inline PointMatrix2 rows_from(const std::vector<Point2>& points) {
  PointMatrix2 rows(static_cast<Eigen::Index>(points.size()), 2);
  for (std::size_t i = 0; i < points.size(); ++i)
    rows.row(static_cast<Eigen::Index>(i)) << points[i].x, points[i].y;
  return rows;
}

// Points on y = slope x + offset, at x = 0, 1, 2 ...
inline std::vector<Point2> points_on_line(int count, double slope, double offset) {
  std::vector<Point2> points;
  for (int i = 0; i < count; ++i) points.push_back({1.0 * i, slope * i + offset});
  return points;
}

inline PointMatrix2 random_cloud(simulation::Random& random, int count) {
  const double slope = random.uniform(-3.0, 3.0), spread = random.uniform(0.0, 2.0);
  std::vector<Point2> points;
  for (int i = 0; i < count; ++i) {
    const double x = random.uniform(-50.0, 50.0);
    points.push_back({x, slope * x + spread * random.gaussian() + 7.0});
  }
  return rows_from(points);
}

inline double distance(const LineAbc& line, double x, double y) {
  return std::abs(line[0] * x + line[1] * y + line[2]);
}

}  // namespace kestrane
