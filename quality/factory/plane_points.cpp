#include "quality/factory/plane_points.h"

#include <algorithm>
#include <cmath>

#include "factory/plane_grid.h"
#include "quality/cells.h"

namespace kestrane::quality {
namespace {

double scale_of(const _LASER_TRIPLE& abc) {
  if (!has_plane(abc)) return 0.0;
  const double a = abc.v[0], b = abc.v[1], c = abc.v[2];
  return std::copysign(1.0, a) / std::sqrt(a * a + b * b + c * c);
}

}  // namespace

FitBand fit_band_of(_LASER_TYPE type) {
  const DepthBand band = depth_band_of(type);
  return {static_cast<double>(band.lowest), static_cast<double>(band.highest)};
}

BlockResiduals::BlockResiduals(CellsOfPlane cells, const _LASER_PLANE_GRIDS& grids, FitBand band)
    : cells_(cells), grids_(grids), band_(band) {
  std::transform(cells.begin(), cells.end(), scales_.begin(), scale_of);
}

PlanePoints points_on_blocks(Cloud cloud, const std::vector<std::int32_t>& frames,
                             CellsOfPlane cells, const _LASER_PLANE_GRIDS& grids, FitBand band) {
  const BlockResiduals residuals(cells, grids, band);
  FrameRanks ranks(frames);
  PlanePoints points;
  points.residual.reserve(cloud.size());
  points.block.reserve(cloud.size());
  points.pose.reserve(cloud.size());
  for (const _KESTRANE_ID_POINT3D& point : cloud) {
    const auto measured = residuals.of(point);
    if (!measured) continue;
    points.residual.push_back(measured->residual);
    points.block.push_back(static_cast<std::uint16_t>(measured->block));
    points.pose.push_back(ranks.of(point.id));
  }
  return points;
}

}  // namespace kestrane::quality
