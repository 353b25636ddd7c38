// The figures of a factory calibration, transcribed plainly: every figure by a loop of its own over
// all points, every quantile by sorting, nothing shared with the library but the records.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <vector>

#include "kestrane/records.h"

namespace literal {

inline constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();

// 750 cells of one plane, its grid, the band, and the cloud that is looked at.
struct Scene {
  std::vector<_KESTRANE_ID_POINT3D> cloud;
  std::vector<kestrane::_LASER_TRIPLE> cells;       // [50 j + k]
  std::vector<kestrane::_LASER_TRIPLE> indicators;  // [50 j + k]
  kestrane::_LASER_PLANE_GRIDS grids;
  double band_near;
  double band_far;
};

struct Valid {
  int block;
  std::int32_t frame;
  double r;
};

struct Figures {
  std::size_t points = 0;
  double rms = kNothing, bias = kNothing, q95 = kNothing, q99 = kNothing, max = kNothing;
};

inline bool has_plane(const kestrane::_LASER_TRIPLE& cell) {
  const double tiny = 2.220446049250313e-16;
  for (const double value : cell.v) {
    if (!(value - value == 0.0)) return false;
  }
  if (std::abs(cell.v[0]) < tiny && std::abs(cell.v[1]) < tiny && std::abs(cell.v[2]) < tiny) {
    return false;
  }
  return cell.v[0] != 0.0;
}

// Block of (y, z), -1 outside: indices truncated toward zero have to lie in range.
inline int block_of(const kestrane::_LASER_PLANE_GRIDS& grids, double y, double z) {
  const double k_real = std::trunc((z - grids.z_start) / grids.z_step);
  if (!(k_real >= 0.0 && k_real <= 49.0)) return -1;
  const int k = static_cast<int>(k_real);
  const double j_real = std::trunc((y - grids.grid_y_start[k]) / grids.grid_y_step[k]);
  if (!(j_real >= 0.0 && j_real <= 14.0)) return -1;
  return static_cast<int>(j_real) * 50 + k;
}

inline std::vector<Valid> valid_points(const Scene& scene) {
  std::vector<Valid> valid;
  for (const _KESTRANE_ID_POINT3D& p : scene.cloud) {
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) continue;
    if (p.z < scene.band_near || p.z > scene.band_far) continue;
    const int block = block_of(scene.grids, p.y, p.z);
    if (block < 0 || !has_plane(scene.cells[static_cast<std::size_t>(block)])) continue;
    const double* v = scene.cells[static_cast<std::size_t>(block)].v;
    const double sign = v[0] > 0.0 ? 1.0 : -1.0;
    const double s = sign / std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    valid.push_back({block, p.id, s * (v[0] * p.x + v[1] * p.y + v[2] * p.z + 1.0)});
  }
  return valid;
}

inline double median(std::vector<double> values) {
  if (values.empty()) return kNothing;
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2.0;
}

// The smallest value with at least numerator / 100 of all at or below it.
inline double quantile(std::vector<double> values, std::size_t percent) {
  std::sort(values.begin(), values.end());
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (100 * (i + 1) >= percent * values.size()) return values[i];
  }
  return kNothing;
}

inline std::vector<double> residuals_of(const std::vector<Valid>& valid) {
  std::vector<double> r;
  for (const Valid& point : valid) r.push_back(point.r);
  return r;
}

struct Middle {
  double m = kNothing;
  double sigma = kNothing;
  bool keeps(double r) const { return !(std::abs(r - m) > 4.0 * sigma); }
};

inline Middle middle_of(const std::vector<double>& r) {
  const double m = median(r);
  std::vector<double> away;
  for (const double value : r) away.push_back(std::abs(value - m));
  return {m, std::max(1.4826 * median(away), 1e-9)};
}

inline Figures figures(const std::vector<double>& r) {
  Figures f;
  f.points = r.size();
  if (r.empty()) return f;
  double squares = 0.0, sum = 0.0;
  std::vector<double> sizes;
  for (const double value : r) {
    squares += value * value;
    sum += value;
    sizes.push_back(std::abs(value));
  }
  f.rms = std::sqrt(squares / static_cast<double>(r.size()));
  f.bias = sum / static_cast<double>(r.size());
  f.q95 = quantile(sizes, 95);
  f.q99 = quantile(sizes, 99);
  f.max = quantile(sizes, 100);
  return f;
}

// Residuals without outliers of one block (or, with -1, of the plane).
inline std::vector<double> kept(const std::vector<Valid>& valid, const Middle& middle, int block) {
  std::vector<double> r;
  for (const Valid& point : valid) {
    if ((block < 0 || point.block == block) && middle.keeps(point.r)) r.push_back(point.r);
  }
  return r;
}

