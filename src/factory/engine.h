// The engine behind KESTRANE_LASER_FAC_CALIB: it owns the plane table and what the latest run left,
// and calls the stages of a run in their order.
#pragma once

#include <cstdint>

#include "factory/plane_grid.h"
#include "kestrane/records.h"

namespace kestrane {

class KestraneLaserFactoryCalibrator {
 public:
  // Takes the table's block and builds the nominal grid. False when block or grid cannot be had:
  // nothing has changed then. The block stays allocated for the life of the process: neither the
  // destructor nor a second `init` releases it. That is settled behaviour of this class, and the
  // leak checker is told so by name.
  bool init();

  void set_laser_type(_LASER_TYPE type) { laser_type_ = type; }
  void set_optimize_flag(_KESTRANE_OPTIM_FLAG flag) { optimize_flag_ = flag; }

  // One run. False when it fails; the plane's row of the table is then as it was, and the lists
  // below are as far filled as the run came.
  bool calibrate_one_plane(std::int32_t plane_index, const _KESTRANE_ID_POINT3DS& points);

  // Writes the latest run's block statistics and corners into row `plane_index` of both records.
  void copy_indicators(std::int32_t plane_index, _LASER_PLANE_INDICATORS_INFOS& indicators,
                       _LASER_PLANE_GRID_CORNERS_INFOS& corners) const;

  // Writes the grid record, the host's head kept, and the first `infos.plane_count` rows.
  void copy_table_out(_MRV_LASER_PLANE_BLOCK_INFOS& infos);

  // Measures the block with `wire` false; with `wire` true also sets the table's pointers into
  // `buffer`. Returns its bytes.
  std::int32_t alloc_buf_size(void* buffer, bool wire);

  const NominalRays& nominal_rays() const { return nominal_rays_; }
  const FanDividers& fan_divider_normals() const { return fan_divider_normals_; }
  const CellPoints& cell_points() const { return cell_points_; }
  const GridCorners& grid_corners() const { return grid_corners_; }
  const CellPlanes& cell_planes() const { return cell_planes_; }
  const Eigen::Vector3d& fan_apex() const { return fan_apex_; }
  const PlaneAbcd& laser_plane() const { return laser_plane_; }
  const _MRV_LASER_PLANE_BLOCK_INFOS& plane_table() const { return plane_table_; }

 private:
  void write_row(_MRV_LASER_PLANE_BLOCK_INFO& row) const;

  void* raw_block_ = nullptr;
  _KESTRANE_OPTIM_FLAG optimize_flag_ = KESTRANE_OPTIM_OFF;
  NominalRays nominal_rays_;
  FanDividers fan_divider_normals_;
  CellPoints cell_points_;
  GridCorners grid_corners_;
  CellPlanes cell_planes_;
  Eigen::Vector3d fan_apex_ = Eigen::Vector3d::Zero();
  PlaneAbcd laser_plane_ = PlaneAbcd::Zero();
  _MRV_LASER_PLANE_BLOCK_INFOS plane_table_{};
  _LASER_TYPE laser_type_ = LASER_TYPE_STANDARD;
};

}  // namespace kestrane
