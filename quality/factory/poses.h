// How the capture frames of a plane differ.
//
// in    a plane's valid points and their spread, the numbers of its frames
// out   each frame's middle, and how much points differ within and between frames
#pragma once

#include <cstdint>
#include <vector>

#include "kestrane/quality/factory.h"
#include "quality/factory/outliers.h"
#include "quality/factory/plane_points.h"

namespace kestrane::quality {

struct PoseSpread {
  std::vector<PoseFigures> poses;   // one per frame, by ascending number
  double within = kNotDetermined;   // root of the mean variance inside a frame
  double between = kNotDetermined;  // of the frames' true means; needs two frames
};

// Medians are over all valid points; within and between are without outliers and over the frames
// that then have points. The scatter of the means holds a share of the points' own, as large as the
// variance inside a frame over the mean number of its points: that is taken off, down to 0.
PoseSpread pose_figures(const PlanePoints& points, const std::vector<std::int32_t>& frames,
                        const Spread& spread);

}  // namespace kestrane::quality
