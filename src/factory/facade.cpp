// The exported class: checks, then the engine, then a status.
#include "factory/engine.h"
#include "kestrane/factory_calib.h"

namespace kestrane {

KESTRANE_LASER_FAC_CALIB::KESTRANE_LASER_FAC_CALIB()
    : engine_(new KestraneLaserFactoryCalibrator()) {}

KESTRANE_LASER_FAC_CALIB::~KESTRANE_LASER_FAC_CALIB() { delete engine_; }

_KESTRANE_STATUS KESTRANE_LASER_FAC_CALIB::init() {
  return engine_->init() ? KESTRANE_OK : KESTRANE_ERR_FAILED;
}

_KESTRANE_STATUS KESTRANE_LASER_FAC_CALIB::set_laser_type(_LASER_TYPE type) {
  engine_->set_laser_type(type);
  return KESTRANE_OK;
}

_KESTRANE_STATUS KESTRANE_LASER_FAC_CALIB::set_optimize_flag(_KESTRANE_OPTIM_FLAG flag) {
  // As unsigned: a negative value is above 1 too.
  if (static_cast<std::uint32_t>(flag) > KESTRANE_OPTIM_ON) return KESTRANE_ERR_INVALID_PARAM;
  engine_->set_optimize_flag(flag);
  return KESTRANE_OK;
}

_KESTRANE_STATUS KESTRANE_LASER_FAC_CALIB::factory_calib(int plane_index,
                                                         _KESTRANE_ID_POINT3DS points) {
  if (points.count == 0) return KESTRANE_ERR_INVALID_PARAM;
  if (points.points == nullptr) return KESTRANE_ERR_NULL_POINTER;
  return engine_->calibrate_one_plane(plane_index, points) ? KESTRANE_OK : KESTRANE_ERR_FAILED;
}

_KESTRANE_STATUS KESTRANE_LASER_FAC_CALIB::get_indicators(
    int plane_index, _LASER_PLANE_INDICATORS_INFOS& indicators,
    _LASER_PLANE_GRID_CORNERS_INFOS& corners) {
  if (plane_index < 0 || plane_index >= indicators.plane_count) return KESTRANE_ERR_INVALID_PARAM;
  if (indicators.planes == nullptr) return KESTRANE_ERR_NULL_POINTER;
  if (indicators.plane_count > indicators.plane_capacity) return KESTRANE_ERR_INVALID_PARAM;
  if (corners.planes == nullptr) return KESTRANE_ERR_NULL_POINTER;
  if (corners.plane_count > corners.plane_capacity) return KESTRANE_ERR_INVALID_PARAM;
  engine_->copy_indicators(plane_index, indicators, corners);
  return KESTRANE_OK;
}

_KESTRANE_STATUS KESTRANE_LASER_FAC_CALIB::get_laser_plane_infos(
    _MRV_LASER_PLANE_BLOCK_INFOS& infos) {
  if (infos.planes == nullptr || infos.grids == nullptr) return KESTRANE_ERR_NULL_POINTER;
  engine_->copy_table_out(infos);
  return KESTRANE_OK;
}

}  // namespace kestrane
