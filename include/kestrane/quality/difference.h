/// @file
/// How two plane tables differ, and how much of that one rigid motion explains: a device that was
/// knocked needs a field calibration, one whose shape has changed a new table.
///
/// - Units and frames: those of the tables, which must be the same.
/// - Difference: (x of b - x of a) times the x component of a's unit normal, at the middles of the
///   blocks of the working volume that have a plane in both tables. + where b lies at larger x.
/// - Rigid part: the smallest motion whose displacement along a's normals is nearest to the
///   difference, by least squares.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kestrane/export.h"
#include "kestrane/quality/plane_table.h"
#include "kestrane/quality/working_volume.h"
#include "kestrane/records.h"

namespace kestrane::quality {

/// How one plane differs. Not a number where it has no block to compare.
struct PlaneDifference {
  std::int32_t blocks = 0;  ///< compared
  double rms = 0.0;         ///< root mean square difference
  double max = 0.0;         ///< largest size of a difference
  double rest = 0.0;        ///< root mean square of what the rigid part leaves
};

/// How two tables differ. After a refusal only `refused` and the counts mean anything.
struct Difference {
  std::string refused;  ///< why nothing was compared; empty otherwise

  double rms = 0.0;         ///< root mean square over all blocks compared
  double max = 0.0;         ///< largest size of a difference
  std::int32_t plane = 0;   ///< where it is largest
  Block block = {0, 0};     ///< where it is largest
  FanPlace place = {0, 0};  ///< the middle of that block

  _MRV_EXTRINSIC_PARAM rigid = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};  ///< carries a towards b
  double rest = 0.0;       ///< root mean square of what the rigid part leaves
  double rest_max = 0.0;   ///< its largest size
  double explained = 0.0;  ///< 1 - sum of squares of the rest over that of the differences; not a
                           ///< number where there is no difference at all

  std::int32_t blocks = 0;              ///< blocks of the volume that have a plane in both tables
  std::int32_t only_in_one = 0;         ///< blocks of the volume that have a plane in one of them
  std::vector<PlaneDifference> planes;  ///< one per plane of the tables

  std::vector<double> values;  ///< planes x 15 x 50 differences; not a number where not compared
  std::vector<double> rests;   ///< the same without the rigid part
};

/// Compares b with a.
///
/// Two tables without a common block in the volume are a refusal.
///
/// The bounds of the blocks may differ by the digits that a table file does not keep; a's bounds
/// are the ones used.
///
/// @throws std::invalid_argument  different numbers of planes, or different bounds of the blocks
KESTRANE_API Difference compare(const PlaneTable& a, const PlaneTable& b,
                                const WorkingVolume& volume = {});

}  // namespace kestrane::quality
