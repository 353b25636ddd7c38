#include "factory/engine.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

#include "factory/cell_indicators.h"
#include "factory/cell_planes.h"
#include "factory/corner_optimisation.h"
#include "factory/depth_cells.h"
#include "factory/fan_sectors.h"
#include "factory/grid_corners.h"
#include "factory/nominal_grid.h"
#include "fit/streamed_fit.h"
#include "records/carving.h"
#include "records/expects.h"
#include "records/guard.h"
#include "records/table_copy.h"

namespace kestrane {
namespace {

// Grid record, rows, then each plane's table. Measures with a null buffer.
std::int64_t lay_out(void* buffer, _MRV_LASER_PLANE_BLOCK_INFOS& table) {
  Carver carver(buffer);
  auto* grids = carver.take<_LASER_PLANE_GRIDS>(1);
  auto* rows = carver.take<_MRV_LASER_PLANE_BLOCK_INFO>(kMaxPlanes);
  for (std::int32_t p = 0; p < kMaxPlanes; ++p) {
    carve_table(carver, kBlocks, Counts::kLeft, rows, p, &_MRV_LASER_PLANE_BLOCK_INFO::block);
  }
  if (carver.carves()) {
    table.grids = grids;
    table.planes = rows;
  }
  return carver.size();
}

// False where the heap has no room for the lists: `init` reports that with its status.
bool build_fan(_LASER_PLANE_GRIDS& grids, NominalRays& rays, FanDividers& dividers) {
  try {
    build_nominal_grid(grids, rays);
    build_fan_dividers(dividers);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// The host's points, a dropped one (x not a number) as the origin, which no depth band holds.
PointMatrix3 copy_points(const _KESTRANE_ID_POINT3DS& points) {
  const Eigen::Index count = std::max(points.count, 0);
  PointMatrix3 cloud(count, 3);
  double* row = cloud.data();
  for (Eigen::Index i = 0; i < count; ++i, row += 3) {
    const _KESTRANE_ID_POINT3D& point = points.points[i];
    if (std::isnan(point.x)) {
      std::fill_n(row, 3, 0.0);
      continue;
    }
    row[0] = point.x;
    row[1] = point.y;
    row[2] = point.z;
  }
  return cloud;
}

bool fit_whole_plane(const PointMatrix3& points, _LASER_TYPE type, PlaneAbcd& plane) {
  const RobustFit robust = fit_in_band(points, depth_band_of(type), Wanted::kPlane);
  if (robust.fit) plane = robust.fit->plane;
  return robust.complete;
}

_LASER_TRIPLE triple_of(const _LASER_TRIPLE& triple) { return triple; }

_LASER_TRIPLE triple_of(const Eigen::Vector3d& point) {
  return {{point.x(), point.y(), point.z()}};
}

// Rows of three numbers into a host's table.
template <class Rows>
void copy_rows(const Rows& rows, _LASER_LINES_INFOS& table) {
  table.count = static_cast<std::int32_t>(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    _LASER_LINE_INFOS& line = table.lines[i];
    line.count = static_cast<std::int32_t>(rows[i].size());
    for (std::size_t j = 0; j < rows[i].size(); ++j) line.cells[j] = triple_of(rows[i][j]);
  }
}

}  // namespace

// The lists come first: once the block is there nothing can fail any more.
bool KestraneLaserFactoryCalibrator::init() {
  _LASER_PLANE_GRIDS grids{};
  NominalRays rays;
  FanDividers dividers;
  if (!build_fan(grids, rays, dividers)) return false;
  void* fresh = allocate_block(alloc_buf_size(nullptr, false), 0);
  if (fresh == nullptr) return false;
  raw_block_ = fresh;
  alloc_buf_size(raw_block_, true);
  *plane_table_.grids = grids;
  nominal_rays_ = std::move(rays);
  fan_divider_normals_ = std::move(dividers);
  return true;
}

std::int32_t KestraneLaserFactoryCalibrator::alloc_buf_size(void* buffer, bool wire) {
  return reported_size(lay_out(wire ? buffer : nullptr, plane_table_));
}

bool KestraneLaserFactoryCalibrator::calibrate_one_plane(std::int32_t plane_index,
                                                         const _KESTRANE_ID_POINT3DS& points) {
  KESTRANE_EXPECTS(raw_block_ != nullptr, "factory_calib comes after init");
  KESTRANE_EXPECTS(plane_index >= 0 && plane_index < kMaxPlanes, "a plane index is 0 to 99",
                   plane_index);
  KESTRANE_EXPECTS(points.count >= 0, "a point count is not negative", points.count);
  const PointMatrix3 cloud = copy_points(points);
  cell_points_.clear();
  grid_corners_.clear();
  cell_planes_.clear();

  if (!fit_whole_plane(cloud, laser_type_, laser_plane_)) return false;
  if (std::abs(laser_plane_[3]) < kGuard)
    return false;  // a plane through the origin has no table form

  SectorClouds sector_clouds;
  SectorClouds sector_points;
  SectorPlanes sector_planes;
  split_points_by_fan_sector(laser_plane_, fan_divider_normals_, cloud, sector_clouds, fan_apex_);
  fit_sector_planes(laser_type_, sector_clouds, sector_planes, sector_points);

  split_sector_points_by_depth(sector_points, kBlocks.cells, kDepthFirst, kDepthLast, cell_points_);
  if (!compute_grid_corners(nominal_rays_, sector_planes, grid_corners_)) return false;
  if (optimize_flag_ == KESTRANE_OPTIM_ON) optimize_grid_corners(cell_points_, grid_corners_);
  fit_cell_planes(cell_points_, grid_corners_, cell_planes_);

  write_row(plane_table_.planes[plane_index]);
  return true;
}

void KestraneLaserFactoryCalibrator::write_row(_MRV_LASER_PLANE_BLOCK_INFO& row) const {
  write_table_form(laser_plane_, row.laser_plane_R);
  row.block.count = static_cast<std::int32_t>(cell_planes_.size());
  for (std::size_t i = 0; i < cell_planes_.size(); ++i) {
    _LASER_LINE_INFOS& line = row.block.lines[i];
    line.count = static_cast<std::int32_t>(cell_planes_[i].size());
    for (std::size_t j = 0; j < cell_planes_[i].size(); ++j) {
      write_table_form(cell_planes_[i][j], line.cells[j].v);
    }
  }
}

void KestraneLaserFactoryCalibrator::copy_indicators(
    std::int32_t plane_index, _LASER_PLANE_INDICATORS_INFOS& indicators,
    _LASER_PLANE_GRID_CORNERS_INFOS& corners) const {
  KESTRANE_EXPECTS(plane_index < corners.plane_capacity,
                   "a plane index lies inside the corner record", plane_index,
                   corners.plane_capacity);
  KESTRANE_EXPECTS(cell_planes_.size() == cell_points_.size(),
                   "get_indicators comes after a successful factory_calib");
  copy_rows(compute_cell_indicators(cell_points_, cell_planes_), indicators.planes[plane_index]);
  copy_rows(grid_corners_, corners.planes[plane_index]);
}

void KestraneLaserFactoryCalibrator::copy_table_out(_MRV_LASER_PLANE_BLOCK_INFOS& infos) {
  KESTRANE_EXPECTS(raw_block_ != nullptr, "get_laser_plane_infos comes after init");
  KESTRANE_EXPECTS(infos.plane_count <= kMaxPlanes, "a plane count is at most 100",
                   infos.plane_count);
  std::copy_n(infos.grids->grid_head, 4, plane_table_.grids->grid_head);
  *infos.grids = *plane_table_.grids;
  for (std::int32_t p = 0; p < infos.plane_count; ++p) {
    const _MRV_LASER_PLANE_BLOCK_INFO& row = plane_table_.planes[p];
    std::copy_n(row.laser_plane_R, 3, infos.planes[p].laser_plane_R);
    copy_table(row.block, infos.planes[p].block);
  }
}

}  // namespace kestrane
