// Where the robust fit of a sheet starts: a sheet that half of the points support, whatever the
// others are.
//
// in    a sample of points in sheet coordinates, the number of terms
// out   coefficients, and the half of the sample that lies nearest to them
#pragma once

#include <array>
#include <vector>

#include "quality/screening/seeded_draws.h"
#include "quality/screening/sheet_terms.h"

namespace kestrane::quality {

struct SheetStart {
  bool found = false;
  std::array<double, kMostTerms> c{};  // those beyond the terms are 0
  std::vector<SheetPoint> support;     // the nearer half of the sample
  double median = 0.0;                 // of |residual| over the sample
};

// Draws sheets through as many points as they have terms, keeps the one with the smallest median of
// |residual|, and improves it by least squares over the nearer half until that half stays.
//
// Not found where no drawn sheet was determined: fewer points than terms, or all on one curve.
SheetStart start_sheet(const std::vector<SheetPoint>& sample, int terms, SeededDraws& draws);

}  // namespace kestrane::quality
