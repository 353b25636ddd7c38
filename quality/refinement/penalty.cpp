#include "quality/refinement/penalty.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace kestrane::quality::refinement {
namespace {

constexpr double kLength = 450.0;  // that derivatives are taken over
constexpr double kFanArea = kMostU * (kDepthLast * kDepthLast - kDepthFirst * kDepthFirst);

struct Term {
  int i;
  int j;
  double factor;
};
using Difference = std::vector<Term>;

// Divided difference of order `order` across the rays i .. i + order at depth j, as a derivative:
// order! f[y_i, ...], y = u z.
Difference across(const FanNodes& nodes, int i, int j, int order) {
  const double z = nodes.z[static_cast<std::size_t>(j)];
  Difference difference;
  constexpr std::array<double, 4> kFactorial = {1.0, 1.0, 2.0, 6.0};
  for (int a = i; a <= i + order; ++a) {
    double product = 1.0;
    for (int b = i; b <= i + order; ++b) {
      if (b == a) continue;
      product *= (nodes.u[static_cast<std::size_t>(a)] - nodes.u[static_cast<std::size_t>(b)]) * z;
    }
    difference.push_back({a, j, kFactorial[static_cast<std::size_t>(order)] / product});
  }
  return difference;
}

// Binomial coefficients of the differences of orders 0 to 3, lowest node first.
constexpr std::array<std::array<double, 4>, 4> kBinomial = {
    {{1, 0, 0, 0}, {-1, 1, 0, 0}, {1, -2, 1, 0}, {-1, 3, -3, 1}}};

// Derivative of order `order` along the ray of what `form` gives at depths j .. j + order.
template <class Form>
Difference along(int j, int order, Form form) {
  Difference difference;
  const auto& signs = kBinomial[static_cast<std::size_t>(order)];
  const double step = std::pow(kDepthStep, order);
  for (int s = 0; s <= order; ++s) {
    for (Term term : form(j + s)) {
      term.factor *= signs[static_cast<std::size_t>(s)] / step;
      difference.push_back(term);
    }
  }
  return difference;
}

void add_square(const Difference& difference, double weight, const ActiveNodes& active,
                BandedMatrix& s) {
  for (const Term& a : difference) {
    const int row = active.number(a.i, a.j);
    for (const Term& b : difference) {
      const int column = active.number(b.i, b.j);
      if (column >= row) s.row(row)[column - row] += weight * a.factor * b.factor;
    }
  }
}

// One family of stencils: a derivative of order `q` along the ray of one of order `p` across, with
// the factor that it has in the square of the full derivative.
void add_family(const FanNodes& nodes, const ActiveNodes& active, int p, int q, double factor,
                BandedMatrix& s) {
  const double unit = std::pow(kLength, 2 * (p + q)) / kFanArea;
  for (int j = active.first_z; j + q < active.first_z + active.along; ++j) {
    const double z = 0.5 * (nodes.z[static_cast<std::size_t>(j)] +
                            nodes.z[static_cast<std::size_t>(j + q)]);  // middle of the stencil
    for (int i = active.first_u; i + p < active.first_u + active.across; ++i) {
      // Width of the stencil's share across: of a stencil along one ray half the two intervals
      // beside it, at the edge the one; of others the mean of the intervals that it spans.
      const int low = p == 0 ? std::max(i - 1, active.first_u) : i;
      const int high = p == 0 ? std::min(i + 1, active.first_u + active.across - 1) : i + p;
      const double width =
          (nodes.u[static_cast<std::size_t>(high)] - nodes.u[static_cast<std::size_t>(low)]) /
          (high - low);
      const double area = kDepthStep * z * width;
      add_square(along(j, q, [&](int at) { return across(nodes, i, at, p); }), factor * area * unit,
                 active, s);
    }
  }
}

}  // namespace

BandedMatrix penalty(const FanNodes& nodes, const ActiveNodes& active, int order) {
  BandedMatrix s(active.count(), active.band());
  const std::array<double, 4> factors =
      order == 2 ? std::array<double, 4>{1, 2, 1, 0} : std::array<double, 4>{1, 3, 3, 1};
  for (int p = 0; p <= order; ++p)
    add_family(nodes, active, p, order - p, factors[static_cast<std::size_t>(p)], s);
  return s;
}

}  // namespace kestrane::quality::refinement
