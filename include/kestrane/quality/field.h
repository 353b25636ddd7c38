/// @file
/// Field calibration: what moved, and how surely.
///
/// The job finds one rigid motion from the stored table to the device as it is now, and says
/// nothing about what its points do not fix: along a direction that all sheets share, its
/// translation is arbitrary. Here the input is screened, the job runs, and the outcome is told in
/// figures that such a direction does not reach.
///
/// - Units and frames: those of the points and the table, which must be the same. A motion carries
///   coordinates of the table to present ones: p on a sheet of the table lies at R p + t now.
/// - Planes: list i of the frames belongs to plane `settings.first_plane` + i of the table. A
///   point's `id` is the number of its capture frame; numbers need only tell the frames of one list
///   apart, and all that is handed out holds the host's own numbers.
/// - Uncertainty: errors are taken as common to a capture frame and, from 8 planes on, to a plane,
///   and not as independent from point to point, which would make every sigma far too small. A
///   sigma is one standard deviation.
/// - Not a number: every figure that the points do not determine.
/// - Output: the job writes the solver's two lines to standard output.
/// - Memory: an engine of the job keeps 1,955,840 bytes of address space for the life of the
///   process, of which about 540,000 are touched with 8 planes and all with 100. A host that
///   calibrates often keeps one engine and hands it in: a call then keeps nothing.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kestrane/export.h"
#include "kestrane/quality/plane_table.h"
#include "kestrane/quality/screening.h"
#include "kestrane/records.h"

namespace kestrane {

class KESTRANE_LASER_FAST_CALIB;

namespace quality {

/// All there is to set is how the frames are screened: which plane the first list belongs to, and
/// whether planes without points or without a table may be left out at the ends of the range.
using FieldSettings = FrameSettings;

/// How far a field calibration got with a point.
enum class FieldStage : std::int32_t {
  kGiven = 0,           ///< as the host gave it
  kScreened = 1,        ///< finite, and on a block of the table
  kFrameFilter = 2,     ///< its frame is near enough to the table, by the job's own filter
  kInteriorPlanes = 3,  ///< near enough to the rest of its zone of the fan, by the job's own stage
  kUsed = 4             ///< at most 1.5 from the moved table: all figures come from these
};

/// What is left after a stage.
struct StageCount {
  std::int64_t points = 0;  ///< points
  std::int32_t frames = 0;  ///< capture frames with at least one point, summed over the planes
  std::int32_t planes = 0;  ///< planes with at least one point
};

/// A capture frame without any used point.
struct DroppedFrame {
  std::int32_t plane = 0;                    ///< plane of the table
  std::int32_t frame = 0;                    ///< the host's number of the frame
  FieldStage stage = FieldStage::kScreened;  ///< the stage that took its last point away
};

/// What one plane contributed.
struct PlaneUse {
  std::int32_t plane = 0;       ///< plane of the table
  std::int64_t points[5] = {};  ///< left after each FieldStage
  std::int32_t frames[5] = {};  ///< frames with at least one point left after each FieldStage
};

/// What was used, and what was left out where.
struct FieldUse {
  StageCount stages[5];                 ///< after each FieldStage, of all planes
  std::vector<PlaneUse> planes;         ///< one per list handed in
  std::vector<DroppedFrame> dropped;    ///< by plane, then by number
  std::vector<std::int32_t> left_out;   ///< planes left out at the ends of the range
  std::vector<PlaneAccount> screening;  ///< one per list handed in: what was screened out and why
  std::string unit_hint;  ///< the unit that the points seem to have; empty where millimetres fit

