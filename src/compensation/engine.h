// The engine of the run-time compensation: a store of 100 planes, the device's condition, and the
// order of work. The arithmetic of single cells is in cell_kernel.h.
//
// in    the host's plane table, its extrinsic matrix, the device's condition
// out   the table for that condition
#pragma once

#include <cstdint>

#include "kestrane/records.h"
#include "records/shapes.h"

namespace kestrane {

class LaserCompensator {
 public:
  LaserCompensator() = default;
  ~LaserCompensator();
  LaserCompensator(const LaserCompensator&) = delete;
  LaserCompensator& operator=(const LaserCompensator&) = delete;

  // Drops the store and takes a fresh one. False when it cannot be had: there is none then.
  bool init();

  // Copies the host's table in. A plane without lines does not hand over its `laser_plane_R`.
  void set_laser_plane_param(const _MRV_LASER_PLANE_BLOCK_INFOS& infos);

  void set_extrinsic_matrix(const _MRV_EXTRINSIC_PARAM& extrinsic);

  // Stores the condition and makes planes first to last - 1 a fan about its central plane.
  void set_compensate_param(const _KESTRANE_COMPENSATE_PARAM& param, std::int32_t first,
                            std::int32_t last);

  // Moves the cells of planes first to last - 1, and sets these planes' pivots.
  void compensate(std::int32_t first, std::int32_t last);

  // Copies the table out, with the `laser_plane_R` that came in.
  void get_compensate_result(_MRV_LASER_PLANE_BLOCK_INFOS& infos) const;

  // The rows at the start of the store; null without one.
  const _LASER_PLANE_BLOCK_INFO* planes() const { return planes_; }

 private:
  void compensate_plane(std::int32_t plane, double scale);

  void* store_ = nullptr;
  _LASER_PLANE_BLOCK_INFO* planes_ = nullptr;
  std::int32_t plane_count_ = 0;
  _MRV_EXTRINSIC_PARAM extrinsic_{};
  _MRV_EXTRINSIC_PARAM plane_rotation_{};  // R of the plane in work; T is not used
  _KESTRANE_COMPENSATE_PARAM param_{};
  double angle_temperature_[kMaxPlanes] = {};  // radians per unit of temperature
  double angle_drift_[kMaxPlanes] = {};        // radians per unit of the gained second reading
};

}  // namespace kestrane
