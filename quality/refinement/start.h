// Where a refinement begins: a robust plane, the frames that are taken, the points near the sheet.
//
// in    samples
// out   plane, residuals against the better of a plane and a quadratic, frames taken
#pragma once

#include <optional>

#include "quality/refinement/frame_check.h"
#include "quality/refinement/sheet_fit.h"

namespace kestrane::quality::refinement {

struct Start {
  Sheet plane;                      // robust, over the frames that are taken
  std::vector<double> residuals;    // per sample: against the plane, or the quadratic where the
                                    // frames support it significantly
  double scale = 0.0;               // of those residuals, over the frames that are taken
  std::vector<std::uint8_t> taken;  // per frame
};

// Nothing where the points fix no plane.
std::optional<Start> robust_start(const Samples& samples, const Spread& spread,
                                  const RefinementSettings& settings);

// x - sheet of every sample.
std::vector<double> residuals_against(const std::vector<Sample>& samples, const Sheet& sheet);

}  // namespace kestrane::quality::refinement
