// Whether a host's table stays within the shape that its memory was made for.
#pragma once

#include "kestrane/records.h"
#include "records/expects.h"
#include "records/shapes.h"

namespace kestrane {

// A precondition of `operation`: no more lines than the shape has, and no more cells on any of
// them. A checked build alone looks.
inline void expect_fit([[maybe_unused]] const char* operation,
                       [[maybe_unused]] const _LASER_LINES_INFOS& table,
                       [[maybe_unused]] TableShape shape) {
#ifdef KESTRANE_CHECKED
  KESTRANE_EXPECTS_OF(operation, table.count <= shape.lines,
                      "a table has at most its shape's lines", table.count, shape.lines);
  for (std::int32_t j = 0; j < table.count; ++j) {
    const std::int32_t count = table.lines[j].count;
    KESTRANE_EXPECTS_OF(operation, count <= shape.cells, "a line has at most its shape's cells",
                        count, shape.cells);
  }
#endif
}

}  // namespace kestrane
