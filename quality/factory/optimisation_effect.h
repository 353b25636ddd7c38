// What the optimisation of the corners did to a plane.
//
// in    the run with it and the run without it
// out   how far corners moved, and what the figures were before
#pragma once

#include "kestrane/quality/factory.h"
#include "quality/factory/job.h"

namespace kestrane::quality {

// The part that the corners tell; the figures of the run without are the caller's to fill in.
OptimisationFigures corner_moves(const JobRun& with, const JobRun& without);

}  // namespace kestrane::quality
