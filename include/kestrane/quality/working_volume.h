/// @file
/// The part of the fan in which a device is to measure: what coverage, borrowed sectors and the
/// difference of two tables are looked at in.
///
/// - Units: depths in the unit of the points; the half angle in degrees, since people write it.

#pragma once

#include "kestrane/export.h"

namespace kestrane::quality {

/// A piece of the fan, symmetric about the z axis.
struct WorkingVolume {
  double depth_near = 100.0;         ///< nearest depth, included
  double depth_far = 1000.0;         ///< farthest depth, included
  double half_angle_degrees = 30.0;  ///< directions up to this to either side, included

  /// Whether the position lies in the volume. False where y or z is not a number.
  ///
  /// An angle of 30 and more is the whole fan, which all blocks of a table lie in.
  KESTRANE_API bool holds(double y, double z) const;
};

}  // namespace kestrane::quality
