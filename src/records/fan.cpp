#include "records/fan.h"

#include <cmath>

#include "records/shapes.h"

namespace kestrane {
void fill_grids(_LASER_PLANE_GRIDS& grids) {
  grids.z_start = kDepthFirst;
  grids.z_step = kDepthStep;
  const double slope = std::tan(kHalfFan);
  for (std::int32_t k = 0; k < kCorners.cells; ++k) {
    const double z = k * grids.z_step + grids.z_start;
    grids.grid_z[k] = z;
    grids.grid_y_start[k] = -(slope * z);
    grids.grid_y_step[k] = (slope * z + slope * z) / static_cast<double>(kBlocks.lines);
  }
}

}  // namespace kestrane
