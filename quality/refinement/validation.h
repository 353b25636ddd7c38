// The error of a surface on capture frames that it has not seen.
//
// in    the problem, its groups of frames
// out   squared residuals of a group's samples against the block planes that the others give
#pragma once

#include <memory>
#include <vector>

#include "quality/refinement/cell_planes.h"
#include "quality/refinement/continuation.h"
#include "quality/refinement/problem.h"

namespace kestrane::quality::refinement {

// Squared residuals of some samples.
struct Squares {
  double sum = 0.0;
  std::int64_t count = 0;
};

class Validation {
 public:
  // Everything is referred to and outlives this.
  Validation(const Problem& problem, const NormalEquations& all, const Groups& groups);

  // The normal equations of one group alone.
  NormalEquations equations_of_group(std::size_t group) const;

  // Solves without the group, whose equations `without` are, and measures its samples. None are
  // counted where the system has no factor.
  Squares errors_of(std::size_t group, const NormalEquations& without, const BandedMatrix& penalty,
                    double lambda);

  // Of the latest solution, at the active nodes.
  const std::vector<double>& values() const { return active_values_; }

 private:
  const Problem& problem_;
  const NormalEquations& all_;
  const Groups& groups_;
  std::vector<std::unique_ptr<BlockMap>> maps_;  // of the blocks that hold samples; null elsewhere
  Continuation continuation_;
  std::vector<BlockPlane> planes_;
  BandedMatrix factor_;
  std::vector<double> active_values_;
  std::vector<double> values_;
};

}  // namespace kestrane::quality::refinement
