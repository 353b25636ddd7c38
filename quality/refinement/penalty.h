// How much a surface bends, as a quadratic form of its node values.
//
// in    the active nodes, the order
// out   a banded matrix S: f'Sf is the integral of the squared second (order 2) or third (order 3)
//       derivatives over the nodes' part of the fan, 0 for planes or for quadratics
//
// Derivatives are differences along the rays and divided differences across them; the mixed ones
// are differences along the rays of the divided differences, in the sense of d/dz + u d/dy. The
// form is made free of units by the length 450 and the fan's area, so that its weight lambda is a
// pure number.
#pragma once

#include "quality/refinement/active_nodes.h"
#include "quality/refinement/banded.h"

namespace kestrane::quality::refinement {

// order  2 or 3
// result active.count() rows, band active.band()
BandedMatrix penalty(const FanNodes& nodes, const ActiveNodes& active, int order);

}  // namespace kestrane::quality::refinement
