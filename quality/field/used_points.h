// Which points of the screened frames a field calibration came from: the job's own stages again,
// with the job's own motion.
//
// in    screened lists, the table, the motion
// out   the used points with their sheet, plane and frame; counts per stage
#pragma once

#include <cstdint>

#include "kestrane/quality/field.h"
#include "kestrane/quality/plane_table.h"
#include "kestrane/quality/screening.h"
#include "quality/field/motion_figures.h"
#include "quality/field/rigid_motion.h"

namespace kestrane::quality {

// Counts what was handed in and what screening left; nothing of the later stages.
//
// first_plane  of the lists that were handed in
// use          empty
void count_screening(const ScreenedFrames& screened, std::int32_t first_plane, FieldUse& use);

// A point is used that the frame filter and the interior planes leave and that lies at most 1.5
// from the table after the motion. Clusters are numbered over what has used points.
//
// screened  not refused
// use       from count_screening; gets the counts and the dropped frames of the later stages
UsedPoints collect_used_points(const ScreenedFrames& screened, const PlaneTable& table,
                               const RigidMotion& motion, FieldUse& use);

}  // namespace kestrane::quality
