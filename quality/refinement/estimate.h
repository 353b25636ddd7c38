// The surface of one plane: rejection, choice of its smoothness, solution.
//
// in    samples, where to begin
// out   values at the active nodes, the samples that count, the damping that was chosen
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "quality/refinement/choice.h"
#include "quality/refinement/start.h"
#include "quality/refinement/uncertainty.h"

namespace kestrane::quality::refinement {

struct Estimate {
  ActiveNodes active;
  std::vector<double> values;     // at the active nodes: x of the surface minus the start's plane
  std::vector<double> residuals;  // per sample, against the surface
  std::vector<std::uint8_t> counted;  // per sample: 1 where it took part
  std::vector<std::uint8_t> taken;    // per frame
  Damping damping;
  double degrees_of_freedom = 0.0;
  double variance = 0.0;           // of a sample that counted about the surface
  double squared_error = 0.0;      // on frames left out; not a number with fewer than 2
  std::int32_t frames = 0;         // that took part
  std::vector<double> sigma;       // at all nodes of the fan
  std::vector<double> fan_values;  // at all nodes of the fan
};

// Nothing where no samples are left or the system has no factor.
std::optional<Estimate> estimate_surface(const FanNodes& nodes, const _LASER_PLANE_GRIDS& grids,
                                         const Samples& samples, Start start,
                                         const RefinementSettings& settings);

}  // namespace kestrane::quality::refinement
