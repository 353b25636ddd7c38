// The choice of points for a device with coefficients once more: a map of frames, lists that grow
// point by point, one vector per frame.
#pragma once

#include <Eigen/Core>
#include <cmath>
#include <unordered_map>
#include <vector>

#include "tests/literal/fast_solve.h"

namespace literal {

// Whether a frame crosses the plane: counted point by point.
inline bool crosses(const std::vector<Eigen::Vector3d>& frame, const double* plane) {
  const double s = plane[3] + 2.220446049250313e-16;
  double p = plane[0] / s, q = plane[1] / s, t = plane[2] / s, k = 1.0;
  if (0.0 > p) {
    p = -p;
    q = -q;
    t = -t;
    k = -1.0;
  }
  const double w = 1.0 / std::sqrt(t * t + (p * p + q * q));
  double above = 0, below = 0, near = 0;
  for (const Eigen::Vector3d& point : frame) {
    const double distance = (t * point.z() + (p * point.x() + q * point.y()) + k) * w;
    (distance < 0.0 ? below : above) += 1;
    if (-3.0 < distance && distance < 3.0) near += 1;
  }
  const double n = above + below;
  return above / n > 0.05 && below / n > 0.05 && near / n > 0.5;
}

// `fit(cloud, plane)` fits in the band; false where it fails.
template <class Fit>
bool collect_plane_points(const FrameLists& frames, Fit fit, PointSets& points) {
  using Cloud = Eigen::Matrix<double, Eigen::Dynamic, 3, Eigen::RowMajor>;
  for (const std::vector<_KESTRANE_ID_POINT3D>& list : frames) {
    std::unordered_map<int, int> known;
    std::vector<std::vector<Eigen::Vector3d>> groups;
    std::vector<Eigen::Vector3d> deep;
    for (const _KESTRANE_ID_POINT3D& point : list) {
      const auto group = static_cast<std::size_t>(
          known.emplace(point.id, static_cast<int>(known.size())).first->second);
      if (group == groups.size()) groups.emplace_back();
      groups[group].push_back({point.x, point.y, point.z});
      if (point.z > 200.0) deep.push_back({point.x, point.y, point.z});
    }
    Cloud cloud(static_cast<Eigen::Index>(deep.size()), 3);
    for (std::size_t i = 0; i < deep.size(); ++i) {
      cloud.row(static_cast<Eigen::Index>(i)) = deep[i].transpose();
    }
    double plane[4] = {0.0, 0.0, 0.0, 0.0};
    if (!fit(cloud, plane)) return false;
    Eigen::Matrix<double, 3, Eigen::Dynamic> kept(3, 0);
    for (const std::vector<Eigen::Vector3d>& group : groups) {
      if (!crosses(group, plane)) continue;
      Eigen::Index next = kept.cols();
      kept.conservativeResize(3, next + static_cast<Eigen::Index>(group.size()));
      for (const Eigen::Vector3d& point : group) kept.col(next++) = point;
    }
    if (kept.cols() == 0) return false;
    points.push_back(kept);
  }
  return true;
}

}  // namespace literal
