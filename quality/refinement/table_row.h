// A refined plane as a row of a table.
#pragma once

#include <algorithm>

#include "kestrane/quality/refinement.h"

namespace kestrane::quality {

// A refused plane leaves its row as it is.
inline void write_row(const RefinedPlane& plane, std::int32_t row, PlaneTable& table) {
  if (!plane.refused.empty()) return;
  std::copy(plane.cells.begin(), plane.cells.end(), &table.cell(row, {0, 0}));
  std::copy(plane.whole_plane.begin(), plane.whole_plane.end(), table.whole_plane(row));
}

}  // namespace kestrane::quality
