#include "examples/field_yardstick.h"

#include <Eigen/Eigenvalues>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace examples {
namespace {

using PointMatrix = Eigen::Matrix<double, 3, -1>;
using Matrix6 = Eigen::Matrix<double, 6, 6>;
using Vector6 = Eigen::Matrix<double, 6, 1>;
using RotationMap = Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>;

constexpr double kFrameFactor = 1.5;  // times the running mean: from there on a frame is dropped
constexpr double kFarthest = 1.5;     // distance beyond which the last solve drops a point

PointMatrix matrix_of(const std::vector<_KESTRANE_ID_POINT3D>& points) {
  PointMatrix matrix(3, static_cast<Eigen::Index>(points.size()));
  for (std::size_t i = 0; i < points.size(); ++i) {
    matrix.col(static_cast<Eigen::Index>(i)) << points[i].x, points[i].y, points[i].z;
  }
  return matrix;
}

double mean_distance(kestrane::KestraneLaserFastCalibrator& engine,
                     const std::vector<_KESTRANE_ID_POINT3D>& points, std::int32_t plane) {
  const _MRV_EXTRINSIC_PARAM still = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
  std::vector<std::vector<double>> residuals(1);
  engine.cal_residual({matrix_of(points)}, plane, plane, still, residuals);
  double mean = 0.0;
  double max = 0.0;
  double deviation = 0.0;
  engine.get_calib_indicator(mean, max, deviation);
  return mean;
}

// Numbers of the first list, widened to 0; frames of later lists outside it are dropped unseen.
struct IdRange {
  std::int32_t least = 1410065408;
  std::int32_t most = 0;

  explicit IdRange(const std::vector<_KESTRANE_ID_POINT3D>& first) {
    for (const auto& point : first) {
      least = std::min(least, point.id);
      most = std::max(most, point.id);
    }
  }
  bool holds(std::int32_t id) const { return id >= least && id <= most; }
};

using FramesOfPlane = std::map<std::int32_t, std::vector<_KESTRANE_ID_POINT3D>>;

// Numbers of the frames that are dropped. The test is on the position in the list of frames while
// the frame's offset from the least number is remembered: the calibration does it so, and where
// numbers are missing it spares a frame now and then.
std::set<std::int64_t> dropped_offsets(const FramesOfPlane& by_frame,
                                       const std::vector<double>& means, double limit,
                                       std::int32_t least) {
  std::set<std::int64_t> dropped;
  std::int64_t position = 0;
  for (const auto& [id, points] : by_frame) {
    const double mean = means[static_cast<std::size_t>(position)];
    if (!(limit > mean) && !dropped.contains(position)) {
      dropped.insert(std::int64_t{id} - least);
    }
    ++position;
  }
  return dropped;
}

// The cell of (y, z), or null outside the table and for an empty one.
const kestrane::_LASER_TRIPLE* cell_at(const _MRV_LASER_PLANE_BLOCK_INFOS& standard,
                                       std::size_t plane, double y, double z) {
  const kestrane::_LASER_PLANE_GRIDS& grids = *standard.grids;
  const double depth = (z - grids.z_start) / grids.z_step;
  if (!(depth > -1.0 && depth < 50.0)) return nullptr;
  const auto k = static_cast<int>(depth);
  const double across = (y - grids.grid_y_start[k]) / grids.grid_y_step[k];
  if (!(across > -1.0 && across < 15.0)) return nullptr;
  const kestrane::_LASER_TRIPLE& cell =
      standard.planes[plane].block.lines[static_cast<int>(across)].cells[k];
  return cell.v[0] == 0.0 ? nullptr : &cell;
}

}  // namespace

_MRV_EXTRINSIC_PARAM extrinsic_of(const _MRV_TRANSFORM& transform) {
  const double* q = transform.quaternion;
  const Eigen::Matrix3d r = Eigen::Quaterniond(q[3], q[0], q[1], q[2]).toRotationMatrix();
  _MRV_EXTRINSIC_PARAM motion{};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) motion.R[3 * i + j] = r(i, j);
    motion.T[i] = transform.translation[i];
  }
  return motion;
}