  /// What is left after a stage, of all planes.
  const StageCount& after(FieldStage stage) const { return stages[static_cast<int>(stage)]; }
};

/// One of six independent directions of a small motion.
///
/// A motion is six lengths: a turn about the centre of the used points times their root mean square
/// distance from it (x, y, z), then the shift of that centre (x, y, z).
struct MotionDirection {
  std::string name;    ///< "shift along y", "turn about y (with shift along x)"
  double vector[6];    ///< of length 1
  double sigma = 0.0;  ///< of the motion along it; infinite where it moves no sheet, not a number
                       ///< where there are too few clusters to tell
  double strength = 0.0;  ///< how much it moves the sheets, 1 for the direction that does most
  bool fixed = false;  ///< whether the motion along it may be believed: it moves sheets, and sigma
                       ///< is at most 1
};

/// How far the sheets moved along their normals, + towards larger x, at the middles of the blocks
/// of depth 244.5 to 325.5 that have a plane. Free of what the points do not fix.
struct Displacement {
  double rms = 0.0;        ///< root mean square
  double max = 0.0;        ///< largest size
  double sigma = 0.0;      ///< root mean square of the uncertainty over the same places
  std::int32_t plane = 0;  ///< where it is largest
  Block block = {0, 0};    ///< where it is largest
};

/// The indicators of the job, in the unit of the points.
struct FieldIndicators {
  double mean = 0.0;       ///< mean distance of the points of the last solve
  double max = 0.0;        ///< their largest distance
  double deviation = 0.0;  ///< half of their mean absolute deviation
};

/// What a field calibration found. After a refusal only `refused` and `used` mean anything.
struct FieldResult {
  std::string refused;  ///< why there is no motion; empty where there is one

  Displacement displacement;  ///< the headline

  /// The smallest motion that moves the sheets as the job's does: no part of it lies along a
  /// direction that is not fixed. What a host should apply or show.
  _MRV_EXTRINSIC_PARAM smallest_motion = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};

  /// The job's own motion, arbitrary along every direction that is not fixed.
  _MRV_EXTRINSIC_PARAM motion = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
  _MRV_TRANSFORM transform = {{0, 0, 0, 1}, {0, 0, 0}};  ///< the same, as the job hands it out
  FieldIndicators indicators;                            ///< of the job

  std::vector<MotionDirection> directions;  ///< six, the one that moves the sheets least first
  Point centre = {0, 0, 0};  ///< of the used points, that turns of `directions` are about
  double length = 1.0;       ///< root mean square distance of the used points from it
  double residual = 0.0;     ///< root mean square distance of the used points from the moved table

  /// Clusters that errors are common to: frames of a plane, and planes. With fewer than 8 frames
  /// there is no sigma, and no direction counts as fixed.
  std::int32_t frame_clusters = 0;
  std::int32_t plane_clusters = 0;  ///< planes with used points

  /// Whether there were enough planes (8) for `displacement.sigma` to hold the errors of the stored
  /// table. Otherwise they come on top of it.
  bool sigma_holds_table = false;

  std::int32_t first_plane = 0;  ///< of the planes that took part
  std::int32_t last_plane = -1;  ///< included
  FieldUse used;                 ///< what was used, and what was left out
};

/// Screens the frames, runs the job and measures its outcome.
///
/// @param table     the standard; only read
/// @param frames    list i for plane `settings.first_plane` + i; only read
/// @param settings  see there
///
/// A refusal (a plane without points or without a table, nothing near the table, no usable
/// solution) is a result and not an exception. The same input gives the same bits.
///
/// @throws std::invalid_argument  no list, or a plane that the table does not have
/// @throws std::bad_alloc         memory could not be had
KESTRANE_API FieldResult calibrate_field(const PlaneTable& table,
                                         const std::vector<PointList>& frames,
                                         const FieldSettings& settings = {});

/// The same with the host's own engine, after its `init`: no other block is kept. The engine's
/// standard, transform and indicators are those of this call afterwards (after a refusal, perhaps
/// still those from before). One engine serves one thread at a time.
///
/// @throws std::invalid_argument  as above, or `engine` has had no successful `init`
KESTRANE_API FieldResult calibrate_field(KESTRANE_LASER_FAST_CALIB& engine, const PlaneTable& table,
                                         const std::vector<PointList>& frames,
                                         const FieldSettings& settings = {});

}  // namespace quality
}  // namespace kestrane
