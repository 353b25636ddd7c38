/// @file
/// Fast calibration in the field: one rigid transform that carries a stored plane table (the
/// standard) onto points measured now, with three quality indicators. The engine also brings the
/// coefficients of a device up to date.
///
/// - Units: those of the table and the points, which must be the same. The depth band 220 to 350
///   and the acceptance limits 2.0 and 1.5 are numbers in that unit.
/// - Frames: the transform maps standard coordinates to present ones: p on a standard plane lies at
///   R p + t now. Along a direction that all planes of the range share, t stays undetermined.
/// - Planes: (a, b, c) of a x + b y + c z + 1 = 0, one per cell, 15 x 50 cells per plane.
/// - Points: one list per laser plane of the range, in plane order; a point's `id` is the number of
///   the capture frame in which it was measured. Frames are kept or dropped as a whole; ids outside
///   the id range of the first list (widened to 0) are dropped.
/// - Order: `init`, `set_laser_plane_standard`, `fast_calib`, then the getters. Only `fast_calib`
///   checks it, and only whether `init` has succeeded.
/// - Memory: the standard is copied in, no host pointer is kept. Its block (1,955,840 bytes) is
///   never released, see `init`.
/// - Threads: one object serves one thread at a time, and so do two facades that share an engine.
///   All work is done on the calling thread, the solver's too.
/// - Output: each solve writes the solver's one-line report to standard output.
///
/// Only the standard allocation exception leaves `fast_calib`, `calib_Rt`, `cal_residual` and
/// `calib`.

#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestrane/export.h"
#include "kestrane/records.h"

namespace kestrane {

/// The engine: the copy of the standard, the result, and the stages of a calibration.
class KESTRANE_API KestraneLaserFastCalibrator {
 public:
  /// Zeroes indicators and transform. The standard has a place only after `init`.
  KestraneLaserFastCalibrator();

  /// Leaves the block of the standard allocated, see `init`.
  ~KestraneLaserFastCalibrator();

  /// Deleted: the standard belongs to one object.
  KestraneLaserFastCalibrator(const KestraneLaserFastCalibrator&) = delete;

  /// Deleted: the standard belongs to one object.
  KestraneLaserFastCalibrator& operator=(const KestraneLaserFastCalibrator&) = delete;

  /// Takes the block of the standard. It stays allocated for the life of the process, also after
  /// the object is gone; a second `init` takes another one, without a standard.
  ///
  /// @retval KESTRANE_ERR_NO_MEMORY  the block could not be had; nothing has changed
  _KESTRANE_STATUS init();

  /// Copies counts, cells and grid record in, `laser_plane_R` left out. Precondition: at most
  /// 100 planes, 15 lines and 50 cells.
  _KESTRANE_STATUS set_laser_plane_standard(const _MRV_LASER_PLANE_BLOCK_INFOS& infos);

  /// The transform of the last calibration. Before the first one the rotation is all zero and comes
  /// out as the quaternion (1, 0, 0, 0), a half turn about x.
  _KESTRANE_STATUS get_transform_param(_MRV_TRANSFORM& out);

  /// Mean, largest and half the mean absolute deviation of the point-to-plane distances that the
  /// last `cal_residual` measured; after a calibration, those of the points that it ended with.
  _KESTRANE_STATUS get_calib_indicator(double& mean, double& max, double& deviation);

  /// Calibrates against planes first_plane to last_plane, both included and inside the table.
  ///
  /// @retval KESTRANE_ERR_COUNT_MISMATCH  not one list per plane; the diagonal of the rotation is 1
  ///                                      now, nothing else has changed
  /// @retval KESTRANE_ERR_SOLVE_FAILED    the last solve gave nothing usable; the transform is the
  ///                                      identity and the indicators measure that
  _KESTRANE_STATUS calib_Rt(const std::vector<std::vector<_KESTRANE_ID_POINT3D>>& frames,
                            const std::int32_t& first_plane, const std::int32_t& last_plane);

