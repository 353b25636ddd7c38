// Banded matrices as full ones.
#pragma once

#include <Eigen/Dense>

#include "quality/refinement/banded.h"

namespace quality_tests {

inline Eigen::MatrixXd dense(const kestrane::quality::refinement::BandedMatrix& band) {
  Eigen::MatrixXd full = Eigen::MatrixXd::Zero(band.rows(), band.rows());
  for (int r = 0; r < band.rows(); ++r)
    for (int d = 0; d <= band.width() && r + d < band.rows(); ++d)
      full(r, r + d) = full(r + d, r) = band.row(r)[d];
  return full;
}

}  // namespace quality_tests
