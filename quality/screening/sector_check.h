// Whether the factory job would find a sector that it can fit.
#pragma once

#include "kestrane/quality/screening.h"

namespace kestrane::quality {

// Whether any sector, as the job divides points, has the number of points that a fit of its own
// takes.
bool has_full_sector(const PointList& points);

}  // namespace kestrane::quality
