// The two forms in which points travel through a fast calibration.
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestrane/records.h"

namespace kestrane {

// One list of measured points per laser plane, each point with its capture frame.
using FrameLists = std::vector<std::vector<_KESTRANE_ID_POINT3D>>;

// The points of one laser plane, one per column; the frames are forgotten.
using PlanePoints = Eigen::Matrix<double, 3, Eigen::Dynamic>;

// One matrix per laser plane of the range, in plane order.
using PointSets = std::vector<PlanePoints>;

// One row of distances per matrix of a point set, one entry per column.
using ResidualSets = std::vector<std::vector<double>>;

// Whether there is one list per plane of a range. In 64 bits: the host's plane numbers may be any.
inline bool is_list_per_plane(std::size_t lists, std::int64_t first_plane,
                              std::int64_t last_plane) {
  return static_cast<std::int64_t>(lists) == last_plane - first_plane + 1;
}

}  // namespace kestrane
