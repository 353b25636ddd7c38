#include "fast/crossing_frames.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <unordered_map>

#include "fast/field_depths.h"
#include "fit/plane_fit.h"
#include "fit/streamed_fit.h"

namespace kestrane {
namespace {

constexpr double kFitDeeperThan = 200.0;

constexpr double kLeastShare = 0.05;     // of a frame's points on either side
constexpr double kLeastNearShare = 0.5;  // of a frame's points near the plane
constexpr double kNear = 3.0;            // in the unit of the points

PlanePoints matrix_of(const std::vector<_KESTRANE_ID_POINT3D>& list) {
  PlanePoints matrix(3, static_cast<Eigen::Index>(list.size()));
  Eigen::Index column = 0;
  for (const _KESTRANE_ID_POINT3D& point : list) matrix.col(column++) << point.x, point.y, point.z;
  return matrix;
}

std::vector<std::int32_t> ids_of(const std::vector<_KESTRANE_ID_POINT3D>& list) {
  std::vector<std::int32_t> ids;
  ids.reserve(list.size());
  for (const _KESTRANE_ID_POINT3D& point : list) ids.push_back(point.id);
  return ids;
}

PointMatrix3 points_to_fit(const PlanePoints& points) {
  const Eigen::Index count = (points.row(2).array() > kFitDeeperThan).count();
  PointMatrix3 cloud(count, 3);
  Eigen::Index row = 0;
  for (Eigen::Index j = 0; j < points.cols(); ++j) {
    if (points(2, j) > kFitDeeperThan) cloud.row(row++) = points.col(j).transpose();
  }
  return cloud;
}

// One cloud per ordinal, each in input order.
std::vector<PointMatrix3> group_by_frame(const PlanePoints& points,
                                         const std::vector<int>& ordinals) {
  const int largest = *std::max_element(ordinals.begin(), ordinals.end());
  std::vector<Eigen::Index> counts(static_cast<std::size_t>(largest) + 1, 0);
  for (const int ordinal : ordinals) ++counts[static_cast<std::size_t>(ordinal)];
  std::vector<PointMatrix3> groups(counts.size());
  for (std::size_t g = 0; g < groups.size(); ++g) {
    groups[g].resize(counts[g], 3);
    counts[g] = 0;
  }
  for (Eigen::Index j = 0; j < points.cols(); ++j) {
    const auto g = static_cast<std::size_t>(ordinals[static_cast<std::size_t>(j)]);
    groups[g].row(counts[g]++) = points.col(j).transpose();
  }
  return groups;
}

// A frame without points crosses nothing: its shares are not numbers.
bool crosses(const std::vector<double>& distances) {
  std::ptrdiff_t below = 0;
  std::ptrdiff_t near = 0;
  for (const double distance : distances) {
    if (distance < 0.0) ++below;
    if (distance > -kNear && distance < kNear) ++near;
  }
  const std::ptrdiff_t count = std::ssize(distances);
  const auto n = static_cast<double>(count);
  return static_cast<double>(count - below) / n > kLeastShare &&
         static_cast<double>(below) / n > kLeastShare &&
         static_cast<double>(near) / n > kLeastNearShare;
}

}  // namespace

void select_crossing_frames(const PlaneAbcd& plane, const std::vector<PointMatrix3>& groups,
                            PlanePoints& kept) {
  std::vector<const PointMatrix3*> accepted;
  std::vector<double> distances;
  Eigen::Index columns = kept.cols();
  for (const PointMatrix3& group : groups) {
    plane_signed_distances(group, plane, distances);
    if (!crosses(distances)) continue;
    accepted.push_back(&group);
    columns += group.rows();
  }
  Eigen::Index next = kept.cols();
  kept.conservativeResize(3, columns);
  for (const PointMatrix3* group : accepted) {
    kept.middleCols(next, group->rows()) = group->transpose();
    next += group->rows();
  }
}

void compact_frame_ids(const std::vector<std::int32_t>& ids, std::vector<int>& ordinals) {
  std::unordered_map<int, int> known;
  ordinals.clear();
  ordinals.reserve(ids.size());
  for (const std::int32_t id : ids) {
    ordinals.push_back(known.emplace(id, static_cast<int>(known.size())).first->second);
  }
}

bool select_plane_frames(const PlanePoints& list_points, const std::vector<int>& ordinals,
                         PlanePoints& kept, PlaneAbcd& plane) {
  const RobustFit robust = fit_in_band(points_to_fit(list_points), kFieldDepths, Wanted::kPlane);
  if (!robust.complete) return false;
  plane = robust.fit->plane;
  select_crossing_frames(plane, group_by_frame(list_points, ordinals), kept);
  return kept.cols() > 0;
}

bool collect_plane_points(const FrameLists& frames, PointSets& points) {
  std::vector<int> ordinals;
  for (const std::vector<_KESTRANE_ID_POINT3D>& list : frames) {
    compact_frame_ids(ids_of(list), ordinals);
    PlanePoints kept(3, 0);
    PlaneAbcd plane = PlaneAbcd::Zero();
    if (!select_plane_frames(matrix_of(list), ordinals, kept, plane)) return false;
    points.push_back(std::move(kept));
  }
  return true;
}

}  // namespace kestrane
