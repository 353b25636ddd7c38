#include "records/fan.h"

#include <cmath>

#include "records/shapes.h"

namespace kestrane {
namespace {

// Whether a quotient, truncated toward zero, is an index of 0 to count - 1. Tested on the double,
// so that nothing huge and no NaN ever reaches a conversion to integer.
bool is_index(double quotient, std::int32_t count) {
  return quotient > -1.0 && quotient < static_cast<double>(count);
}

}  // namespace

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

std::optional<std::int32_t> depth_index(const _LASER_PLANE_GRIDS& grids, double z) {
  const double quotient = (z - grids.z_start) / grids.z_step;
  if (!is_index(quotient, kBlocks.cells)) return std::nullopt;
  return static_cast<std::int32_t>(quotient);
}

double fan_quotient(const _LASER_PLANE_GRIDS& grids, std::int32_t k, double y) {
  return (y - grids.grid_y_start[k]) / grids.grid_y_step[k];
}

std::optional<CellIndex> find_cell(const _LASER_PLANE_GRIDS& grids, double y, double z) {
  const std::optional<std::int32_t> k = depth_index(grids, z);
  if (!k) return std::nullopt;
  const double quotient = fan_quotient(grids, *k, y);
  if (!is_index(quotient, kBlocks.lines)) return std::nullopt;
  return CellIndex{static_cast<std::int32_t>(quotient), *k};
}

}  // namespace kestrane
