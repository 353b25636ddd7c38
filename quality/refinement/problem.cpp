#include "quality/refinement/problem.h"

#include <algorithm>

namespace kestrane::quality::refinement {

Groups group_frames(const Problem& problem, std::size_t frames, std::int32_t folds) {
  std::vector<std::int32_t> rank(frames, -1);
  for (std::size_t n = 0; n < problem.samples.size(); ++n)
    if (problem.counted[n] != 0) rank[static_cast<std::size_t>(problem.samples[n].frame)] = 0;
  Groups groups;
  for (std::int32_t& r : rank)
    if (r == 0) r = groups.frames++;
  groups.members.resize(static_cast<std::size_t>(std::min(folds, groups.frames)));
  const auto group_of = [&](const Sample& sample) {
    const std::int32_t r = rank[static_cast<std::size_t>(sample.frame)];
    return static_cast<std::size_t>(r) % groups.members.size();
  };
  // Counted first, so that no list grows beyond what it holds.
  std::vector<std::size_t> counts(groups.members.size());
  for (std::size_t n = 0; n < problem.samples.size(); ++n)
    if (problem.counted[n] != 0) ++counts[group_of(problem.samples[n])];
  for (std::size_t g = 0; g < counts.size(); ++g) groups.members[g].reserve(counts[g]);
  for (std::size_t n = 0; n < problem.samples.size(); ++n) {
    if (problem.counted[n] != 0)
      groups.members[group_of(problem.samples[n])].push_back(static_cast<std::int32_t>(n));
  }
  return groups;
}

NormalEquations equations_of(const Problem& problem) {
  std::vector<std::int32_t> members;
  members.reserve(problem.samples.size());
  for (std::size_t n = 0; n < problem.samples.size(); ++n)
    if (problem.counted[n] != 0) members.push_back(static_cast<std::int32_t>(n));
  return equations_of(problem.active, problem.stencils, problem.values, members);
}

bool solve_damped(const NormalEquations& all, const NormalEquations* without,
                  const BandedMatrix& penalty, double lambda, BandedMatrix& factor,
                  std::vector<double>& values) {
  factor = all.matrix;
  std::vector<double>& entries = factor.entries();
  const std::vector<double>& damping = penalty.entries();
  values = all.right;
  if (without != nullptr) {
    const std::vector<double>& taken = without->matrix.entries();
    for (std::size_t n = 0; n < entries.size(); ++n)
      entries[n] = (entries[n] - taken[n]) + lambda * damping[n];
    for (std::size_t n = 0; n < values.size(); ++n) values[n] -= without->right[n];
  } else {
    for (std::size_t n = 0; n < entries.size(); ++n) entries[n] += lambda * damping[n];
  }
  if (!factorise(factor)) return false;
  solve(factor, values);
  return true;
}

}  // namespace kestrane::quality::refinement
