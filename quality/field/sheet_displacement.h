// How far a motion moves the sheets of a table, and how surely.
//
// in    blocks of the table, a motion, the covariance of motions
// out   root mean square, the largest, its place, sigma
#pragma once

#include <cstdint>
#include <vector>

#include "kestrane/quality/field.h"
#include "quality/field/motion_figures.h"
#include "quality/field/rigid_motion.h"
#include "quality/field/sheet_blocks.h"

namespace kestrane::quality {

// The blocks that displacements are looked at in: those of planes first to last with a plane and
// with their middle at a depth that every field measurement reaches.
std::vector<SheetBlock> displacement_blocks(const PlaneTable& table, std::int32_t first,
                                            std::int32_t last);

// Not a number throughout where there are no blocks, and in sigma without a covariance.
Displacement sheet_displacement(const std::vector<SheetBlock>& blocks, const RigidMotion& motion,
                                const MotionFigures& figures);

}  // namespace kestrane::quality
