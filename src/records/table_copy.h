// Copies between tables: one routine for every pair of table forms, since the line and cell levels
// are the same in all of them.
#pragma once

#include "kestrane/records.h"

namespace kestrane {

// Copies the line count, each line's count and its cells into `to`, whose memory has room for
// them; pointers stay those of `to`. A count below 1 copies as a number and moves nothing. The two
// tables may be one and the same.
void copy_table(const _LASER_LINES_INFOS& from, _LASER_LINES_INFOS& to);

}  // namespace kestrane
