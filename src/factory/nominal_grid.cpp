#include "factory/nominal_grid.h"

#include <cmath>
#include <numbers>

#include "records/fan.h"
#include "records/shapes.h"

namespace kestrane {
namespace {

constexpr double kFanDegrees = 60.0;
constexpr double kSectorAngle = 0.06981317007977318;  // 4 degrees

}  // namespace

void build_nominal_grid(_LASER_PLANE_GRIDS& grids, NominalRays& rays) {
  fill_grids(grids);
  const double fan = kFanDegrees * std::numbers::pi / 180.0;
  const double half = fan * -0.5;
  const double angle_step = fan / static_cast<double>(kBlocks.lines);
  rays.assign(static_cast<std::size_t>(kCorners.lines), {});
  for (std::int32_t i = 0; i < kCorners.lines; ++i) {
    const double slope = std::tan(i * angle_step + half);
    auto& ray = rays[static_cast<std::size_t>(i)];
    ray.reserve(static_cast<std::size_t>(kCorners.cells));
    for (const double z : grids.grid_z) ray.push_back({slope * z, z});
  }
}

void build_fan_dividers(FanDividers& normals) {
  normals.clear();
  for (std::int32_t i = 0; i < kCorners.lines; ++i) {
    normals.emplace_back(0.0, 1.0, -std::tan(i * kSectorAngle - kHalfFan));
  }
}

}  // namespace kestrane
