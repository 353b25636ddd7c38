#include "quality/field/sheet_blocks.h"

#include <cmath>

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
        const UnitPlane sheet = unit_plane(table.cell(plane, at));
        const Eigen::Vector3d& n = sheet.normal;
        const double x = -(n.y() * middle.y + n.z() * middle.z + sheet.d) / n.x();
        blocks.push_back({plane, at, {x, middle.y, middle.z}, n});
      }
    }
  }
  return blocks;
}

}  // namespace kestrane::quality
