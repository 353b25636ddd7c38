/// @file
/// Refinement: a table that follows a sheet's shape along the depth, from the same points.
///
/// The factory job lays one plane per sector over all depths, so a sheet's bow along the depth
/// stays in its table. This estimator lays a smooth surface through a plane's points, as smooth as
/// the capture frames ask for by cross-validation, and gives each block the plane that follows it
/// best. Where the frames support no shape, the surface is a plane.
///
/// - Units: those of the points, millimetres for the fixed depths. x across the sheets, y along a
///   laser line, z depth.
/// - Frames: a point's `id` is the number of its capture frame. Errors that a frame's points share
///   are only seen where these numbers are honest.
/// - Memory: points are read only, results own theirs.
/// - Errors: `std::invalid_argument` for a null array, a negative count or a setting out of its
///   range; bad points never throw. A plane that cannot be refined says why in `refused`.
/// - Same points in any order, same result, to the bit: in every run, on any number of threads.
/// - Threads: calls share nothing and have no thread of their own but those that `refine` is asked
///   for.

#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "kestrane/export.h"
#include "kestrane/quality/plane_table.h"
#include "kestrane/quality/screening.h"
#include "kestrane/records.h"

namespace kestrane::quality {

/// How a plane is refined. The defaults are the measured ones.
struct RefinementSettings {
  /// Groups of frames that are left out in turn when the shape is chosen; no more than there are
  /// frames. 3 to 40.
  std::int32_t folds = 20;
  /// How many standard errors better a less smooth surface has to predict frames that it has not
  /// seen. Larger is more cautious. Above 0.
  double significance = 2.5;
  /// A point farther from the surface than this many noise scales is left out. 2 to 20.
  double cut = 4.0;
  /// A frame whose median residual is farther than this many scales from the median of the frames
  /// is left out; 0 keeps all frames. Needs 8 frames.
  double frame_cut = 5.0;
  /// Depths of the points that are taken, both included, within 123 to 1500.
  double depth_near = 123.0;
  /// See depth_near; above it.
  double depth_far = 1500.0;
  /// Whether ids are capture frames. Otherwise every point counts as a frame of its own: only for
  /// clouds whose points are known to err independently.
  bool frames = true;
};

/// A corner of the grid: x of the surface on a nominal ray.
struct RefinedCorner {
  double x = 0.0;      ///< of the surface
  double y = 0.0;      ///< of the ray at this depth
  double z = 0.0;      ///< depth
  double sigma = 0.0;  ///< standard deviation of x; grows where the surface is continued
};

/// What became of the points of a plane.
struct RefinementCounts {
  std::int64_t points = 0;      ///< handed in
  std::int64_t used = 0;        ///< in the estimate
  std::int64_t not_finite = 0;  ///< a coordinate is not finite
  std::int64_t outside = 0;     ///< outside the depths or the fan
  std::int64_t outliers = 0;    ///< farther than `cut` from the surface
  std::int64_t bad_frames = 0;  ///< in a frame that was left out
};

/// A refined plane.
struct RefinedPlane {
  std::string refused;  ///< why there is no result; empty where there is one

  /// 16 x 51 corners, corner k of line i at 51 i + k; empty where refused.
  std::vector<RefinedCorner> corners;
  /// 15 x 50 blocks, (a, b, c) of cell k of line j at 50 j + k; empty where refused.
  std::vector<_LASER_TRIPLE> cells;
  /// Per block, largest (signed), mean and standard deviation of the signed distances of the points
  /// that were used, + at larger x; 0 without points. Order of `cells`.
  std::vector<_LASER_TRIPLE> indicators;
  std::array<double, 3> whole_plane = {};  ///< (a, b, c) of the robust plane

  RefinementCounts counts;                    ///< points
  std::int32_t frames_used = 0;               ///< frames in the estimate
  std::vector<std::int32_t> frames_left_out;  ///< their numbers, ascending
  std::int32_t order = 0;   ///< 2: bending is damped, a plane is free; 3: change of bending is
                            ///< damped, a quadratic is free
  double lambda = 0.0;      ///< weight of the damping, a pure number
  bool plane_only = false;  ///< the frames support no shape: the surface is a plane
  double noise = 0.0;       ///< scale of the residuals of the points used
  double degrees_of_freedom = 0.0;  ///< of the surface: 3 for a plane
  /// RMS distance in x of frames that were left out from the cells that the others give: the error
  /// to expect on new frames. Not a number with fewer than 2 frames.
  double cross_validated_rms = 0.0;
};

/// Refines one plane from all of its points; it rejects by itself what does not belong to the
/// sheet, so hand in the cloud as measured, not a screened one.
///
/// Refused are fewer than 20 usable points, points nearly on one line in (y, z), as those of a
/// single frame are, a plane through the origin, and points that fix no surface.
///
/// @param points    one plane's points; `points.points` may be null where the count is 0
/// @param settings  see there
///
/// @throws std::invalid_argument  a null array, a negative count, a setting out of its range
KESTRANE_API RefinedPlane refine_plane(_KESTRANE_ID_POINT3DS points,
                                       const RefinementSettings& settings = {});

/// The same for a list.
KESTRANE_API RefinedPlane refine_plane(const PointList& points,
                                       const RefinementSettings& settings = {});

/// A refined device.
struct RefinedDevice {
  PlaneTable table;                  ///< one row per cloud; the row of a refused plane is empty
  std::vector<RefinedPlane> planes;  ///< one per cloud
};

/// Refines every plane of a device.
///
/// @param clouds    one cloud per plane, at most 100
/// @param settings  see there
/// @param threads   planes that are worked on side by side, at least 1; the result does not depend
///                  on it
///
/// @throws std::invalid_argument  more than 100 clouds, `threads` below 1, a setting out of its
///                                range
KESTRANE_API RefinedDevice refine(const std::vector<PointList>& clouds,
                                  const RefinementSettings& settings = {},
                                  std::int32_t threads = 1);

}  // namespace kestrane::quality
