#include "quality/field/job_stages.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>

#include "fast/frame_filter.h"
#include "fast/interior_planes.h"
#include "fast/point_sets.h"
#include "fast/residual_measurement.h"

namespace kestrane::quality {
namespace {

constexpr double kFarthest = 1.5;  // beyond it the job's last solve takes no point

using Coordinates = std::array<double, 3>;

Coordinates coordinates_of(const _KESTRANE_ID_POINT3D& point) {
  return {point.x, point.y, point.z};
}

// The table's rows in the library's own form; lines and cells stay where they are.
class StandardView {
 public:
  explicit StandardView(const PlaneTable& table) {
    const _MRV_LASER_PLANE_BLOCK_INFOS record = table.record();
    rows_.resize(static_cast<std::size_t>(record.plane_count));
    for (std::size_t p = 0; p < rows_.size(); ++p) {
      rows_[p] = {};
      rows_[p].block = record.planes[p].block;
    }
    infos_ = {rows_.data(), record.grids, record.plane_count, record.plane_count};
  }
  StandardView(const StandardView&) = delete;
  StandardView& operator=(const StandardView&) = delete;

  const _LASER_PLANE_BLOCK_INFOS& infos() const { return infos_; }

 private:
  std::vector<_LASER_PLANE_BLOCK_INFO> rows_;
  _LASER_PLANE_BLOCK_INFOS infos_;
};

PointList near_points(const PointList& list, const std::vector<double>& distances) {
  PointList near;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (distances[i] <= kFarthest) near.push_back(list[i]);
  }
  return near;
}

}  // namespace

PointList recognise(const PointList& list, const PlanePoints& points) {
  std::vector<std::size_t> order(list.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return coordinates_of(list[a]) < coordinates_of(list[b]);
  });
  std::vector<std::size_t> taken(list.size(), 0);  // at the first of several equal points
  PointList found;
  found.reserve(static_cast<std::size_t>(points.cols()));
  for (Eigen::Index i = 0; i < points.cols(); ++i) {
    const Coordinates wanted = {points(0, i), points(1, i), points(2, i)};
    const auto first = std::lower_bound(
        order.begin(), order.end(), wanted,
        [&](std::size_t a, const Coordinates& b) { return coordinates_of(list[a]) < b; });
    const auto place = static_cast<std::size_t>(first - order.begin());
    found.push_back(list[order[place + taken[place]++]]);
  }
  return found;
}

JobStages run_job_stages(const std::vector<PointList>& lists, const PlaneTable& table,
                         std::int32_t first_plane, const RigidMotion& motion) {
  const StandardView standard(table);
  JobStages stages;
  filter_frames(lists, standard.infos(), first_plane, stages.filtered);
  PointSets points;
  divide_into_interior_planes(stages.filtered, table.grids(), points);
  ResidualSets distances(points.size());
  measure_residuals(points, standard.infos(), first_plane, record_of(motion), distances);
  for (std::size_t p = 0; p < points.size(); ++p) {
    stages.interior.push_back(recognise(stages.filtered[p], points[p]));
    stages.used.push_back(near_points(stages.interior[p], distances[p]));
  }
  return stages;
}

}  // namespace kestrane::quality
