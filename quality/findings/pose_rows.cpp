// The rows on capture frames and on what no frame has measured: borrowed, poses_off, pose_noise.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "quality/findings/figures.h"
#include "quality/findings/plane_lists.h"
#include "quality/findings/rows.h"
#include "quality/findings/wording.h"

namespace kestrane::quality {
namespace {

using Planes = std::vector<std::int32_t>;

const PlaneFigures& plane_at(const FactoryResult& result, std::int32_t plane) {
  return result.planes[static_cast<std::size_t>(plane)];
}

std::vector<std::int32_t> frames_off(const PlaneFigures& plane) {
  std::vector<std::int32_t> frames;
  for (const PoseFigures& pose : plane.poses) {
    if (pose.off) frames.push_back(pose.frame);
  }
  return frames;
}

// The two frames whose medians lie farthest from the plane's, ascending.
std::vector<std::int32_t> farthest_frames(const PlaneFigures& plane) {
  std::vector<std::pair<double, std::int32_t>> ranks;  // farthest first, then by frame number
  for (const PoseFigures& pose : plane.poses) {
    const double away = std::abs(pose.median - plane.median);
    if (!std::isnan(away)) ranks.emplace_back(-away, pose.frame);
  }
  std::sort(ranks.begin(), ranks.end());
  ranks.resize(std::min<std::size_t>(ranks.size(), 2));
  std::vector<std::int32_t> frames;
  frames.reserve(ranks.size());
  for (const auto& rank : ranks) frames.push_back(rank.second);
  std::sort(frames.begin(), frames.end());
  return frames;
}

// "plane 0 frames 0, 7; plane 1 frames 0, 17".
std::string places_text(const FactoryResult& result, const Planes& planes,
                        std::vector<std::int32_t> (*frames_of)(const PlaneFigures& plane)) {
  std::vector<std::string> places;
  places.reserve(planes.size());
  for (const std::int32_t p : planes) {
    places.push_back(frames_text(p, frames_of(plane_at(result, p))));
  }
  return phrases_text(places);
}

double share_off(const PlaneFigures& plane) {
  if (plane.poses.empty()) return 0.0;
  return real_of(frames_off(plane).size()) / real_of(plane.poses.size());
}

bool differs_by_pose(const PlaneFigures& plane) { return plane.between_poses > plane.within_poses; }

// Root of the mean square over the planes where the figure is determined.
double mean_over_planes(const FactoryResult& result, FigureOf figure_of) {
  double squares = 0.0;
  double count = 0.0;
  for (const PlaneFigures& plane : result.planes) {
    const double value = figure_of(plane);
    if (std::isnan(value)) continue;
    squares += value * value;
    count += 1.0;
  }
  return std::sqrt(squares / count);
}

}  // namespace

Finding borrowed_row(const FactoryResult& result) {
  const Planes planes =
      planes_where(result, [](const PlaneFigures& plane) { return plane.borrowed_in_volume; });
  Finding finding{planes.empty() ? Level::kOk : Level::kWarn, "borrowed", {}, {}};
  finding.figures = figures_of({{"planes", planes.size()}});
  if (planes.empty()) {
    finding.text = "no borrowed sector reaches into the working volume";
  } else {
    finding.text = "sectors without points of their own reach into the working volume on " +
                   planes_text(planes) + ": measure the whole fan there, or narrow the volume";
  }
  return finding;
}

Finding poses_off_row(const FactoryResult& result) {
  constexpr double kMostOff = 0.25;
  const Planes planes =
      planes_where(result, [](const PlaneFigures& plane) { return share_off(plane) > 0.0; });
  const Extreme worst = largest(result, share_off);
  std::size_t off = 0;
  for (const std::int32_t p : planes) off += frames_off(plane_at(result, p)).size();
  Finding finding{Level::kOk, "poses_off", "no frame is off", {}};
  finding.figures =
      figures_of({{"frames", off}, {"largest_share", worst.value}, {"plane", worst.plane}});
  if (off == 0) return finding;
  finding.text = count_text(static_cast<std::int64_t>(off), "frame") +
                 " off by more than 4 sigma: " + places_text(result, planes, frames_off);
  if (worst.value > kMostOff) {
    finding.level = Level::kBad;
    finding.text += ": more than a quarter of the frames of plane " + std::to_string(worst.plane) +
                    ", measure it anew";
  } else {
    finding.level = Level::kWarn;
    finding.text += ": repeat or leave out these poses";
  }
  return finding;
}

Finding pose_noise_row(const FactoryResult& result) {
  const Planes planes = planes_where(result, differs_by_pose);
  const double between =
      mean_over_planes(result, [](const PlaneFigures& plane) { return plane.between_poses; });
  const double within =
      mean_over_planes(result, [](const PlaneFigures& plane) { return plane.within_poses; });
  Finding finding{Level::kOk, "pose_noise", {}, {}};
  finding.figures =
      figures_of({{"planes", planes.size()}, {"between", between}, {"within", within}});
  const std::string figures =
      length_text(between) + " between poses, " + length_text(within) + " within";
  if (2 * planes.size() > count_tables(result)) {
    finding.level = Level::kWarn;
    finding.text = "the error is per pose, not per point: " + figures +
                   "; farthest: " + places_text(result, planes, farthest_frames) +
                   ": more poses help, more points do not";
  } else {
    finding.text = figures;
  }
  return finding;
}

}  // namespace kestrane::quality
