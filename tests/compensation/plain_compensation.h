// The compensation once more, written down step by step with nothing shared with the library but
// the host's records. Slow and plain on purpose.
#pragma once

#include <array>
#include <cmath>

#include "kestrane/records.h"

namespace kestrane_test {

using Vec3 = std::array<double, 3>;

struct PlainPlane {
  Vec3 pivot;
  std::array<Vec3, 3> R;
};

inline Vec3 plain_point(const Vec3& T, const Vec3& p) {
  const double d = (T[0] * p[0] + T[1] * p[1]) + T[2] * p[2];
  const double q = -((d + 1.0) / d);
  return {q * T[0] + T[0], q * T[1] + T[1], q * T[2] + T[2]};
}

inline double plain_scale(const _KESTRANE_COMPENSATE_PARAM& param) {
  double dT = 0.0;
  if (param.temperature > -20.0 && param.temperature < 100.0)
    dT = param.temperature - param.temperature_ref;
  return param.scale_per_degree * dT + 1.0;
}

inline void plain_correct(const Vec3& T, double S, Vec3& p) {
  const Vec3 C = plain_point(T, p);
  const double yb = (C[1] * S) * p[1];
  const double xa = (C[0] * S) * p[0];
  const double zc = (C[2] * S) * p[2];
  const double e = -((yb + xa) + zc);
  if (1e-30 > std::abs(e)) return;
  const double f = 1.0 / e;
  p = {p[0] * f, p[1] * f, p[2] * f};
}

inline Vec3 plain_product(const std::array<Vec3, 3>& R, const Vec3& v) {
  Vec3 out;
  for (std::size_t i = 0; i < 3; ++i) {
    double sum = R[i][0] * v[0];
    sum += R[i][1] * v[1];
    sum += R[i][2] * v[2];
    out[i] = sum;
  }
  return out;
}

inline void plain_cell(const Vec3& T, double S, const PlainPlane& plane, Vec3& cell) {
  if (cell[0] == 0.0) return;
  plain_correct(T, S, cell);
  const auto [a, b, c] = cell;
  Vec3 X = {0.0, 0.0, 100.0};
  if (std::abs(a) > 1e-30) X[0] = -((c * 100.0 + 1.0) / a);
  const Vec3 D = {X[0] - plane.pivot[0], X[1] - plane.pivot[1], X[2] - plane.pivot[2]};
  const Vec3 n = plain_product(plane.R, {a, b, c});
  Vec3 Y = plain_product(plane.R, D);
  for (std::size_t i = 0; i < 3; ++i) Y[i] = Y[i] + plane.pivot[i];
  const double yy = Y[1] * n[1];
  const double xx = Y[0] * n[0];
  const double zz = Y[2] * n[2];
  double d = -((yy + xx) + zz);
  if (1e-30 > std::abs(d)) d = 1e-30;
  const double f = 1.0 / d;
  cell = {n[0] * f, n[1] * f, n[2] * f};
}

// `index` counts the plane, first to last the fan in which it lies.
inline PlainPlane plain_plane(const Vec3& T, const _KESTRANE_COMPENSATE_PARAM& param, int index,
                              int first, int last, Vec3 whole) {
  plain_correct(T, plain_scale(param), whole);
  const int centre = first + (last - first) / 2;
  const double angle_temperature = static_cast<double>(index - centre) * param.temperature_spread;
  const double angle_drift = static_cast<double>(index - centre) * param.drift_spread;
  const double by_drift = (angle_drift * param.drift_gain) * (param.drift - param.drift_ref);
  const double by_temperature = (param.temperature - param.temperature_ref) * angle_temperature;
  const double theta = by_drift + by_temperature;
  const double s = std::sin(theta);
  const double c = std::cos(theta);
  const std::array<Vec3, 3> R = {{{c, 0.0, -s}, {0.0, 1.0, 0.0}, {s, 0.0, c}}};
  return {plain_point(T, whole), R};
}

}  // namespace kestrane_test
