/// @file
/// Factory calibration: one cloud of measured points per laser plane becomes that plane's row of a
/// table of 15 x 50 local planes, with 16 x 51 grid corners and quality figures per block.
///
/// - Units: those of the points; depths are z. Points are expected near a sheet of nearly constant
///   x, within 30 degrees of the z axis in the y-z plane.
/// - Planes: (a, b, c) of a x + b y + c z + 1 = 0, in the scanner's measuring frame.
/// - Order: `init`; `set_laser_type` and `set_optimize_flag`; for each plane `factory_calib` and,
///   if wanted, `get_indicators` with the same index; at the end `get_laser_plane_infos`. It is not
///   checked.
/// - Memory: the object keeps its own table; points and records are copied in and out, no host
///   pointer is kept. The table's block is never released, see `init`.
/// - Threads: one object serves one thread at a time; two objects are independent. A run uses
///   the calling thread alone, so the same cloud gives the same bits in every run.

#pragma once

#include <cstdint>

#include "kestrane/export.h"
#include "kestrane/records.h"

namespace kestrane {

class KestraneLaserFactoryCalibrator;

/// The factory calibration of one device, plane by plane.
class KESTRANE_API KESTRANE_LASER_FAC_CALIB {
 public:
  /// Only the standard allocation exception can leave the constructor.
  KESTRANE_LASER_FAC_CALIB();

  /// Frees what the runs have left, but not the block of the table, see `init`.
  ~KESTRANE_LASER_FAC_CALIB();

  /// Deleted: the table belongs to one object.
  KESTRANE_LASER_FAC_CALIB(const KESTRANE_LASER_FAC_CALIB&) = delete;

  /// Deleted: the table belongs to one object.
  KESTRANE_LASER_FAC_CALIB& operator=(const KESTRANE_LASER_FAC_CALIB&) = delete;

  /// Takes the block of the table (1,950,976 bytes) and builds the nominal grid. The block stays
  /// allocated for the life of the process, also after the object is gone; a second `init` takes
  /// another one.
  ///
  /// @retval KESTRANE_ERR_FAILED  block or grid could not be had; nothing has changed
  _KESTRANE_STATUS init();

  /// Chooses the depth band of the next runs. Any value is taken; all but LASER_TYPE_FAR act as
  /// LASER_TYPE_STANDARD.
  _KESTRANE_STATUS set_laser_type(_LASER_TYPE type);

  /// Switches the refinement of the grid corners on or off for the next runs.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  a value other than 0 and 1; the flag stays as it was
  _KESTRANE_STATUS set_optimize_flag(_KESTRANE_OPTIM_FLAG flag);

  /// Calibrates one plane and overwrites its row of the table. Allocation failure leaves as the
  /// standard allocation exception, with the row as it was.
  ///
  /// @param plane_index  row of the table, 0 to 99 (a precondition)
  /// @param points       the measured points, read only; one whose x is not a number counts as
  ///                     dropped, and the `id` plays no part
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  no points; nothing has changed
  /// @retval KESTRANE_ERR_NULL_POINTER   `points.points` is null; nothing has changed
  /// @retval KESTRANE_ERR_FAILED         fewer than 3 points in the depth band, a plane through the
  ///                                     origin, or no sector with the 200 points that a fit needs;
  ///                                     the row stays as it was
  _KESTRANE_STATUS factory_calib(int plane_index, _KESTRANE_ID_POINT3DS points);

  /// Copies out the block statistics (15 x 50) and the corners (16 x 51) of the latest run, which
  /// must have succeeded. On a failure nothing is written.
  ///
  /// @param plane_index  the row of both records that is written; precondition: it lies inside the
  ///                     corner record too
  /// @param indicators   carved for 15 x 50; a block's figures are the largest (signed), mean and
  ///                     standard deviation of its points' signed distances, all 0.0 without points
  /// @param corners      carved for 16 x 51; a corner is (x, y, z)
  ///
  /// The checks come in this order:
  /// 1. KESTRANE_ERR_INVALID_PARAM: `plane_index` is negative or not below `indicators.plane_count`
  /// 2. KESTRANE_ERR_NULL_POINTER: `indicators.planes` is null
  /// 3. KESTRANE_ERR_INVALID_PARAM: `indicators.plane_count` is above its capacity
  /// 4. KESTRANE_ERR_NULL_POINTER: `corners.planes` is null
  /// 5. KESTRANE_ERR_INVALID_PARAM: `corners.plane_count` is above its capacity
  _KESTRANE_STATUS get_indicators(int plane_index, _LASER_PLANE_INDICATORS_INFOS& indicators,
                                  _LASER_PLANE_GRID_CORNERS_INFOS& corners);

  /// Copies out the grid record, the host's `grid_head` kept, and the first `infos.plane_count`
  /// rows of the table. Preconditions: room for 15 x 50 cells a row and at most 100 rows; a row
  /// that was never calibrated has no lines.
  ///
  /// @retval KESTRANE_ERR_NULL_POINTER  `planes` or `grids` is null; nothing has changed
  _KESTRANE_STATUS get_laser_plane_infos(_MRV_LASER_PLANE_BLOCK_INFOS& infos);

 private:
  KestraneLaserFactoryCalibrator* engine_;
};

}  // namespace kestrane
