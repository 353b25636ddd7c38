// How far the points lie from the table: root mean square, mean and quantiles, per block, per plane
// and of the device.
//
// in    a plane's valid points and their spread
// out   figures without outliers
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "kestrane/quality/factory.h"
#include "quality/factory/outliers.h"
#include "quality/factory/plane_points.h"
#include "quality/factory/size_quantiles.h"

namespace kestrane::quality {

// Sums of residuals, from which mean and root mean square come.
struct ResidualSums {
  std::int64_t count = 0;
  double sum = 0.0;
  double squares = 0.0;

  void add(double residual) {
    ++count;
    sum += residual;
    squares += residual * residual;
  }
  void add(const ResidualSums& other);
};

// sizes  the sizes of the residuals that are in the sums; put into another order
ResidualFigures figures_of(const ResidualSums& sums, std::span<double> sizes);

// The same where the quantiles come from elsewhere.
ResidualFigures figures_of(const ResidualSums& sums, SizeQuantiles& sizes);

// A plane's figures and those of its 750 blocks, line by line.
struct FiguresOfPlane {
  ResidualSums sums;
  ResidualFigures plane;
  std::vector<ResidualFigures> blocks;
  std::int64_t outliers = 0;
};

// device  counts the plane's sizes; null where they are not to count
FiguresOfPlane residual_figures(const PlanePoints& points, const Spread& spread,
                                SizeQuantiles* device);

}  // namespace kestrane::quality
