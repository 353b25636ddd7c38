// One row of the table of findings per function: a result and the limits in, one finding out.
//
// A row is told whatever its level, so that a reader sees what was looked at.
#pragma once

#include <vector>

#include "kestrane/quality/findings.h"

namespace kestrane::quality {

Finding planes_row(const FactoryResult& result);
Finding screened_row(const FactoryResult& result);
Finding residuals_row(const FactoryResult& result, const Limits& limits);
Finding coverage_row(const FactoryResult& result, const Limits& limits);
Finding borrowed_row(const FactoryResult& result);
Finding poses_off_row(const FactoryResult& result);
Finding pose_noise_row(const FactoryResult& result);
Finding frames_row(const FactoryResult& result);
Finding seams_row(const FactoryResult& result, const Limits& limits);
Finding outliers_row(const FactoryResult& result, const Limits& limits);
Finding repeatability_row(const FactoryResult& result, const Limits& limits);

// These three only where the optimisation is on.
Finding trade_row(const FactoryResult& result);
Finding optimise_idle_row(const FactoryResult& result);
Finding bound_row(const FactoryResult& result);

// Only where a refinement was asked for.
Finding refine_row(const FactoryResult& result);

Finding field_motion_row(const FieldResult& result, const Limits& limits);
Finding direction_row(const FieldResult& result, const Limits& limits);
Finding used_row(const FieldResult& result);

Finding drift_row(const Difference& difference, const Limits& limits);

}  // namespace kestrane::quality
