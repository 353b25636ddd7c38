// Whole tables against the transcription, in every bit.
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>

#include "tests/compensation/compensated_tables.h"
#include "tests/compensation/scanner_table.h"
#include "tests/support/bits.h"

namespace {

using kestrane_test::compensate_literally;
using kestrane_test::compensated;
using kestrane_test::count_differences;
using kestrane_test::kInf;
using kestrane_test::kNaN;
using kestrane_test::kWarm;
using kestrane_test::scanner_table;
using simulation::HostTable;
using simulation::Random;

// --- comparison with the transcription

_KESTRANE_COMPENSATE_PARAM random_param(Random& random) {
  return {.temperature = random.uniform(-30.0, 110.0),
          .temperature_ref = random.uniform(15.0, 25.0),
          .drift = random.uniform(-2.0, 2.0),
          .drift_ref = random.uniform(-2.0, 2.0),
          .drift_gain = random.uniform(-3.0, 3.0),
          .temperature_spread = random.uniform(-1e-4, 1e-4),
          .drift_spread = random.uniform(-1e-3, 1e-3),
          .scale_per_degree = random.uniform(-1e-3, 1e-3)};
}

_MRV_EXTRINSIC_PARAM random_extrinsic(Random& random) {
  return {{}, {random.uniform(50, 150), random.uniform(-20, 20), random.uniform(-50, 50)}};
}

TEST(Compensate, EqualsTheTranscriptionInEveryBitOverFullTables) {
  Random random(24);
  for (int run = 0; run < 20; ++run) {
    const _KESTRANE_COMPENSATE_PARAM param = random_param(random);
    const _MRV_EXTRINSIC_PARAM extrinsic = random_extrinsic(random);
    HostTable table(23);
    kestrane_test::fill_like_a_scanner(table, random);
    const int first = random.index(10);
    const int last = first + 1 + random.index(13);
    HostTable result = compensated(table, param, first, last, extrinsic);
    compensate_literally(table, param, first, last, extrinsic);
    ASSERT_EQ(count_differences(result, table), 0) << "run " << run;
  }
}

TEST(Compensate, EqualsTheTranscriptionInEveryBitForAHundredPlanes) {
  HostTable table = scanner_table(100, 25);
  HostTable result = compensated(table, kWarm, 0, 100);
  compensate_literally(table, kWarm, 0, 100);
  EXPECT_EQ(count_differences(result, table), 0);
}

// Whole planes and conditions out of any bits at all; most results are not numbers.
TEST(Compensate, EqualsTheTranscriptionInEveryBitOnAwkwardConditions) {
  Random random(26);
  const double values[] = {0.0, -0.0, kInf, -kInf, kNaN, 1e-31, 1e300, -1e-300, 1.0, -20.0, 100.0};
  const auto pick = [&] { return values[random.index(static_cast<int>(std::size(values)))]; };
  for (int run = 0; run < 300; ++run) {
    _KESTRANE_COMPENSATE_PARAM param = random_param(random);
    double* fields[] = {&param.temperature,     &param.temperature_ref, &param.drift,
                        &param.drift_ref,       &param.drift_gain,      &param.temperature_spread,
                        &param.scale_per_degree};
    *fields[random.index(7)] = pick();
    _MRV_EXTRINSIC_PARAM extrinsic = random_extrinsic(random);
    if (run % 2 == 0) extrinsic.T[random.index(3)] = pick();
    HostTable table(2);
    kestrane_test::fill_like_a_scanner(table, random);
    if (run % 3 == 0) table.row(random.index(2)).laser_plane_R[random.index(3)] = pick();
    HostTable result = compensated(table, param, 0, 2, extrinsic);
    compensate_literally(table, param, 0, 2, extrinsic);
    ASSERT_EQ(count_differences(result, table), 0) << "run " << run;
  }
}

}  // namespace
