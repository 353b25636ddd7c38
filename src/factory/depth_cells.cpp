#include "factory/depth_cells.h"

#include <cmath>
#include <cstdio>
#include <utility>

#include "fit/plane_fit.h"
#include "records/shapes.h"

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

bool compute_grid_corners(const NominalRays& nominal_rays, const SectorPlanes& sector_planes,
                          GridCorners& grid_corners) {
  for (std::size_t i = 0; i < nominal_rays.size(); ++i) {
    const PlaneAbcd& plane = sector_planes[i < sector_planes.size() ? i : sector_planes.size() - 1];
    const double a = plane[0], b = plane[1], c = plane[2], d = plane[3];
    if (std::abs(a) < kGuard) return false;
    std::vector<Eigen::Vector3d> row;
    row.reserve(nominal_rays[i].size());
    for (const auto& [y, z] : nominal_rays[i]) {
      row.emplace_back(-((y * b + z * c + d) / a), y, z);  // order fixed
    }
    grid_corners.push_back(std::move(row));
  }
  return true;
}

void gather_cell_corners(const GridCorners& grid_corners, std::size_t i, std::size_t j,
                         PointMatrix3& matrix) {
  matrix.resize(4, 3);
  matrix.row(0) = grid_corners[i][j].transpose();
  matrix.row(1) = grid_corners[i][j + 1].transpose();
  matrix.row(2) = grid_corners[i + 1][j].transpose();
  matrix.row(3) = grid_corners[i + 1][j + 1].transpose();
}

void fit_cell_planes(const CellPoints& cell_points, const GridCorners& grid_corners,
                     CellPlanes& cell_planes) {
  CellMarks fitted;
  PointMatrix3 corners(4, 3);
  PlaneFitStats stats{};
  for (std::size_t i = 0; i < cell_points.size(); ++i) {
    std::vector<PlaneAbcd> row(cell_points[i].size(), PlaneAbcd::Zero());
    std::vector<bool> marks(row.size(), false);
    for (std::size_t j = 0; j < row.size(); ++j) {
      gather_cell_corners(grid_corners, i, j, corners);
      // The single-pass road of the robust fit: one fit to all rows. Its rejection changes nothing
      // but the list of inliers, which nobody wants here.
      marks[j] = fit_plane_svd(corners, row[j], stats);
    }
    cell_planes.push_back(std::move(row));
    fitted.push_back(std::move(marks));
  }
  report_failed_cells(fitted);
}

void report_failed_cells(const CellMarks& fitted) {
  for (std::size_t i = 0; i < fitted.size(); ++i) {
    for (std::size_t j = 0; j < fitted[i].size(); ++j) {
      if (fitted[i][j]) continue;
      std::printf("fit_failed_plane_index:[y:%d,z:%d]\n", static_cast<int>(i), static_cast<int>(j));
    }
  }
}

}  // namespace kestrane
