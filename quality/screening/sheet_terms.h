// The terms of a sheet x = p(y, z) in scaled coordinates, and least squares over them.
//
// in    points, a centre and a scale
// out   terms 1, u, v, u^2, u v, v^2 (the first 3 of them for a sheet of first degree);
// coefficients
#pragma once

#include <Eigen/Core>
#include <cstddef>

#include "kestrane/quality/screening.h"

namespace kestrane::quality {

inline constexpr int kMostTerms = 6;

// Terms of a degree: 6, 3, and 0 without a sheet.
inline int terms_of(std::int32_t degree) { return degree == 2 ? 6 : degree == 1 ? 3 : 0; }

// A point in the coordinates of a sheet: u and v of order 1, x as measured.
struct SheetPoint {
  double u;
  double v;
  double x;
};

inline SheetPoint sheet_point(const ScreeningSheet& sheet, const _KESTRANE_ID_POINT3D& point) {
  return {(point.y - sheet.y0) / sheet.ys, (point.z - sheet.z0) / sheet.zs, point.x};
}

// x minus the sheet's x. Coefficients beyond the degree are 0, so that one form serves both.
inline double residual(const double* c, const SheetPoint& at) {
  return at.x - (c[0] + at.u * (c[1] + c[3] * at.u + c[4] * at.v) + at.v * (c[2] + c[5] * at.v));
}

// Sums of squares and products of terms, from which least squares follow.
class TermSums {
 public:
  explicit TermSums(int terms) : terms_(terms) {
    squares_.setZero();
    products_.setZero();
  }

  void add(const SheetPoint& at);

  // The coefficients of least squares, in `c`, the others 0. Directions that the points do not
  // fix get no part, so that the answer is finite whatever the points are.
  void solve(double* c) const;

 private:
  int terms_;
  Eigen::Matrix<double, kMostTerms, kMostTerms> squares_;  // lower triangle
  Eigen::Matrix<double, kMostTerms, 1> products_;
};

// How well the points fix a sheet of `terms` terms: the largest over the smallest singular value of
// the terms' matrix with columns of length 1. Infinite where a column vanishes or there are fewer
// points than terms.
double scaled_condition(const SheetPoint* points, std::size_t count, int terms);

}  // namespace kestrane::quality
