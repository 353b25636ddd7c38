#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "factory/cell_planes.h"
#include "factory/plane_grid.h"
#include "fit/plane_fit.h"
#include "kestrane/quality/coefficients.h"
#include "records/guard.h"
#include "records/shapes.h"

namespace kestrane::quality {
namespace {

constexpr auto kRowCorners = static_cast<std::size_t>(kCorners.lines * kCorners.cells);

std::size_t index_of(std::int32_t number) { return static_cast<std::size_t>(number); }

bool is_finite(const _LASER_TRIPLE& corner) {
  return std::isfinite(corner.v[0]) && std::isfinite(corner.v[1]) && std::isfinite(corner.v[2]);
}

GridCorners grid_of(const _LASER_TRIPLE* corners) {
  GridCorners grid(index_of(kCorners.lines));
  for (std::vector<Eigen::Vector3d>& ray : grid) {
    for (std::int32_t k = 0; k < kCorners.cells; ++k, ++corners)
      ray.emplace_back(corners->v[0], corners->v[1], corners->v[2]);
  }
  return grid;
}

// False where the plane passes through the origin, as the job sees it, or is not a number.
bool write_plane(const PlaneAbcd& plane, double* abc) {
  write_table_form(plane, abc);
  return std::abs(plane[3]) >= kGuard && std::isfinite(abc[0]) && std::isfinite(abc[1]) &&
         std::isfinite(abc[2]);
}

bool write_cells(const GridCorners& grid, std::int32_t p, PlaneTable& table) {
  const CellPoints shape(index_of(kBlocks.lines),
                         std::vector<PointMatrix3>(index_of(kBlocks.cells)));
  CellPlanes planes;
  fit_cell_planes(shape, grid, planes);
  bool written = true;
  for (std::int32_t j = 0; j < kBlocks.lines; ++j) {
    for (std::int32_t k = 0; k < kBlocks.cells; ++k)
      written = write_plane(planes[index_of(j)][index_of(k)], table.cell(p, {j, k}).v) && written;
  }
  return written;
}

bool write_whole_plane(const _LASER_TRIPLE* corners, std::int32_t p, PlaneTable& table) {
  PointMatrix3 points(static_cast<Eigen::Index>(kRowCorners), 3);
  for (std::size_t i = 0; i < kRowCorners; ++i)
    points.row(static_cast<Eigen::Index>(i)) << corners[i].v[0], corners[i].v[1], corners[i].v[2];
  PlaneAbcd plane;
  PlaneFitStats stats{};
  fit_plane_svd(points, plane, stats);
  return write_plane(plane, table.whole_plane(p));
}

// Writes a plane's row; the reason where it has none.
std::string write_row(const _LASER_TRIPLE* corners, std::int32_t p, PlaneTable& table) {
  const auto finite = std::count_if(corners, corners + kRowCorners, is_finite);
  if (finite == 0) return {};
  const std::string name = "plane " + std::to_string(p);
  if (finite != static_cast<std::ptrdiff_t>(kRowCorners))
    return name + " has corners that are not finite";
  if (write_cells(grid_of(corners), p, table) && write_whole_plane(corners, p, table)) return {};
  return name + " passes through the origin";
}

}  // namespace

TableOfCorners table_of(const std::vector<_LASER_TRIPLE>& corners) {
  const std::size_t planes = corners.size() / kRowCorners;
  if (corners.size() % kRowCorners != 0 || planes < 1 || planes > index_of(kMaxPlanes))
    throw std::invalid_argument("corners are planes x 16 x 51, of 1 to 100 planes");
  PlaneTable table(static_cast<std::int32_t>(planes));
  for (std::int32_t p = 0; p < table.planes(); ++p) {
    std::string reason = write_row(&corners[index_of(p) * kRowCorners], p, table);
    if (!reason.empty()) return {PlaneTable(), reason};
  }
  return {std::move(table), {}};
}

TableOfCorners table_of(const DeviceCorners& corners) {
  if (!corners.refused.empty()) return {PlaneTable(), corners.refused};
  return table_of(corners.corners);
}

}  // namespace kestrane::quality
