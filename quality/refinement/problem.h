// What the estimate of one plane works on, and one solution of it.
//
// in    samples that count, what they measure
// out   groups of their frames, normal equations, values at the active nodes
#pragma once

#include <cstdint>
#include <vector>

#include "kestrane/records.h"
#include "quality/refinement/normal_equations.h"

namespace kestrane::quality::refinement {

// What the estimate of one plane works on. Everything is owned by the caller and outlives it.
struct Problem {
  const FanNodes& nodes;
  const _LASER_PLANE_GRIDS& grids;
  const ActiveNodes& active;
  const std::vector<Sample>& samples;
  const std::vector<Stencil>& stencils;
  const std::vector<double>& values;         // per sample: x without the robust plane
  const std::vector<std::uint8_t>& counted;  // per sample
};

// The samples of each group, as indices into the samples; only those that count.
struct Groups {
  std::vector<std::vector<std::int32_t>> members;
  int frames = 0;  // frames with samples that count
};

// Frames with counted samples, by rank, go round into at most `folds` groups, and no more than
// there are frames.
Groups group_frames(const Problem& problem, std::size_t frames, std::int32_t folds);

// The normal equations of all samples that count.
NormalEquations equations_of(const Problem& problem);

// Values at the active nodes that minimise the squared residuals plus lambda f'Sf. False where the
// system has no factor.
//
// factor  scratch; holds the Cholesky factor afterwards
// values  resized
bool solve_damped(const NormalEquations& all, const NormalEquations* without,
                  const BandedMatrix& penalty, double lambda, BandedMatrix& factor,
                  std::vector<double>& values);

}  // namespace kestrane::quality::refinement
