#include <utility>

#include "kestrane/quality/factory.h"
#include "quality/findings/rows.h"

namespace kestrane::quality {

Judgement judge(const FactoryResult& result, const Limits& limits) {
  std::vector<Finding> findings;
  findings.push_back(planes_row(result));
  findings.push_back(screened_row(result));
  if (!result.refused.empty()) return conclude(std::move(findings), limits);
  findings.push_back(residuals_row(result, limits));
  findings.push_back(coverage_row(result, limits));
  findings.push_back(borrowed_row(result));
  findings.push_back(poses_off_row(result));
  findings.push_back(pose_noise_row(result));
  findings.push_back(frames_row(result));
  findings.push_back(seams_row(result, limits));
  if (result.settings.optimise) {
    findings.push_back(trade_row(result));
    findings.push_back(optimise_idle_row(result));
    findings.push_back(bound_row(result));
  }
  if (result.settings.refine != Refine::kNone) findings.push_back(refine_row(result));
  findings.push_back(outliers_row(result, limits));
  findings.push_back(repeatability_row(result, limits));
  return conclude(std::move(findings), limits);
}

}  // namespace kestrane::quality
