/// @file
/// From the coefficient record of a device to its plane table at a condition, which is what the
/// coefficients are for.
///
/// - Coefficients: per corner of the fan a line (a, b, c) of a t + b x + c = 0 between the
///   condition t and the corner's x. The corner's y and z are nominal: 16 rays, evenly in angle
///   over 60 degrees, cut at 51 depths from 150 to 1500.
/// - Corners: planes x 16 x 51 triples (x, y, z) in this order, as a factory result holds them. The
///   corners of a plane without a calibration are not numbers.
/// - Errors: `std::invalid_argument` for a record or a list of another shape, and for a condition
///   that is not finite; numbers that give no table are a refusal. `std::bad_alloc`.
/// - Memory: results own theirs. Threads: calls share nothing.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kestrane/export.h"
#include "kestrane/quality/plane_table.h"
#include "kestrane/records.h"

namespace kestrane::quality {

/// The corners of a device, or the reason why there are none.
struct DeviceCorners {
  std::vector<_LASER_TRIPLE> corners;  ///< planes x 16 x 51; none where refused
  std::string refused;                 ///< empty where there are corners
};

/// A table, or the reason why there is none.
struct TableOfCorners {
  PlaneTable table;     ///< a row per plane; without planes where refused
  std::string refused;  ///< empty where there is a table
};

/// The corners of all planes of a record at a condition: x = -(a t + c) / b.
///
/// Refused where a b is 0 (below 2.2e-16 in size) or an x is not finite. A plane whose row is empty
/// has corners that are not numbers.
///
/// @param record     read only
/// @param condition  t, on the scale of the models
///
/// @throws std::invalid_argument  the condition is not finite, a pointer is null, the plane count
///                                is outside 1 to 100 or beyond that of the coefficient table, or a
///                                row is neither full (16 x 51) nor empty
KESTRANE_API DeviceCorners corners_at(const _COMPENSATOR_COEFFS& record, double condition);

/// The table of the sheets through these corners: cells as the factory calibration makes them, the
/// plane of the four corners each; the whole plane by least squares of all corners.
///
/// A plane of which no corner is finite gets an empty row. Refused where only some are not finite,
/// and where a plane passes through the origin, which has no form in a table.
///
/// @param corners  planes x 16 x 51, 1 to 100 planes
///
/// @throws std::invalid_argument  another number of corners
KESTRANE_API TableOfCorners table_of(const std::vector<_LASER_TRIPLE>& corners);

/// The same for corners that may be refused: their reason is handed on.
KESTRANE_API TableOfCorners table_of(const DeviceCorners& corners);

}  // namespace kestrane::quality