  /// The variant for a device with coefficients: takes the capture frames that cross the plane of
  /// their list's points, solves once, and writes the transform into the slots first_plane to
  /// last_plane of `coeffs_out.Mbs_factory_to_user`, and nothing else. Transform and indicators of
  /// this object stay as they were. `distance` has no effect. A solve that gives nothing usable
  /// leaves the identity in the slots and is not a failure.
  ///
  /// The checks come in this order; on a failure nothing is written:
  /// 1. KESTRANE_ERR_COUNT_MISMATCH: not one list per plane
  /// 2. KESTRANE_ERR_EMPTY_RANGE: a range of one plane
  /// 3. KESTRANE_ERR_INVALID_PARAM: `coeffs_in.plane_count` below 1
  /// 4. KESTRANE_ERR_NULL_POINTER: `coeffs_in.opt_coeffs` is null
  /// 5. KESTRANE_ERR_INVALID_PARAM: `coeffs_out.plane_count` below 1
  /// 6. KESTRANE_ERR_NULL_POINTER: `coeffs_out.opt_coeffs` is null
  /// 7. KESTRANE_ERR_INVALID_PARAM: `coeffs_in.range_count` of 20 or more
  /// 8. KESTRANE_ERR_RANGE_UNKNOWN: no range of `coeffs_in` is first_plane to last_plane
  /// 9. KESTRANE_ERR_FIT_FAILED: a list is empty, has no plane between depth 220 and 350 (one point
  ///    there whose x is not a number is enough), or no frame that crosses it
  _KESTRANE_STATUS calib_Rt(const std::vector<std::vector<_KESTRANE_ID_POINT3D>>& frames,
                            const std::int32_t& first_plane, const std::int32_t& last_plane,
                            const double& distance, const _COMPENSATOR_COEFFS& coeffs_in,
                            _COMPENSATOR_COEFFS& coeffs_out);

  /// Measures every point against its cell of the standard, moved by `motion`.
  ///
  /// @param points       one 3 x n matrix per plane from first_plane on, one point per column
  /// @param first_plane  the plane of the first matrix
  /// @param last_plane   not read
  /// @param motion       standard coordinates to those of the points
  /// @param residuals    at least as many rows as `points`, resized to n; the distance of each
  ///                     point, and for a point without a cell whatever stood there (0 where the
  ///                     row grew)
  ///
  /// Sets the three indicators. Without any point that has a cell the mean and the deviation are
  /// NaN and the maximum is -1000.
  void cal_residual(const std::vector<Eigen::Matrix<double, 3, -1>>& points,
                    const std::int32_t& first_plane, const std::int32_t& last_plane,
                    _MRV_EXTRINSIC_PARAM motion, std::vector<std::vector<double>>& residuals);

  /// Brings the per-corner line models of a coefficient record up to date from one corner table
  /// that was measured at `condition`. Corners of blocks without points, of the last line and of
  /// the last depth keep their model; the others get a line through ten samples of the old one and
  /// the new reading, held within 0.01 of what the old line predicts. Uses nothing of this object,
  /// needs no `init`. After a standard allocation exception `result` is written in part.
  ///
  /// @param indicators  15 x 50 per plane; a block counts as measured where its mean is not 0.0
  /// @param corners     16 x 51 per plane, for as many planes as `indicators`; only x is used
  /// @param condition   t at which the corners were measured, on the scale of the models, which are
  ///                    sampled from 22 to 40; any value is taken
  /// @param source      read only; may be `result`
  /// @param result      carved by its owner with room for all that `source` holds; its
  ///                    factory-to-user transforms become unit transforms for the planes in use
  ///
  /// The checks come in this order; on a failure nothing is written:
  /// 1. KESTRANE_ERR_INVALID_PARAM: `indicators.plane_count` is 0
  /// 2. KESTRANE_ERR_NULL_POINTER: `indicators.planes` is null
  /// 3. KESTRANE_ERR_INVALID_PARAM: `corners.plane_count` is 0
  /// 4. KESTRANE_ERR_NULL_POINTER: `corners.planes` is null
  /// 5. KESTRANE_ERR_INVALID_PARAM: `source.plane_count` is below 1
  /// 6. KESTRANE_ERR_NULL_POINTER: `source.opt_coeffs` is null
  _KESTRANE_STATUS calib(const _LASER_PLANE_INDICATORS_INFOS& indicators,
                         const _LASER_PLANE_GRID_CORNERS_INFOS& corners, double condition,
                         _COMPENSATOR_COEFFS& source, _COMPENSATOR_COEFFS& result);

