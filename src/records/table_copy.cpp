#include "records/table_copy.h"

#include <cstring>

namespace kestrane {

void copy_table(const _LASER_LINES_INFOS& from, _LASER_LINES_INFOS& to) {
  to.count = from.count;
  for (std::int32_t j = 0; j < from.count; ++j) {
    const _LASER_LINE_INFOS& source = from.lines[j];
    _LASER_LINE_INFOS& target = to.lines[j];
    target.count = source.count;
    if (source.count <= 0) continue;
    std::memmove(target.cells, source.cells,
                 static_cast<std::size_t>(source.count) * sizeof(_LASER_TRIPLE));
  }
}

}  // namespace kestrane
