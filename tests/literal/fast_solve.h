// The transform solve and the whole calibration once more: a lookup at each evaluation, a problem
// with default options, every stage in the order of its description. Six threads are asked for,
// lowered to two so that no line on standard error disturbs the output.
#pragma once

#include <algorithm>
#include <cmath>
#include <thread>

#include "ceres/ceres.h"
#include "ceres/rotation.h"
#include "tests/literal/fast_calibration.h"

namespace literal {

struct CellDistance {
  double x, y, z;
  const kestrane::_LASER_PLANE_BLOCK_INFOS* const* standard;
  std::int32_t plane;
  double weight;

  template <class T>
  bool operator()(const T* rotation, const T* translation, T* residual) const {
    using std::abs;
    const double p[3] = {x, y, z};
    double abc[3], n[3], axis_point[3];
    if (!literal::lookup_plane_cell(p, **standard, plane, abc, n, axis_point)) {
      residual[0] = T(10.0);
      return true;
    }
    const T n_in[3] = {T(n[0]), T(n[1]), T(n[2])};
    const T axis_point_in[3] = {T(axis_point[0]), T(axis_point[1]), T(axis_point[2])};
    T n_out[3], q[3];
    ceres::AngleAxisRotatePoint(rotation, n_in, n_out);
    ceres::AngleAxisRotatePoint(rotation, axis_point_in, q);
    q[0] += translation[0];
    q[1] += translation[1];
    q[2] += translation[2];
    residual[0] =
        abs(n_out[0] * (T(x) - q[0]) + n_out[1] * (T(y) - q[1]) + n_out[2] * (T(z) - q[2]));
    return true;
  }
};

struct SolveTimes {
  double construction = 0.0;
  double evaluation = 0.0;
  double linear_solve = 0.0;
  double total = 0.0;
};

// Moves the rotation and the translation from where they stand.
inline ceres::Solver::Summary solve_motion(const PointSets& points,
                                           const kestrane::_LASER_PLANE_BLOCK_INFOS* standard,
                                           int first_plane, int threads, double* rotation,
                                           double* translation) {
  ceres::Problem problem;
  auto* loss = new ceres::CauchyLoss(0.1);
  bool has_block = false;
  for (std::size_t i = 0; i < points.size(); ++i) {
    for (Eigen::Index j = 0; j < points[i].cols(); j += 2) {
      auto* functor = new CellDistance{points[i](0, j),
                                       points[i](1, j),
                                       points[i](2, j),
                                       &standard,
                                       first_plane + static_cast<int>(i),
                                       1.0};
      problem.AddResidualBlock(new ceres::AutoDiffCostFunction<CellDistance, 1, 3, 3>(functor),
                               loss, rotation, translation);
      has_block = true;
    }
  }
  if (!has_block) delete loss;
  ceres::Solver::Options options;
  options.minimizer_progress_to_stdout = false;
  options.max_num_iterations = 50;
  options.num_threads = threads;
  options.linear_solver_type = ceres::ITERATIVE_SCHUR;
  options.logging_type = ceres::SILENT;
  ceres::Solver::Summary summary;
  ceres::Solve(options, &problem, &summary);
  return summary;
}

inline bool solve_transform(const PointSets& points,
                            const kestrane::_LASER_PLANE_BLOCK_INFOS* standard, int first_plane,
                            _MRV_EXTRINSIC_PARAM& motion) {
  motion = identity();
  double rotation[3] = {0, 0, 0};
  double translation[3] = {0, 0, 0};
  const int threads =
      std::min(6, std::max(1, static_cast<int>(std::thread::hardware_concurrency())));
  if (!solve_motion(points, standard, first_plane, threads, rotation, translation)
           .IsSolutionUsable()) {
    return false;
  }
  const Eigen::Vector3d r(rotation[0], rotation[1], rotation[2]);
  const Eigen::Vector3d axis = r.squaredNorm() > 0.0 ? Eigen::Vector3d(r / r.norm()) : r;
  const Eigen::Matrix3d R = Eigen::AngleAxisd(r.norm(), axis).toRotationMatrix();
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) motion.R[3 * i + j] = R(i, j);
    motion.T[i] = translation[i];
  }
  return true;
}

// The whole calibration. False where the last solve gave nothing usable.
template <class Fit>
bool calib_Rt(const FrameLists& frames, const kestrane::_LASER_PLANE_BLOCK_INFOS& standard,
              int first_plane, Fit fit, _MRV_EXTRINSIC_PARAM& motion, Indicators& indicators) {
  FrameLists filtered;
  filter_point_by_frame(frames, standard, first_plane, filtered, indicators);
  PointSets points;
  divide_interior_planes(filtered, *standard.grids, fit, points);
  ResidualSets residuals(points.size());
  cal_residual(points, standard, first_plane, identity(), residuals, indicators);
  solve_transform(points, &standard, first_plane, motion);
  cal_residual(points, standard, first_plane, motion, residuals, indicators);
  PointSets kept;
  filter_point_by_residual(points, residuals, kept);
  const bool usable = solve_transform(kept, &standard, first_plane, motion);
  cal_residual(kept, standard, first_plane, motion, residuals, indicators);
  return usable;
}

}  // namespace literal
