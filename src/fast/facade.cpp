// The exported class: checks, then the engine.
#include <new>
#include <utility>

#include "kestrane/fast_calib.h"
#include "records/expects.h"

namespace kestrane {

KESTRANE_LASER_FAST_CALIB::KESTRANE_LASER_FAST_CALIB() : engine_(nullptr) {}

KESTRANE_LASER_FAST_CALIB::~KESTRANE_LASER_FAST_CALIB() {
  delete engine_;
  engine_ = nullptr;
}

KESTRANE_LASER_FAST_CALIB& KESTRANE_LASER_FAST_CALIB::operator=(
    const KESTRANE_LASER_FAST_CALIB& other) = default;

_KESTRANE_STATUS KESTRANE_LASER_FAST_CALIB::init() {
  delete engine_;
  engine_ = nullptr;
  auto* fresh = new (std::nothrow) KestraneLaserFastCalibrator();
  if (fresh == nullptr) return KESTRANE_ERR_NO_MEMORY;
  const _KESTRANE_STATUS status = fresh->init();
  // An engine without its block is deliberately left behind rather than freed: it is a few hundred
  // bytes, in a process that has no memory left anyway.
  if (status == KESTRANE_OK) engine_ = fresh;
  return status;
}

_KESTRANE_STATUS KESTRANE_LASER_FAST_CALIB::set_laser_plane_standard(
    _MRV_LASER_PLANE_BLOCK_INFOS infos) {
  KESTRANE_EXPECTS(engine_ != nullptr, "set_laser_plane_standard comes after init");
  return engine_->set_laser_plane_standard(infos);
}

_KESTRANE_STATUS KESTRANE_LASER_FAST_CALIB::fast_calib(
    std::vector<std::vector<_KESTRANE_ID_POINT3D>> frames, int first_plane, int last_plane) {
  if (frames.empty()) return KESTRANE_ERR_INVALID_PARAM;
  if (engine_ == nullptr) return KESTRANE_ERR_NOT_READY;
  return engine_->calib_Rt(frames, first_plane, last_plane);
}

_KESTRANE_STATUS KESTRANE_LASER_FAST_CALIB::get_transform_param(_MRV_TRANSFORM& out) {
  KESTRANE_EXPECTS(engine_ != nullptr, "get_transform_param comes after init");
  return engine_->get_transform_param(out);
}

_KESTRANE_STATUS KESTRANE_LASER_FAST_CALIB::get_calib_indicator(double& mean, double& max,
                                                                double& deviation) {
  KESTRANE_EXPECTS(engine_ != nullptr, "get_calib_indicator comes after init");
  return engine_->get_calib_indicator(mean, max, deviation);
}

}  // namespace kestrane
