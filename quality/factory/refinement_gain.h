// What a refined table would gain on one plane.
//
// in    the engine of the job, a plane's clouds as measured and as the job got it
// out   errors of plain and refined table on capture frames that they have not seen
#pragma once

#include "kestrane/quality/factory.h"
#include "quality/factory/plane_points.h"

namespace kestrane::quality {

// Frames are left out in the groups of the refinement: by rank, round at most 20 groups. A group on
// which the job fails leaves the plain error undetermined.
//
// given     the cloud as measured
// job       the cloud that the job calibrated
// refined   the refinement of `given`
RefinementFigures measure_gain(KESTRANE_LASER_FAC_CALIB& engine, Cloud given, Cloud job,
                               const RefinedPlane& refined);

// Whether plane `p` of `planes` is one of the at most four that an estimate looks at.
bool is_estimated(std::size_t p, std::size_t planes);

}  // namespace kestrane::quality
