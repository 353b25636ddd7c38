// One plane's calibration in its plainest form: growing lists, a walk over all borders for every
// point, a full decomposition of every cloud. Slow, and kept apart from the library's own stages:
// tests hold the library against it, benchmarks time it.
#pragma once

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <array>
#include <cmath>
#include <thread>
#include <vector>

#include "ceres/ceres.h"
#include "kestrane/records.h"
#include "tests/literal/plane_fit.h"

namespace literal {

using Corners = std::vector<std::vector<Eigen::Vector3d>>;

inline constexpr double kEpsilon = 2.220446049250313e-16;

struct FactoryRun {
  PlaneAbcd laser_plane = PlaneAbcd::Zero();
  Eigen::Vector3d fan_apex = Eigen::Vector3d::Zero();
  std::vector<PointMatrix3> sector_clouds;
  std::vector<PlaneAbcd> sector_planes;
  std::vector<PointMatrix3> sector_points;
  std::vector<std::vector<PointMatrix3>> cell_points;
  Corners grid_corners;
  std::vector<std::vector<PlaneAbcd>> cell_planes;
  std::array<double, 3> laser_plane_R{};
  std::vector<std::vector<std::array<double, 3>>> table;
};

inline PointMatrix3 matrix_of(const std::vector<Eigen::Vector3d>& list) {
  PointMatrix3 matrix(static_cast<Eigen::Index>(list.size()), 3);
  for (std::size_t i = 0; i < list.size(); ++i) {
    matrix.row(static_cast<Eigen::Index>(i)) = list[i].transpose();
  }
  return matrix;
}

inline void split_by_fan(const PointMatrix3& points, FactoryRun& run) {
  const double a = run.laser_plane[0];
  const double b = run.laser_plane[1];
  const double c = run.laser_plane[2];
  const double t = std::abs(run.laser_plane[3]) / std::sqrt(a * a + b * b + c * c) / (-a);
  run.fan_apex = Eigen::Vector3d(t * -1.0, t * 0.0, t * 0.0);
  std::vector<Eigen::Vector3d> normals;
  for (int i = 0; i <= 15; ++i) {
    normals.emplace_back(0.0, 1.0, -std::tan(i * 0.06981317007977318 - 0.5235987755982988));
  }
  std::vector<std::vector<Eigen::Vector3d>> lists(15);
  std::size_t running = 14;
  for (Eigen::Index i = 0; i < points.rows(); ++i) {
    const Eigen::Vector3d p = points.row(i).transpose();
    const Eigen::Vector3d q = p - run.fan_apex;
    for (std::size_t k = 0; k < 16; ++k) {
      if (q.dot(normals[k]) < 0.0) {
        running = k == 0 ? 0 : k - 1;
        break;
      }
    }
    lists[running].push_back(p);
  }
  for (const auto& list : lists) run.sector_clouds.push_back(matrix_of(list));
}

inline bool is_empty(const PlaneAbcd& plane) { return plane.isZero(); }

inline void fit_sectors(DepthBand band, FactoryRun& run) {
  run.sector_planes.assign(15, PlaneAbcd::Zero());
  run.sector_points.assign(15, PointMatrix3(0, 3));
  for (std::size_t s = 0; s < 15; ++s) {
    if (run.sector_clouds[s].rows() < 200) continue;
    PlaneAbcd plane = PlaneAbcd::Zero();
    PlaneFitStats stats{};
    if (fit_plane_robust(run.sector_clouds[s], plane, stats, run.sector_points[s], band, 1)) {
      run.sector_planes[s] = plane;
    }
  }
  const std::vector<PlaneAbcd> fitted = run.sector_planes;
  for (int i = 0; i < 15; ++i) {
    if (!is_empty(fitted[static_cast<std::size_t>(i)])) continue;
    int best = -1;
    for (int s = 0; s < 15; ++s) {
      if (is_empty(fitted[static_cast<std::size_t>(s)])) continue;
      if (best < 0 || std::abs(s - i) <= std::abs(best - i)) best = s;  // a tie goes up
    }
    if (best >= 0)
      run.sector_planes[static_cast<std::size_t>(i)] = fitted[static_cast<std::size_t>(best)];
  }
}

inline void split_by_depth(FactoryRun& run) {
  const double h = (1500.0 - 150.0) / 50;
  for (const PointMatrix3& points : run.sector_points) {
    std::vector<std::vector<Eigen::Vector3d>> lists(50);
    for (Eigen::Index i = 0; i < points.rows(); ++i) {
      int band = static_cast<int>((points(i, 2) - 150.0) / h);
      if (band < 0) band = 0;
      if (band > 49) band = 49;
      lists[static_cast<std::size_t>(band)].push_back(points.row(i).transpose());
    }
    std::vector<PointMatrix3> row;
    for (const auto& list : lists) row.push_back(matrix_of(list));
    run.cell_points.push_back(row);
  }
}

inline bool lift_corners(FactoryRun& run) {
  const double half = 60.0 * 3.14159265358979323846 / 180.0 * -0.5;
  const double step = 60.0 * 3.14159265358979323846 / 180.0 / 15;
  for (int i = 0; i <= 15; ++i) {
    const PlaneAbcd& p = run.sector_planes[static_cast<std::size_t>(i == 15 ? 14 : i)];
    std::vector<Eigen::Vector3d> row;
    for (int k = 0; k <= 50; ++k) {
      if (std::abs(p[0]) < kEpsilon) return false;
      const double z = k * ((1500.0 - 150.0) / 50) + 150.0;
      const double y = std::tan(i * step + half) * z;
      row.emplace_back(-((y * p[1] + z * p[2] + p[3]) / p[0]), y, z);
    }
    run.grid_corners.push_back(row);
  }
  return true;
}

inline PointMatrix3 corners_of(const Corners& corners, std::size_t i, std::size_t j) {
  return matrix_of({corners[i][j], corners[i][j + 1], corners[i + 1][j], corners[i + 1][j + 1]});
}

// The cost with jets all the way, the scatter matrix included.
struct CellCost {
  PointMatrix3 points;
  PointMatrix3 corners;

