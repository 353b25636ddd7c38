#include "quality/refinement/banded.h"

#include <algorithm>

namespace kestrane::quality::refinement {

BandedMatrix::BandedMatrix(int rows, int width)
    : rows_(rows),
      width_(width),
      stride_((width + 7) / 4 * 4),
      entries_(static_cast<std::size_t>(rows) * static_cast<std::size_t>(stride_), 0.0) {}

bool factorise(BandedMatrix& a) { return factorise_band(a.band(), best_vectors()); }

void solve(const BandedMatrix& r, std::vector<double>& b) {
  solve_band(r.band(), b.data(), best_vectors());
}

BandedMatrix invert(const BandedMatrix& r) {
  BandedMatrix inverse(r.rows(), r.width());
  const std::size_t side = static_cast<std::size_t>(r.width()) + 1;
  std::vector<double> window(2 * side * side);
  std::vector<double> scratch(2 * side);
  invert_band(r.band(), inverse.band(), window.data(), scratch.data(), best_vectors());
  return inverse;
}

double trace_of_product(const BandedMatrix& a, const BandedMatrix& b) {
  double diagonal = 0.0;
  double above = 0.0;
  for (int i = 0; i < a.rows(); ++i) {
    const double* left = a.row(i);
    const double* right = b.row(i);
    const int length = std::min(a.width(), a.rows() - 1 - i);
    diagonal += left[0] * right[0];
    for (int d = 1; d <= length; ++d) above += left[d] * right[d];
  }
  return diagonal + 2.0 * above;
}

}  // namespace kestrane::quality::refinement
