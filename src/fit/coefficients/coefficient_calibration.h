// Brings the per-corner line models of a coefficient record up to date from one measurement.
//
// in    block indicators, corners measured at one known condition of the device, and the present
//       models: per corner a line a t + b x + c = 0, t the condition and x the corner's x
// out   a second record with the corners of every measured block redrawn
//
// The models are sampled at conditions 22 to 40, and the new reading joins as one more sample.
#pragma once

#include <cstdint>
#include <vector>

#include "fit/coefficients/line_fit.h"
#include "kestrane/records.h"

namespace kestrane {

// One measured block, and the x of the corner that stands for it.
struct ValidCorner {
  std::int32_t line;
  std::int32_t cell;
  double x;
};

// Copies table, counts and plane ranges of `source` into the memory of `result`, with unit
// transforms for the planes in use instead of the source's. Transforms and ranges beyond those in
// use stay as `result` has them. The two may be one object.
void copy_coeffs_with_identity_transforms(const _COMPENSATOR_COEFFS& source,
                                          _COMPENSATOR_COEFFS& result);

// Lists the 15 x 50 blocks of one plane that have points, lines outermost; `valid` is overwritten.
// A mean distance of 0, or one that is not a number, marks a block without points.
void collect_valid_corners(const _LASER_PLANE_INDICATORS_INFOS& indicators,
                           const _LASER_PLANE_GRID_CORNERS_INFOS& corners, std::int32_t plane,
                           std::vector<ValidCorner>& valid);

// Redraws one model through ten samples of itself and the reading (condition, measured_x), which is
// held within 0.01 of what the model predicts. The new triple may have the other sign.
//
// samples  working memory, resized as needed
//
// A b of exactly -2.220446049250313e-16 divides by zero, and the cell becomes non-finite.
void refit_coefficient_cell(double measured_x, double condition, PointMatrix2& samples,
                            _LASER_TRIPLE& cell);

// The whole operation, which KestraneLaserFastCalibrator::calib hands out; it reads no state of the
// engine. `result` needs room for all that `source` holds.
//
// KESTRANE_ERR_INVALID_PARAM  indicators or corners of 0 planes, or a source of less than 1
// KESTRANE_ERR_NULL_POINTER   indicators or corners without rows, or a source without table
//
// The checks run pair by pair, indicators, corners, source; on a failure nothing is written. Only
// the standard allocation exception can leave it, with `result` partly written.
_KESTRANE_STATUS calibrate_coefficients(const _LASER_PLANE_INDICATORS_INFOS& indicators,
                                        const _LASER_PLANE_GRID_CORNERS_INFOS& corners,
                                        double condition, _COMPENSATOR_COEFFS& source,
                                        _COMPENSATOR_COEFFS& result);

}  // namespace kestrane
