/// @file
/// Cleans measured points before a job sees them, and tells what was taken out and why.
///
/// - Units: those of the points. The depth bands, `gross` and the accuracy of everything below are
///   numbers in that unit; the jobs expect millimetres.
/// - Memory: points are read only, results own theirs.
/// - Errors: `std::invalid_argument` for a null array, a negative count or a setting out of its
///   range; bad points never throw. Input that no job may see is a result whose `refused` is not
///   empty; its points are what was left when that was found.
/// - Same input, same result, to the bit: nothing here draws from a shared generator.
/// - Threads: calls share nothing.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kestrane/export.h"
#include "kestrane/quality/plane_table.h"
#include "kestrane/records.h"

namespace kestrane::quality {

/// The points of one laser plane.
using PointList = std::vector<_KESTRANE_ID_POINT3D>;

/// Why a point was dropped. A point counts under the first reason that holds.
enum class DropReason : std::int32_t {
  kNotFinite = 0,  ///< a coordinate is not finite; an x that is not a number is a dropped point
  kDepth = 1,      ///< outside the depth band of the job (clouds)
  kGross = 2,      ///< too far from the sheet that the plane's points lie on (clouds)
  kNoCell = 3      ///< outside the blocks, or in an empty one (frames)
};

/// Points by reason.
struct DropCounts {
  std::int64_t not_finite = 0;  ///< a coordinate is not finite
  std::int64_t depth = 0;       ///< outside the depth band; no sign of a bad measurement
  std::int64_t gross = 0;       ///< too far from the sheet
  std::int64_t no_cell = 0;     ///< outside the blocks, or in an empty one

  /// Points that were taken out as bad: all but those outside the depth band.
  std::int64_t screened() const { return not_finite + gross + no_cell; }
  /// All that were dropped.
  std::int64_t all() const { return screened() + depth; }
};

/// What became of one capture frame of one plane.
struct FrameAccount {
  std::int32_t frame = 0;   ///< its original number
  std::int64_t points = 0;  ///< handed in
  std::int64_t kept = 0;    ///< left after screening; 0 for a frame that vanishes
  DropCounts dropped;       ///< the others
};

/// One of the worst points that were dropped as gross.
struct WorstPoint {
  std::int64_t index = 0;  ///< its place in the cloud as handed in
  std::int32_t frame = 0;  ///< its frame's original number
  Point point = {};        ///< where it was measured
  double residual = 0.0;   ///< x minus the sheet's x
};

/// What became of the points of one plane.
struct PlaneAccount {
  std::int64_t points = 0;           ///< handed in
  std::int64_t kept = 0;             ///< left after screening
  DropCounts dropped;                ///< the others
  std::vector<FrameAccount> frames;  ///< per frame, by ascending original number
  std::vector<WorstPoint> worst;     ///< clouds: at most 6 gross points, largest |residual| first
};

/// The sheet x = p(y, z) against which gross outliers were judged:
/// x = c[0] + c[1] u + c[2] v + c[3] u^2 + c[4] u v + c[5] v^2
/// with u = (y - y0) / ys and v = (z - z0) / zs.
struct ScreeningSheet {
  std::int32_t degree = -1;      ///< 2, 1, or -1 where the points fix none: nothing was gross then
  std::array<double, 6> c = {};  ///< coefficients, in the unit of x
  double y0 = 0.0;               ///< centre in y
  double z0 = 0.0;               ///< centre in z
  double ys = 1.0;               ///< scale in y
  double zs = 1.0;               ///< scale in z
  double scale = 0.0;            ///< 1.4826 times the median of |residual|, at least 1e-9
  double limit = 0.0;            ///< a larger |residual| is gross: max(gross, 10 scale)
};

/// How a cloud is screened.
struct CloudSettings {
  /// The least |residual| that can be gross, in the unit of the points; above 0. The limit rises
  /// with the scatter: max(gross, 10 scale).
  double gross = 3.0;
  /// Which depth band the job will use: 100 to 1000, or 220 to 1000 for LASER_TYPE_FAR.
  _LASER_TYPE laser_type = LASER_TYPE_STANDARD;
};

/// A screened cloud of one plane.
struct ScreenedCloud {
  PointList points;       ///< what is left, in the order in which it was handed in, ids kept
  PlaneAccount account;   ///< what was taken out
  ScreeningSheet sheet;   ///< what gross points were measured against
  std::string refused;    ///< why the job must not see this plane; empty where it may
  std::string unit_hint;  ///< says which unit the points seem to have; empty where millimetres fit
};

/// Screens one plane's cloud for the factory calibration.
///
/// Drops points that are not finite, points outside the depth band, and gross outliers. A cloud in
/// which no sector has 200 points is refused: the job would fail on it, or answer with nothing.
///
/// @param points    one plane's points; `points.points` may be null where the count is 0
/// @param settings  see there
///
/// @throws std::invalid_argument  a null array, a negative count, `gross` not above 0 or not finite
KESTRANE_API ScreenedCloud screen_cloud(_KESTRANE_ID_POINT3DS points,
                                        const CloudSettings& settings = {});

/// The same for a list.
KESTRANE_API ScreenedCloud screen_cloud(const PointList& points,
                                        const CloudSettings& settings = {});

/// How frames are screened.
struct FrameSettings {
  std::int32_t first_plane = 0;  ///< the plane of the first list
  /// Whether planes without points, or with an empty row of the table, may be left out where they
  /// lie at either end of the range. Otherwise, and in the middle, the call is refused.
  bool leave_out_ends = false;
};

/// Screened lists of the planes of one range.
struct ScreenedFrames {
  /// One list per plane first_plane to last_plane, empty where refused. `id` is a new number: of n
  /// frames of a list, by ascending original number, -m, -m + 1, ... -m + n - 1, where m is one
  /// less than the largest n of any list. Only the field job needs these.
  std::vector<PointList> lists;
  std::int32_t first_plane = 0;   ///< first plane of `lists`
  std::int32_t last_plane = -1;   ///< last plane of `lists`, included
  std::int32_t first_number = 0;  ///< -m
  /// Per list of `lists`, the original number of the frame with the new number first_number + k.
  std::vector<std::vector<std::int32_t>> original;
  /// Per list that was handed in, planes that were left out included.
  std::vector<PlaneAccount> accounts;
  std::vector<std::int32_t> left_out;  ///< planes that were left out at the ends
  std::string refused;                 ///< why the job must not run; empty where it may
  std::string unit_hint;               ///< as for a cloud, over all lists
};

/// Screens the lists of a range of planes for the field calibration.
///
/// Drops points that are not finite and points whose block is outside the table or empty; frames
/// that are left empty vanish. The rest is numbered anew, so that neither the numbers that a host
/// gives its frames nor a frame that one plane lacks can make the job drop points.
///
/// @param lists     one list per plane, from settings.first_plane on
/// @param table     the standard
/// @param settings  see there
///
/// @throws std::invalid_argument  no lists, or the table lacks one of the planes
KESTRANE_API ScreenedFrames screen_frames(const std::vector<PointList>& lists,
                                          const PlaneTable& table,
                                          const FrameSettings& settings = {});

}  // namespace kestrane::quality
