// Run-time compensation in its literal form: cell after cell, step after step, every quantity
// computed where it is used. The library's form is timed against it.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#include "kestrane/records.h"

namespace literal {

struct Compensator {
  kestrane::_LASER_PLANE_BLOCK_INFO* planes;
  _MRV_EXTRINSIC_PARAM extrinsic;
  _MRV_EXTRINSIC_PARAM plane_rotation;
  _KESTRANE_COMPENSATE_PARAM param;
  double angle_temperature[100];
  double angle_drift[100];

  void set_compensate_param(const _KESTRANE_COMPENSATE_PARAM& given, std::int32_t first,
                            std::int32_t last) {
    param = given;
    const std::int32_t centre = first + (last - first) / 2;
    for (std::int32_t i = first; i < last; ++i) {
      angle_temperature[i] = (i - centre) * param.temperature_spread;
      angle_drift[i] = (i - centre) * param.drift_spread;
    }
  }

  void correct_plane(double p[3]) const {
    double difference = 0.0;
    if (param.temperature > -20.0 && param.temperature < 100.0) {
      difference = param.temperature - param.temperature_ref;
    }
    const double scale = param.scale_per_degree * difference + 1.0;
    const double* T = extrinsic.T;
    const double d = T[0] * p[0] + T[1] * p[1] + T[2] * p[2];
    const double q = -((d + 1.0) / d);
    double C[3];
    for (int i = 0; i < 3; ++i) C[i] = q * T[i] + T[i];
    const double e = -((C[1] * scale * p[1] + C[0] * scale * p[0]) + C[2] * scale * p[2]);
    if (1e-30 > std::abs(e)) return;
    const double factor = 1.0 / e;
    for (int i = 0; i < 3; ++i) p[i] *= factor;
  }

  void rotate(const double v[3], double out[3]) const {
    const double* R = plane_rotation.R;
    for (int i = 0; i < 3; ++i) {
      out[i] = R[3 * i] * v[0] + R[3 * i + 1] * v[1] + R[3 * i + 2] * v[2];
    }
  }

  void compensate_cell(const double pivot[3], double cell[3]) const {
    if (cell[0] == 0.0) return;
    correct_plane(cell);
    double X[3] = {0.0, 0.0, 100.0};
    if (std::abs(cell[0]) > 1e-30) X[0] = -((cell[2] * 100.0 + 1.0) / cell[0]);
    double D[3];
    for (int i = 0; i < 3; ++i) D[i] = X[i] - pivot[i];
    double n[3];
    rotate(cell, n);
    double Y[3];
    rotate(D, Y);
    for (int i = 0; i < 3; ++i) Y[i] += pivot[i];
    double d = -((Y[1] * n[1] + Y[0] * n[0]) + Y[2] * n[2]);
    if (1e-30 > std::abs(d)) d = 1e-30;
    const double factor = 1.0 / d;
    for (int i = 0; i < 3; ++i) cell[i] = n[i] * factor;
  }

  void compensate(std::int32_t first, std::int32_t last) {
    for (std::int32_t i = first; i < last; ++i) {
      kestrane::_LASER_PLANE_BLOCK_INFO& row = planes[i];
      double p[3];
      std::memcpy(p, row.laser_plane_R, sizeof p);
      correct_plane(p);
      const double* T = extrinsic.T;
      const double d = T[0] * p[0] + T[1] * p[1] + T[2] * p[2];
      const double q = -((d + 1.0) / d);
      for (int k = 0; k < 3; ++k) row.pivot[k] = q * T[k] + T[k];
      const double angle = angle_drift[i] * param.drift_gain * (param.drift - param.drift_ref) +
                           (param.temperature - param.temperature_ref) * angle_temperature[i];
      const double s = std::sin(angle);
      const double c = std::cos(angle);
      const double R[9] = {c, 0.0, -s, 0.0, 1.0, 0.0, s, 0.0, c};
      std::memcpy(plane_rotation.R, R, sizeof R);
      for (std::int32_t j = 0; j < row.block.count; ++j) {
        const kestrane::_LASER_LINE_INFOS& line = row.block.lines[j];
        for (std::int32_t k = 0; k < line.count; ++k) compensate_cell(row.pivot, line.cells[k].v);
      }
    }
  }
};

}  // namespace literal
