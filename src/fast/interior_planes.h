// Second cleaning stage: drops points that lie far from the rest of their zone of the fan.
//
// in    one list of points per laser plane, the bounds of the standard's cells
// out   one 3 x n matrix per list
#pragma once

#include <vector>

#include "fast/point_sets.h"

namespace kestrane {

// Divides a list into three zones across the fan (table lines 0 to 4, 5 to 9, 10 and beyond),
// fits a plane to each zone's points of depth 220 to 350, and drops the zone's points, those of
// other depths included, that lie more than 2.0 from it. A zone that cannot be fitted passes as it
// is, and so does a point whose distance is not a number. Points below the fan's lower edge or
// outside its depth are dropped.
//
// The survivors of zone 0, of zone 1, of zone 2, each in input order.
PlanePoints interior_points(const std::vector<_KESTRANE_ID_POINT3D>& list,
                            const _LASER_PLANE_GRIDS& grids);

// The same for each list.
//
// points  gets one matrix per list appended; a list without survivors gives one without columns
void divide_into_interior_planes(const FrameLists& filtered, const _LASER_PLANE_GRIDS& grids,
                                 PointSets& points);

}  // namespace kestrane