Eigen::Vector3d rotation_of(const _MRV_EXTRINSIC_PARAM& motion) {
  const Eigen::AngleAxisd turn(Eigen::Matrix3d(RotationMap(motion.R)));
  return turn.angle() * turn.axis();
}

Kept frames_kept(kestrane::KestraneLaserFastCalibrator& engine, const FrameLists& frames) {
  Kept kept;
  if (frames.empty()) return kept;
  const IdRange range(frames[0]);
  double limit_base = 0.0;
  for (std::size_t p = 0; p < frames.size(); ++p) {
    FramesOfPlane by_frame;
    for (const auto& point : frames[p]) by_frame[point.id].push_back(point);
    kept.frames_in += static_cast<int>(by_frame.size());
    kept.frames_unknown += static_cast<int>(
        std::erase_if(by_frame, [&](const auto& entry) { return !range.holds(entry.first); }));
    std::vector<double> means;
    for (const auto& [id, points] : by_frame) {
      means.push_back(mean_distance(engine, points, static_cast<std::int32_t>(p)));
      limit_base += means.back();
    }
    limit_base /= static_cast<double>(means.size());
    const auto dropped = dropped_offsets(by_frame, means, kFrameFactor * limit_base, range.least);
    std::vector<_KESTRANE_ID_POINT3D> points;
    for (const auto& [id, frame] : by_frame) {
      if (dropped.contains(std::int64_t{id} - range.least)) continue;
      ++kept.frames;
      points.insert(points.end(), frame.begin(), frame.end());
    }
    kept.points.push_back(std::move(points));
  }
  return kept;
}

int points_of(const FrameLists& frames) {
  std::size_t count = 0;
  for (const auto& list : frames) count += list.size();
  return static_cast<int>(count);
}

int points_near(kestrane::KestraneLaserFastCalibrator& engine, const FrameLists& frames,
                const _MRV_EXTRINSIC_PARAM& motion) {
  std::vector<PointMatrix> matrices;
  for (const auto& list : frames) matrices.push_back(matrix_of(list));
  std::vector<std::vector<double>> residuals(matrices.size());
  engine.cal_residual(matrices, 0, static_cast<std::int32_t>(frames.size()) - 1, motion, residuals);
  int count = 0;
  for (const auto& row : residuals) {
    count += static_cast<int>(
        std::count_if(row.begin(), row.end(), [](double r) { return r <= kFarthest; }));
  }
  return count;
}

std::vector<MotionDirection> motion_directions(const _MRV_LASER_PLANE_BLOCK_INFOS& standard,
                                               const FrameLists& frames,
                                               const _MRV_EXTRINSIC_PARAM& motion) {
  Matrix6 normal_matrix = Matrix6::Zero();
  double squared_distance = 0.0;
  int count = 0;
  for (std::size_t f = 0; f < frames.size(); ++f) {
    for (const auto& point : frames[f]) {
      const kestrane::_LASER_TRIPLE* cell = cell_at(standard, f, point.y, point.z);
      const Eigen::Vector3d p(point.x, point.y, point.z);
      if (cell == nullptr || !p.allFinite()) continue;
      const Eigen::Vector3d n =
          RotationMap(motion.R) * Eigen::Vector3d(cell->v[0], cell->v[1], cell->v[2]).normalized();
      Vector6 row;
      row << p.cross(n), n;
      normal_matrix += row * row.transpose();
      squared_distance += p.squaredNorm();
      ++count;
    }
  }
  if (count == 0) return {};
  const double distance = std::sqrt(squared_distance / count);
  Vector6 unit;
  unit << Eigen::Vector3d::Constant(1.0 / distance), Eigen::Vector3d::Ones();
  const Matrix6 scaled = unit.asDiagonal() * normal_matrix * unit.asDiagonal();
  const Eigen::SelfAdjointEigenSolver<Matrix6> solver(scaled);
  std::vector<MotionDirection> directions;
  for (int i = 0; i < 6; ++i) {
    const Vector6 v = solver.eigenvectors().col(i);
    directions.push_back({v.head<3>(), v.tail<3>(),
                          std::max(0.0, solver.eigenvalues()[i]) / solver.eigenvalues()[5]});
  }
  return directions;
}

}  // namespace examples
