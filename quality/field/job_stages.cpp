#include "quality/field/job_stages.h"

#include <cstddef>

#include "fast/frame_filter.h"
#include "fast/interior_planes.h"
#include "fast/point_sets.h"
#include "fast/residual_measurement.h"

namespace kestrane::quality {
namespace {

constexpr double kFarthest = 1.5;  // beyond it the job's last solve takes no point

bool is_at(const _KESTRANE_ID_POINT3D& point, const double* place) {
  return point.x == place[0] && point.y == place[1] && point.z == place[2];
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

// The interior planes hand on one zone after the other, each in the order of the list: the search
// goes on where it stopped, and begins anew about once per zone.
PointList recognise(const PointList& list, const PlanePoints& points) {
  std::vector<bool> taken(list.size(), false);
  PointList found;
  found.reserve(static_cast<std::size_t>(points.cols()));
  std::size_t next = 0;
  for (Eigen::Index i = 0; i < points.cols(); ++i) {
    for (std::size_t seen = 0; seen < list.size(); ++seen) {
      const std::size_t place = next;
      next = next + 1 < list.size() ? next + 1 : 0;
      if (taken[place] || !is_at(list[place], &points(0, i))) continue;
      taken[place] = true;
      found.push_back(list[place]);
      break;
    }
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
