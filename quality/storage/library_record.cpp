#include "quality/storage/library_record.h"

#include <algorithm>

namespace kestrane::quality {

// The record knows no constant cells; what is made of it is only read.
// NOLINTBEGIN(cppcoreguidelines-pro-type-const-cast)
LibraryRecord::LibraryRecord(const PlaneTable& table)
    : lines_(static_cast<std::size_t>(table.planes() * PlaneTable::kLines)),
      rows_(static_cast<std::size_t>(table.planes())),
      record_{rows_.data(), const_cast<_LASER_PLANE_GRIDS*>(&table.grids()), table.planes(),
              table.planes()} {
  for (std::int32_t p = 0; p < table.planes(); ++p) {
    _LASER_PLANE_BLOCK_INFO& row = rows_[static_cast<std::size_t>(p)];
    row.block = {&lines_[static_cast<std::size_t>(p * PlaneTable::kLines)], PlaneTable::kLines};
    for (std::int32_t j = 0; j < PlaneTable::kLines; ++j) {
      row.block.lines[j] = {const_cast<_LASER_TRIPLE*>(&table.cell(p, {j, 0})), PlaneTable::kCells};
    }
    std::copy_n(table.whole_plane(p), 3, row.laser_plane_R);
  }
}
// NOLINTEND(cppcoreguidelines-pro-type-const-cast)

}  // namespace kestrane::quality
