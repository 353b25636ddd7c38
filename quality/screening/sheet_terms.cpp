#include "quality/screening/sheet_terms.h"

#include <Eigen/Eigenvalues>
#include <Eigen/QR>
#include <Eigen/SVD>
#include <cmath>
#include <limits>

namespace kestrane::quality {
namespace {

// Eigenvalues of the scaled normal equations below this share of the largest carry nothing but
// rounding.
constexpr double kNoWeight = 1e-13;

using Terms = Eigen::Matrix<double, kMostTerms, 1>;

Terms terms_at(const SheetPoint& at) {
  return {1.0, at.u, at.v, at.u * at.u, at.u * at.v, at.v * at.v};
}

}  // namespace

void TermSums::add(const SheetPoint& at) {
  const Terms t = terms_at(at);
  // All six, also for fewer terms: a loop of fixed length needs no branches.
  for (int i = 0; i < kMostTerms; ++i) {
    for (int j = 0; j <= i; ++j) squares_(i, j) += t[i] * t[j];
    products_[i] += t[i] * at.x;
  }
}

void TermSums::solve(double* c) const {
  const Eigen::MatrixXd squares = squares_.topLeftCorner(terms_, terms_);
  const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(squares);  // reads the lower triangle
  const Eigen::VectorXd& values = solver.eigenvalues();
  Eigen::VectorXd parts = solver.eigenvectors().transpose() * products_.head(terms_);
  for (int i = 0; i < terms_; ++i) {
    const bool fixed = values[i] > kNoWeight * values[terms_ - 1];
    parts[i] = fixed ? parts[i] / values[i] : 0.0;
  }
  const Eigen::VectorXd solution = solver.eigenvectors() * parts;
  for (int i = 0; i < kMostTerms; ++i) c[i] = i < terms_ ? solution[i] : 0.0;
}

double scaled_condition(const SheetPoint* points, std::size_t count, int terms) {
  constexpr double kNone = std::numeric_limits<double>::infinity();
  if (count < static_cast<std::size_t>(terms)) return kNone;
  Eigen::MatrixXd rows(static_cast<Eigen::Index>(count), terms);
  for (std::size_t i = 0; i < count; ++i) {
    rows.row(static_cast<Eigen::Index>(i)) = terms_at(points[i]).head(terms).transpose();
  }
  for (int j = 0; j < terms; ++j) {
    const double length = rows.col(j).norm();
    if (!(length > 0.0)) return kNone;
    rows.col(j) /= length;
  }
  const Eigen::HouseholderQR<Eigen::MatrixXd> qr(rows);
  const Eigen::MatrixXd triangle =
      qr.matrixQR().topRows(terms).template triangularView<Eigen::Upper>();
  const Eigen::JacobiSVD<Eigen::MatrixXd> svd(triangle);
  const double smallest = svd.singularValues()[terms - 1];
  return smallest > 0.0 ? svd.singularValues()[0] / smallest : kNone;
}

}  // namespace kestrane::quality
