// The depths at which a field calibration fits its planes.
#pragma once

#include "fit/points.h"

namespace kestrane {

// The middle of the measuring volume, in the unit of the points, where hosts place their target.
inline constexpr DepthBand kFieldDepths = {220, 350};

}  // namespace kestrane
