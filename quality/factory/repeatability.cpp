#include "quality/factory/repeatability.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "quality/cells.h"

namespace kestrane::quality {
namespace {

constexpr std::size_t kFewestFrames = 4;

// The points of the frames whose rank is even (0) or odd (1).
std::vector<_KESTRANE_ID_POINT3D> half_of(Cloud cloud, const std::vector<std::int32_t>& frames,
                                          std::size_t odd) {
  FrameRanks ranks(frames);
  const auto belongs = [&](const auto& point) {
    return static_cast<std::size_t>(ranks.of(point.id)) % 2 == odd;
  };
  std::vector<_KESTRANE_ID_POINT3D> half;
  half.reserve(static_cast<std::size_t>(std::count_if(cloud.begin(), cloud.end(), belongs)));
  std::copy_if(cloud.begin(), cloud.end(), std::back_inserter(half), belongs);
  return half;
}

double root_mean_square(const std::vector<double>& values) {
  double squares = 0.0;
  double count = 0.0;
  for (const double value : values) {
    if (std::isnan(value)) continue;
    squares += value * value;
    count += 1.0;
  }
  return std::sqrt(squares / count);
}

}  // namespace

double half_distance(const _LASER_TRIPLE& whole, const _LASER_TRIPLE& even,
                     const _LASER_TRIPLE& odd, FanPlace middle) {
  const double a = whole.v[0], b = whole.v[1], c = whole.v[2];
  const double along_normal = std::abs(a) / std::sqrt(a * a + b * b + c * c);
  const double apart = plane_x(even, middle.y, middle.z) - plane_x(odd, middle.y, middle.z);
  return 0.5 * std::abs(apart) * along_normal;
}

Repeatability measure_repeatability(KESTRANE_LASER_FAC_CALIB& engine, Cloud cloud,
                                    const std::vector<std::int32_t>& frames, bool optimise,
                                    const PlaneTable& table, std::int32_t plane,
                                    const std::vector<Origin>& origins) {
  if (frames.size() < kFewestFrames) return {};
  const JobRun even = run_job(engine, half_of(cloud, frames, 0), optimise);
  if (!even.has_table()) return {};
  const JobRun odd = run_job(engine, half_of(cloud, frames, 1), optimise);
  if (!odd.has_table()) return {};
  const OwnSectors even_own = sectors_with_points(even.indicators);
  const OwnSectors odd_own = sectors_with_points(odd.indicators);

  Repeatability result;
  result.blocks.assign(origins.size(), kNotDetermined);
  for (std::size_t b = 0; b < origins.size(); ++b) {
    const Block at = block_at(b);
    const auto line = static_cast<std::size_t>(at.line);
    if (origins[b] != Origin::kMeasured || !even_own[line] || !odd_own[line]) continue;
    if (!has_plane(even.cells[b]) || !has_plane(odd.cells[b])) continue;
    result.blocks[b] =
        half_distance(table.cell(plane, at), even.cells[b], odd.cells[b], table.block_middle(at));
  }
  result.rms = root_mean_square(result.blocks);
  return result;
}

}  // namespace kestrane::quality
