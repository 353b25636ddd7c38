// Selection of points for a device with coefficients: whole capture frames that cross the plane of
// their laser plane's points.
//
// in    one list of points per laser plane
// out   one 3 x n matrix per list
#pragma once

#include <cstdint>
#include <vector>

#include "fast/point_sets.h"
#include "fit/points.h"

namespace kestrane {

// Selects the frames of every list.
//
// points  gets one matrix per list appended
//
// False at the first list that cannot be prepared; later ones are not looked at.
bool collect_plane_points(const FrameLists& frames, PointSets& points);

// Gives each distinct id a number from 0 on, in order of first appearance.
//
// ordinals  one per id
void compact_frame_ids(const std::vector<std::int32_t>& ids, std::vector<int>& ordinals);

// Fits a plane to the points deeper than 200 and keeps the frames that cross it.
//
// list_points  3 x n
// ordinals     the frame of each point
// kept         points of the accepted frames appended, frame by frame
// plane        the fitted plane
//
// False for no points, where the fit fails, and where no frame is accepted.
bool select_plane_frames(const PlanePoints& list_points, const std::vector<int>& ordinals,
                         PlanePoints& kept, PlaneAbcd& plane);

// Appends the points of each group that crosses the plane, group by group: more than 5 percent on
// either side and more than half of them nearer than 3.0. A point on the plane, or with a distance
// that is not a number, counts as above.
void select_crossing_frames(const PlaneAbcd& plane, const std::vector<PointMatrix3>& groups,
                            PlanePoints& kept);

}  // namespace kestrane
