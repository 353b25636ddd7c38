// The lists that pass between the stages of one plane's calibration.
//
// Index i runs across the fan: 0 to 14 for sectors and cells, 0 to 15 for rays of corners. Index j
// runs along the depth: 0 to 49 for cells, 0 to 50 for corners. Cell [i][j] has the corners [i][j],
// [i][j+1], [i+1][j] and [i+1][j+1].
#pragma once

#include <vector>

#include "fit/points.h"
#include "kestrane/records.h"
#include "records/guard.h"
#include "records/shapes.h"

namespace kestrane {

// A grid position before any measurement.
struct NominalPosition {
  double y;
  double z;
};

using NominalRays = std::vector<std::vector<NominalPosition>>;  // 16 x 51
using CellPoints = std::vector<std::vector<PointMatrix3>>;      // 15 x 50
using GridCorners = std::vector<std::vector<Eigen::Vector3d>>;  // 16 x 51, (x, y, z)
using CellPlanes = std::vector<std::vector<PlaneAbcd>>;         // 15 x 50
using SectorClouds = std::vector<PointMatrix3>;                 // 15
using SectorPlanes = std::vector<PlaneAbcd>;                    // 15
using FanDividers = std::vector<Eigen::Vector3d>;               // 16

// Depths that take part in the whole-plane fit and the sector fits.
inline DepthBand depth_band_of(_LASER_TYPE type) {
  return {type == LASER_TYPE_FAR ? 220 : 100, 1000};
}

// From the unit normal form to the table's. The guard is added whatever the sign of d.
inline void write_table_form(const PlaneAbcd& plane, double* abc) {
  const double divisor = plane[3] + kGuard;
  for (int i = 0; i < 3; ++i) abc[i] = plane[i] / divisor;
}

}  // namespace kestrane
