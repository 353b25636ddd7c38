// The row on what the refinement would gain.
#include <cmath>
#include <string>
#include <vector>

#include "quality/findings/figures.h"
#include "quality/findings/plane_lists.h"
#include "quality/findings/rows.h"
#include "quality/findings/wording.h"

namespace kestrane::quality {
namespace {

constexpr double kWorthwhile = 0.8;  // of the plain table's error

bool is_known(const PlaneFigures& plane) {
  return plane.refinement && std::isfinite(plane.refinement->refined_rms) &&
         std::isfinite(plane.refinement->plain_rms);
}

// Root mean square of a figure over some planes.
double pooled(const FactoryResult& result, const std::vector<std::int32_t>& planes,
              double (*figure_of)(const RefinementFigures& refinement)) {
  double squares = 0.0;
  for (const std::int32_t p : planes) {
    const double value = figure_of(*result.planes[static_cast<std::size_t>(p)].refinement);
    squares += value * value;
  }
  return std::sqrt(squares / real_of(planes.size()));
}

}  // namespace

Finding refine_row(const FactoryResult& result) {
  const auto planes = planes_where(result, is_known);
  Finding finding{Level::kOk, "refine", {}, {}};
  finding.figures = figures_of({{"planes", planes.size()}});
  if (planes.empty()) {
    finding.text =
        "what the refinement would gain is not determined: it takes at least 2 frames "
        "on a plane, and sectors of 200 points without any of them";
    return finding;
  }
  const double refined =
      pooled(result, planes, [](const RefinementFigures& r) { return r.refined_rms; });
  const double plain =
      pooled(result, planes, [](const RefinementFigures& r) { return r.plain_rms; });
  finding.figures.push_back({"refined_rms", refined});
  finding.figures.push_back({"plain_rms", plain});
  finding.text = "error on frames that were left out: " + length_text(refined) + " refined, " +
                 length_text(plain) + " plain, over " + planes_text(planes);
  if (refined < kWorthwhile * plain) {
    finding.level = Level::kWarn;
    finding.text += ": take the refined table";
  }
  return finding;
}

}  // namespace kestrane::quality
