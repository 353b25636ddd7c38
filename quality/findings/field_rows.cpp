// The rows on a field calibration: field_motion, direction, used.
#include <cmath>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "kestrane/quality/field.h"
#include "quality/findings/figures.h"
#include "quality/findings/rows.h"
#include "quality/findings/wording.h"

namespace kestrane::quality {
namespace {

bool is_weak(const MotionDirection& direction, const Limits& limits) {
  return direction.fixed && limits.rms && direction.sigma > *limits.rms / 3.0;
}

std::string sigma_text(double sigma) {
  if (std::isinf(sigma)) return "moves no sheet";
  return "sigma " + length_text(sigma);
}

// "shift along y (sigma 0.214)".
std::string direction_text(const MotionDirection& direction) {
  return direction.name + " (" + sigma_text(direction.sigma) + ")";
}

template <class Asked>
std::vector<std::string> directions_where(const FieldResult& result, const Asked& asked) {
  std::vector<std::string> texts;
  for (const MotionDirection& direction : result.directions) {
    if (asked(direction)) texts.push_back(direction_text(direction));
  }
  return texts;
}

// "plane 1 frame -3; plane 4 frames 0, 7", of the frames that were left out.
std::string dropped_text(const FieldUse& used) {
  std::vector<std::pair<std::int32_t, std::vector<std::int32_t>>> by_plane;
  for (const DroppedFrame& dropped : used.dropped) {
    if (by_plane.empty() || by_plane.back().first != dropped.plane)
      by_plane.emplace_back(dropped.plane, std::vector<std::int32_t>());
    by_plane.back().second.push_back(dropped.frame);
  }
  std::vector<std::string> places;
  places.reserve(by_plane.size());
  for (const auto& [plane, frames] : by_plane) places.push_back(frames_text(plane, frames));
  return phrases_text(places);
}

std::string share_of(std::int32_t part, std::int32_t whole, const char* what) {
  return std::to_string(part) + " of " + std::to_string(whole) + " " + what;
}

}  // namespace

Finding field_motion_row(const FieldResult& result, const Limits& limits) {
  constexpr double kSure = 3.0;  // sigma
  const Displacement& moved = result.displacement;
  Finding finding{Level::kOk, "field_motion", {}, {}};
  finding.figures = figures_of(
      {{"max", moved.max}, {"rms", moved.rms}, {"sigma", moved.sigma}, {"plane", moved.plane}});
  const std::string figures = "the sheets moved by " + length_text(moved.max) + " on plane " +
                              std::to_string(moved.plane) + ", RMS " + length_text(moved.rms) +
                              ", sigma " + length_text(moved.sigma);
  finding.text = figures;
  if (!result.sigma_holds_table) finding.text += " (errors of the stored table come on top)";
  if (!limits.field_motion) return finding;
  if (moved.max > *limits.field_motion) {
    finding.level = Level::kBad;
    finding.text +=
        ", more than " + length_text(*limits.field_motion) + ": calibrate at the factory anew";
  } else if (moved.max < kSure * moved.sigma) {
    finding.level = Level::kWarn;
    finding.text += ": no motion beyond noise, keep the table";
  }
  return finding;
}

Finding direction_row(const FieldResult& result, const Limits& limits) {
  const std::vector<std::string> loose =
      directions_where(result, [](const MotionDirection& d) { return !d.fixed; });
  const std::vector<std::string> weak =
      directions_where(result, [&](const MotionDirection& d) { return is_weak(d, limits); });
  Finding finding{Level::kOk, "direction", {}, {}};
  finding.figures = figures_of(
      {{"not_fixed", loose.size()}, {"weak", weak.size()}, {"frames", result.frame_clusters}});
  constexpr std::int32_t kFewestClusters = 8;
  if (result.frame_clusters < kFewestClusters) {
    finding.text =
        "too few frames to tell what is fixed: " + std::to_string(result.frame_clusters) +
        " used, 8 are needed";
  } else if (!loose.empty()) {
    finding.text = "not fixed: " + phrases_text(loose) + ": trust no figure along it";
  } else if (!weak.empty()) {
    finding.text = "weak: " + phrases_text(weak) + ": take more poses";
  } else {
    finding.text = "all directions are fixed";
  }
  const bool restricts = !loose.empty() || !weak.empty();
  if (limits.rms && restricts) finding.level = Level::kWarn;
  return finding;
}

Finding used_row(const FieldResult& result) {
  const StageCount& given = result.used.after(FieldStage::kGiven);
  const StageCount& used = result.used.after(FieldStage::kUsed);
  Finding finding{Level::kOk, "used", {}, {}};
  finding.figures = figures_of({{"planes", used.planes},
                                {"planes_given", given.planes},
                                {"frames", used.frames},
                                {"frames_given", given.frames},
                                {"points", used.points},
                                {"points_given", given.points}});
  if (!result.refused.empty()) {
    finding.level = Level::kBad;
    finding.text = result.refused + ": no motion was found";
    return finding;
  }
  finding.text = share_of(used.planes, given.planes, "planes") + " and " +
                 share_of(used.frames, given.frames, "frames") + " took part";
  if (2 * used.planes < given.planes || 2 * used.frames < given.frames) {
    finding.level = Level::kBad;
    finding.text += ", fewer than half: check that table, plane numbers and points belong together";
  } else if (!result.used.dropped.empty()) {
    finding.level = Level::kWarn;
    finding.text += "; left out: " + dropped_text(result.used) + ": look at these poses";
  }
  return finding;
}

Judgement judge(const FieldResult& result, const Limits& limits) {
  if (!result.refused.empty()) return conclude({used_row(result)}, limits);
  std::vector<Finding> findings;
  findings.push_back(field_motion_row(result, limits));
  findings.push_back(direction_row(result, limits));
  findings.push_back(used_row(result));
  return conclude(std::move(findings), limits);
}

}  // namespace kestrane::quality
