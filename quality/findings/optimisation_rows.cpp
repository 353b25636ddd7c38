// The rows on what the optimisation of the corners did: trade, optimise_idle, bound.
#include <string>
#include <vector>

#include "quality/findings/figures.h"
#include "quality/findings/plane_lists.h"
#include "quality/findings/rows.h"
#include "quality/findings/wording.h"

namespace kestrane::quality {
namespace {

using Planes = std::vector<std::int32_t>;

// Seams that were small beside the residuals no longer are.
bool traded(const PlaneFigures& plane) {
  const OptimisationFigures& without = plane.optimisation;
  return plane.median_seam > without.median_seam_without &&
         plane.median_seam > 0.5 * without.rms_without;
}

}  // namespace

Finding trade_row(const FactoryResult& result) {
  const Planes planes = planes_where(result, traded);
  const Extreme worst =
      largest(result, [](const PlaneFigures& plane) { return plane.median_seam; });
  Finding finding{planes.empty() ? Level::kOk : Level::kWarn, "trade", {}, {}};
  finding.figures =
      figures_of({{"planes", planes.size()}, {"median_seam", worst.value}, {"plane", worst.plane}});
  if (worst.plane >= 0) {
    const PlaneFigures& plane = result.planes[static_cast<std::size_t>(worst.plane)];
    finding.figures.push_back({"median_seam_without", plane.optimisation.median_seam_without});
    finding.figures.push_back({"rms", plane.residuals.rms});
    finding.figures.push_back({"rms_without", plane.optimisation.rms_without});
    finding.text = "plane " + std::to_string(worst.plane) + ": RMS from " +
                   length_text(plane.optimisation.rms_without) + " to " +
                   length_text(plane.residuals.rms) + ", median step between blocks from " +
                   length_text(plane.optimisation.median_seam_without) + " to " +
                   length_text(worst.value);
  } else {
    finding.text = "no steps between measured blocks";
  }
  if (!planes.empty()) {
    finding.text = "the optimisation bought its residuals with steps between blocks on " +
                   planes_text(planes) + "; " + finding.text +
                   ": leave it off, or take more points";
  }
  return finding;
}

Finding optimise_idle_row(const FactoryResult& result) {
  const Planes planes = planes_where(
      result, [](const PlaneFigures& plane) { return plane.optimisation.largest_move == 0.0; });
  Finding finding{planes.empty() ? Level::kOk : Level::kWarn, "optimise_idle", {}, {}};
  finding.figures = figures_of({{"planes", planes.size()}});
  if (planes.empty()) {
    finding.text = "the optimisation moved corners on every plane";
  } else {
    finding.text = "on, but moved nothing: " + planes_text(planes) +
                   ": these planes are as without it; look for cells with points that lie on "
                   "their plane exactly or are not finite";
  }
  return finding;
}

Finding bound_row(const FactoryResult& result) {
  const Planes planes = planes_where(
      result, [](const PlaneFigures& plane) { return plane.optimisation.at_bound > 0; });
  std::int64_t corners = 0;
  for (const PlaneFigures& plane : result.planes) corners += plane.optimisation.at_bound;
  Finding finding{planes.empty() ? Level::kOk : Level::kWarn, "bound", {}, {}};
  finding.figures = figures_of({{"corners", corners}, {"planes", planes.size()}});
  if (planes.empty()) {
    finding.text = "no corner moved as far as the optimisation may";
  } else {
    finding.text = count_text(corners, "corner") +
                   " moved as far as the optimisation may, 0.5, on " + planes_text(planes) +
                   ": look at the outliers and the bow of these sheets";
  }
  return finding;
}

}  // namespace kestrane::quality
