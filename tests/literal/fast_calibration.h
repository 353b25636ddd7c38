// The fast calibration once more, step by step and without regard to cost: what the stages in
// src/fast are held against, by tests and by the benchmark. Nothing here is shared with them but
// the records.
#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <cmath>
#include <cstdint>
#include <set>
#include <vector>

#include "kestrane/records.h"

namespace literal {

using FrameLists = std::vector<std::vector<_KESTRANE_ID_POINT3D>>;
using PointSets = std::vector<Eigen::Matrix<double, 3, Eigen::Dynamic>>;
using ResidualSets = std::vector<std::vector<double>>;

struct Indicators {
  double mean = 0.0;
  double max = 0.0;
  double deviation = 0.0;
};

inline _MRV_EXTRINSIC_PARAM identity() { return {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}}; }

// Truncation toward zero to an index; -1 for anything that has none.
inline int truncated(double value) {
  if (!(value > -2147483648.0 && value < 2147483648.0)) return -1;
  return static_cast<int>(value);
}

inline bool lookup_plane_cell(const double* point, const kestrane::_LASER_PLANE_BLOCK_INFOS& table,
                              int plane, double* coeffs, double* unit_normal, double* plane_point) {
  const kestrane::_LASER_PLANE_GRIDS& grids = *table.grids;
  const int k = truncated((point[2] - grids.z_start) / grids.z_step);
  if (k < 0 || k > 49) return false;
  const int j = truncated((point[1] - grids.grid_y_start[k]) / grids.grid_y_step[k]);
  if (j < 0 || j > 14) return false;
  const double* abc = table.planes[plane].block.lines[j].cells[k].v;
  constexpr double kTiny = 2.220446049250313e-16;
  if (std::abs(abc[0]) < kTiny && std::abs(abc[1]) < kTiny && std::abs(abc[2]) < kTiny) {
    return false;
  }
  for (int i = 0; i < 3; ++i) coeffs[i] = unit_normal[i] = abc[i];
  const double squares = abc[0] * abc[0] + abc[1] * abc[1] + abc[2] * abc[2];
  if (squares > 0.0) {
    for (int i = 0; i < 3; ++i) unit_normal[i] /= std::sqrt(squares);
  }
  int axis = 0;
  double pivot = abc[0];
  if (std::abs(abc[1]) > std::abs(pivot)) {
    pivot = abc[1];
    axis = 1;
  }
  if (std::abs(abc[2]) > std::abs(pivot)) {
    pivot = abc[2];
    axis = 2;
  }
  plane_point[0] = plane_point[1] = plane_point[2] = 0.0;
  plane_point[axis] = -1.0 / pivot;
  return true;
}

inline void transform_plane(const double* abc, double* moved, const _MRV_EXTRINSIC_PARAM& m) {
  const double on_axis = -1.0 / abc[0];
  double n[3], p[3];
  for (int i = 0; i < 3; ++i) {
    n[i] = m.R[3 * i] * abc[0] + m.R[3 * i + 1] * abc[1] + m.R[3 * i + 2] * abc[2];
    p[i] = m.R[3 * i] * on_axis + m.R[3 * i + 1] * 0.0 + m.R[3 * i + 2] * 0.0 + m.T[i];
  }
  const double d = -(n[0] * p[0] + n[1] * p[1] + n[2] * p[2]);
  for (int i = 0; i < 3; ++i) moved[i] = n[i] / d;
}

inline bool distance_to_cell(const double* point, const kestrane::_LASER_PLANE_BLOCK_INFOS& table,
                             int plane, const _MRV_EXTRINSIC_PARAM& motion, double* distance) {
  double abc[3], unit[3], axis_point[3], moved[3];
  if (!literal::lookup_plane_cell(point, table, plane, abc, unit, axis_point)) return false;
  literal::transform_plane(abc, moved, motion);
  *distance = std::abs(moved[0] * point[0] + moved[1] * point[1] + moved[2] * point[2] + 1.0) /
              std::sqrt(moved[0] * moved[0] + moved[1] * moved[1] + moved[2] * moved[2]);
  return true;
}

