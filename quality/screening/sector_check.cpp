#include "quality/screening/sector_check.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "factory/fan_sectors.h"
#include "factory/nominal_grid.h"
#include "records/shapes.h"

namespace kestrane::quality {
namespace {

// Fifteen sectors cannot share that many points without one of them being full.
constexpr auto kSurelyFull =
    static_cast<std::size_t>((kFewestSectorPoints - 1) * kBlocks.lines + 1);

PointMatrix3 matrix_of(const PointList& points) {
  PointMatrix3 matrix(static_cast<Eigen::Index>(points.size()), 3);
  for (std::size_t i = 0; i < points.size(); ++i)
    matrix.row(static_cast<Eigen::Index>(i)) << points[i].x, points[i].y, points[i].z;
  return matrix;
}

}  // namespace

bool has_full_sector(const PointList& points) {
  if (points.size() >= kSurelyFull) return true;
  FanDividers dividers;
  build_fan_dividers(dividers);
  SectorClouds sectors;
  Eigen::Vector3d apex;
  // Sectors are cut by y and z, which are the same seen from the apex of any plane.
  split_points_by_fan_sector(PlaneAbcd(1.0, 0.0, 0.0, -1.0), dividers, matrix_of(points), sectors,
                             apex);
  return std::any_of(std::begin(sectors), std::end(sectors), [](const PointMatrix3& sector) {
    return sector.rows() >= kFewestSectorPoints;
  });
}

}  // namespace kestrane::quality
