// How smooth a surface the capture frames ask for.
//
// in    samples that count, what they measure, the groups of frames that are left out in turn
// out   the order and the weight of the damping
//
// The table is cross-validated, not the surface: of each group of frames the residuals against the
// block planes that all other frames give. Candidates stand in the order of their degrees of
// freedom, the first is a plane; a candidate replaces the one held so far only where it predicts
// significantly better over the groups. Errors that the points of a frame share would otherwise
// pass for shape.
#pragma once

#include <cstddef>
#include <vector>

#include "quality/refinement/problem.h"

namespace kestrane::quality::refinement {

// One way to damp a surface.
struct Damping {
  int order = 2;
  double lambda = 1e5;
};

// A plane: the simplest surface there is.
inline constexpr Damping kPlaneDamping{2, 1e5};

// Damping of the simplest surface that the frames support; of a plane where they are too few to
// tell.
//
// significance  standard errors by which a freer surface has to be better
// penalties     of orders 2 and 3
Damping choose_damping(const Problem& problem, const NormalEquations& all, const Groups& groups,
                       const BandedMatrix (&penalties)[2], double significance);

// What `significance` is multiplied by where there are few groups to judge by.
double caution(std::size_t groups);

// Groups evenly spread, at most 5: every candidate is tried on these first.
std::vector<std::size_t> scouts_of(std::size_t groups);

// By how many standard errors the second list of mean squared errors lies below the first, over the
// scouted groups.
double advantage(const std::vector<double>& held, const std::vector<double>& other,
                 const std::vector<std::size_t>& scouts);

// Whether the second list of mean squared errors, one per group, lies significantly below the
// first: in the mean, and the roots of the errors by `significance` standard errors. Roots, since
// one group that lies far out would otherwise drown what all the others agree on.
bool is_significantly_better(const std::vector<double>& held, const std::vector<double>& other,
                             double significance);

}  // namespace kestrane::quality::refinement
