/// @file
/// The factory calibration in its safe form: measured clouds are screened, calibrated plane by
/// plane by the job, and measured against the table that came out.
///
/// - Units and frames: those of records.h; lengths in the unit of the points, shares 0 to 1.
/// - Residual: of a point in the block that a host looks up for it, signed, + at larger x. A point
///   is valid where it is finite, inside the depth band of the fit, and its block has a plane.
///   Outliers (more than 4 sigma from the plane's median) are left out of all figures but their own
///   share and the medians of the poses.
/// - Not determined: such a figure is not a number.
/// - Quantiles: the smallest value that at least that share of all values do not exceed. The median
///   of an even number of values is the mean of the middle two.
/// - Memory: the result owns all of it; clouds are only read. Beyond the job's own memory and the
///   result, a call takes less than twice the cloud of the plane that is worked on. An engine of
///   the job keeps 1,950,976 bytes of address space for the life of the process, of which about
///   20,000 are ever touched here. A host that calibrates often keeps one engine and hands it in: a
///   call then keeps nothing.
/// - Output: none of its own; the job writes a line for a cell whose fit failed.
/// - Threads: a call works on the calling thread, or on as many threads as it is handed engines;
///   calls in several threads are independent.

#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "kestrane/export.h"
#include "kestrane/quality/plane_table.h"
#include "kestrane/quality/refinement.h"
#include "kestrane/quality/screening.h"
#include "kestrane/quality/working_volume.h"
#include "kestrane/records.h"

namespace kestrane {

class KESTRANE_LASER_FAC_CALIB;

namespace quality {

/// A figure that is not determined.
inline constexpr double kNotDetermined = std::numeric_limits<double>::quiet_NaN();

/// Whether planes are refined as well, see refinement.h. The job's own table stays what it is.
enum class Refine : std::int32_t {
  kNone = 0,      ///< no plane
  kEstimate = 1,  ///< at most 4 planes, evenly spaced over the device: what would it gain
  kAll = 2        ///< every plane; `FactoryResult::refined` holds the refined table
};

/// How a device is calibrated and looked at.
struct FactorySettings {
  _LASER_TYPE type = LASER_TYPE_STANDARD;  ///< depth band of the fits
  bool optimise = false;  ///< refine the corners; the job then runs once more, without, to compare
  bool screen = true;     ///< false: the job gets every point as it is
  double gross = 3.0;     ///< least distance of a gross outlier, in the unit of the points
  bool repeatability = true;            ///< calibrate the even and the odd frames as well
  std::optional<WorkingVolume> volume;  ///< none: the fit's depth band over the whole fan
  Refine refine = Refine::kNone;        ///< refinement takes the clouds as measured, not screened
};

/// Figures of a set of residuals.
struct ResidualFigures {
  std::int64_t points = 0;       ///< how many, without outliers; with 0 the rest is not determined
  double rms = kNotDetermined;   ///< root mean square
  double bias = kNotDetermined;  ///< mean
  double q95 = kNotDetermined;   ///< 95 % quantile of the sizes
  double q99 = kNotDetermined;   ///< 99 % quantile of the sizes
  double max = kNotDetermined;   ///< largest size
};

/// How the residuals of a device are spread.
struct ResidualHistogram {
  double low = kNotDetermined;       ///< lower bound of the first bin, -4 RMS of the device
  double width = kNotDetermined;     ///< of a bin, a tenth of the RMS; 0 where all residuals are 0
  std::vector<std::int64_t> counts;  ///< 80 bins; a residual at a bound counts in the upper one
  std::int64_t below = 0;            ///< residuals under the first bin
  std::int64_t above = 0;            ///< residuals at or beyond the end of the last bin
};

/// Where a block's plane comes from.
enum class Origin : std::uint8_t {
  kMeasured = 0,  ///< at least 10 points
  kThin = 1,      ///< 1 to 9 points
  kExtended = 2,  ///< none, but its sector has points of its own
  kBorrowed = 3,  ///< its sector has none and took a neighbour's plane
  kEmpty = 4      ///< it has no plane
};

/// Figures of one block.
struct BlockFigures {
  ResidualFigures residuals;     ///< of its points
  double seam = kNotDetermined;  ///< largest step of x to a measured neighbour, both measured
  double repeatability = kNotDetermined;  ///< half the distance of the halves at its middle
  Origin origin = Origin::kEmpty;         ///< where its plane comes from
};

/// One capture frame of a plane.
struct PoseFigures {
  std::int32_t frame = 0;          ///< its number
  std::int64_t points = 0;         ///< valid points, outliers included
  double median = kNotDetermined;  ///< of the residuals of these
  bool off = false;                ///< more than 4 sigma from the plane's median
};

/// What the optimisation did to a plane.
struct OptimisationFigures {
  std::vector<double> corner_moves;             ///< 16 x 51, x with it minus x without
  double largest_move = kNotDetermined;         ///< largest size of these
  std::int32_t at_bound = 0;                    ///< corners that moved by 0.4999 and more
  double rms_without = kNotDetermined;          ///< of the residuals without it
  double median_seam_without = kNotDetermined;  ///< median of the seams without it
};

/// What the refinement would gain on a plane: errors in x on capture frames that were left out in
/// turn, over the points that the refinement takes.
struct RefinementFigures {
  std::string refused;                  ///< why the plane could not be refined; empty otherwise
  bool plane_only = false;              ///< its frames support no more than a plane
  double refined_rms = kNotDetermined;  ///< root mean square error of the refined table
  double plain_rms = kNotDetermined;    ///< the same of the job's table without the optimisation
};

/// All that is known of one plane.
struct PlaneFigures {
  _KESTRANE_STATUS status = KESTRANE_ERR_FAILED;  ///< of the job; see `reason` where it did not run
  std::string reason;      ///< why there is no plane; empty for a calibrated one
  PlaneAccount screening;  ///< what was taken out of the cloud; without screening, its size alone

