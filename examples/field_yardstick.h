// What a host can find out about a fast calibration beside its transform: which frames and points
// it kept, and which motions its points cannot tell.
//
// in    points per laser plane, the standard, the recovered motion
// out   counts, and directions of the six-dimensional motion with how well the points fix them
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <vector>

#include "kestrane/fast_calib.h"
#include "kestrane/records.h"

namespace examples {

using FrameLists = std::vector<std::vector<_KESTRANE_ID_POINT3D>>;

_MRV_EXTRINSIC_PARAM extrinsic_of(const _MRV_TRANSFORM& transform);

// Angle times axis, in radians.
Eigen::Vector3d rotation_of(const _MRV_EXTRINSIC_PARAM& motion);

struct Kept {
  int frames_in = 0;       // frames of all planes
  int frames_unknown = 0;  // of those, frames whose number lies outside the first list's range
  int frames = 0;          // frames that are close to the standard
  FrameLists points;       // of the kept frames
};

// Frames are kept by their mean distance from the standard of `engine` as it stands, against 1.5
// times a running mean, which is how the calibration chooses them. List f belongs to plane f.
Kept frames_kept(kestrane::KestraneLaserFastCalibrator& engine, const FrameLists& frames);

// Points whose distance from the moved standard is at most 1.5, which is how the calibration
// chooses the points of its last solve.
int points_near(kestrane::KestraneLaserFastCalibrator& engine, const FrameLists& frames,
                const _MRV_EXTRINSIC_PARAM& motion);

int points_of(const FrameLists& frames);

// A direction of the motion, rotation about the origin and translation, of unit length when the
// rotation is counted in the points' own distance from the origin.
struct MotionDirection {
  Eigen::Vector3d rotation;     // times the points' distance
  Eigen::Vector3d translation;  // in the unit of the points
  double strength;              // eigenvalue, as a part of the largest one
};

// The six directions of the motion, the one that the points fix least first: the eigenvectors of
// the normal matrix of all point-to-plane distances at the solution. Without points that have a
// cell the list is empty.
std::vector<MotionDirection> motion_directions(const _MRV_LASER_PLANE_BLOCK_INFOS& standard,
                                               const FrameLists& frames,
                                               const _MRV_EXTRINSIC_PARAM& motion);

}  // namespace examples
