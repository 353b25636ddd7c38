#include "quality/refinement/continuation.h"

#include <algorithm>
#include <cmath>

namespace kestrane::quality::refinement {
namespace {

// A value between or beyond two neighbours: `near` the one that is closer to the place.
struct Pair {
  int near;
  int next;
  double beyond;  // distance from `near`, in units of that between the two; 0 at `near` itself
};

Pair pair_at(int at, int first, int last, const double* x) {
  const int near = std::clamp(at, first, last);
  // The neighbour on the far side of `near` from the place; inside, either one, which gets factor
  // 0.
  const int next = near == last ? near - 1 : near + 1;
  return {near, next, at == near ? 0.0 : (x[at] - x[near]) / (x[near] - x[next])};
}

}  // namespace

Continuation::Continuation(const FanNodes& nodes, const ActiveNodes& active)
    : combinations_(kNodes) {
  for (int j = 0; j < kAlong; ++j) {
    const Pair along =
        pair_at(j, active.first_z, active.first_z + active.along - 1, nodes.z.data());
    for (int i = 0; i < kAcross; ++i) {
      // At one depth y and u are in proportion.
      const Pair across =
          pair_at(i, active.first_u, active.first_u + active.across - 1, nodes.u.data());
      Combination& combination = combinations_[node_index(i, j)];
      const auto add = [&](int node_i, int node_j, double factor) {
        if (factor == 0.0) return;
        const auto at = static_cast<std::size_t>(combination.count++);
        combination.number[at] = active.number(node_i, node_j);
        combination.factor[at] = factor;
      };
      add(across.near, along.near, (1.0 + across.beyond) * (1.0 + along.beyond));
      add(across.near, along.next, (1.0 + across.beyond) * -along.beyond);
      add(across.next, along.near, -across.beyond * (1.0 + along.beyond));
      add(across.next, along.next, across.beyond * along.beyond);

      const double u = nodes.u[static_cast<std::size_t>(across.near)];
      const double z = nodes.z[static_cast<std::size_t>(j)];
      combination.distance =
          std::abs(z - nodes.z[static_cast<std::size_t>(along.near)]) * std::hypot(1.0, u) +
          std::abs(nodes.u[static_cast<std::size_t>(i)] - u) * z;
    }
  }
}

void Continuation::apply(const std::vector<double>& active_values,
                         std::vector<double>& values) const {
  values.resize(kNodes);
  for (std::size_t n = 0; n < values.size(); ++n) {
    const Combination& combination = combinations_[n];
    double sum = 0.0;
    for (std::size_t t = 0; t < static_cast<std::size_t>(combination.count); ++t)
      sum += combination.factor[t] * active_values[static_cast<std::size_t>(combination.number[t])];
    values[n] = sum;
  }
}

}  // namespace kestrane::quality::refinement