enum Source { kMeasured, kThin, kExtended, kBorrowed, kEmpty };

inline Source source(const Scene& scene, const std::vector<Valid>& valid, const Middle& middle,
                     int block) {
  if (!has_plane(scene.cells[static_cast<std::size_t>(block)])) return kEmpty;
  const std::size_t points = kept(valid, middle, block).size();
  if (points >= 10) return kMeasured;
  if (points >= 1) return kThin;
  for (int k = 0; k < 50; ++k) {
    const double* v = scene.indicators[static_cast<std::size_t>(block / 50 * 50 + k)].v;
    if (v[0] != 0.0 || v[1] != 0.0 || v[2] != 0.0) return kExtended;
  }
  return kBorrowed;
}

inline double x_of(const kestrane::_LASER_TRIPLE& cell, double y, double z) {
  return -(cell.v[1] * y + cell.v[2] * z + 1.0) / cell.v[0];
}

// The larger step at the two ends of the edge between two blocks that touch.
inline double step(const Scene& scene, int j, int k, int j2, int k2) {
  const auto& a = scene.cells[static_cast<std::size_t>(50 * j + k)];
  const auto& b = scene.cells[static_cast<std::size_t>(50 * j2 + k2)];
  // Named from the lower block on.
  if (j2 < j || k2 < k) return step(scene, j2, k2, j, k);
  const auto g_y = [&](int jj, int kk) {
    return scene.grids.grid_y_start[kk] + jj * scene.grids.grid_y_step[kk];
  };
  const auto g_z = [&](int kk) { return scene.grids.grid_z[kk]; };
  const double far_end =
      std::abs(x_of(a, g_y(j + 1, k + 1), g_z(k + 1)) - x_of(b, g_y(j + 1, k + 1), g_z(k + 1)));
  const double near_end =
      j2 == j + 1
          ? std::abs(x_of(a, g_y(j + 1, k), g_z(k)) - x_of(b, g_y(j + 1, k), g_z(k)))
          : std::abs(x_of(a, g_y(j, k + 1), g_z(k + 1)) - x_of(b, g_y(j, k + 1), g_z(k + 1)));
  return std::max(near_end, far_end);
}

inline double seam(const Scene& scene, const std::vector<Source>& sources, int block) {
  if (sources[static_cast<std::size_t>(block)] != kMeasured) return kNothing;
  const int j = block / 50;
  const int k = block % 50;
  double largest = kNothing;
  const int neighbours[4][2] = {{j - 1, k}, {j + 1, k}, {j, k - 1}, {j, k + 1}};
  for (const auto& [j2, k2] : neighbours) {
    if (j2 < 0 || j2 > 14 || k2 < 0 || k2 > 49) continue;
    if (sources[static_cast<std::size_t>(50 * j2 + k2)] != kMeasured) continue;
    const double found = step(scene, j, k, j2, k2);
    if (std::isnan(largest) || found > largest) largest = found;
  }
  return largest;
}

struct Poses {
  std::map<std::int32_t, double> medians;
  std::map<std::int32_t, bool> off;
  double within = kNothing;
  double between = kNothing;
};

inline Poses poses(const std::vector<Valid>& valid) {
  const Middle middle = middle_of(residuals_of(valid));
  std::map<std::int32_t, std::vector<double>> all;
  std::map<std::int32_t, std::vector<double>> good;
  for (const Valid& point : valid) {
    all[point.frame].push_back(point.r);
    if (middle.keeps(point.r)) good[point.frame].push_back(point.r);
  }
  Poses result;
  for (const auto& [frame, r] : all) {
    result.medians[frame] = median(r);
    result.off[frame] = std::abs(median(r) - middle.m) > 4.0 * middle.sigma;
  }
  double points = 0.0, sum = 0.0, inside = 0.0, outside = 0.0;
  const auto mean_of = [](const std::vector<double>& r) {
    double total = 0.0;
    for (const double value : r) total += value;
    return total / static_cast<double>(r.size());
  };
  for (const auto& [frame, r] : good) {
    points += static_cast<double>(r.size());
    sum += mean_of(r) * static_cast<double>(r.size());
    for (const double value : r) inside += (value - mean_of(r)) * (value - mean_of(r));
  }
  for (const auto& [frame, r] : good) {
    outside += static_cast<double>(r.size()) * std::pow(mean_of(r) - sum / points, 2);
  }
  const double within = inside / points;
  result.within = std::sqrt(within);
  if (good.size() > 1) {
    const double mean_points = points / static_cast<double>(good.size());
    result.between = std::sqrt(std::max(0.0, outside / points - within / mean_points));
  }
  return result;
}

}  // namespace literal
