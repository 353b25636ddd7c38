// How well a table repeats: the same calibration from the even and from the odd frames.
//
// in    a plane's cloud and table
// out   per block, half of how far the two tables lie apart
#pragma once

#include <cstdint>
#include <vector>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/plane_table.h"
#include "quality/factory/blocks.h"
#include "quality/factory/job.h"
#include "quality/factory/plane_points.h"

namespace kestrane::quality {

// Halves have twice the variance of the whole, and their difference twice that again: half of it
// estimates the deviation of the whole.
struct Repeatability {
  std::vector<double> blocks;  // 15 x 50; empty where it is not determined
  double rms = kNotDetermined;
};

// Calibrates the frames of even and of odd rank with the engine's settings. Blocks count that are
// measured and whose sector is fitted in both halves. Not determined below 4 frames, or where a
// half fails or no such block is left.
Repeatability measure_repeatability(KESTRANE_LASER_FAC_CALIB& engine, Cloud cloud,
                                    const std::vector<std::int32_t>& frames, bool optimise,
                                    const PlaneTable& table, std::int32_t plane,
                                    const std::vector<Origin>& origins);

// Half of how far the planes of the halves lie apart at the middle of a block, along the normal of
// the whole's plane.
double half_distance(const _LASER_TRIPLE& whole, const _LASER_TRIPLE& even,
                     const _LASER_TRIPLE& odd, FanPlace middle);

}  // namespace kestrane::quality