  template <class T>
  bool operator()(const T* x0, const T* x1, const T* x2, const T* x3, T* residual) const {
    Eigen::Matrix<T, 4, 3> rows;
    const T* x[4] = {x0, x1, x2, x3};
    for (int r = 0; r < 4; ++r) {
      rows(r, 0) = *x[r];
      rows(r, 1) = T(corners(r, 1));
      rows(r, 2) = T(corners(r, 2));
    }
    Eigen::Matrix<T, 1, 3> mean;
    for (int k = 0; k < 3; ++k) {
      mean(k) = (rows(0, k) + rows(1, k) + rows(2, k) + rows(3, k)) / 4.0;
    }
    for (int r = 0; r < 4; ++r) rows.row(r) -= mean;
    const Eigen::Matrix<T, 3, 3> jets = rows.transpose() * rows;
    Eigen::MatrixXd scatter(3, 3);
    for (int r = 0; r < 3; ++r) {
      for (int k = 0; k < 3; ++k) scatter(r, k) = value(jets(r, k));
    }
    const Eigen::EigenSolver<Eigen::MatrixXd> solver(scatter, true);
    std::vector<double> spread;
    for (int k = 0; k < 3; ++k) spread.push_back(solver.eigenvalues()[k].real());
    std::vector<double> sorted = spread;
    std::sort(sorted.begin(), sorted.end());
    if (sorted[0] / (sorted[2] + kEpsilon) < 0.0005 &&
        sorted[1] / (sorted[2] + kEpsilon) < 0.0005) {
      return false;
    }
    const auto index = std::min_element(spread.begin(), spread.end()) - spread.begin();
    Eigen::Matrix<T, 3, 1> n;
    for (int k = 0; k < 3; ++k) n(k) = T(solver.eigenvectors()(k, index).real());
    const T d = -(n(0) * mean(0) + n(1) * mean(1) + n(2) * mean(2));
    T squares(0.0);
    for (Eigen::Index i = 0; i < points.rows(); i += 3) {
      const T e = n(0) * points(i, 0) + n(1) * points(i, 1) + n(2) * points(i, 2) + d;
      squares += e * e;
    }
    residual[0] = sqrt(squares / static_cast<double>(points.rows())) * mean(2) / 450.0;
    return true;
  }

