// The field part of calibrate_clouds: a stored table, and points measured with the device as it is
// now.
#pragma once

#include <string>
#include <vector>

#include "examples/cloud_csv.h"
#include "kestrane/records.h"

namespace examples {

// Writes the first `infos.plane_count` rows of a table to a text file. False, with the reason on
// standard error, when that fails.
bool save_table(const _MRV_LASER_PLANE_BLOCK_INFOS& infos, const std::string& path);

// Calibrates against the table in `table_path`, whose rows are the planes of `clouds` in ascending
// order, and prints the transform, the indicators, what was kept, and the directions of the motion
// that the points do not fix. False when a call failed.
bool calibrate_field(const std::string& table_path, const std::vector<PlaneCloud>& clouds);

}  // namespace examples
