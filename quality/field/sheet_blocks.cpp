#include "quality/field/sheet_blocks.h"

#include <cmath>

#include "quality/cells.h"

namespace kestrane::quality {

UnitPlane unit_plane(const _LASER_TRIPLE& abc) {
  const Eigen::Vector3d normal(abc.v[0], abc.v[1], abc.v[2]);
  const double length = std::copysign(normal.stableNorm(), abc.v[0]);
  return {normal / length, 1.0 / length};
}

std::vector<SheetBlock> sheet_blocks(const PlaneTable& table, std::int32_t first, std::int32_t last,
                                     const std::function<bool(const FanPlace&)>& wanted) {
  std::vector<SheetBlock> blocks;
  for (std::int32_t plane = first; plane <= last; ++plane) {
    for (Block at = {0, 0}; at.line < PlaneTable::kLines; ++at.line) {
      for (at.cell = 0; at.cell < PlaneTable::kCells; ++at.cell) {
        const FanPlace middle = table.block_middle(at);
        if (!wanted(middle) || table.is_empty(plane, at)) continue;
        const _LASER_TRIPLE& abc = table.cell(plane, at);
        const double x = plane_x(abc, middle.y, middle.z);
        blocks.push_back({plane, at, {x, middle.y, middle.z}, unit_plane(abc).normal});
      }
    }
  }
  return blocks;
}

}  // namespace kestrane::quality