 private:
  int alloc_buf_size(void* block, bool carve);
  void filter_point_by_frame(const std::vector<std::vector<_KESTRANE_ID_POINT3D>>& frames,
                             const std::int32_t& first_plane, const std::int32_t& last_plane,
                             std::vector<std::vector<_KESTRANE_ID_POINT3D>>& filtered);
  void divide_interior_planes(const std::vector<std::vector<_KESTRANE_ID_POINT3D>>& filtered,
                              std::vector<Eigen::Matrix<double, 3, -1>>& points);

  void* buffer;
  double residual_mean;
  double residual_max;
  double residual_deviation;
  _MRV_EXTRINSIC_PARAM extrinsic;
  _LASER_PLANE_BLOCK_INFOS* standard;
};

/// What a host uses: owns one engine and forwards to it.
class KESTRANE_API KESTRANE_LASER_FAST_CALIB {
 public:
  /// A facade without an engine: `init` comes next.
  KESTRANE_LASER_FAST_CALIB();

  /// Destroys the engine, but not the block of its standard.
  ~KESTRANE_LASER_FAST_CALIB();

  /// Deleted: two facades would own one engine.
  KESTRANE_LASER_FAST_CALIB(const KESTRANE_LASER_FAST_CALIB&) = delete;

  /// Copies the pointer to the engine: both facades share it then, the one that stood here is lost,
  /// and only one of the two may be destroyed.
  KESTRANE_LASER_FAST_CALIB& operator=(const KESTRANE_LASER_FAST_CALIB& other);

  /// Destroys the present engine and takes a fresh one. The standard must be set again.
  ///
  /// @retval KESTRANE_ERR_NO_MEMORY  engine or block could not be had; there is no engine then
  _KESTRANE_STATUS init();

  /// Copies the standard into the engine. Only after a successful `init`, like both getters below.
  _KESTRANE_STATUS set_laser_plane_standard(_MRV_LASER_PLANE_BLOCK_INFOS infos);

  /// Calibrates against planes first_plane to last_plane, both included, as the first `calib_Rt` of
  /// the engine does. A failure leaves the standard as it was.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM   `frames` is empty
  /// @retval KESTRANE_ERR_NOT_READY       no successful `init`
  /// @retval KESTRANE_ERR_COUNT_MISMATCH  not one list per plane
  /// @retval KESTRANE_ERR_SOLVE_FAILED    the last solve gave nothing usable
  _KESTRANE_STATUS fast_calib(std::vector<std::vector<_KESTRANE_ID_POINT3D>> frames,
                              int first_plane, int last_plane);

  /// The transform of the last calibration, see the engine.
  _KESTRANE_STATUS get_transform_param(_MRV_TRANSFORM& out);

  /// The three indicators of the last calibration, in the unit of the points, see the engine.
  _KESTRANE_STATUS get_calib_indicator(double& mean, double& max, double& deviation);

 private:
  KestraneLaserFastCalibrator* engine_;
};

}  // namespace kestrane

// Eigen's switches change what a matrix is in memory. Vector flags and alignment do not: the host's
// matrices are only read, number by number, and never resized, moved or freed by the library.
static_assert(sizeof(Eigen::Index) == sizeof(std::ptrdiff_t),
              "kestrane needs Eigen's own index type: no EIGEN_DEFAULT_DENSE_INDEX_TYPE");
static_assert(Eigen::Matrix<double, 3, -1>::IsRowMajor == 0,
              "kestrane needs matrices by columns: no EIGEN_DEFAULT_TO_ROW_MAJOR");
static_assert(sizeof(Eigen::Matrix<double, 3, -1>) == sizeof(double*) + sizeof(std::ptrdiff_t) &&
                  alignof(Eigen::Matrix<double, 3, -1>) == alignof(double*),
              "kestrane needs plain matrices: no EIGEN_..._PLUGIN that adds members");
