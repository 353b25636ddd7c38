#include "quality/refinement/normal_equations.h"

namespace kestrane::quality::refinement {

NormalEquations equations_of(const ActiveNodes& active, const std::vector<Stencil>& stencils,
                             const std::vector<double>& values,
                             const std::vector<std::int32_t>& members) {
  NormalEquations equations(active);
  const Numbering numbering{active.first_u, active.first_z, active.across};
  add_samples(stencils.data(), values.data(), members.data(),
              static_cast<std::int64_t>(members.size()), numbering, equations.matrix.band(),
              equations.right.data(), best_vectors());
  equations.samples = static_cast<std::int64_t>(members.size());
  return equations;
}

double surface_at(const Stencil& stencil, const std::vector<double>& values) {
  const double* u = stencil.across;
  const double* z = stencil.along;
  double sum = 0.0;
  for (int j = 0; j < 4; ++j) {
    const double* v = &values[node_index(stencil.first_across, stencil.first_along + j)];
    sum += z[j] * (u[0] * v[0] + u[1] * v[1] + u[2] * v[2] + u[3] * v[3]);
  }
  return sum;
}

}  // namespace kestrane::quality::refinement
