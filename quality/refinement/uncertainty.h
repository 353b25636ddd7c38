// How surely a surface is known, and how well it predicts frames that it has not seen.
//
// in    the estimate with its factor, the groups of frames
// out   the standard deviation of x at every node, the error on frames left out
//
// The larger of two: what the scatter of the samples lets expect, and how much the surface moves
// when groups of frames are left out in turn, which sees errors that the points of a frame share.
#pragma once

#include <vector>

#include "quality/refinement/choice.h"
#include "quality/refinement/validation.h"

namespace kestrane::quality::refinement {

// The estimates without one group of frames each, and their error on that group.
struct LeftOut {
  std::vector<std::vector<double>> values;  // at the active nodes, one list per group
  double squared_error = 0.0;               // mean over all samples of all groups; NaN without any
};

LeftOut leave_out_groups(const Problem& problem, const NormalEquations& all, const Groups& groups,
                         const BandedMatrix& penalty, const Damping& damping);

// Standard deviation of x at every node of the fan, by number.
//
// inverse     band of (A'A + lambda S)^-1 over the active nodes
// variance    of a sample about the surface
// values      of the estimate, at the active nodes
// left_out    of at least 4 groups for these to count
//
// Beyond the active nodes the deviation of the straight continuation, and on top of it what the
// surface's own bending may do over the distance.
std::vector<double> node_sigma(const ActiveNodes& active, const Continuation& continuation,
                               const BandedMatrix& inverse, double variance,
                               const std::vector<double>& values, const LeftOut& left_out);

}  // namespace kestrane::quality::refinement
