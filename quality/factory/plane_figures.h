// All figures of one calibrated plane.
//
// in    the cloud that the job got, what the job left, the device's bounds and volume
// out   the plane's figures, but for what screening, repeatability and optimisation tell
#pragma once

#include <cstdint>
#include <vector>

#include "kestrane/quality/factory.h"
#include "quality/factory/blocks.h"
#include "quality/factory/job.h"
#include "quality/factory/plane_points.h"
#include "quality/factory/residual_figures.h"

namespace kestrane::quality {

// What all planes of a device are looked at with.
struct Measure {
  const _LASER_PLANE_GRIDS& grids;
  FitBand band;
  BlocksInVolume volume;
};

// Writes residuals, outliers, poses, blocks, coverage and seams. Gives the sums of the plane's
// residuals, for those of the device.
//
// frames  those of the cloud
// device  counts the plane's sizes
ResidualSums measure_plane(Cloud cloud, const std::vector<std::int32_t>& frames, const JobRun& run,
                           const Measure& measure, SizeQuantiles& device, PlaneFigures& plane);

// The figures that the effect of the optimisation is told by: RMS and median seam of the run
// without it.
void measure_without(Cloud cloud, const std::vector<std::int32_t>& frames, const JobRun& without,
                     const Measure& measure, OptimisationFigures& figures);

}  // namespace kestrane::quality
