// The sheet on which a plane's points lie, found in spite of points that lie elsewhere.
//
// in    finite points of one plane inside its depth band
// out   the sheet with its scale and limit, and every point's residual
#pragma once

#include <vector>

#include "kestrane/quality/screening.h"

namespace kestrane::quality {

struct SheetFit {
  ScreeningSheet sheet;
  std::vector<double> residuals;  // x minus the sheet's x, one per point; none without a sheet
};

// Fits the sheet: of second degree where the points fix one (scaled condition up to 1e8 over the
// half of them that supports the start), else of first degree, else none.
//
// gross  the least limit, in the unit of the points
//
// A start from a sample, reweighted over the sample; scale and limit are those of all points. Time
// is linear in the points; the sample's part stays the same from 1,024 points on.
SheetFit fit_robust_sheet(const PointList& points, double gross);

}  // namespace kestrane::quality
