// The job's own stages of cleaning, run again on what the job was given.
//
// in    lists of points per plane, the table, the job's motion
// out   the points that are left after each stage, each with the number of its frame
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <vector>

#include "kestrane/quality/plane_table.h"
#include "kestrane/quality/screening.h"
#include "quality/field/rigid_motion.h"

namespace kestrane::quality {

// One entry per plane of the range, and in it one per point.
struct JobStages {
  std::vector<PointList> filtered;  // left by the frame filter
  std::vector<PointList> interior;  // of these, left by the interior planes
  std::vector<PointList> used;      // of these, at most 1.5 from the moved table
};

// lists  list i of plane first_plane + i; finite points, each on a block that has a plane
JobStages run_job_stages(const std::vector<PointList>& lists, const PlaneTable& table,
                         std::int32_t first_plane, const RigidMotion& motion);

// The points of `list` that the columns of `points` are, in the order of the columns. The job's
// stages hand points on without the numbers of their frames; they are recognised by their three
// numbers. Points that share all three go the same way through every stage, so that each of them is
// found once.
//
// points  3 x n; every column is a point of `list`
PointList recognise(const PointList& list, const Eigen::Matrix<double, 3, Eigen::Dynamic>& points);

}  // namespace kestrane::quality
