#include "factory/fan_sectors.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "factory/sorted_rows.h"
#include "fit/streamed_fit.h"
#include "records/shapes.h"

namespace kestrane {
namespace {

constexpr double kEmptyPlane = 1e-12;

bool is_empty(const PlaneAbcd& plane) {
  for (int i = 0; i < 4; ++i) {
    if (!(std::abs(plane[i]) <= kEmptyPlane)) return false;
  }
  return true;
}

Eigen::Vector3d apex_of(const PlaneAbcd& plane) {
  const double a = plane[0], b = plane[1], c = plane[2], d = plane[3];
  const double t = std::abs(d) / std::sqrt(a * a + b * b + c * c) / (-a);
  // Component by component: an infinite t makes y and z NaN, and then no border separates points.
  return {t * -1.0, t * 0.0, t * 0.0};
}

constexpr std::size_t kBorders = 16;

using Pair = double __attribute__((vector_size(16)));
using PairCount = std::int64_t __attribute__((vector_size(16)));

// The last components of the borders' normals (0, 1, -tangent), in descending order.
using BorderSlopes = std::array<Pair, kBorders / 2>;

BorderSlopes slopes_of(const FanDividers& normals) {
  BorderSlopes slopes;
  for (std::size_t k = 0; k < slopes.size(); ++k) {
    slopes[k] = Pair{normals[2 * k].z(), normals[2 * k + 1].z()};
  }
  return slopes;
}

// The first border that q lies below, or the number of borders: the first k whose product with q is
// negative. A product that is NaN is not.
//
// The products rise or fall steadily with the tangent, also after rounding: in front of the scanner
// the negative ones are the last ones, and counting the others finds the first of them; behind it
// they are the first ones, if there are any. Counting takes all borders, but side by side and
// without a branch that has to guess where a point lies.
std::size_t first_border_above(const BorderSlopes& slopes, const Eigen::Vector3d& q) {
  const double across = q.x() * 0.0 + q.y();  // NaN where x is infinite
  const double z = q.z();
  if (z < 0.0) return across + z * slopes[0][0] < 0.0 ? 0 : kBorders;
  PairCount below{};
  for (const Pair& two : slopes) below -= across + z * two < 0.0;  // a true lane is -1
  return kBorders - static_cast<std::size_t>(below[0] + below[1]);
}

}  // namespace

void split_points_by_fan_sector(const PlaneAbcd& laser_plane,
                                const FanDividers& fan_divider_normals, const PointMatrix3& points,
                                SectorClouds& sector_clouds, Eigen::Vector3d& fan_apex) {
  fan_apex = apex_of(laser_plane);
  constexpr std::size_t sectors = kBorders - 1;
  std::vector<std::uint8_t> sector_of(static_cast<std::size_t>(points.rows()));
  std::vector<Eigen::Index> sector_sizes(sectors, 0);
  const BorderSlopes slopes = slopes_of(fan_divider_normals);
  std::size_t running = sectors - 1;
  for (std::size_t i = 0; i < sector_of.size(); ++i) {
    const Eigen::Vector3d q = points.row(static_cast<Eigen::Index>(i)).transpose() - fan_apex;
    const std::size_t border = first_border_above(slopes, q);
    if (border < kBorders) running = border == 0 ? 0 : border - 1;
    sector_of[i] = static_cast<std::uint8_t>(running);
    ++sector_sizes[running];
  }
  sector_clouds = sorted_rows(points, sector_of, sector_sizes);
}

void fit_sector_planes(_LASER_TYPE laser_type, const SectorClouds& sector_clouds,
                       SectorPlanes& sector_planes, SectorClouds& sector_points) {
  sector_planes.assign(sector_clouds.size(), PlaneAbcd::Zero());
  sector_points.assign(sector_clouds.size(), PointMatrix3(0, 3));
  const DepthBand depth_band = depth_band_of(laser_type);
  for (std::size_t s = 0; s < sector_clouds.size(); ++s) {
    if (sector_clouds[s].rows() < kFewestSectorPoints) continue;
    RobustFit robust = fit_in_band(sector_clouds[s], depth_band, Wanted::kAll);
    if (!robust.complete) continue;
    sector_planes[s] = robust.fit->plane;
    sector_points[s] = std::move(robust.inliers);
  }
  fill_empty_sector_planes(sector_planes);
}

bool find_previous_fitted_plane(const SectorPlanes& sector_planes, std::ptrdiff_t i,
                                std::ptrdiff_t& found) {
  found = -1;
  for (std::ptrdiff_t l = i - 1; l >= 0; --l) {
    if (is_empty(sector_planes[static_cast<std::size_t>(l)])) continue;
    found = l;
    return true;
  }
  return false;
}

bool find_next_fitted_plane(const SectorPlanes& sector_planes, std::ptrdiff_t i,
                            std::ptrdiff_t& found) {
  const auto count = static_cast<std::ptrdiff_t>(sector_planes.size());
  found = count;
  for (std::ptrdiff_t r = i + 1; r < count; ++r) {
    if (is_empty(sector_planes[static_cast<std::size_t>(r)])) continue;
    found = r;
    return true;
  }
  return false;
}

void fill_empty_sector_planes(SectorPlanes& sector_planes) {
  // All sources are chosen before any plane changes: a borrowed plane is never lent on.
  std::vector<std::pair<std::ptrdiff_t, std::ptrdiff_t>> loans;
  for (std::ptrdiff_t i = 0; i < static_cast<std::ptrdiff_t>(sector_planes.size()); ++i) {
    if (!is_empty(sector_planes[static_cast<std::size_t>(i)])) continue;
    std::ptrdiff_t l = 0;
    std::ptrdiff_t r = 0;
    const bool before = find_previous_fitted_plane(sector_planes, i, l);
    const bool after = find_next_fitted_plane(sector_planes, i, r);
    if (before && (!after || i - l < r - i)) {
      loans.emplace_back(i, l);
    } else if (after) {
      loans.emplace_back(i, r);
    }
  }
  for (const auto& [i, source] : loans) {
    sector_planes[static_cast<std::size_t>(i)] = sector_planes[static_cast<std::size_t>(source)];
  }
}

}  // namespace kestrane
