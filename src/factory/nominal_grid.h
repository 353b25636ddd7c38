// The fan before any measurement.
//
// in   nothing: the fan is the same for every device
// out  the bounds of the table's cells, the 16 rays of grid positions, the borders of the sectors
#pragma once

#include "factory/plane_grid.h"
#include "kestrane/records.h"

namespace kestrane {

// Fills the bounds of `grids` (its head stays) and replaces `rays`. The rays divide the fan evenly
// in angle, the bounds divide each depth evenly in y: between the edges of the fan the two differ,
// since a block is looked up by even steps but fitted between rays.
void build_nominal_grid(_LASER_PLANE_GRIDS& grids, NominalRays& rays);

// Replaces `normals` by 16 vectors (0, 1, -tan(4 i - 30 degrees)), not normalised: in front of the
// scanner the product with a point is negative exactly when y / z lies below the border.
void build_fan_dividers(FanDividers& normals);

}  // namespace kestrane
