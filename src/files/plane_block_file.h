// The text file of plane tables.
//
// in    an open file and a record with rows and grid bounds
// out   the record's numbers, as many as the file holds
#pragma once

#include "files/file_stream.h"
#include "kestrane/records.h"

namespace kestrane {

// What read_plane_block_infos does once the file is open.
_KESTRANE_STATUS read_plane_blocks(InputFile& in, _LASER_PLANE_BLOCK_INFOS& record);

// What save_plane_block_infos does once the file is open.
void write_plane_blocks(OutputFile& out, const _LASER_PLANE_BLOCK_INFOS& record);

}  // namespace kestrane
