// Rigid motions as six lengths about a frame, and back.
//
// in    R and t, or w = (L omega, tau)
// out   the other form
#pragma once

#include <Eigen/Core>

#include "kestrane/records.h"
#include "quality/field/motion_rows.h"

namespace kestrane::quality {

struct RigidMotion {
  Eigen::Matrix3d R = Eigen::Matrix3d::Identity();
  Eigen::Vector3d t = Eigen::Vector3d::Zero();
};

// omega is angle times axis of R, tau what R and t do to the centre: (R - I) c + t.
Vector6 lengths_of(const RigidMotion& motion, const MotionFrame& frame);

// The motion with these lengths; the inverse of lengths_of for turns below half a circle.
RigidMotion motion_of(const Vector6& lengths, const MotionFrame& frame);

// Angle times axis of a rotation.
Eigen::Vector3d rotation_vector(const Eigen::Matrix3d& R);

// quaternion x, y, z, w of unit length
RigidMotion motion_of(const _MRV_TRANSFORM& transform);

_MRV_EXTRINSIC_PARAM record_of(const RigidMotion& motion);

}  // namespace kestrane::quality
