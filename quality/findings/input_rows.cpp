// The rows on what went in and which planes came out: planes, screened, frames.
#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "quality/findings/figures.h"
#include "quality/findings/plane_lists.h"
#include "quality/findings/rows.h"
#include "quality/findings/wording.h"

namespace kestrane::quality {
namespace {

constexpr double kMostScreened = 0.05;  // share of a plane's points
constexpr std::size_t kFewestFrames = 8;

std::vector<std::int32_t> planes_without_table(const FactoryResult& result) {
  std::vector<std::int32_t> planes;
  for (std::size_t p = 0; p < result.planes.size(); ++p) {
    if (!has_table(result.planes[p])) planes.push_back(static_cast<std::int32_t>(p));
  }
  return planes;
}

bool has_gap(const PlaneFigures& plane) {
  return std::any_of(plane.blocks.begin(), plane.blocks.end(),
                     [](const BlockFigures& block) { return block.origin == Origin::kEmpty; });
}

std::string reasons_text(const FactoryResult& result, const std::vector<std::int32_t>& planes) {
  std::vector<std::string> phrases;
  phrases.reserve(planes.size());
  for (const std::int32_t p : planes) {
    phrases.push_back("plane " + std::to_string(p) + ": " +
                      result.planes[static_cast<std::size_t>(p)].reason);
  }
  return phrases_text(phrases);
}

double screened_share(const PlaneFigures& plane) {
  if (plane.screening.points == 0) return 0.0;
  return static_cast<double>(plane.screening.dropped.screened()) /
         static_cast<double>(plane.screening.points);
}

DropCounts dropped_of(const FactoryResult& result) {
  DropCounts all;
  for (const PlaneFigures& plane : result.planes) {
    all.not_finite += plane.screening.dropped.not_finite;
    all.gross += plane.screening.dropped.gross;
    all.depth += plane.screening.dropped.depth;
  }
  return all;
}

// The plane that lost the largest share, whether it has a table or not.
Extreme most_screened(const FactoryResult& result) {
  Extreme worst{0, 0.0};
  for (std::size_t p = 0; p < result.planes.size(); ++p) {
    const double share = screened_share(result.planes[p]);
    if (share > worst.value) worst = {static_cast<std::int32_t>(p), share};
  }
  return worst;
}

}  // namespace

Finding planes_row(const FactoryResult& result) {
  Finding finding{Level::kBad, "planes", {}, {}};
  const std::vector<std::int32_t> missing = planes_without_table(result);
  const std::vector<std::int32_t> gaps = planes_where(result, has_gap);
  finding.figures = figures_of(
      {{"planes", result.planes.size()}, {"failed", missing.size()}, {"with_gaps", gaps.size()}});
  if (!result.refused.empty()) {
    finding.text = result.refused + ": nothing was calibrated";
  } else if (!missing.empty()) {
    finding.text = "no table for " + planes_text(missing) + " (" + reasons_text(result, missing) +
                   "): measure these planes anew";
  } else if (!gaps.empty()) {
    finding.text = planes_text(gaps) +
                   " with blocks that have no plane: measure anew, and let the "
                   "points be screened";
  } else {
    finding.level = Level::kOk;
    finding.text = "all of " +
                   count_text(static_cast<std::int64_t>(result.planes.size()), "plane") +
                   " calibrated";
  }
  return finding;
}

Finding screened_row(const FactoryResult& result) {
  const DropCounts dropped = dropped_of(result);
  const Extreme worst = most_screened(result);
  Finding finding{Level::kOk, "screened", "no point had to be taken out", {}};
  finding.figures = figures_of({{"points", dropped.screened()},
                                {"not_finite", dropped.not_finite},
                                {"gross", dropped.gross},
                                {"largest_share", worst.value},
                                {"plane", worst.plane}});
  if (!result.settings.screen) finding.text = "not asked for: the job got every point as it is";
  if (dropped.screened() == 0) return finding;
  const bool many = worst.value > kMostScreened;
  finding.level = many ? Level::kBad : Level::kWarn;
  finding.text = count_text(dropped.screened(), "point") + " taken out (" +
                 std::to_string(dropped.not_finite) + " not finite, " +
                 std::to_string(dropped.gross) + " gross), most on plane " +
                 std::to_string(worst.plane) + ": " + share_text(worst.value) +
                 (many ? " of its points: find out where they come from and measure it anew"
                       : " of its points: look for reflections and dropouts");
  return finding;
}

Finding frames_row(const FactoryResult& result) {
  const Extreme fewest =
      smallest(result, [](const PlaneFigures& plane) { return real_of(plane.poses.size()); });
  Finding finding{Level::kOk, "frames", {}, {}};
  finding.figures = figures_of({{"fewest", fewest.value}, {"plane", fewest.plane}});
  const std::vector<std::int32_t> few = planes_where(
      result, [](const PlaneFigures& plane) { return plane.poses.size() < kFewestFrames; });
  const std::vector<std::int32_t> single =
      planes_where(result, [](const PlaneFigures& plane) { return plane.poses.size() < 2; });
  if (few.empty()) {
    finding.text = "at least " + std::to_string(static_cast<std::int64_t>(fewest.value)) +
                   " frames on every plane";
    return finding;
  }
  finding.level = Level::kWarn;
  if (single.size() == count_tables(result)) {
    finding.text = "no frame numbers: poses cannot be judged; number the points by frame";
  } else {
    finding.text =
        "fewer than " + std::to_string(kFewestFrames) + " frames on " + planes_text(few) + ", " +
        std::to_string(static_cast<std::int64_t>(fewest.value)) + " at the least: take more poses";
  }
  return finding;
}

}  // namespace kestrane::quality
