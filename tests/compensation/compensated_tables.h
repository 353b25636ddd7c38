// Tables on their way through the compensator, and through its transcription.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "kestrane/compensator.h"
#include "simulation/host_table.h"
#include "simulation/random.h"
#include "tests/compensation/scanner_table.h"
#include "tests/literal/compensation.h"

namespace kestrane_test {

// A condition of which only the named fields are not zero.
struct Condition {
  double temperature = 0.0;
  double temperature_ref = 0.0;
  double drift = 0.0;
  double drift_ref = 0.0;
  double drift_gain = 0.0;
  double temperature_spread = 0.0;
  double drift_spread = 0.0;
  double scale_per_degree = 0.0;

  operator _KESTRANE_COMPENSATE_PARAM() const {
    return {temperature, temperature_ref,    drift,        drift_ref,
            drift_gain,  temperature_spread, drift_spread, scale_per_degree};
  }
};

inline constexpr _MRV_EXTRINSIC_PARAM kAcross{{1, 0, 0, 0, 1, 0, 0, 0, 1}, {100.0, 0.0, 0.0}};

inline simulation::HostTable scanner_table(std::int32_t planes, std::uint64_t seed) {
  simulation::Random random(seed);
  simulation::HostTable table(planes);
  fill_like_a_scanner(table, random);
  return table;
}

// Sheets at x = 100, parallel to the y-z plane.
inline simulation::HostTable flat_table(std::int32_t planes) {
  simulation::HostTable table(planes);
  table.fill(-0.01, 0.0, 0.0);
  return table;
}

inline void load(kestrane::KESTRANE_LASER_COMPENSATOR& compensator, simulation::HostTable& table,
                 const _MRV_EXTRINSIC_PARAM& extrinsic = kExtrinsic) {
  _MRV_LASER_PLANE_BLOCK_INFOS record = table.infos();
  record.grids = nullptr;  // not read
  ASSERT_EQ(compensator.init(), KESTRANE_OK);
  ASSERT_EQ(compensator.set_laser_plane_param(record), KESTRANE_OK);
  ASSERT_EQ(compensator.set_extrinsic_matrix(extrinsic), KESTRANE_OK);
}

inline simulation::HostTable result_of(kestrane::KESTRANE_LASER_COMPENSATOR& compensator,
                                       std::int32_t planes) {
  simulation::HostTable table(planes);
  _MRV_LASER_PLANE_BLOCK_INFOS record = table.infos();
  record.grids = nullptr;  // not written
  EXPECT_EQ(compensator.get_compensate_result(record), KESTRANE_OK);
  EXPECT_EQ(record.plane_count, planes);
  return table;
}

// The whole way on a fresh object, fan and work on planes first to last - 1.
inline simulation::HostTable compensated(simulation::HostTable& table,
                                         const _KESTRANE_COMPENSATE_PARAM& param,
                                         std::int32_t first, std::int32_t last,
                                         const _MRV_EXTRINSIC_PARAM& extrinsic = kExtrinsic) {
  kestrane::KESTRANE_LASER_COMPENSATOR compensator;
  load(compensator, table, extrinsic);
  EXPECT_EQ(compensator.set_compensate_param(param, first, last), KESTRANE_OK);
  EXPECT_EQ(compensator.compensate(first, last), KESTRANE_OK);
  return result_of(compensator, table.size());
}

// The transcription over the planes of a fan, in place.
inline void compensate_literally(simulation::HostTable& table,
                                 const _KESTRANE_COMPENSATE_PARAM& param, int first, int last,
                                 const _MRV_EXTRINSIC_PARAM& extrinsic = kExtrinsic) {
  const literal::Vec3 T = {extrinsic.T[0], extrinsic.T[1], extrinsic.T[2]};
  for (int p = first; p < last; ++p) {
    const double* R = table.row(p).laser_plane_R;
    const literal::PlaneTurn turn =
        literal::plane_turn(T, param, p, first, last, {R[0], R[1], R[2]});
    for (int n = 0; n < simulation::HostTable::kLines * simulation::HostTable::kCells; ++n) {
      double* v = table.abc(p, 0, n);
      literal::Vec3 cell = {v[0], v[1], v[2]};
      if (cell[0] == 0.0) continue;
      literal::compensate_cell(T, literal::temperature_scale(param), turn, cell);
      for (std::size_t i = 0; i < 3; ++i) v[i] = cell[i];
    }
  }
}

// The angle by which a plane of `flat_table` was turned.
inline double turn_of(simulation::HostTable& table, std::int32_t plane) {
  const double* cell = table.abc(plane, 7, 20);
  return std::atan(cell[2] / cell[0]);
}

}  // namespace kestrane_test
