#include "quality/refinement/samples.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "records/fan.h"

namespace kestrane::quality::refinement {
namespace {

constexpr double kMarginU = 0.02;  // beyond the fan's edge: the blocks of a table end there

bool is_finite(const _KESTRANE_ID_POINT3D& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

bool is_inside(const _KESTRANE_ID_POINT3D& p, const RefinementSettings& settings) {
  return p.z >= settings.depth_near && p.z <= settings.depth_far &&
         std::abs(p.y) <= (kMostU + kMarginU) * p.z;
}

std::int16_t block_of(const _LASER_PLANE_GRIDS& grids, double y, double z) {
  const auto at = find_cell(grids, y, z);
  return static_cast<std::int16_t>(at ? kBlocks.cells * at->line + at->cell : -1);
}

std::int16_t cell_of(const FanNodes& nodes, double y, double z) {
  return static_cast<std::int16_t>((kAcross - 1) * interval_along(z) +
                                   interval_across(nodes, y / z));
}

// Replaces ids by their ranks, ascending.
void rank_frames(Samples& samples) {
  std::vector<std::int32_t> ids;
  ids.reserve(samples.points.size());
  for (const Sample& sample : samples.points) ids.push_back(sample.frame);
  std::sort(ids.begin(), ids.end());
  samples.frames.assign(ids.begin(), std::unique(ids.begin(), ids.end()));
  for (Sample& sample : samples.points) {
    const auto at = std::lower_bound(samples.frames.begin(), samples.frames.end(), sample.frame);
    sample.frame = static_cast<std::int32_t>(at - samples.frames.begin());
  }
}

}  // namespace

Samples usable_samples(const FanNodes& nodes, _KESTRANE_ID_POINT3DS points,
                       const RefinementSettings& settings) {
  _LASER_PLANE_GRIDS grids = {};
  fill_grids(grids);
  Samples samples;
  samples.points.reserve(static_cast<std::size_t>(points.count));
  for (std::int32_t n = 0; n < points.count; ++n) {
    const _KESTRANE_ID_POINT3D& p = points.points[n];
    if (!is_finite(p)) {
      ++samples.not_finite;
    } else if (!is_inside(p, settings)) {
      ++samples.outside;
    } else {
      samples.points.push_back(
          {p.x, p.y, p.z, p.id, cell_of(nodes, p.y, p.z), block_of(grids, p.y, p.z)});
    }
  }
  // Equal in all five means equal points: whatever order they came in, the sorted list is the same.
  std::sort(samples.points.begin(), samples.points.end(), [](const Sample& a, const Sample& b) {
    return std::tie(a.cell, a.z, a.y, a.x, a.frame) < std::tie(b.cell, b.z, b.y, b.x, b.frame);
  });
  if (!settings.frames) {
    std::int32_t rank = 0;
    for (Sample& sample : samples.points) sample.frame = rank++;
  }
  rank_frames(samples);
  return samples;
}

std::vector<Stencil> stencils_of(const FanNodes& nodes, const std::vector<Sample>& samples) {
  std::vector<Stencil> stencils;
  stencils.reserve(samples.size());
  for (const Sample& sample : samples)
    stencils.push_back(
        stencil_of(weights_across(nodes, sample.y / sample.z), weights_along(nodes, sample.z)));
  return stencils;
}

}  // namespace kestrane::quality::refinement
