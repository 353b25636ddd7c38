#include "records/carving.h"

#include <cstdlib>
#include <limits>

namespace kestrane {

void carve_lines(Carver& carver, TableShape shape, Counts counts, _LASER_LINES_INFOS* table) {
  auto* lines = carver.take<_LASER_LINE_INFOS>(shape.lines);
  if (!carver.carves()) return;
  table->lines = lines;
  if (counts == Counts::kFull) table->count = shape.lines;
}

void carve_cells(Carver& carver, TableShape shape, Counts counts, _LASER_LINES_INFOS* table) {
  for (std::int32_t j = 0; j < shape.lines; ++j) {
    auto* cells = carver.take<_LASER_TRIPLE>(shape.cells);
    if (!carver.carves()) continue;
    table->lines[j].cells = cells;
    if (counts == Counts::kFull) table->lines[j].count = shape.cells;
  }
}

void carve_table(Carver& carver, TableShape shape, Counts counts, _LASER_LINES_INFOS* table) {
  carve_lines(carver, shape, counts, table);
  carve_cells(carver, shape, counts, table);
}

void* allocate_block(std::int64_t size, std::int64_t least) {
  if (size < least || size > std::numeric_limits<std::int32_t>::max()) return nullptr;
  // A layout may come to nothing at all; the block is one byte then, so that null means failure.
  return std::calloc(size > 0 ? static_cast<std::size_t>(size) : 1, 1);
}

std::int32_t reported_size(std::int64_t size) {
  const bool fits = size >= std::numeric_limits<std::int32_t>::min() &&
                    size <= std::numeric_limits<std::int32_t>::max();
  return fits ? static_cast<std::int32_t>(size) : -1;
}

}  // namespace kestrane
