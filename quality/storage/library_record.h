// A plane table's memory in the form of the library's own record, as the file functions take it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestrane/quality/plane_table.h"
#include "kestrane/records.h"

namespace kestrane::quality {

// Owns rows and lines; cells and grid record are those of the table that it was made over.
class LibraryRecord {
 public:
  // All counts full. A table that is only written to a file may be constant; it is not changed.
  explicit LibraryRecord(const PlaneTable& table);

  _LASER_PLANE_BLOCK_INFOS& record() { return record_; }

 private:
  std::vector<_LASER_LINE_INFOS> lines_;
  std::vector<_LASER_PLANE_BLOCK_INFO> rows_;
  _LASER_PLANE_BLOCK_INFOS record_;
};

}  // namespace kestrane::quality
