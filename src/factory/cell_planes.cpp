#include "factory/cell_planes.h"

#include <cstdio>
#include <utility>

#include "factory/grid_corners.h"
#include "fit/plane_fit.h"

namespace kestrane {

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
