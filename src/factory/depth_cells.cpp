#include "factory/depth_cells.h"

namespace kestrane {
namespace {

// The band of a depth, truncated toward zero and clamped; compared as a double, so that nothing
// huge and no NaN reaches the conversion.
std::size_t band_of(double z, double z_first, double height, std::int32_t cell_count) {
  const double quotient = (z - z_first) / height;
  if (!(quotient >= 1.0)) return 0;
  if (quotient >= static_cast<double>(cell_count)) return static_cast<std::size_t>(cell_count - 1);
  return static_cast<std::size_t>(static_cast<std::int32_t>(quotient));
}

std::vector<PointMatrix3> split_by_depth(const PointMatrix3& points, std::int32_t cell_count,
                                         double z_first, double height) {
  std::vector<std::size_t> band(static_cast<std::size_t>(points.rows()));
  std::vector<Eigen::Index> band_sizes(static_cast<std::size_t>(cell_count), 0);
  for (std::size_t i = 0; i < band.size(); ++i) {
    band[i] = band_of(points(static_cast<Eigen::Index>(i), 2), z_first, height, cell_count);
    ++band_sizes[band[i]];
  }
  std::vector<PointMatrix3> cells;
  cells.reserve(band_sizes.size());
  for (const Eigen::Index rows : band_sizes) cells.emplace_back(rows, 3);
  std::vector<Eigen::Index> filled(band_sizes.size(), 0);
  for (std::size_t i = 0; i < band.size(); ++i) {
    cells[band[i]].row(filled[band[i]]++) = points.row(static_cast<Eigen::Index>(i));
  }
  return cells;
}

}  // namespace

void split_sector_points_by_depth(const SectorClouds& sector_points, std::int32_t cell_count,
                                  double z_first, double z_last, CellPoints& cell_points) {
  cell_points.clear();
  const double height = (z_last - z_first) / cell_count;
  for (const PointMatrix3& points : sector_points) {
    cell_points.push_back(split_by_depth(points, cell_count, z_first, height));
  }
}

}  // namespace kestrane
