#include "quality/refinement/validation.h"

#include <algorithm>

namespace kestrane::quality::refinement {
namespace {

std::vector<std::unique_ptr<BlockMap>> maps_of(const Problem& problem) {
  const auto counts = part_counts(problem.grids, problem.samples, problem.counted);
  std::vector<std::unique_ptr<BlockMap>> maps(counts.size());
  for (std::size_t block = 0; block < counts.size(); ++block) {
    if (std::any_of(counts[block].begin(), counts[block].end(), [](auto n) { return n > 0; }))
      maps[block] = std::make_unique<BlockMap>(problem.nodes, problem.grids,
                                               static_cast<std::int32_t>(block), counts[block]);
  }
  return maps;
}

}  // namespace

Validation::Validation(const Problem& problem, const NormalEquations& all, const Groups& groups)
    : problem_(problem),
      all_(all),
      groups_(groups),
      maps_(maps_of(problem)),
      continuation_(problem.nodes, problem.active),
      planes_(maps_.size()) {}

NormalEquations Validation::equations_of_group(std::size_t group) const {
  return equations_of(problem_.active, problem_.stencils, problem_.values, groups_.members[group]);
}

Squares Validation::errors_of(std::size_t group, const NormalEquations& without,
                              const BandedMatrix& penalty, double lambda) {
  Squares squares;
  if (!solve_damped(all_, &without, penalty, lambda, factor_, active_values_)) return squares;
  continuation_.apply(active_values_, values_);
  for (std::size_t block = 0; block < maps_.size(); ++block)
    if (maps_[block]) planes_[block] = maps_[block]->plane_of(values_);
  for (const std::int32_t n : groups_.members[group]) {
    const auto at = static_cast<std::size_t>(n);
    const Sample& sample = problem_.samples[at];
    if (sample.block < 0) continue;
    const double residual = problem_.values[at] -
                            planes_[static_cast<std::size_t>(sample.block)].at(sample.y, sample.z);
    squares.sum += residual * residual;
    ++squares.count;
  }
  return squares;
}

}  // namespace kestrane::quality::refinement
