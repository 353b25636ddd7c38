#include "fit/coefficients/line_consensus.h"

#include <cmath>
#include <iterator>
#include <utility>

#include "records/guard.h"

namespace kestrane {
namespace {

constexpr std::uint32_t kSeed = 65536;
constexpr double kLargestDraw = 32767.0;

// A linear congruential generator of 15 bits, so that the search neither reads nor reseeds the
// generator of the host's process.
class Draws {
 public:
  // 0 to 32767.
  std::int32_t next() {
    state_ = state_ * 214013U + 2531011U;
    return static_cast<std::int32_t>((state_ >> 16) & 0x7fffU);
  }

  // -1 to 1, both included.
  double next_signed() {
    const double r = next();
    return (r + r) / kLargestDraw - 1.0;
  }

 private:
  std::uint32_t state_ = kSeed;
};

// Which row a draw u of -1 to 1 picks: k = 0 from the first half of n rows, k = 1 from the second.
// A draw that reaches n wraps to row 0.
Eigen::Index picked_row(double u, int k, std::int32_t n) {
  const double rows = n;
  const double position = (u + 1.0) * 0.5 * rows * 0.5 + k * (rows * 0.5);
  return static_cast<std::int32_t>(position) % n;
}

// Passes for a 99 % chance of one clean sample, of which the whole ones count. None, which ends the
// search, once all points are in, and where 32 bits cannot hold their number. The cube stands
// although a sample has two points.
double passes_for(double ratio) {
  constexpr double kLimit = 2147483648.0;
  const double passes = std::log(0.01) / std::log(1.0 - ratio * ratio * ratio);
  return passes < kLimit ? passes : 0.0;
}

Point2 row_of(const PointMatrix2& points, Eigen::Index i) { return {points(i, 0), points(i, 1)}; }

// The unit vector from p0 to p1; false when the two nearly coincide.
bool direction_between(Point2 p0, Point2 p1, Point2& direction) {
  direction = {p1.x - p0.x, p1.y - p0.y};
  const double length = std::sqrt(direction.x * direction.x + direction.y * direction.y);
  if (!(length > kGuard)) return false;  // a length that is not a number ends the pass too
  direction = {direction.x / length, direction.y / length};
  return true;
}

// The largest set of inliers that the passes came upon; `n` is above 0.
std::vector<Point2> largest_consensus(const PointMatrix2& points, std::int32_t n,
                                      const ConsensusSettings& settings) {
  Draws draws;
  std::vector<Point2> best, inliers;
  double passes = settings.iterations;
  for (std::int32_t i = 0; i + 1.0 <= passes; ++i) {
    const double u0 = draws.next_signed();
    const double u1 = draws.next_signed();
    const Point2 p0 = row_of(points, picked_row(u0, 0, n));
    const Point2 p1 = row_of(points, picked_row(u1, 1, n));
    Point2 direction;
    if (!direction_between(p0, p1, direction)) continue;
    inliers.clear();
    collect_line_inliers(direction, p0, points, settings.threshold, inliers);
    if (inliers.size() <= best.size()) continue;
    best.swap(inliers);
    passes = passes_for(static_cast<double>(std::ssize(best)) / n);
  }
  return best;
}

}  // namespace

void collect_line_inliers(Point2 direction, Point2 origin, const PointMatrix2& points,
                          double threshold, std::vector<Point2>& inliers) {
  const Point2 normal{-direction.y, direction.x};
  for (Eigen::Index i = 0; i < points.rows(); ++i) {
    const Point2 p = row_of(points, i);
    const double distance = std::abs((p.x - origin.x) * normal.x + (p.y - origin.y) * normal.y);
    if (threshold > distance) inliers.push_back(p);
  }
}

bool fit_line_consensus(const PointMatrix2& points, const ConsensusSettings& settings,
                        PointMatrix2& inliers) {
  const auto n = static_cast<std::int32_t>(points.rows());
  if (n <= 0) return false;  // there is no row to draw
  const std::vector<Point2> best = largest_consensus(points, n, settings);
  const auto kept = static_cast<Eigen::Index>(best.size());
  if (n * settings.min_ratio > static_cast<double>(kept) || best.empty()) return false;
  PointMatrix2 rows(kept, 2);
  for (Eigen::Index i = 0; i < kept; ++i) {
    const Point2& p = best[static_cast<std::size_t>(i)];
    rows.row(i) << p.x, p.y;
  }
  inliers = std::move(rows);
  return true;
}

bool fit_line_to(const PointMatrix2& points, const ConsensusSettings* consensus, LineAbc& line,
                 double& mean_distance) {
  if (points.rows() < 2) return false;
  if (consensus == nullptr) {
    fit_line_pca(points, line, mean_distance);
    return true;
  }
  PointMatrix2 inliers;
  if (!fit_line_consensus(points, *consensus, inliers)) return false;
  fit_line_pca(inliers, line, mean_distance);
  return true;
}

}  // namespace kestrane
