#include "fit/rejection.h"

#include <algorithm>
#include <utility>

namespace kestrane {
namespace {

// The survivors go into storage of their own first, since `kept` may be `points`.
template <class Rule>
void keep_rows(const PointMatrix3& points, const std::vector<double>& distances, const Rule& rule,
               PointMatrix3& kept) {
  const auto count = std::count_if(distances.begin(), distances.end(),
                                   [&rule](double distance) { return rule.keeps(distance); });
  PointMatrix3 survivors(count, 3);
  Eigen::Index row = 0;
  for (std::size_t i = 0; i < distances.size(); ++i) {
    if (rule.keeps(distances[i])) survivors.row(row++) = points.row(static_cast<Eigen::Index>(i));
  }
  kept = std::move(survivors);
}

}  // namespace

void filter_by_distance(const PointMatrix3& points, const std::vector<double>& distances,
                        double limit, PointMatrix3& kept) {
  if (points.rows() == 0 || distances.empty()) return;
  keep_rows(points, distances, DistanceLimit{limit}, kept);
}

void filter_by_sigma(const PointMatrix3& points, const std::vector<double>& distances, double k,
                     PointMatrix3& kept) {
  double sum = 0.0;
  for (const double distance : distances) sum += distance;  // order fixed
  double squares = 0.0;
  for (const double distance : distances) {  // order fixed
    squares += (distance - sum) * (distance - sum);
  }
  const auto count = static_cast<Eigen::Index>(distances.size());
  keep_rows(points, distances, sigma_band(sum, squares, count, k), kept);
}

}  // namespace kestrane
