// From values at the nodes to the surface between them.
//
// in    a place (u, z)
// out   4 weights across and 4 along; the surface is the sum of their products times the values
//
// A tensor product of cubic Hermite pieces whose slope at a node is that of the parabola through it
// and its two neighbours, at an end node that of the parabola through the last three. The surface
// and its slopes are continuous, quadratics are reproduced exactly, and outside the nodes it goes
// on straight.
#pragma once

#include "quality/refinement/fan_nodes.h"
#include "quality/refinement/weights.h"

namespace kestrane::quality::refinement {

// u need not lie between the nodes. Weights sum to 1.
Weights weights_across(const FanNodes& nodes, double u);

// The same along the depth.
Weights weights_along(const FanNodes& nodes, double z);

}  // namespace kestrane::quality::refinement
