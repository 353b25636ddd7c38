#include "quality/field/rigid_motion.h"

#include <Eigen/Geometry>
#include <algorithm>

namespace kestrane::quality {
namespace {

Eigen::Matrix3d rotation_of(const Eigen::Vector3d& vector) {
  const double angle = vector.norm();
  if (angle == 0.0) return Eigen::Matrix3d::Identity();
  return Eigen::AngleAxisd(angle, vector / angle).toRotationMatrix();
}

}  // namespace

Eigen::Vector3d rotation_vector(const Eigen::Matrix3d& R) {
  const Eigen::AngleAxisd turn(R);
  return turn.angle() * turn.axis();
}

// (R - I) c is taken from the turn itself: R c - c would lose the digits of a small turn.
Vector6 lengths_of(const RigidMotion& motion, const MotionFrame& frame) {
  Vector6 lengths;
  lengths << frame.length * rotation_vector(motion.R),
      (motion.R - Eigen::Matrix3d::Identity()) * frame.centre + motion.t;
  return lengths;
}

RigidMotion motion_of(const Vector6& lengths, const MotionFrame& frame) {
  RigidMotion motion;
  motion.R = rotation_of(lengths.head<3>() / frame.length);
  motion.t = lengths.tail<3>() - (motion.R - Eigen::Matrix3d::Identity()) * frame.centre;
  return motion;
}

RigidMotion motion_of(const _MRV_TRANSFORM& transform) {
  const double* q = transform.quaternion;
  return {Eigen::Quaterniond(q[3], q[0], q[1], q[2]).toRotationMatrix(),
          Eigen::Vector3d(transform.translation)};
}

_MRV_EXTRINSIC_PARAM record_of(const RigidMotion& motion) {
  _MRV_EXTRINSIC_PARAM record;
  Eigen::Map<Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(record.R) = motion.R;
  Eigen::Map<Eigen::Vector3d>(record.T) = motion.t;
  return record;
}

}  // namespace kestrane::quality
