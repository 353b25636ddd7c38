#include "factory/cell_indicators.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "fit/plane_fit.h"

namespace kestrane {

_LASER_TRIPLE cell_indicator(const PointMatrix3& points, const PlaneAbcd& plane) {
  if (points.rows() == 0) return {{0.0, 0.0, 0.0}};
  std::vector<double> distances;
  plane_signed_distances(points, plane, distances);
  const auto count = static_cast<double>(std::ssize(distances));
  double sum = 0.0;
  for (const double distance : distances) sum += distance;  // order fixed
  const double mean = sum / count;
  double squares = 0.0;
  for (const double distance : distances) squares += (distance - mean) * (distance - mean);
  return {
      {*std::max_element(distances.begin(), distances.end()), mean, std::sqrt(squares / count)}};
}

CellIndicators compute_cell_indicators(const CellPoints& cell_points,
                                       const CellPlanes& cell_planes) {
  CellIndicators indicators;
  const std::size_t rows = std::min(cell_points.size(), cell_planes.size());
  for (std::size_t i = 0; i < rows; ++i) {
    std::vector<_LASER_TRIPLE> row;
    row.reserve(cell_points[i].size());
    for (std::size_t j = 0; j < cell_points[i].size(); ++j) {
      row.push_back(cell_indicator(cell_points[i][j], cell_planes[i][j]));
    }
    indicators.push_back(std::move(row));
  }
  return indicators;
}

}  // namespace kestrane
