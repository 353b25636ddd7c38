#include "quality/factory/optimisation_effect.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace kestrane::quality {
namespace {

// A corner may move by half a unit; from here on it stands at that bound, since the solver stays
// inside by a little.
constexpr double kAtBound = 0.4999;

}  // namespace

OptimisationFigures corner_moves(const JobRun& with, const JobRun& without) {
  OptimisationFigures figures;
  figures.largest_move = 0.0;
  for (std::size_t i = 0; i < with.corners.size(); ++i) {
    const double move = with.corners[i].v[0] - without.corners[i].v[0];
    figures.corner_moves.push_back(move);
    figures.largest_move = std::max(figures.largest_move, std::abs(move));
    if (std::abs(move) >= kAtBound) ++figures.at_bound;
  }
  return figures;
}

}  // namespace kestrane::quality
