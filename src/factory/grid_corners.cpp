#include "factory/grid_corners.h"

#include <cmath>
#include <utility>

#include "records/guard.h"
#include "records/shapes.h"

namespace kestrane {

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

}  // namespace kestrane
