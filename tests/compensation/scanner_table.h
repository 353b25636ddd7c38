// Plane tables and conditions like those of a scanner, and the comparison of two tables number by
// number.
#pragma once

#include <cstdint>

#include "simulation/host_table.h"
#include "simulation/random.h"
#include "tests/support/bits.h"

namespace kestrane_test {

// A condition in which every field acts.
inline constexpr _KESTRANE_COMPENSATE_PARAM kWarm{
    .temperature = 35.5,
    .temperature_ref = 21.25,
    .drift = 0.75,
    .drift_ref = 0.5,
    .drift_gain = 1.5,
    .temperature_spread = 1e-5,
    .drift_spread = 2e-4,
    .scale_per_degree = 1e-4,
};

inline constexpr _MRV_EXTRINSIC_PARAM kExtrinsic{{1, 0, 0, 0, 1, 0, 0, 0, 1}, {110.0, 3.0, -7.0}};

// Sheets of nearly constant x, each cell a little off its plane; some cells are empty.
inline void fill_like_a_scanner(simulation::HostTable& table, simulation::Random& random) {
  for (std::int32_t p = 0; p < table.size(); ++p) {
    double* whole = table.row(p).laser_plane_R;
    whole[0] = random.uniform(-0.012, -0.008);
    whole[1] = random.uniform(-1e-5, 1e-5);
    whole[2] = random.uniform(-1e-3, 1e-3);
    for (std::int32_t n = 0; n < simulation::HostTable::kLines * simulation::HostTable::kCells;
         ++n) {
      const bool empty = random.index(10) == 0;
      for (int i = 0; i < 3; ++i) {
        table.abc(p, 0, n)[i] = empty ? 0.0 : whole[i] * random.uniform(0.98, 1.02);
      }
    }
  }
}

// How many numbers of all cells and whole planes differ, counts aside.
inline int count_differences(simulation::HostTable& x, simulation::HostTable& y) {
  int different = 0;
  for (std::int32_t p = 0; p < x.size(); ++p) {
    for (int i = 0; i < 3; ++i) {
      different += same_bits(x.row(p).laser_plane_R[i], y.row(p).laser_plane_R[i]) ? 0 : 1;
    }
    for (std::int32_t n = 0; n < simulation::HostTable::kLines * simulation::HostTable::kCells;
         ++n) {
      for (int i = 0; i < 3; ++i) {
        different += same_bits(x.abc(p, 0, n)[i], y.abc(p, 0, n)[i]) ? 0 : 1;
      }
    }
  }
  return different;
}

}  // namespace kestrane_test
