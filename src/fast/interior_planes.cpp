#include "fast/interior_planes.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "fast/field_depths.h"
#include "fit/streamed_fit.h"
#include "records/fan.h"

namespace kestrane {
namespace {

constexpr std::size_t kZones = 3;
constexpr double kZoneOneFrom = 5.0;   // first table line of zone 1
constexpr double kZoneTwoFrom = 10.0;  // first table line of zone 2, which has no last one
constexpr std::uint8_t kNoZone = kZones;

constexpr double kFarthestFromZone = 2.0;  // in the unit of the points

// Compared as doubles: a line number is truncated toward zero, and a huge one has no integer.
std::uint8_t zone_of(const _LASER_PLANE_GRIDS& grids, const _KESTRANE_ID_POINT3D& point) {
  const std::optional<std::int32_t> k = depth_index(grids, point.z);
  if (!k) return kNoZone;
  const double line = fan_quotient(grids, *k, point.y);
  if (!(line > -1.0)) return kNoZone;
  if (line < kZoneOneFrom) return 0;
  return line < kZoneTwoFrom ? 1 : 2;
}

// The list's points, zone by zone.
std::array<PointMatrix3, kZones> split_into_zones(const std::vector<_KESTRANE_ID_POINT3D>& list,
                                                  const _LASER_PLANE_GRIDS& grids) {
  std::vector<std::uint8_t> zones(list.size());
  std::array<Eigen::Index, kZones + 1> counts{};
  for (std::size_t i = 0; i < list.size(); ++i) {
    zones[i] = zone_of(grids, list[i]);
    ++counts[zones[i]];
  }
  std::array<PointMatrix3, kZones> clouds;
  for (std::size_t zone = 0; zone < kZones; ++zone) clouds[zone].resize(counts[zone], 3);
  std::array<Eigen::Index, kZones> next{};
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (zones[i] == kNoZone) continue;
    clouds[zones[i]].row(next[zones[i]]++) << list[i].x, list[i].y, list[i].z;
  }
  return clouds;
}

// Where the fit fails before its first plane, the plane stays zero: every distance is 0/0.
PlaneAbcd fit_zone(const PointMatrix3& cloud) {
  const RobustFit robust = fit_in_band(cloud, kFieldDepths, Wanted::kPlane);
  return robust.fit ? robust.fit->plane : PlaneAbcd(PlaneAbcd::Zero());
}

// Written so that a distance that is not a number keeps its point.
void append_near_points(const PointMatrix3& cloud, const PlaneAbcd& plane, PlanePoints& kept,
                        Eigen::Index& count) {
  const double a = plane[0], b = plane[1], c = plane[2], d = plane[3];
  const double length = std::sqrt(a * a + b * b + c * c);
  for (Eigen::Index i = 0; i < cloud.rows(); ++i) {
    const double distance =
        std::abs(a * cloud(i, 0) + b * cloud(i, 1) + c * cloud(i, 2) + d) / length;
    if (distance > kFarthestFromZone) continue;
    kept.col(count++) = cloud.row(i).transpose();
  }
}

}  // namespace

PlanePoints interior_points(const std::vector<_KESTRANE_ID_POINT3D>& list,
                            const _LASER_PLANE_GRIDS& grids) {
  const std::array<PointMatrix3, kZones> clouds = split_into_zones(list, grids);
  PlanePoints kept(3, clouds[0].rows() + clouds[1].rows() + clouds[2].rows());
  Eigen::Index count = 0;
  for (const PointMatrix3& cloud : clouds) {
    append_near_points(cloud, fit_zone(cloud), kept, count);
  }
  kept.conservativeResize(3, count);
  return kept;
}

void divide_into_interior_planes(const FrameLists& filtered, const _LASER_PLANE_GRIDS& grids,
                                 PointSets& points) {
  for (const auto& list : filtered) points.push_back(interior_points(list, grids));
}

}  // namespace kestrane
