// The cloud is cut into fan sectors, and each sector gets a plane.
//
// in    the whole cloud, the whole-plane fit, the sector borders
// out   per sector a plane in the form a, b, c, d, and the points that its fit kept
#pragma once

#include <cstddef>

#include "factory/plane_grid.h"

namespace kestrane {

// A sector with fewer points gets no fit of its own.
inline constexpr Eigen::Index kFewestSectorPoints = 200;

// Sorts every point into one of the 15 sectors between `fan_divider_normals`, in input order.
//
// laser_plane    whole-plane fit
// sector_clouds  replaced; one cloud a sector, without rows where no point fell
// fan_apex       where the direction (-1, 0, 0) from the origin meets the plane's distance; points
//                are sorted as seen from it
//
// A point below the lower border goes to sector 0. A point that lies below no border goes where the
// point before it went, the first one to sector 14; so do points that are not finite.
void split_points_by_fan_sector(const PlaneAbcd& laser_plane,
                                const FanDividers& fan_divider_normals, const PointMatrix3& points,
                                SectorClouds& sector_clouds, Eigen::Vector3d& fan_apex);

// Fits a plane to each sector of at least 200 points (all points of the sector count, also those
// outside the depth band) and lends the others a neighbour's plane.
//
// sector_planes  replaced; four zeros where no sector at all was fitted
// sector_points  replaced; the points that a sector's own fit kept, without rows where there was
//                none
void fit_sector_planes(_LASER_TYPE laser_type, const SectorClouds& sector_clouds,
                       SectorPlanes& sector_planes, SectorClouds& sector_points);

// Copies over every empty plane (all components at most 1e-12 in size) the nearest plane that came
// from a fit; on a tie the one at the higher index. Without any the planes stay empty.
void fill_empty_sector_planes(SectorPlanes& sector_planes);

// The nearest fitted plane below i. False, and `found` -1, where there is none.
bool find_previous_fitted_plane(const SectorPlanes& sector_planes, std::ptrdiff_t i,
                                std::ptrdiff_t& found);

// The nearest fitted plane above i. False, and `found` the number of planes, where there is none.
bool find_next_fitted_plane(const SectorPlanes& sector_planes, std::ptrdiff_t i,
                            std::ptrdiff_t& found);

}  // namespace kestrane
