#include "fast/transform_solve.h"

#include <Eigen/Geometry>
#include <exception>
#include <iostream>
#include <string>

#include "solver/quiet_solve.h"

namespace kestrane {
namespace {

constexpr double kWeight = 1.0;
constexpr int kMostIterations = 50;

// Up to so many points of a problem have a residual block each: it costs little there.
constexpr Eigen::Index kMostSingleBlocks = 4096;

Eigen::Index block_count(const PointSets& points) {
  Eigen::Index count = 0;
  for (const PlanePoints& set : points) count += (set.cols() + 1) / 2;
  return count;
}

ceres::Solver::Options solver_options() {
  ceres::Solver::Options options;
  options.max_num_iterations = kMostIterations;
  options.linear_solver_type = ceres::ITERATIVE_SCHUR;
  return options;
}

ceres::Solver::Summary solve_block_by_block(const PointSets& points,
                                            const _LASER_PLANE_BLOCK_INFOS* const* standard,
                                            std::int32_t first_plane, double* rotation,
                                            double* translation) {
  ResidualParts parts;
  ceres::Problem problem(borrowed_parts());
  add_residual_blocks(problem, parts, points, standard, first_plane, rotation, translation);
  return solve_quietly(solver_options(), problem);
}

ceres::Solver::Summary solve_as_one_block(MotionCost& cost, double* rotation, double* translation) {
  SumOfLosses loss(cost);
  ceres::Problem problem(borrowed_parts());
  problem.AddResidualBlock(&cost, &loss, rotation, translation);
  return solve_quietly(solver_options(), problem);
}

Eigen::Matrix3d rotation_matrix(const Eigen::Vector3d& rotation) {
  const double angle = rotation.norm();
  const Eigen::Vector3d axis =
      rotation.squaredNorm() > 0.0 ? Eigen::Vector3d(rotation / angle) : rotation;
  return Eigen::AngleAxisd(angle, axis).toRotationMatrix();
}

// A host may have asked its streams to throw, and standard output may be full or closed: neither is
// a reason to lose a calibration.
void print_line(const std::string& line) {
  try {
    std::cout << line << std::endl;
  } catch (const std::exception&) {
    // The stream keeps its bad state, for the host to see.
  }
}

}  // namespace

void add_residual_blocks(ceres::Problem& problem, ResidualParts& parts, const PointSets& points,
                         const _LASER_PLANE_BLOCK_INFOS* const* standard, std::int32_t first_plane,
                         double* rotation, double* translation) {
  for (std::size_t i = 0; i < points.size(); ++i) {
    const std::int32_t plane = first_plane + static_cast<std::int32_t>(i);
    for (Eigen::Index j = 0; j < points[i].cols(); j += 2) {
      parts.functors.push_back(
          {points[i](0, j), points[i](1, j), points[i](2, j), standard, plane, kWeight});
      PointCost& cost =
          parts.costs.emplace_back(&parts.functors.back(), ceres::DO_NOT_TAKE_OWNERSHIP);
      problem.AddResidualBlock(&cost, &parts.loss, rotation, translation);
    }
  }
}

ceres::Solver::Summary solve_motion(const PointSets& points,
                                    const _LASER_PLANE_BLOCK_INFOS* const* standard,
                                    std::int32_t first_plane, double* rotation,
                                    double* translation) {
  if (block_count(points) > kMostSingleBlocks) {
    MotionCost cost(points, **standard, first_plane);
    if (cost.pulls_every_way()) return solve_as_one_block(cost, rotation, translation);
  }
  return solve_block_by_block(points, standard, first_plane, rotation, translation);
}

_KESTRANE_STATUS solve_transform(const PointSets& points,
                                 const _LASER_PLANE_BLOCK_INFOS* const* standard,
                                 const std::int32_t& first_plane,
                                 const std::int32_t& /*last_plane*/, Eigen::Matrix4d& transform) {
  transform.setIdentity();
  Eigen::Vector3d rotation = Eigen::Vector3d::Zero();
  Eigen::Vector3d translation = Eigen::Vector3d::Zero();
  const ceres::Solver::Summary summary =
      solve_motion(points, standard, first_plane, rotation.data(), translation.data());
  print_line(summary.BriefReport());
  if (!summary.IsSolutionUsable()) return KESTRANE_ERR_SOLVE_FAILED;
  transform.topLeftCorner<3, 3>() = rotation_matrix(rotation);
  transform.topRightCorner<3, 1>() = translation;
  return KESTRANE_OK;
}

}  // namespace kestrane