  ResidualFigures residuals;              ///< of the whole plane
  double median = kNotDetermined;         ///< of all valid residuals
  double sigma = kNotDetermined;          ///< 1.4826 times their median distance from it, >= 1e-9
  std::int64_t valid = 0;                 ///< valid points
  std::int64_t outliers = 0;              ///< of these, more than 4 sigma from the median
  double coverage = kNotDetermined;       ///< measured share of the blocks of the working volume
  bool borrowed_in_volume = false;        ///< a borrowed block lies in the working volume
  double seam = kNotDetermined;           ///< 95 % quantile over its blocks
  double median_seam = kNotDetermined;    ///< median over its blocks
  double repeatability = kNotDetermined;  ///< RMS over its blocks
  double within_poses = kNotDetermined;   ///< standard deviation inside a frame
  double between_poses = kNotDetermined;  ///< standard deviation from frame to frame
  std::vector<PoseFigures> poses;         ///< by ascending frame number
  std::vector<BlockFigures> blocks;       ///< 15 x 50; none for a plane that failed
  OptimisationFigures optimisation;       ///< where it was asked for
  std::optional<RefinementFigures> refinement;  ///< of the planes that were refined

  /// Share of the valid points that are outliers; not determined without valid points.
  double outlier_share() const {
    return valid > 0 ? static_cast<double>(outliers) / static_cast<double>(valid) : kNotDetermined;
  }
};

/// A calibrated device, or the reason why there is none.
struct FactoryResult {
  std::string refused;  ///< why no plane could be calibrated; empty where one was
  PlaneTable table;     ///< a row per cloud, a failed plane's all 0; without planes where refused
  std::vector<_LASER_TRIPLE> indicators;  ///< planes x 15 x 50, not a number for a failed plane
  std::vector<_LASER_TRIPLE> corners;     ///< planes x 16 x 51, not a number for a failed plane
  std::vector<PlaneFigures> planes;       ///< one per cloud
  ResidualFigures device;                 ///< of the residuals of all planes together
  ResidualHistogram histogram;            ///< of the same residuals
  FactorySettings settings;               ///< what it was made with
  WorkingVolume volume;                   ///< the one that was looked at
  RefinedDevice refined;  ///< with Refine::kAll, a row per cloud; else without planes
};

/// Called when a plane is done, between the planes. What it throws ends the calibration and leaves
/// `calibrate_factory` as it is.
using PlaneDone = std::function<void(std::int32_t plane, _KESTRANE_STATUS status)>;

/// Calibrates a device and measures what came out.
///
/// A plane fails alone: where its cloud is empty, refused by the screening or refused by the job,
/// its row is empty, its status and reason tell why, and the other planes are not affected. The
/// whole is refused only if no plane is left.
///
/// @param clouds    one per plane, in plane order; an empty one is a gap
/// @param settings  see there
/// @param on_plane  called after each plane; may be empty
///
/// @throws std::invalid_argument  no clouds, more than 100, a null cloud with a count, a negative
///                                count, a `gross` not above 0 or not finite, or a volume that
///                                holds no block
/// @throws std::bad_alloc         memory could not be had
KESTRANE_API FactoryResult calibrate_factory(const std::vector<_KESTRANE_ID_POINT3DS>& clouds,
                                             const FactorySettings& settings = {},
                                             const PlaneDone& on_plane = {});

/// The same with the host's own engine, after its `init`: no other block is kept. Its laser type,
/// its optimise flag and its first row are those of this call afterwards. One engine serves one
/// thread at a time.
KESTRANE_API FactoryResult calibrate_factory(KESTRANE_LASER_FAC_CALIB& engine,
                                             const std::vector<_KESTRANE_ID_POINT3DS>& clouds,
                                             const FactorySettings& settings = {},
                                             const PlaneDone& on_plane = {});

/// The same with several engines of the host, each after its `init`: planes are worked on side by
/// side, on a thread for each engine, and the calling one waits and calls `on_plane`, in plane
/// order. With one engine all happens on the calling thread. The result does not depend on how many
/// engines there are, to the bit. What `on_plane` throws leaves the call when the planes that were
/// being worked on are done; the others are not begun.
///
/// @throws std::invalid_argument  as above, or no engine, or a null one
KESTRANE_API FactoryResult calibrate_factory(const std::vector<KESTRANE_LASER_FAC_CALIB*>& engines,
                                             const std::vector<_KESTRANE_ID_POINT3DS>& clouds,
                                             const FactorySettings& settings = {},
                                             const PlaneDone& on_plane = {});

/// The clouds of lists, as `calibrate_factory` takes them: they lead into the lists, which have to
/// live and stay as they are for as long.
///
/// @throws std::invalid_argument  a list of more points than 32 bits count
KESTRANE_API std::vector<_KESTRANE_ID_POINT3DS> clouds_of(const std::vector<PointList>& lists);

}  // namespace quality
}  // namespace kestrane
