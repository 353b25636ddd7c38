#include "quality/factory/plane_points.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <optional>

#include "factory/plane_grid.h"
#include "quality/cells.h"
#include "records/fan.h"
#include "records/shapes.h"

namespace kestrane::quality {
namespace {

constexpr std::size_t kBlocksOfPlane = 750;

// A block's plane made ready for distances: scale = sign(a) / |(a, b, c)|, 0 without a plane.
struct Scales {
  std::array<double, kBlocksOfPlane> of_block;

  explicit Scales(CellsOfPlane cells) {
    for (std::size_t i = 0; i < kBlocksOfPlane; ++i) {
      of_block[i] = has_plane(cells[i]) ? scale_of(cells[i]) : 0.0;
    }
  }

  static double scale_of(const _LASER_TRIPLE& abc) {
    const double a = abc.v[0], b = abc.v[1], c = abc.v[2];
    return std::copysign(1.0, a) / std::sqrt(a * a + b * b + c * c);
  }
};

bool is_usable(const _KESTRANE_ID_POINT3D& point, FitBand band) {
  return std::isfinite(point.x) && std::isfinite(point.y) && point.z >= band.nearest &&
         point.z <= band.farthest;
}

}  // namespace

FitBand fit_band_of(_LASER_TYPE type) {
  const DepthBand band = depth_band_of(type);
  return {static_cast<double>(band.lowest), static_cast<double>(band.highest)};
}

std::vector<std::int32_t> frames_of(Cloud cloud) {
  std::vector<std::int32_t> frames;
  for (const _KESTRANE_ID_POINT3D& point : cloud) {
    if (frames.empty() || frames.back() != point.id) frames.push_back(point.id);
  }
  std::sort(frames.begin(), frames.end());
  frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
  return frames;
}

PlanePoints points_on_blocks(Cloud cloud, const std::vector<std::int32_t>& frames,
                             CellsOfPlane cells, const _LASER_PLANE_GRIDS& grids, FitBand band) {
  const Scales scales(cells);
  FrameRanks ranks(frames);
  PlanePoints points;
  points.residual.reserve(cloud.size());
  points.block.reserve(cloud.size());
  points.pose.reserve(cloud.size());
  for (const _KESTRANE_ID_POINT3D& point : cloud) {
    if (!is_usable(point, band)) continue;
    const std::optional<CellIndex> at = find_cell(grids, point.y, point.z);
    if (!at) continue;
    const auto block = static_cast<std::size_t>(at->line * kBlocks.cells + at->cell);
    const double scale = scales.of_block[block];
    if (scale == 0.0) continue;
    const double* abc = cells[block].v;
    points.residual.push_back(scale *
                              (abc[0] * point.x + abc[1] * point.y + abc[2] * point.z + 1.0));
    points.block.push_back(static_cast<std::uint16_t>(block));
    points.pose.push_back(ranks.of(point.id));
  }
  return points;
}

}  // namespace kestrane::quality
