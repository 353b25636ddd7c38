// The exported class: settings, refusals, and what it hands out.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/factory/factory_host.h"
#include "tests/factory/sheet_clouds.h"
#include "tests/support/starved_heap.h"

namespace {

using namespace sheet_clouds;
using namespace factory_host;

class FacCalib : public ReadyCalibrator {};

// Blocks that stay by design begin with init.
TEST(FacCalibMemory, GivesItsEngineBackWhenItIsDestroyed) {
  constexpr int kRuns = 1000;
  const auto in_use = [] { return mallinfo2().uordblks; };
  { const KESTRANE_LASER_FAC_CALIB first; }
  const std::size_t before = in_use();
  for (int i = 0; i < kRuns; ++i) {
    const KESTRANE_LASER_FAC_CALIB calib;
  }
  EXPECT_LT(in_use(), before + kRuns);  // less than a byte each
}

TEST_F(FacCalib, TakesBothOptimiseFlagsAndRefusesAllOthers) {
  using kestrane::_KESTRANE_OPTIM_FLAG;
  EXPECT_EQ(calib.set_optimize_flag(kestrane::KESTRANE_OPTIM_ON), KESTRANE_OK);
  EXPECT_EQ(calib.set_optimize_flag(kestrane::KESTRANE_OPTIM_OFF), KESTRANE_OK);
  for (const int bad : {2, 3, -1, 0x7fffffff}) {
    EXPECT_EQ(calib.set_optimize_flag(static_cast<_KESTRANE_OPTIM_FLAG>(bad)),
              KESTRANE_ERR_INVALID_PARAM);
  }
}

TEST_F(FacCalib, KeepsItsFlagWhenItRefusesAnother) {
  ASSERT_EQ(run(0, noisy_sheet(150.0, 8000, 1)), KESTRANE_OK);
  const auto plain = values_of(table_of(calib, 1), 0);
  ASSERT_EQ(calib.set_optimize_flag(kestrane::KESTRANE_OPTIM_ON), KESTRANE_OK);
  ASSERT_EQ(run(0, noisy_sheet(150.0, 8000, 1)), KESTRANE_OK);
  EXPECT_NE(values_of(table_of(calib, 1), 0), plain);
  EXPECT_EQ(calib.set_optimize_flag(static_cast<kestrane::_KESTRANE_OPTIM_FLAG>(2)),
            KESTRANE_ERR_INVALID_PARAM);
  ASSERT_EQ(run(0, noisy_sheet(150.0, 8000, 1)), KESTRANE_OK);
  EXPECT_NE(values_of(table_of(calib, 1), 0), plain);
  ASSERT_EQ(calib.set_optimize_flag(kestrane::KESTRANE_OPTIM_OFF), KESTRANE_OK);
  ASSERT_EQ(run(0, noisy_sheet(150.0, 8000, 1)), KESTRANE_OK);
  EXPECT_EQ(values_of(table_of(calib, 1), 0), plain);
}

TEST_F(FacCalib, RefusesNoPointsBeforeItLooksAtThePointer) {
  EXPECT_EQ(calib.factory_calib(0, {nullptr, 0}), KESTRANE_ERR_INVALID_PARAM);
  Cloud cloud(1);
  EXPECT_EQ(calib.factory_calib(0, {cloud.data(), 0}), KESTRANE_ERR_INVALID_PARAM);
}

TEST_F(FacCalib, RefusesANullPointer) {
  EXPECT_EQ(calib.factory_calib(0, {nullptr, 10}), KESTRANE_ERR_NULL_POINTER);
}

TEST_F(FacCalib, PrintsNothing) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  calib.set_optimize_flag(kestrane::KESTRANE_OPTIM_ON);
  EXPECT_EQ(run(0, noisy_sheet(150.0, 8000, 1)), KESTRANE_OK);
  EXPECT_EQ(run(0, sheet(150.0, 20, 1)), KESTRANE_ERR_FAILED);
  std::fflush(stdout);
  std::fflush(stderr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(FacCalib, StartsBlankAfterASecondInit) {
  ASSERT_EQ(run(0, sheet(150.0, 6000, 20)), KESTRANE_OK);
  ASSERT_EQ(calib.init(), KESTRANE_OK);
  EXPECT_EQ(table_of(calib, 1).row(0).block.count, 0);
  EXPECT_EQ(run(0, sheet(150.0, 6000, 20)), KESTRANE_OK);
  EXPECT_EQ(table_of(calib, 1).row(0).block.count, 15);
}

// Every init leaves its block allocated, so a starved process runs out of memory for another one.
void run_out_of_blocks() {
  KESTRANE_LASER_FAC_CALIB calib;
  calib.init();
  HostTable table(1);  // a starved heap may have no room for it
  table.infos().plane_count = 0;
  starved::starve_heap();
  _KESTRANE_STATUS status = KESTRANE_OK;
  for (int i = 0; i < 1000 && status == KESTRANE_OK; ++i) status = calib.init();
  const bool works = calib.get_laser_plane_infos(table.infos()) == KESTRANE_OK &&
                     table.infos().grids->grid_z[50] == 1500.0;
  std::_Exit(status == KESTRANE_ERR_FAILED && works ? 0 : 1);
}

TEST(FacCalibDeathTest, ReportsAnInitThatFindsNoMemoryAndChangesNothing) {
  if (!starved::kHeapCanRunOut) GTEST_SKIP() << "the sanitizer owns the heap";
  EXPECT_EXIT(run_out_of_blocks(), testing::ExitedWithCode(0), "");
}

TEST_F(FacCalib, SharesNothingWithAnotherObject) {
  KESTRANE_LASER_FAC_CALIB other;
  ASSERT_EQ(other.init(), KESTRANE_OK);
  ASSERT_EQ(run(0, sheet(150.0, 6000, 21)), KESTRANE_OK);
  EXPECT_EQ(table_of(other, 1).row(0).block.count, 0);
}

TEST_F(FacCalib, NeedsBothPointersOfTheHostsTable) {
  HostTable table(1);
  _MRV_LASER_PLANE_BLOCK_INFOS broken = table.infos();
  broken.planes = nullptr;
  EXPECT_EQ(calib.get_laser_plane_infos(broken), KESTRANE_ERR_NULL_POINTER);
  broken = table.infos();
  broken.grids = nullptr;
  EXPECT_EQ(calib.get_laser_plane_infos(broken), KESTRANE_ERR_NULL_POINTER);
  EXPECT_EQ(table.infos().grids->grid_z[0], 0.0);
}

TEST_F(FacCalib, KeepsTheHostsGridHeadAndReplacesTheRest) {
  HostTable table(1);
  *table.infos().grids = {{9, -8, 7, 6}, {1.0}, {2.0}, {3.0}, 4.0, 5.0};
  table.infos().plane_count = 0;
  ASSERT_EQ(calib.get_laser_plane_infos(table.infos()), KESTRANE_OK);
  EXPECT_EQ(table.infos().grids->grid_head[0], 9);
  EXPECT_EQ(table.infos().grids->grid_head[1], -8);
  EXPECT_EQ(table.infos().grids->grid_head[2], 7);
  EXPECT_EQ(table.infos().grids->grid_head[3], 6);
  EXPECT_EQ(table.infos().grids->grid_z[0], 150.0);
  EXPECT_EQ(table.infos().grids->grid_z[50], 1500.0);
  EXPECT_EQ(table.infos().grids->z_start, 150.0);
  EXPECT_EQ(table.infos().grids->z_step, 27.0);
  volatile double thirty_degrees = 0.5235987755982988;
  for (int k = 0; k <= 50; ++k) {
    const double w = std::tan(thirty_degrees) * table.infos().grids->grid_z[k];
    EXPECT_EQ(table.infos().grids->grid_y_start[k], -w);
    EXPECT_EQ(table.infos().grids->grid_y_step[k], (w + w) / 15);
  }
}

TEST_F(FacCalib, HandsOutAsManyRowsAsTheHostCounts) {
  ASSERT_EQ(run(0, sheet(150.0, 6000, 22)), KESTRANE_OK);
  ASSERT_EQ(run(1, sheet(170.0, 6000, 23)), KESTRANE_OK);
  for (const int count : {-3, 0, 1}) {
    HostTable table(2);
    table.set_counts(0, 0);
    table.infos().plane_count = count;
    ASSERT_EQ(calib.get_laser_plane_infos(table.infos()), KESTRANE_OK);
    EXPECT_EQ(table.infos().plane_count, count);
    EXPECT_EQ(table.row(0).block.count, count > 0 ? 15 : 0);
    EXPECT_EQ(table.row(1).block.count, 0);
  }
}

TEST_F(FacCalib, LeavesTheHostsPointersAlone) {
  ASSERT_EQ(run(0, sheet(150.0, 6000, 24)), KESTRANE_OK);
  HostTable table(1);
  const auto* lines = table.row(0).block.lines;
  const auto* cells = table.row(0).block.lines[7].cells;
  ASSERT_EQ(calib.get_laser_plane_infos(table.infos()), KESTRANE_OK);
  EXPECT_EQ(table.row(0).block.lines, lines);
  EXPECT_EQ(table.row(0).block.lines[7].cells, cells);
}

TEST_F(FacCalib, ChecksTheIndicatorArgumentsInOrder) {
  HostRecords records(2);
  const kestrane::_LASER_PLANE_INDICATORS_INFOS good = records.indicators;
  const kestrane::_LASER_PLANE_GRID_CORNERS_INFOS corners_good = records.corners;
  auto indicators = good;
  auto corners = corners_good;
  // Everything is wrong; mending one thing after the other brings up the next status.
  indicators.planes = nullptr;
  indicators.plane_count = 3;
  corners.planes = nullptr;
  corners.plane_count = 3;
  EXPECT_EQ(calib.get_indicators(-1, indicators, corners), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(calib.get_indicators(3, indicators, corners), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(calib.get_indicators(0, indicators, corners), KESTRANE_ERR_NULL_POINTER);
  indicators.planes = good.planes;
  EXPECT_EQ(calib.get_indicators(0, indicators, corners), KESTRANE_ERR_INVALID_PARAM);
  indicators.plane_count = 2;
  EXPECT_EQ(calib.get_indicators(0, indicators, corners), KESTRANE_ERR_NULL_POINTER);
  corners.planes = corners_good.planes;
  EXPECT_EQ(calib.get_indicators(0, indicators, corners), KESTRANE_ERR_INVALID_PARAM);
  corners.plane_count = 2;
  ASSERT_EQ(run(0, sheet(150.0, 6000, 25)), KESTRANE_OK);
  EXPECT_EQ(calib.get_indicators(0, indicators, corners), KESTRANE_OK);
}

TEST_F(FacCalib, HoldsEachRecordAgainstItsOwnCapacity) {
  ASSERT_EQ(run(0, noisy_sheet(150.0, 6000, 36)), KESTRANE_OK);
  const HostRecords few(1);
  const HostRecords many(3);
  kestrane::_LASER_PLANE_INDICATORS_INFOS indicators = few.indicators;
  kestrane::_LASER_PLANE_GRID_CORNERS_INFOS corners = many.corners;
  EXPECT_EQ(calib.get_indicators(0, indicators, corners), KESTRANE_OK);
  indicators = many.indicators;
  corners = few.corners;
  EXPECT_EQ(calib.get_indicators(0, indicators, corners), KESTRANE_OK);
  corners.plane_count = 2;
  EXPECT_EQ(calib.get_indicators(0, indicators, corners), KESTRANE_ERR_INVALID_PARAM);
}

TEST_F(FacCalib, WritesNothingWhenItRefusesAnIndex) {
  ASSERT_EQ(run(0, noisy_sheet(150.0, 6000, 26)), KESTRANE_OK);
  HostRecords records(2);
  EXPECT_EQ(calib.get_indicators(2, records.indicators, records.corners),
            KESTRANE_ERR_INVALID_PARAM);
  for (int p = 0; p < 2; ++p) {
    for (int j = 0; j < 15; ++j) {
      for (int k = 0; k < 50; ++k) {
        for (const double v : records.indicators.planes[p].lines[j].cells[k].v) EXPECT_EQ(v, 0.0);
        for (const double v : records.corners.planes[p].lines[j].cells[k].v) EXPECT_EQ(v, 0.0);
      }
    }
  }
}

TEST_F(FacCalib, WritesTheLatestRunWhereverTheIndexPoints) {
  ASSERT_EQ(run(7, noisy_sheet(150.0, 6000, 27)), KESTRANE_OK);
  HostRecords records(3);
  for (int p : {0, 2}) {
    auto& indicators = records.indicators.planes[p];
    indicators.count = 1;
    indicators.lines[4].count = 2;
    ASSERT_EQ(calib.get_indicators(p, records.indicators, records.corners), KESTRANE_OK);
    EXPECT_EQ(indicators.count, 15);
    EXPECT_EQ(indicators.lines[4].count, 50);
    EXPECT_EQ(records.corners.planes[p].count, 16);
    EXPECT_EQ(records.corners.planes[p].lines[15].count, 51);
  }
  for (int i = 0; i < 16; ++i) {
    const auto& first = records.corners.planes[0].lines[i];
    const auto& last = records.corners.planes[2].lines[i];
    EXPECT_EQ(std::memcmp(first.cells, last.cells, 51 * sizeof(kestrane::_LASER_TRIPLE)), 0);
  }
  EXPECT_EQ(records.corners.planes[1].lines[3].cells[3].v[2], 0.0);
}

TEST_F(FacCalib, MeasuresAnIndexAgainstTheIndicatorsInUseAlone) {
  ASSERT_EQ(run(0, noisy_sheet(150.0, 6000, 30)), KESTRANE_OK);
  HostRecords records(3);
  records.corners.plane_count = 1;  // the memory of all three planes is there
  ASSERT_EQ(calib.get_indicators(2, records.indicators, records.corners), KESTRANE_OK);
  EXPECT_EQ(records.indicators.planes[2].lines[0].count, 50);
  EXPECT_EQ(records.corners.planes[2].lines[15].cells[50].v[2], 1500.0);
  EXPECT_EQ(records.corners.planes[0].lines[15].cells[50].v[2], 0.0);
}

TEST_F(FacCalib, HandsOutNoIndicatorsAfterARunThatEndedAtItsFirstFit) {
  ASSERT_EQ(run(0, noisy_sheet(150.0, 6000, 31)), KESTRANE_OK);
  ASSERT_EQ(run(0, sheet(150.0, 2, 31)), KESTRANE_ERR_FAILED);
  HostRecords records(1);
  ASSERT_EQ(calib.get_indicators(0, records.indicators, records.corners), KESTRANE_OK);
  EXPECT_EQ(records.indicators.planes[0].count, 0);
  EXPECT_EQ(records.corners.planes[0].count, 0);
}

TEST_F(FacCalib, HandsOutCornersOnTheSheetAtTheNominalPositions) {
  ASSERT_EQ(run(0, sheet(150.0, 20000, 28)), KESTRANE_OK);
  HostRecords records(1);
  ASSERT_EQ(calib.get_indicators(0, records.indicators, records.corners), KESTRANE_OK);
  constexpr double kRounding = 1e-9;
  for (int i = 0; i < 16; ++i) {
    for (int k = 0; k < 51; ++k) {
      const double* corner = records.corners.planes[0].lines[i].cells[k].v;
      EXPECT_EQ(corner[2], 150.0 + 27.0 * k);
      EXPECT_NEAR(corner[1], slope(4.0 * i - 30.0) * corner[2], kRounding);
      EXPECT_NEAR(corner[0], 150.0 + 0.05 * corner[1] - 0.1 * corner[2], kRounding);
    }
  }
}

TEST_F(FacCalib, MeasuresTheNoiseInItsIndicators) {
  ASSERT_EQ(run(0, noisy_sheet(150.0, 60000, 29)), KESTRANE_OK);
  HostRecords records(1);
  ASSERT_EQ(calib.get_indicators(0, records.indicators, records.corners), KESTRANE_OK);
  double sum = 0.0;
  int measured = 0;
  for (int j = 0; j < 15; ++j) {
    for (int k = 0; k < 50; ++k) {
      const double* cell = records.indicators.planes[0].lines[j].cells[k].v;
      if (cell[1] == 0.0) continue;
      EXPECT_LE(cell[2], 0.15);
      EXPECT_GE(cell[0], cell[1]);
      sum += cell[2];
      ++measured;
    }
  }
  EXPECT_GT(measured, 400);
  // Noise of 0.05 in x, cut at two sigma by the sector fits: 0.88 of it remains.
  EXPECT_NEAR(sum / measured, 0.05 * 0.88, 0.003);
}

}  // namespace
