// The package's plane table on its way into the libraries and out of them.
//
// in    an object with `cells` (P, 15, 50, 3), `whole` (P, 3) and `grid`, whose `record` is the
//       library's own grid record; nothing is copied, the host's record is laid over the arrays
// out   the same three, the cells in the memory of the table that came out
#pragma once

#include <vector>

#include "kestrane/quality/plane_table.h"
#include "python/src/arrays.h"

namespace kestrane::python {

// Arrays of a table and the host's record over them. It is only read through the record: arrays
// that are handed in are never written.
class TableView {
 public:
  explicit TableView(py::handle table);

  std::int32_t planes() const { return static_cast<std::int32_t>(rows_.size()); }

  // Lives as long as this; so does what it leads to.
  _MRV_LASER_PLANE_BLOCK_INFOS record() const;

  // The one row of `plane`, which has to be there, as a table of one plane.
  quality::PlaneTable row(std::int32_t plane) const;

  // The whole table. Copying needs no lock.
  quality::PlaneTable copy() const { return quality::PlaneTable::copy_of(record()); }

 private:
  py::array cells_;
  py::array whole_;
  py::array grid_;
  std::vector<_LASER_LINE_INFOS> lines_;
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows_;
  _LASER_PLANE_GRIDS* grids_ = nullptr;
};

// (cells, whole, grid record)
py::tuple arrays_of(quality::PlaneTable&& table);

// The bounds of the blocks as an array without dimensions, of the record's type.
py::array grid_array(const _LASER_PLANE_GRIDS& grids);

}  // namespace kestrane::python
