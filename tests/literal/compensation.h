// Run-time compensation in its literal form: cell after cell, step after step, every quantity
// computed where it is used. It shares nothing with the library but the records; tests compare with
// it, and benchmarks time the library's form against it.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>

#include "kestrane/records.h"

namespace literal {

using Vec3 = std::array<double, 3>;

// How a plane is turned: about which point, and by which rotation.
struct PlaneTurn {
  Vec3 pivot;
  std::array<Vec3, 3> R;
};

inline Vec3 point_on_plane(const Vec3& T, const Vec3& p) {
  const double d = (T[0] * p[0] + T[1] * p[1]) + T[2] * p[2];
  const double q = -((d + 1.0) / d);
  return {q * T[0] + T[0], q * T[1] + T[1], q * T[2] + T[2]};
}

inline double temperature_scale(const _KESTRANE_COMPENSATE_PARAM& param) {
  double dT = 0.0;
  if (param.temperature > -20.0 && param.temperature < 100.0) {
    dT = param.temperature - param.temperature_ref;
  }
  return param.scale_per_degree * dT + 1.0;
}

inline void correct_plane(const Vec3& T, double S, Vec3& p) {
  const Vec3 C = point_on_plane(T, p);
  const double yb = (C[1] * S) * p[1];
  const double xa = (C[0] * S) * p[0];
  const double zc = (C[2] * S) * p[2];
  const double e = -((yb + xa) + zc);
  if (1e-30 > std::abs(e)) return;
  const double f = 1.0 / e;
  p = {p[0] * f, p[1] * f, p[2] * f};
}

inline Vec3 rotated(const std::array<Vec3, 3>& R, const Vec3& v) {
  Vec3 out;
  for (std::size_t i = 0; i < 3; ++i) {
    double sum = R[i][0] * v[0];
    sum += R[i][1] * v[1];
    sum += R[i][2] * v[2];
    out[i] = sum;
  }
  return out;
}

inline void compensate_cell(const Vec3& T, double S, const PlaneTurn& turn, Vec3& cell) {
  if (cell[0] == 0.0) return;
  correct_plane(T, S, cell);
  const auto [a, b, c] = cell;
  Vec3 X = {0.0, 0.0, 100.0};
  if (std::abs(a) > 1e-30) X[0] = -((c * 100.0 + 1.0) / a);
  const Vec3 D = {X[0] - turn.pivot[0], X[1] - turn.pivot[1], X[2] - turn.pivot[2]};
  const Vec3 n = rotated(turn.R, {a, b, c});
  Vec3 Y = rotated(turn.R, D);
  for (std::size_t i = 0; i < 3; ++i) Y[i] = Y[i] + turn.pivot[i];
  const double yy = Y[1] * n[1];
  const double xx = Y[0] * n[0];
  const double zz = Y[2] * n[2];
  double d = -((yy + xx) + zz);
  if (1e-30 > std::abs(d)) d = 1e-30;
  const double f = 1.0 / d;
  cell = {n[0] * f, n[1] * f, n[2] * f};
}

// `index` counts the plane, first to last the fan in which it lies; `whole` is its laser_plane_R.
inline PlaneTurn plane_turn(const Vec3& T, const _KESTRANE_COMPENSATE_PARAM& param, int index,
                            int first, int last, Vec3 whole) {
  correct_plane(T, temperature_scale(param), whole);
  const int centre = first + (last - first) / 2;
  const double angle_temperature = static_cast<double>(index - centre) * param.temperature_spread;
  const double angle_drift = static_cast<double>(index - centre) * param.drift_spread;
  const double by_drift = (angle_drift * param.drift_gain) * (param.drift - param.drift_ref);
  const double by_temperature = (param.temperature - param.temperature_ref) * angle_temperature;
  const double theta = by_drift + by_temperature;
  const double s = std::sin(theta);
  const double c = std::cos(theta);
  const std::array<Vec3, 3> R = {{{c, 0.0, -s}, {0.0, 1.0, 0.0}, {s, 0.0, c}}};
  return {point_on_plane(T, whole), R};
}

// Planes first to last - 1 of a table, cells and pivots in place; they are the whole fan.
inline void compensate(kestrane::_LASER_PLANE_BLOCK_INFO* planes, const Vec3& T,
                       const _KESTRANE_COMPENSATE_PARAM& param, int first, int last) {
  for (int p = first; p < last; ++p) {
    kestrane::_LASER_PLANE_BLOCK_INFO& row = planes[p];
    const double* whole = row.laser_plane_R;
    const PlaneTurn turn = plane_turn(T, param, p, first, last, {whole[0], whole[1], whole[2]});
    for (std::size_t i = 0; i < 3; ++i) row.pivot[i] = turn.pivot[i];
    for (std::int32_t j = 0; j < row.block.count; ++j) {
      const kestrane::_LASER_LINE_INFOS& line = row.block.lines[j];
      for (std::int32_t k = 0; k < line.count; ++k) {
        double* v = line.cells[k].v;
        Vec3 cell = {v[0], v[1], v[2]};
        compensate_cell(T, temperature_scale(param), turn, cell);
        for (std::size_t i = 0; i < 3; ++i) v[i] = cell[i];
      }
    }
  }
}

}  // namespace literal
