#include "factory/depth_cells.h"

#include "factory/sorted_rows.h"

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
  std::vector<std::uint8_t> band(static_cast<std::size_t>(points.rows()));
  std::vector<Eigen::Index> band_sizes(static_cast<std::size_t>(cell_count), 0);
  const double* z = points.data() + 2;
  for (std::uint8_t& of_row : band) {
    const std::size_t b = band_of(*z, z_first, height, cell_count);
    of_row = static_cast<std::uint8_t>(b);
    ++band_sizes[b];
    z += 3;
  }
  return sorted_rows(points, band, band_sizes);
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
