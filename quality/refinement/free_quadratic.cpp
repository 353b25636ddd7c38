#include "quality/refinement/free_quadratic.h"

#include <Eigen/Dense>

namespace kestrane::quality::refinement {
namespace {

using Terms = Eigen::Matrix<double, 6, 1>;

constexpr double kUnit = 1000.0;  // depths and widths come out around 1

Terms terms_at(double y, double z) {
  const double v = y / kUnit;
  const double w = z / kUnit;
  return Terms{1.0, v, w, v * v, v * w, w * w};
}

Eigen::MatrixXd terms_of_nodes(const FanNodes& nodes, const ActiveNodes& active) {
  Eigen::MatrixXd terms(active.count(), 6);
  for (int j = active.first_z; j < active.first_z + active.along; ++j) {
    for (int i = active.first_u; i < active.first_u + active.across; ++i) {
      const double z = nodes.z[static_cast<std::size_t>(j)];
      terms.row(active.number(i, j)) =
          terms_at(nodes.u[static_cast<std::size_t>(i)] * z, z).transpose();
    }
  }
  return terms;
}

}  // namespace

void free_quadratic(const Problem& problem, const BandedMatrix& factor,
                    std::vector<double>& values) {
  const ActiveNodes& active = problem.active;
  const Eigen::MatrixXd terms = terms_of_nodes(problem.nodes, active);
  const Eigen::Map<const Eigen::VectorXd> solution(values.data(), active.count());
  const Terms c = terms.colPivHouseholderQr().solve(solution);

  std::vector<double> rest(values.size());
  for (std::size_t n = 0; n < problem.samples.size(); ++n) {
    if (problem.counted[n] == 0) continue;
    const Sample& sample = problem.samples[n];
    const Stencil& stencil = problem.stencils[n];
    const double value = problem.values[n] - c.dot(terms_at(sample.y, sample.z));
    for (int j = 0; j < 4; ++j) {
      for (int i = 0; i < 4; ++i) {
        const int number = active.number(stencil.first_across + i, stencil.first_along + j);
        rest[static_cast<std::size_t>(number)] += stencil.along[j] * stencil.across[i] * value;
      }
    }
  }
  solve(factor, rest);
  const Eigen::VectorXd quadratic = terms * c;
  for (std::size_t n = 0; n < values.size(); ++n)
    values[n] = quadratic[static_cast<Eigen::Index>(n)] + rest[n];
}

}  // namespace kestrane::quality::refinement