inline void cal_residual(const PointSets& points, const kestrane::_LASER_PLANE_BLOCK_INFOS& table,
                         int first_plane, const _MRV_EXTRINSIC_PARAM& motion,
                         ResidualSets& residuals, Indicators& indicators) {
  indicators.mean = 0.0;
  indicators.max = -1000.0;
  double sum = 0.0;
  long count = 0;
  double distance;
  for (std::size_t i = 0; i < points.size(); ++i) {
    residuals[i].resize(static_cast<std::size_t>(points[i].cols()));
    for (Eigen::Index j = 0; j < points[i].cols(); ++j) {
      const double* point = points[i].col(j).data();
      if (!distance_to_cell(point, table, first_plane + static_cast<int>(i), motion, &distance)) {
        continue;
      }
      residuals[i][static_cast<std::size_t>(j)] = distance;
      ++count;
      sum += distance;
      if (distance > indicators.max) indicators.max = distance;
    }
  }
  indicators.mean = sum / static_cast<double>(count);
  double spread = 0.0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    for (Eigen::Index j = 0; j < points[i].cols(); ++j) {
      const double* point = points[i].col(j).data();
      if (!distance_to_cell(point, table, first_plane + static_cast<int>(i), motion, &distance)) {
        continue;
      }
      ++count;
      spread += std::sqrt((distance - indicators.mean) * (distance - indicators.mean));
    }
  }
  indicators.deviation = spread / static_cast<double>(count);
}

// Buckets by frame number: only for ids that lie close together. An id outside the first list's
// range is dropped.
inline void filter_point_by_frame(const FrameLists& frames,
                                  const kestrane::_LASER_PLANE_BLOCK_INFOS& table, int first_plane,
                                  FrameLists& filtered, Indicators& indicators) {
  filtered.resize(frames.size());
  std::size_t largest_list = 0;
  for (std::size_t f = 0; f < frames.size(); ++f) {
    filtered[f].reserve(frames[f].size());
    if (frames[f].size() > largest_list) largest_list = frames[f].size();
  }
  if (frames.empty()) return;
  long min_id = 1410065408, max_id = 0;
  for (const _KESTRANE_ID_POINT3D& point : frames[0]) {
    if (point.id < min_id) min_id = point.id;
    if (point.id > max_id) max_id = point.id;
  }
  const long bucket_count = max_id - min_id + 1 < 0 ? 0 : max_id - min_id + 1;
  std::vector<std::vector<_KESTRANE_ID_POINT3D>> buckets(static_cast<std::size_t>(bucket_count));
  for (auto& bucket : buckets) bucket.reserve(largest_list);
  const auto bucket_of = [&](const _KESTRANE_ID_POINT3D& point) {
    const long bucket = point.id - min_id;
    return bucket < 0 || bucket >= bucket_count ? -1 : bucket;
  };

  std::vector<double> means;
  std::vector<int> numbers;
  std::set<int> rejected;
  PointSets single(1);
  ResidualSets residuals(1);
  double limit_base = 0.0;
  for (std::size_t f = 0; f < frames.size(); ++f) {
    for (auto& bucket : buckets) bucket.clear();
    means.clear();
    numbers.clear();
    for (const _KESTRANE_ID_POINT3D& point : frames[f]) {
      if (bucket_of(point) >= 0)
        buckets[static_cast<std::size_t>(bucket_of(point))].push_back(point);
    }
    for (std::size_t b = 0; b < buckets.size(); ++b) {
      if (buckets[b].empty()) continue;
      single[0].resize(3, static_cast<Eigen::Index>(buckets[b].size()));
      for (std::size_t i = 0; i < buckets[b].size(); ++i) {
        single[0].col(static_cast<Eigen::Index>(i)) << buckets[b][i].x, buckets[b][i].y,
            buckets[b][i].z;
      }
      cal_residual(single, table, first_plane + static_cast<int>(f), identity(), residuals,
                   indicators);
      means.push_back(indicators.mean);
      numbers.push_back(static_cast<int>(b));
      limit_base += indicators.mean;
    }
    rejected.clear();
    limit_base /= static_cast<double>(means.size());
    const double limit = 1.5 * limit_base;
    for (std::size_t i = 0; i < means.size(); ++i) {
      if (limit > means[i]) continue;
      if (rejected.count(static_cast<int>(i)) == 0) rejected.insert(numbers[i]);
    }
    for (const _KESTRANE_ID_POINT3D& point : frames[f]) {
      const long bucket = bucket_of(point);
      if (bucket < 0 || rejected.count(static_cast<int>(bucket)) != 0) continue;
      filtered[f].push_back(point);
    }
  }
}