 private:
  static double value(double v) { return v; }
  template <int N>
  static double value(const ceres::Jet<double, N>& v) {
    return v.a;
  }
};

inline void optimise_corners(FactoryRun& run) {
  ceres::Problem problem;
  auto* loss = new ceres::CauchyLoss(0.1);
  for (std::size_t i = 0; i < 15; ++i) {
    for (std::size_t j = 0; j < 50; ++j) {
      if (run.cell_points[i][j].rows() == 0) continue;
      auto* cost = new ceres::AutoDiffCostFunction<CellCost, 1, 1, 1, 1, 1>(
          new CellCost{run.cell_points[i][j], corners_of(run.grid_corners, i, j)});
      double* x[4] = {&run.grid_corners[i][j].x(), &run.grid_corners[i][j + 1].x(),
                      &run.grid_corners[i + 1][j].x(), &run.grid_corners[i + 1][j + 1].x()};
      problem.AddResidualBlock(cost, loss, x[0], x[1], x[2], x[3]);
      for (double* corner : x) {
        problem.SetParameterLowerBound(corner, 0, *corner - 0.5);
        problem.SetParameterUpperBound(corner, 0, *corner + 0.5);
      }
    }
  }
  ceres::Solver::Options options;
  options.linear_solver_type = ceres::SPARSE_SCHUR;
  options.num_threads = static_cast<int>(std::min(6u, std::thread::hardware_concurrency()));
  options.minimizer_progress_to_stdout = false;
  ceres::Solver::Summary summary;
  ceres::Solve(options, &problem, &summary);
}

inline void fit_cells(FactoryRun& run) {
  for (std::size_t i = 0; i < 15; ++i) {
    std::vector<PlaneAbcd> row;
    for (std::size_t j = 0; j < 50; ++j) {
      PlaneAbcd plane = PlaneAbcd::Zero();
      PlaneFitStats stats{};
      PointMatrix3 inliers;
      fit_plane_robust(corners_of(run.grid_corners, i, j), plane, stats, inliers, {100, 1000}, 2);
      row.push_back(plane);
    }
    run.cell_planes.push_back(row);
  }
}

inline std::array<double, 3> table_form(const PlaneAbcd& p) {
  const double divisor = p[3] + kEpsilon;
  return {p[0] / divisor, p[1] / divisor, p[2] / divisor};
}

// One run with the standard depth band. `run` starts empty.
inline bool calibrate_plane(const std::vector<_KESTRANE_ID_POINT3D>& input, bool optimise,
                            FactoryRun& run) {
  PointMatrix3 points(static_cast<Eigen::Index>(input.size()), 3);
  for (std::size_t i = 0; i < input.size(); ++i) {
    const bool dropped = std::isnan(input[i].x);
    points.row(static_cast<Eigen::Index>(i)) << (dropped ? 0.0 : input[i].x),
        (dropped ? 0.0 : input[i].y), (dropped ? 0.0 : input[i].z);
  }
  PlaneFitStats stats{};
  PointMatrix3 inliers;
  if (!fit_plane_robust(points, run.laser_plane, stats, inliers, {100, 1000}, 0)) return false;
  if (std::abs(run.laser_plane[3]) < kEpsilon) return false;
  split_by_fan(points, run);
  fit_sectors({100, 1000}, run);
  split_by_depth(run);
  if (!lift_corners(run)) return false;
  if (optimise) optimise_corners(run);
  fit_cells(run);
  run.laser_plane_R = table_form(run.laser_plane);
  for (const auto& planes : run.cell_planes) {
    std::vector<std::array<double, 3>> row;
    for (const PlaneAbcd& plane : planes) row.push_back(table_form(plane));
    run.table.push_back(row);
  }
  return true;
}

}  // namespace literal
