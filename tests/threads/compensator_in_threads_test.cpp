// KESTRANE_LASER_COMPENSATOR: two devices in two threads.
#include <gtest/gtest.h>

#include "kestrane/compensator.h"
#include "simulation/random.h"
#include "tests/compensation/scanner_table.h"
#include "tests/threads/beside.h"

namespace {

using simulation::HostTable;
using threads::Figures;

constexpr int kRounds = 20;

Figures figures_of(HostTable& table) {
  Figures figures;
  for (std::int32_t p = 0; p < table.size(); ++p) {
    for (const double value : table.row(p).laser_plane_R) figures.push_back(value);
    for (std::int32_t n = 0; n < HostTable::kLines * HostTable::kCells; ++n) {
      for (int i = 0; i < 3; ++i) figures.push_back(table.abc(p, 0, n)[i]);
    }
  }
  return figures;
}

_KESTRANE_COMPENSATE_PARAM condition_of(int device) {
  _KESTRANE_COMPENSATE_PARAM param = {};
  param.temperature = 30.0 + device;
  param.temperature_ref = 20.0;
  param.scale_per_degree = 2e-5;
  param.temperature_spread = 1e-6;
  param.drift = 0.5;
  param.drift_gain = 2.0;
  param.drift_spread = 1e-5;
  return param;
}

// The whole order of calls, twice: the second `init` drops the store of the first.
Figures compensate(int device) {
  simulation::Random random(11 + static_cast<std::uint64_t>(device));
  constexpr std::int32_t kPlanes = 8;
  HostTable table(kPlanes);
  kestrane_test::fill_like_a_scanner(table, random);
  HostTable result(kPlanes);
  _MRV_LASER_PLANE_BLOCK_INFOS out = result.infos();
  const _MRV_EXTRINSIC_PARAM extrinsic = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {120.0, 3.0, -5.0}};
  kestrane::KESTRANE_LASER_COMPENSATOR compensator;
  for (int pass = 0; pass < 2; ++pass) {
    EXPECT_EQ(compensator.init(), KESTRANE_OK);
    EXPECT_EQ(compensator.set_laser_plane_param(table.infos()), KESTRANE_OK);
    EXPECT_EQ(compensator.set_extrinsic_matrix(extrinsic), KESTRANE_OK);
    EXPECT_EQ(compensator.set_compensate_param(condition_of(device), 0, kPlanes), KESTRANE_OK);
    EXPECT_EQ(compensator.compensate(0, kPlanes), KESTRANE_OK);
    EXPECT_EQ(compensator.get_compensate_result(out), KESTRANE_OK);
  }
  return figures_of(result);
}

TEST(TwoThreads, CompensateTwoDevicesAsOneThreadDoes) {
  threads::expect_equal_bits(compensate, kRounds);
}

}  // namespace
