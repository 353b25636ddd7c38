#include "compensation/engine.h"
#include "kestrane/compensator.h"

namespace kestrane {

KESTRANE_LASER_COMPENSATOR::KESTRANE_LASER_COMPENSATOR() : engine_(new LaserCompensator()) {}

KESTRANE_LASER_COMPENSATOR::~KESTRANE_LASER_COMPENSATOR() {
  delete engine_;
  engine_ = nullptr;
}

_KESTRANE_STATUS KESTRANE_LASER_COMPENSATOR::init() {
  return engine_->init() ? KESTRANE_OK : KESTRANE_ERR_NO_MEMORY;
}

_KESTRANE_STATUS KESTRANE_LASER_COMPENSATOR::set_laser_plane_param(
    _MRV_LASER_PLANE_BLOCK_INFOS infos) {
  if (infos.plane_count == 0) return KESTRANE_ERR_INVALID_PARAM;
  engine_->set_laser_plane_param(infos);
  return KESTRANE_OK;
}

_KESTRANE_STATUS KESTRANE_LASER_COMPENSATOR::set_extrinsic_matrix(_MRV_EXTRINSIC_PARAM extrinsic) {
  engine_->set_extrinsic_matrix(extrinsic);
  return KESTRANE_OK;
}

_KESTRANE_STATUS KESTRANE_LASER_COMPENSATOR::set_compensate_param(_KESTRANE_COMPENSATE_PARAM param,
                                                                  std::int32_t first,
                                                                  std::int32_t last) {
  engine_->set_compensate_param(param, first, last);
  return KESTRANE_OK;
}

_KESTRANE_STATUS KESTRANE_LASER_COMPENSATOR::compensate(std::int32_t first, std::int32_t last) {
  engine_->compensate(first, last);
  return KESTRANE_OK;
}

_KESTRANE_STATUS KESTRANE_LASER_COMPENSATOR::get_compensate_result(
    _MRV_LASER_PLANE_BLOCK_INFOS& infos) {
  if (infos.plane_count == 0) return KESTRANE_ERR_INVALID_PARAM;
  engine_->get_compensate_result(infos);
  return KESTRANE_OK;
}

}  // namespace kestrane