// `fit(cloud, plane)` leaves plane[0..3] as it is where it fails before its first plane. The cloud
// is an N x 3 row-major matrix.
template <class Fit>
void divide_interior_planes(const FrameLists& filtered, const kestrane::_LASER_PLANE_GRIDS& grids,
                            Fit fit, PointSets& points) {
  using Cloud = Eigen::Matrix<double, Eigen::Dynamic, 3, Eigen::RowMajor>;
  std::vector<_KESTRANE_ID_POINT3D> zones[3];
  std::vector<_KESTRANE_ID_POINT3D> kept;
  for (const std::vector<_KESTRANE_ID_POINT3D>& list : filtered) {
    for (auto& zone : zones) {
      zone.clear();
      zone.reserve(list.size());
    }
    for (const _KESTRANE_ID_POINT3D& point : list) {
      const int k = truncated((point.z - grids.z_start) / grids.z_step);
      if (k < 0 || k > 49) continue;
      const double line = (point.y - grids.grid_y_start[k]) / grids.grid_y_step[k];
      if (std::isnan(line) || line <= -1.0) continue;
      zones[line < 5.0 ? 0 : line < 10.0 ? 1 : 2].push_back(point);
    }
    kept.clear();
    for (const auto& zone : zones) {
      Cloud cloud(static_cast<Eigen::Index>(zone.size()), 3);
      for (std::size_t i = 0; i < zone.size(); ++i) {
        cloud.row(static_cast<Eigen::Index>(i)) << zone[i].x, zone[i].y, zone[i].z;
      }
      double p[4] = {0.0, 0.0, 0.0, 0.0};
      fit(cloud, p);
      for (const _KESTRANE_ID_POINT3D& point : zone) {
        const double distance = std::abs(p[0] * point.x + p[1] * point.y + p[2] * point.z + p[3]) /
                                std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]);
        if (!(distance > 2.0)) kept.push_back(point);
      }
    }
    Eigen::Matrix<double, 3, Eigen::Dynamic> matrix(3, static_cast<Eigen::Index>(kept.size()));
    for (std::size_t i = 0; i < kept.size(); ++i) {
      matrix.col(static_cast<Eigen::Index>(i)) << kept[i].x, kept[i].y, kept[i].z;
    }
    points.push_back(matrix);
  }
}

inline void filter_point_by_residual(PointSets points, ResidualSets residuals, PointSets& kept) {
  kept.resize(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    std::vector<Eigen::Index> columns;
    for (Eigen::Index j = 0; j < points[i].cols(); ++j) {
      if (!(residuals[i][static_cast<std::size_t>(j)] > 1.5)) columns.push_back(j);
    }
    kept[i].resize(3, static_cast<Eigen::Index>(columns.size()));
    for (std::size_t j = 0; j < columns.size(); ++j) {
      kept[i].col(static_cast<Eigen::Index>(j)) = points[i].col(columns[j]);
    }
  }
}

}  // namespace literal
