// The middles of the blocks of a table, on its sheets: where displacements are looked at.
//
// in    a table and the depths or the volume that are of interest
// out   a point and the unit normal of the sheet there, for each block that has a plane
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <functional>
#include <vector>

#include "kestrane/quality/plane_table.h"

namespace kestrane::quality {

struct SheetBlock {
  std::int32_t plane;
  Block at;
  Eigen::Vector3d point;   // on the sheet, at the middle of the block
  Eigen::Vector3d normal;  // of unit length, x component above 0
};

// A plane of a table as unit normal (x component above 0) and d of n p + d = 0.
struct UnitPlane {
  Eigen::Vector3d normal;
  double d;
};

// abc  a cell that is not empty
UnitPlane unit_plane(const _LASER_TRIPLE& abc);

// The blocks of planes first to last, both included, by plane, line and cell.
//
// wanted  whether the middle of a block is of interest
std::vector<SheetBlock> sheet_blocks(const PlaneTable& table, std::int32_t first, std::int32_t last,
                                     const std::function<bool(const FanPlace&)>& wanted);

}  // namespace kestrane::quality
