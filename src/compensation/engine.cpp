#include "compensation/engine.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "compensation/cell_kernel.h"
#include "records/carving.h"
#include "records/expects.h"
#include "records/table_copy.h"
#include "records/table_fit.h"

namespace kestrane {
namespace {

// Readings at or beyond these bounds come from a broken sensor and scale nothing.
constexpr double kColdest = -20.0;
constexpr double kHottest = 100.0;

// Rows, then a slab per plane with both of its tables. Measures with a null store.
std::int64_t lay_out(void* store) {
  Carver carver(store);
  auto* rows = carver.take<_LASER_PLANE_BLOCK_INFO>(kMaxPlanes);
  for (std::int32_t p = 0; p < kMaxPlanes; ++p) {
    carve_table(carver, kBlocks, Counts::kLeft, rows, p, &_LASER_PLANE_BLOCK_INFO::block);
    carve_table(carver, kBlocks, Counts::kLeft, rows, p, &_LASER_PLANE_BLOCK_INFO::block_aux);
  }
  return carver.size();
}

[[maybe_unused]] bool is_in_table(std::int32_t first, std::int32_t last) {
  return first >= last || (first >= 0 && last <= kMaxPlanes);
}

// Growth of a plane's distance from the origin. A temperature that is not a number scales nothing.
double scale_of(const _KESTRANE_COMPENSATE_PARAM& param) {
  double difference = 0.0;
  if (param.temperature > kColdest && param.temperature < kHottest) {
    difference = param.temperature - param.temperature_ref;
  }
  return param.scale_per_degree * difference + 1.0;
}

// The rotation's temperature is the reading as it stands, outside those bounds too.
double angle_of(const _KESTRANE_COMPENSATE_PARAM& param, double per_temperature, double per_drift) {
  return per_drift * param.drift_gain * (param.drift - param.drift_ref) +
         (param.temperature - param.temperature_ref) * per_temperature;  // order fixed
}

// A turn about y, row by row.
void set_rotation(double angle, double rotation[9]) {
  const double s = std::sin(angle);
  const double c = std::cos(angle);
  const double rows[9] = {c, 0.0, -s, 0.0, 1.0, 0.0, s, 0.0, c};
  std::copy_n(rows, 9, rotation);
}

}  // namespace

LaserCompensator::~LaserCompensator() { std::free(store_); }

bool LaserCompensator::init() {
  std::free(store_);
  planes_ = nullptr;
  store_ = allocate_block(lay_out(nullptr), 0);
  if (store_ == nullptr) return false;
  lay_out(store_);
  planes_ = static_cast<_LASER_PLANE_BLOCK_INFO*>(store_);
  return true;
}

void LaserCompensator::set_laser_plane_param(const _MRV_LASER_PLANE_BLOCK_INFOS& infos) {
  KESTRANE_EXPECTS(store_ != nullptr, "init has succeeded");
  KESTRANE_EXPECTS(infos.plane_count <= kMaxPlanes, "a table has at most 100 planes",
                   infos.plane_count);
  plane_count_ = infos.plane_count;
  for (std::int32_t p = 0; p < plane_count_; ++p) {
    const _MRV_LASER_PLANE_BLOCK_INFO& source = infos.planes[p];
    expect_fit("set_laser_plane_param", source.block, kBlocks);
    copy_table(source.block, planes_[p].block);
    if (source.block.count > 0) std::copy_n(source.laser_plane_R, 3, planes_[p].laser_plane_R);
  }
}

void LaserCompensator::set_extrinsic_matrix(const _MRV_EXTRINSIC_PARAM& extrinsic) {
  extrinsic_ = extrinsic;
}

void LaserCompensator::set_compensate_param(const _KESTRANE_COMPENSATE_PARAM& param,
                                            std::int32_t first, std::int32_t last) {
  KESTRANE_EXPECTS(is_in_table(first, last), "planes of 0 to 99", first, last);
  param_ = param;
  const std::int64_t span = std::int64_t{last} - first;
  const std::int64_t centre = first + span / 2;
  const std::int32_t end = std::min(last, kMaxPlanes);
  for (std::int32_t p = std::max(first, 0); p < end; ++p) {
    const auto steps = static_cast<double>(p - centre);
    angle_temperature_[p] = steps * param.temperature_spread;
    angle_drift_[p] = steps * param.drift_spread;
  }
}

void LaserCompensator::compensate(std::int32_t first, std::int32_t last) {
  KESTRANE_EXPECTS(first >= last || store_ != nullptr, "init has succeeded");
  KESTRANE_EXPECTS(is_in_table(first, last), "planes of 0 to 99", first, last);
  const double scale = scale_of(param_);
  const std::int32_t end = std::min(last, kMaxPlanes);
  for (std::int32_t p = std::max(first, 0); p < end; ++p) compensate_plane(p, scale);
}

void LaserCompensator::get_compensate_result(_MRV_LASER_PLANE_BLOCK_INFOS& infos) const {
  KESTRANE_EXPECTS(store_ != nullptr, "init has succeeded");
  infos.plane_count = plane_count_;
  for (std::int32_t p = 0; p < plane_count_; ++p) {
    copy_table(planes_[p].block, infos.planes[p].block);
    std::copy_n(planes_[p].laser_plane_R, 3, infos.planes[p].laser_plane_R);
  }
}

// The pivot is the point of the scaled whole plane; cells are scaled and turned about it.
void LaserCompensator::compensate_plane(std::int32_t plane, double scale) {
  _LASER_PLANE_BLOCK_INFO& row = planes_[plane];
  double whole[3];
  std::copy_n(row.laser_plane_R, 3, whole);
  correct_plane(extrinsic_.T, scale, whole);
  point_along(extrinsic_.T, whole, row.pivot);
  set_rotation(angle_of(param_, angle_temperature_[plane], angle_drift_[plane]), plane_rotation_.R);

  PlaneMotion motion;
  std::copy_n(extrinsic_.T, 3, motion.translation);
  motion.scale = scale;
  std::copy_n(plane_rotation_.R, 9, motion.rotation);
  std::copy_n(row.pivot, 3, motion.pivot);
  for (std::int32_t j = 0; j < row.block.count; ++j) {
    const _LASER_LINE_INFOS& line = row.block.lines[j];
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): cells are rows of three doubles
    compensate_line(motion, reinterpret_cast<double*>(line.cells), line.count);
  }
}

}  // namespace kestrane
