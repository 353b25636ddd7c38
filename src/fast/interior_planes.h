// Second cleaning stage: drops points that lie far from the rest of their zone of the fan.
//
// in    one list of points per laser plane, the bounds of the standard's cells
// out   one 3 x n matrix per list
#pragma once

#include "fast/point_sets.h"

namespace kestrane {

// Divides each list into three zones across the fan (table lines 0 to 4, 5 to 9, 10 and beyond),
// fits a plane to each zone's points of depth 220 to 350, and drops the zone's points, those of
// other depths included, that lie more than 2.0 from it. A zone that cannot be fitted passes as it
// is, and so does a point whose distance is not a number. Points below the fan's lower edge or
// outside its depth are dropped.
//
// points  gets one matrix per list appended: the survivors of zone 0, of zone 1, of zone 2, each
//         in input order; a list without survivors gives a matrix without columns
void divide_into_interior_planes(const FrameLists& filtered, const _LASER_PLANE_GRIDS& grids,
                                 PointSets& points);

}  // namespace kestrane
