// The numbers of the capture frames that a list's points come from.
//
// in    points, which mostly come frame by frame
// out   the number of each run of points of one frame; the distinct numbers, ascending
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "kestrane/records.h"

namespace kestrane::quality {

std::vector<std::int32_t> ids_of_runs(std::span<const _KESTRANE_ID_POINT3D> points);

std::vector<std::int32_t> distinct_ids(std::span<const _KESTRANE_ID_POINT3D> points);

}  // namespace kestrane::quality
