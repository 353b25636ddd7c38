/// @file
/// Run-time compensation: recomputes the local planes of a range of laser planes for the device's
/// present temperature and second reading.
///
/// - Units: those of the plane table; angles in radians; temperatures on the host's scale.
/// - Planes: (a, b, c) of a x + b y + c z + 1 = 0, in the scanner's measuring frame.
/// - Order: `init`, `set_laser_plane_param`, `set_extrinsic_matrix`, `set_compensate_param`,
///   `compensate`, `get_compensate_result`. Nothing checks the order.
/// - Memory: the object holds its own copy of the table, 100 planes of 15 x 50 cells, taken once by
///   `init` (3,900,032 bytes); nothing is allocated after that and no host pointer is kept.
/// - Threads: one object serves one thread at a time; two objects are independent.

#pragma once

#include <cstdint>

#include "kestrane/export.h"
#include "kestrane/records.h"

namespace kestrane {

class LaserCompensator;

/// The compensation of one device. A host makes one, and loads the table anew for each condition.
class KESTRANE_API KESTRANE_LASER_COMPENSATOR {
 public:
  /// Only the standard allocation exception can leave the constructor.
  KESTRANE_LASER_COMPENSATOR();

  /// Frees the working store.
  ~KESTRANE_LASER_COMPENSATOR();

  /// Deleted: the store belongs to one object.
  KESTRANE_LASER_COMPENSATOR(const KESTRANE_LASER_COMPENSATOR&) = delete;

  /// Deleted: the store belongs to one object.
  KESTRANE_LASER_COMPENSATOR& operator=(const KESTRANE_LASER_COMPENSATOR&) = delete;

  /// Takes the working store; an earlier one, with its table, is dropped first.
  ///
  /// @retval KESTRANE_ERR_NO_MEMORY  the store could not be had; only `init` may be called next
  _KESTRANE_STATUS init();

  /// Copies the host's planes in, cells and counts as they stand, `grids` left out.
  /// Precondition: at most 100 planes, 15 lines and 50 cells. A plane without lines does not hand
  /// over its `laser_plane_R`.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  `plane_count` is 0; nothing has changed
  _KESTRANE_STATUS set_laser_plane_param(_MRV_LASER_PLANE_BLOCK_INFOS infos);

  /// Stores the extrinsic matrix; only the direction of its translation is used. One of zero turns
  /// planes into values that are not numbers, which no status reports.
  _KESTRANE_STATUS set_extrinsic_matrix(_MRV_EXTRINSIC_PARAM extrinsic);

  /// Stores the condition, and makes planes first to last - 1 a fan: each gets an angle in
  /// proportion to its distance from the central plane, first + (last - first) / 2 rounded down.
  /// The angles of other planes stay as they are. Precondition: 0 <= first and last <= 100.
  _KESTRANE_STATUS set_compensate_param(_KESTRANE_COMPENSATE_PARAM param, std::int32_t first,
                                        std::int32_t last);

  /// Recomputes the cells of planes first to last - 1 in place, and the planes' pivots. A second
  /// call works on the result of the first: a new condition begins with set_laser_plane_param.
  /// Cells whose a is 0.0 stay as they are. Precondition: a range inside the table.
  _KESTRANE_STATUS compensate(std::int32_t first, std::int32_t last);

  /// Copies all rows of the table out into the host's memory, which needs room for them, and sets
  /// the host's `plane_count`. `laser_plane_R` is the one that came in; `grids` is left alone.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  the host's `plane_count` is 0 on entry; nothing has
  ///                                     changed
  _KESTRANE_STATUS get_compensate_result(_MRV_LASER_PLANE_BLOCK_INFOS& infos);

 private:
  LaserCompensator* engine_;
};

}  // namespace kestrane
