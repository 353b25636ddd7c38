// How the residuals of a device are spread: even bins over four RMS to either side.
//
// in    the sums of all residuals, then each residual, in any order
// out   counts per bin
#pragma once

#include "kestrane/quality/factory.h"
#include "quality/factory/residual_figures.h"

namespace kestrane::quality {

// The empty bins for residuals with these sums. Without residuals, and where their RMS is not
// finite, bounds and width are not numbers and `count` leaves them out.
ResidualHistogram bins_for(const ResidualSums& sums);

// Where the width is 0 all residuals are 0 and lie in the bin that begins there.
void count(double residual, ResidualHistogram& histogram);

}  // namespace kestrane::quality
