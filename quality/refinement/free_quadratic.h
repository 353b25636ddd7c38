// A solution whose free quadratic is exact.
//
// in    a solution of order 3, its factor
// out   the same surface without the rounding of the system
//
// A quadratic is free under the damping of order 3, but only up to the rounding of large entries
// that cancel: at the largest weights that is 1e-7 of the surface. So the quadratic part of a
// solution is taken off the measurements and what is left, which is small, solved once more.
#pragma once

#include <vector>

#include "quality/refinement/problem.h"

namespace kestrane::quality::refinement {

// factor  of the system, as solve_damped left it
// values  at the active nodes, improved
void free_quadratic(const Problem& problem, const BandedMatrix& factor,
                    std::vector<double>& values);

}  // namespace kestrane::quality::refinement
