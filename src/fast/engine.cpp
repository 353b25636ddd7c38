// The engine: keeps standard and result, and calls the stages in their order.
#include <Eigen/Geometry>
#include <utility>

#include "fast/crossing_frames.h"
#include "fast/frame_filter.h"
#include "fast/interior_planes.h"
#include "fast/range_transforms.h"
#include "fast/residual_filter.h"
#include "fast/residual_measurement.h"
#include "fast/standard_store.h"
#include "fast/transform_solve.h"
#include "kestrane/fast_calib.h"
#include "records/carving.h"
#include "records/expects.h"

namespace kestrane {
namespace {

_MRV_EXTRINSIC_PARAM extrinsic_of(const Eigen::Matrix4d& transform) {
  _MRV_EXTRINSIC_PARAM extrinsic{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) extrinsic.R[3 * i + j] = transform(i, j);
    extrinsic.T[i] = transform(i, 3);
  }
  return extrinsic;
}

// Each list goes as soon as its points are divided: together they would be the largest thing that a
// calibration holds.
PointSets divide_and_release(FrameLists lists, const _LASER_PLANE_GRIDS& grids) {
  PointSets points;
  points.reserve(lists.size());
  for (FrameLists::value_type& list : lists) {
    points.push_back(interior_points(list, grids));
    FrameLists::value_type().swap(list);
  }
  return points;
}

}  // namespace

KestraneLaserFastCalibrator::KestraneLaserFastCalibrator()
    : buffer(nullptr),
      residual_mean(0.0),
      residual_max(0.0),
      residual_deviation(0.0),
      extrinsic{},
      standard(nullptr) {}

// The block deliberately stays allocated for the life of the process, as the header tells hosts. A
// device is calibrated a few times in that life, so what is left behind stays small.
KestraneLaserFastCalibrator::~KestraneLaserFastCalibrator() = default;

_KESTRANE_STATUS KestraneLaserFastCalibrator::init() {
  void* block = allocate_block(alloc_buf_size(nullptr, false), 0);
  if (block == nullptr) return KESTRANE_ERR_NO_MEMORY;
  buffer = block;
  alloc_buf_size(buffer, true);
  return KESTRANE_OK;
}

int KestraneLaserFastCalibrator::alloc_buf_size(void* block, bool carve) {
  return reported_size(lay_out_standard(carve ? block : nullptr, standard));
}

_KESTRANE_STATUS KestraneLaserFastCalibrator::set_laser_plane_standard(
    const _MRV_LASER_PLANE_BLOCK_INFOS& infos) {
  KESTRANE_EXPECTS(standard != nullptr, "set_laser_plane_standard comes after init");
  copy_standard(infos, *standard);
  return KESTRANE_OK;
}

_KESTRANE_STATUS KestraneLaserFastCalibrator::get_transform_param(_MRV_TRANSFORM& out) {
  Eigen::Quaterniond q(
      Eigen::Matrix3d(Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(extrinsic.R)));
  q.normalize();  // zero stays zero
  out = {{q.x(), q.y(), q.z(), q.w()}, {extrinsic.T[0], extrinsic.T[1], extrinsic.T[2]}};
  return KESTRANE_OK;
}

_KESTRANE_STATUS KestraneLaserFastCalibrator::get_calib_indicator(double& mean, double& max,
                                                                  double& deviation) {
  mean = residual_mean;
  max = residual_max;
  deviation = residual_deviation;
  return KESTRANE_OK;
}

_KESTRANE_STATUS KestraneLaserFastCalibrator::calib_Rt(const FrameLists& frames,
                                                       const std::int32_t& first_plane,
                                                       const std::int32_t& last_plane) {
  for (const int diagonal : {0, 4, 8}) extrinsic.R[diagonal] = 1.0;
  if (!is_list_per_plane(frames.size(), first_plane, last_plane)) {
    return KESTRANE_ERR_COUNT_MISMATCH;
  }

  FrameLists filtered;
  filter_point_by_frame(frames, first_plane, last_plane, filtered);
  PointSets points = divide_and_release(std::move(filtered), *standard->grids);
  Eigen::Matrix4d transform;
  solve_transform(points, &standard, first_plane, last_plane, transform);
  extrinsic = extrinsic_of(transform);

  ResidualSets residuals(points.size());
  cal_residual(points, first_plane, last_plane, extrinsic, residuals);
  drop_far_points(residuals, points);
  const _KESTRANE_STATUS solved =
      solve_transform(points, &standard, first_plane, last_plane, transform);
  extrinsic = extrinsic_of(transform);
  cal_residual(points, first_plane, last_plane, extrinsic, residuals);
  return solved;
}

_KESTRANE_STATUS KestraneLaserFastCalibrator::calib_Rt(const FrameLists& frames,
                                                       const std::int32_t& first_plane,
                                                       const std::int32_t& last_plane,
                                                       const double& /*distance*/,
                                                       const _COMPENSATOR_COEFFS& coeffs_in,
                                                       _COMPENSATOR_COEFFS& coeffs_out) {
  const _KESTRANE_STATUS checked =
      check_range(frames.size(), first_plane, last_plane, coeffs_in, coeffs_out);
  if (checked != KESTRANE_OK) return checked;
  KESTRANE_EXPECTS(standard != nullptr, "calib_Rt comes after init");
  PointSets points;
  if (!collect_plane_points(frames, points)) return KESTRANE_ERR_FIT_FAILED;
  Eigen::Matrix4d transform;
  solve_transform(points, &standard, first_plane, last_plane, transform);
  write_range(extrinsic_of(transform), first_plane, last_plane, coeffs_out);
  return KESTRANE_OK;
}

void KestraneLaserFastCalibrator::cal_residual(const PointSets& points,
                                               const std::int32_t& first_plane,
                                               const std::int32_t& /*last_plane*/,
                                               _MRV_EXTRINSIC_PARAM motion,
                                               ResidualSets& residuals) {
  KESTRANE_EXPECTS(standard != nullptr, "cal_residual comes after init");
  const ResidualIndicators measured =
      measure_residuals(points, *standard, first_plane, motion, residuals);
  residual_mean = measured.mean;
  residual_max = measured.max;
  residual_deviation = measured.deviation;
}

void KestraneLaserFastCalibrator::filter_point_by_frame(const FrameLists& frames,
                                                        const std::int32_t& first_plane,
                                                        const std::int32_t& /*last_plane*/,
                                                        FrameLists& filtered) {
  KESTRANE_EXPECTS(standard != nullptr, "calib_Rt comes after init");
  const std::optional<ResidualIndicators> last =
      filter_frames(frames, *standard, first_plane, filtered);
  if (!last) return;
  residual_mean = last->mean;
  residual_max = last->max;
  residual_deviation = last->deviation;
}

void KestraneLaserFastCalibrator::divide_interior_planes(const FrameLists& filtered,
                                                         PointSets& points) {
  divide_into_interior_planes(filtered, *standard->grids, points);
}

}  // namespace kestrane
