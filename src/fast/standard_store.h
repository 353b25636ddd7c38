// Where the fast calibration keeps its copy of the standard.
//
// in    the host's plane table
// out   the same cells, counts and bounds in a flat block of fixed capacity
#pragma once

#include <cstdint>

#include "kestrane/records.h"

namespace kestrane {

// The size of the block: the table record, 100 rows, 100 tables of 15 x 50 cells, the grid record.
// With a block also wires all pointers and makes `standard` the record at the block's head; counts
// stay as they are, and the rows' `block_aux` leads nowhere, since nothing here reads it.
std::int64_t lay_out_standard(void* block, _LASER_PLANE_BLOCK_INFOS*& standard);

// Copies plane count, line and cell counts, cells and the whole grid record, `grid_head` included.
// Whole planes (`laser_plane_R`) are left out: points are compared with cells alone.
void copy_standard(const _MRV_LASER_PLANE_BLOCK_INFOS& from, _LASER_PLANE_BLOCK_INFOS& to);

}  // namespace kestrane
