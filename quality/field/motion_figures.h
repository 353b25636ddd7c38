// What the used points of a field calibration say about the motion, and how surely.
//
// in    used points with their sheet's normal, their frame and plane; the job's motion
// out   six directions with their uncertainty, the covariance of the motion, the smallest motion
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <string>
#include <vector>

#include "quality/field/motion_rows.h"
#include "quality/field/rigid_motion.h"
#include "quality/field/sheet_blocks.h"

namespace kestrane::quality {

// A point that the figures come from.
struct UsedPoint {
  Eigen::Vector3d point;
  UnitPlane sheet;     // of its cell, as the table stands
  std::int32_t plane;  // number of its cluster of a plane, from 0 on
  std::int32_t frame;  // number of its cluster of a frame, from 0 on
};

struct UsedPoints {
  std::vector<UsedPoint> points;
  std::int32_t planes = 0;  // clusters
  std::int32_t frames = 0;  // clusters; each has a point
};

// Covariances of the motion's six lengths on the space that the points fix. Errors that a cluster
// has in common count once per cluster, and not once per point.
struct MotionCovariance {
  bool by_frame_known = false;  // from 8 clusters on
  bool by_plane_known = false;
  Matrix6 by_frame = Matrix6::Zero();
  Matrix6 by_plane = Matrix6::Zero();

  // The one that holds the errors of the stored table, where there is one.
  const Matrix6& widest() const { return by_plane_known ? by_plane : by_frame; }
};

struct DirectionFigures {
  Vector6 vector;
  double strength;  // eigenvalue over the largest one
  double sigma;     // infinite where no sheet moves, not a number without a covariance
  bool fixed;
};

struct MotionFigures {
  MotionFrame frame;
  Matrix6 observed;  // projector on the space that moves sheets
  MotionCovariance covariance;
  std::vector<DirectionFigures> directions;  // six, by strength, the weakest first
  double residual;                           // root mean square
  RigidMotion smallest;
};

// used  at least one point, all finite
//
// The smallest motion is right to first order in the job's rotation. Beyond one degree the figures
// are therefore worked out once more with the sheets turned by the smallest motion instead of the
// job's, which may have turned them far along a direction that is not fixed.
MotionFigures motion_figures(const UsedPoints& used, const RigidMotion& motion);

}  // namespace kestrane::quality
