#include "quality/factory/job.h"

#include <gtest/gtest.h>

#include "tests/support/bits.h"

namespace {

using kestrane::_LASER_TRIPLE;
using kestrane::quality::JobRun;
using kestrane_test::kInf;
using kestrane_test::kNaN;

// A success with one block among empty ones.
JobRun run_with(const _LASER_TRIPLE& cell) {
  JobRun run;
  run.status = KESTRANE_OK;
  run.whole_plane[0] = -0.01;
  run.cells.assign(750, {{0.0, 0.0, 0.0}});
  run.cells[749] = cell;
  return run;
}

TEST(JobRun, HasATableWithOneBlock) {
  EXPECT_TRUE(run_with({{-0.01, 0.0, 0.0}}).has_table());
  EXPECT_TRUE(run_with({{1e-17, 0.01, 0.0}}).has_table());
  EXPECT_TRUE(run_with({{1e-17, 0.0, 0.01}}).has_table());
}

TEST(JobRun, HasNoTableWithoutABlock) {
  for (const _LASER_TRIPLE& cell : {_LASER_TRIPLE{{0.0, 0.0, 0.0}},
                                    {{0.0, 0.01, 0.01}},
                                    {{kNaN, 0.0, 0.0}},
                                    {{-0.01, kInf, 0.0}},
                                    {{-0.01, 0.0, kNaN}},
                                    {{1e-17, 1e-17, -1e-17}}}) {
    EXPECT_FALSE(run_with(cell).has_table()) << cell.v[0] << " " << cell.v[1] << " " << cell.v[2];
  }
}

TEST(JobRun, HasNoTableAfterAFailureOrWithoutAWholePlane) {
  JobRun run = run_with({{-0.01, 0.0, 0.0}});
  run.status = KESTRANE_ERR_FAILED;
  EXPECT_FALSE(run.has_table());
  for (double& number : run.whole_plane) {
    run = run_with({{-0.01, 0.0, 0.0}});
    number = kNaN;
    EXPECT_FALSE(run.has_table());
    number = -kInf;
    EXPECT_FALSE(run.has_table());
  }
  EXPECT_FALSE(JobRun().has_table());
}

}  // namespace
