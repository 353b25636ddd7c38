// Robust planes through long clouds without a decomposition of the whole cloud.
//
// in    a cloud and the depths that take part
// out   a plane, its statistics and the rows that two rejections left
//
// The input is read four times and never copied but for the inliers: rows in the band, with their
// moments; rejection at a fixed limit; rejection by the sigma band; statistics. Each rejection
// takes the moments of the rows that it drops, which are few, off those of the others. It keeps
// exactly the rows that the decomposition of the whole cloud would keep: a row that lies too near
// to a bound for the error bounds (error_bounds.h) hands that one rejection to the decomposition.
// Plane and statistics are those of the decomposition to rounding.
#pragma once

#include <optional>

#include "fit/plane_fit.h"
#include "fit/points.h"
#include "fit/row_kernel.h"

namespace kestrane {

// Below this length the decomposition of the whole cloud is cheap, and gives the fit.
inline constexpr Eigen::Index kFewestStreamedRows = 64;

// What of a robust fit is wanted: the plane alone costs one pass and the copies less.
enum class Wanted { kPlane, kAll };

struct RobustFit {
  bool complete = false;  // false: fewer than 3 rows, in the input, the band or after a rejection
  std::optional<PlaneFit> fit;  // of the last rows that were fitted; none before the first fit;
                                // statistics of 0 where only the plane is wanted
  PointMatrix3 inliers;    // the rows of `fit`, in input order, if wanted; none where not complete
  int decompositions = 0;  // how often a cloud was decomposed: a rejection that the bounds could
                           // not decide, a degenerate cloud, or a short one (for its every fit)
};

// Rows inside the band; fit; rows within 2.5 of it; fit; rows within 2 sigma of it; fit.
RobustFit fit_in_band(const PointMatrix3& points, DepthBand band, Wanted wanted);

// The same with the passes of one vector set, which the processor must have; the result does not
// depend on it.
RobustFit fit_in_band(const PointMatrix3& points, DepthBand band, Wanted wanted,
                      RowVectors vectors);

// The same fits, decomposing the whole cloud for each of them: what the streamed form is held to.
RobustFit fit_in_band_by_decomposition(const PointMatrix3& points, DepthBand band);

// One plane through at least kFewestStreamedRows rows. None where it takes a decomposition.
std::optional<PlaneFit> streamed_plane_fit(const PointMatrix3& points);

}  // namespace kestrane
