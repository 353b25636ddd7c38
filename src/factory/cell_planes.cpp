#include "factory/cell_planes.h"

#include <cstdio>
#include <utility>

#include "factory/grid_corners.h"
#include "fit/plane_fit.h"

namespace kestrane {

bool fit_corners(const PointMatrix3& corners, PlaneAbcd& plane) {
  const PointRows rows = rows_of(corners);
  if (rows.count < 3) return false;
  plane = decomposed_plane(rows, sums_of(rows));
  return true;
}

void fit_cell_planes(const CellPoints& cell_points, const GridCorners& grid_corners,
                     CellPlanes& cell_planes) {
  CellMarks fitted;  // four corners are always fitted: the report is a guard that no run reaches
  PointMatrix3 corners(4, 3);
  for (std::size_t i = 0; i < cell_points.size(); ++i) {
    std::vector<PlaneAbcd> row(cell_points[i].size(), PlaneAbcd::Zero());
    std::vector<bool> marks(row.size(), false);
    for (std::size_t j = 0; j < row.size(); ++j) {
      gather_cell_corners(grid_corners, i, j, corners);
      marks[j] = fit_corners(corners, row[j]);
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
