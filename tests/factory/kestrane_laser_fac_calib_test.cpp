#include <gtest/gtest.h>
#include <malloc.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "factory/factory_calibrator.h"
#include "kestrane/buffers.h"
#include "kestrane/factory_calib.h"
#include "simulation/host_table.h"
#include "simulation/random.h"
#include "tests/support/starved_heap.h"

namespace {

using kestrane::KESTRANE_LASER_FAC_CALIB;
using kestrane::KestraneLaserFactoryCalibrator;
using simulation::HostTable;
using simulation::Random;
using Cloud = std::vector<_KESTRANE_ID_POINT3D>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kGuard = 2.220446049250313e-16;

double slope(double degrees) { return std::tan(degrees * 3.14159265358979323846 / 180.0); }

// Points of the plane x = offset + 0.05 y - 0.1 z over an angle of the fan and a range of depths.
Cloud sheet(double offset, int count, std::uint64_t seed, double from = -30.0, double to = 30.0,
            double near = 160.0, double far = 990.0) {
  Random random(seed);
  Cloud cloud;
  for (int i = 0; i < count; ++i) {
    const double z = random.uniform(near, far);
    const double y = slope(random.uniform(from, to)) * z;
    cloud.push_back({offset + 0.05 * y - 0.1 * z, y, z, i % 10});
  }
  return cloud;
}

_KESTRANE_ID_POINT3DS view(Cloud& cloud) {
  return {cloud.data(), static_cast<std::int32_t>(cloud.size())};
}

// The first `rows` rows of the calibrator's table. The counts are the calibrator's.
HostTable table_of(KESTRANE_LASER_FAC_CALIB& calib, int rows) {
  HostTable table(rows);
  table.set_counts(0, 0);
  EXPECT_EQ(calib.get_laser_plane_infos(table.infos()), KESTRANE_OK);
  return table;
}

// Every number of a row that a run writes.
std::vector<double> values_of(const HostTable& table, int plane) {
  const _MRV_LASER_PLANE_BLOCK_INFO& row = table.row(plane);
  std::vector<double> result(row.laser_plane_R, row.laser_plane_R + 3);
  result.push_back(row.block.count);
  for (int j = 0; j < row.block.count; ++j) {
    result.push_back(row.block.lines[j].count);
    for (int k = 0; k < row.block.lines[j].count; ++k) {
      for (const double v : row.block.lines[j].cells[k].v) result.push_back(v);
    }
  }
  return result;
}

// Indicator and corner records of `planes` planes.
struct HostRecords {
  explicit HostRecords(int planes) {
    EXPECT_EQ(indicators.init(planes), KESTRANE_OK);
    EXPECT_EQ(corners.init(planes), KESTRANE_OK);
  }
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
};

class FacCalib : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(calib.init(), KESTRANE_OK); }

  _KESTRANE_STATUS run(int plane_index, Cloud cloud) {
    return calib.factory_calib(plane_index, view(cloud));
  }

  KESTRANE_LASER_FAC_CALIB calib;
};

// The block of the table.

TEST(FactoryBlock, TakesOneMillionNineHundredFiftyThousandNineHundredSeventySixBytes) {
  KestraneLaserFactoryCalibrator engine;
  EXPECT_EQ(engine.alloc_buf_size(nullptr, false), 1950976);
  EXPECT_EQ(engine.plane_table().planes, nullptr);
}

TEST(FactoryBlock, HoldsGridsThenRowsThenEachPlanesLines) {
  KestraneLaserFactoryCalibrator engine;
  std::vector<unsigned char> block(1950976);
  EXPECT_EQ(engine.alloc_buf_size(block.data(), true), 1950976);
  const auto offset = [&](const void* p) {
    return static_cast<const unsigned char*>(p) - block.data();
  };
  const auto& table = engine.plane_table();
  EXPECT_EQ(offset(table.grids), 0);
  EXPECT_EQ(offset(table.planes), 1280);
  for (int p = 0; p < 100; ++p) {
    const std::ptrdiff_t slab = 1280 + 4096 + 19456 * std::ptrdiff_t{p};
    EXPECT_EQ(offset(table.planes[p].block.lines), slab);
    EXPECT_EQ(table.planes[p].block.count, 0);
    for (int j = 0; j < 15; ++j) {
      EXPECT_EQ(offset(table.planes[p].block.lines[j].cells), slab + 256 + 1280 * j);
    }
  }
}

TEST(FactoryEngine, StartsEmptyAndBuildsItsGridInInit) {
  KestraneLaserFactoryCalibrator engine;
  EXPECT_TRUE(engine.nominal_rays().empty());
  ASSERT_TRUE(engine.init());
  EXPECT_EQ(engine.nominal_rays().size(), 16u);
  EXPECT_EQ(engine.fan_divider_normals().size(), 16u);
  EXPECT_EQ(engine.plane_table().plane_count, 0);
  EXPECT_EQ(engine.plane_table().grids->grid_z[50], 1500.0);
}

// Settings.

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

Cloud noisy_sheet(double offset, int count, std::uint64_t seed) {
  Cloud cloud = sheet(offset, count, seed);
  Random random(seed + 1000);
  for (auto& point : cloud) point.x += 0.05 * random.gaussian();
  return cloud;
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

TEST_F(FacCalib, TakesAnyLaserTypeAndActsOnTheFarOneAlone) {
  for (const int type : {7, 0, -1, 2}) {
    EXPECT_EQ(calib.set_laser_type(static_cast<kestrane::_LASER_TYPE>(type)), KESTRANE_OK);
    EXPECT_EQ(run(0, sheet(150.0, 6000, 2, -30.0, 30.0, 110.0, 219.9)), KESTRANE_OK) << type;
  }
  EXPECT_EQ(calib.set_laser_type(kestrane::LASER_TYPE_FAR), KESTRANE_OK);
  EXPECT_EQ(run(0, sheet(150.0, 6000, 2, -30.0, 30.0, 110.0, 219.9)), KESTRANE_ERR_FAILED);
  EXPECT_EQ(run(0, sheet(150.0, 6000, 2, -30.0, 30.0, 220.0, 400.0)), KESTRANE_OK);
}

TEST_F(FacCalib, FitsTheWholePlaneToTheFarBandForTheFarTypeAlone) {
  Cloud cloud = sheet(150.0, 3000, 34, -30.0, 30.0, 110.0, 219.9);
  for (const auto& point : sheet(151.0, 6000, 35, -30.0, 30.0, 220.0, 400.0)) {
    cloud.push_back(point);
  }
  constexpr double kRounding = 1e-12;
  ASSERT_EQ(calib.set_laser_type(kestrane::LASER_TYPE_FAR), KESTRANE_OK);
  ASSERT_EQ(run(0, cloud), KESTRANE_OK);
  EXPECT_NEAR(table_of(calib, 1).row(0).laser_plane_R[0], -1.0 / 151.0, kRounding);
  ASSERT_EQ(calib.set_laser_type(kestrane::LASER_TYPE_STANDARD), KESTRANE_OK);
  ASSERT_EQ(run(0, cloud), KESTRANE_OK);
  EXPECT_GT(std::abs(table_of(calib, 1).row(0).laser_plane_R[0] + 1.0 / 151.0), 1e-6);
}

// Refusals of a run.

TEST_F(FacCalib, RefusesNoPointsBeforeItLooksAtThePointer) {
  EXPECT_EQ(calib.factory_calib(0, {nullptr, 0}), KESTRANE_ERR_INVALID_PARAM);
  Cloud cloud(1);
  EXPECT_EQ(calib.factory_calib(0, {cloud.data(), 0}), KESTRANE_ERR_INVALID_PARAM);
}

TEST_F(FacCalib, RefusesANullPointer) {
  EXPECT_EQ(calib.factory_calib(0, {nullptr, 10}), KESTRANE_ERR_NULL_POINTER);
}

TEST_F(FacCalib, FailsWhenEveryPointWasDropped) {
  Cloud cloud = sheet(150.0, 6000, 3);
  for (auto& point : cloud) point.x = kNaN;
  EXPECT_EQ(run(0, cloud), KESTRANE_ERR_FAILED);
}

TEST_F(FacCalib, FailsWhenEveryPointLiesOutsideTheDepthBand) {
  EXPECT_EQ(run(0, sheet(150.0, 6000, 4, -30.0, 30.0, 50.0, 99.9)), KESTRANE_ERR_FAILED);
  EXPECT_EQ(run(0, sheet(150.0, 6000, 4, -30.0, 30.0, 1000.1, 1400.0)), KESTRANE_ERR_FAILED);
}

TEST_F(FacCalib, FailsWithFewerThanThreePoints) {
  EXPECT_EQ(run(0, sheet(150.0, 1, 5)), KESTRANE_ERR_FAILED);
  EXPECT_EQ(run(0, sheet(150.0, 2, 5)), KESTRANE_ERR_FAILED);
}

TEST_F(FacCalib, FailsWhenNoSectorHasEnoughPoints) {
  // Fifteen sectors of up to 199 points: the whole plane fits, no sector does.
  Cloud cloud;
  for (int s = 0; s < 15; ++s) {
    for (const auto& point :
         sheet(150.0, 199, 60 + static_cast<std::uint64_t>(s), 4.0 * s - 29.9, 4.0 * s - 26.1)) {
      cloud.push_back(point);
    }
  }
  EXPECT_EQ(run(0, cloud), KESTRANE_ERR_FAILED);
}

// A sheet x = 0: its d is exactly zero, since its centroid has no x and its normal nothing else.
TEST_F(FacCalib, FailsWhereTheWholeFitRejectsItsPointsThoughEverySectorWouldFit) {
  // Fifteen sheets side by side, in turn far on either side of the plane between them.
  Cloud cloud;
  for (int s = 0; s < 15; ++s) {
    const double x = s % 2 == 0 ? 100.0 : 200.0;
    for (const auto& point :
         sheet(x, 400, 80 + static_cast<std::uint64_t>(s), 4.0 * s - 29.9, 4.0 * s - 26.1)) {
      cloud.push_back(point);
    }
  }
  EXPECT_EQ(run(0, cloud), KESTRANE_ERR_FAILED);
}

Cloud sheet_through_origin() {
  Cloud cloud;
  for (int i = -20; i <= 20; ++i) {
    for (int k = 0; k < 100; ++k) {
      const double z = 300.0 + k;
      cloud.push_back({0.0, 5.0 * i, z, 0});
    }
  }
  return cloud;
}

TEST_F(FacCalib, FailsOnAPlaneThroughTheOrigin) {
  EXPECT_EQ(run(0, sheet_through_origin()), KESTRANE_ERR_FAILED);
}

TEST_F(FacCalib, RefusesAPlaneBelowTheLimitOfDAndTakesOneOnIt) {
  // The sheet x = offset: its d is exactly -offset or offset, whatever the sign of x.
  Cloud cloud = sheet_through_origin();
  for (const double sign : {1.0, -1.0}) {
    for (auto& point : cloud) point.x = sign * kGuard;
    EXPECT_EQ(run(0, cloud), KESTRANE_OK);
    for (auto& point : cloud) point.x = sign * kGuard / 2.0;
    EXPECT_EQ(run(0, cloud), KESTRANE_ERR_FAILED);
  }
}

TEST_F(FacCalib, HasNoLimitForAPlaneThatBarelyMissesTheOrigin) {
  Cloud cloud = sheet_through_origin();
  for (auto& point : cloud) point.x = 0x1p-40;
  ASSERT_EQ(run(0, cloud), KESTRANE_OK);
  EXPECT_GT(std::abs(table_of(calib, 1).row(0).laser_plane_R[0]), 1e11);
}

TEST_F(FacCalib, LeavesTheTableAsItWasAfterAFailure) {
  ASSERT_EQ(run(0, sheet(150.0, 6000, 6)), KESTRANE_OK);
  ASSERT_EQ(run(1, sheet(190.0, 6000, 7)), KESTRANE_OK);
  const auto before = table_of(calib, 2);
  EXPECT_EQ(run(1, sheet(150.0, 2, 8)), KESTRANE_ERR_FAILED);
  EXPECT_EQ(run(1, sheet(150.0, 900, 8)), KESTRANE_ERR_FAILED);
  EXPECT_EQ(run(1, sheet_through_origin()), KESTRANE_ERR_FAILED);
  const auto after = table_of(calib, 2);
  EXPECT_EQ(values_of(after, 0), values_of(before, 0));
  EXPECT_EQ(values_of(after, 1), values_of(before, 1));
}

TEST(FactoryEngine, KeepsWhatAFailedRunReached) {
  KestraneLaserFactoryCalibrator engine;
  ASSERT_TRUE(engine.init());
  Cloud good = sheet(150.0, 6000, 9);
  ASSERT_TRUE(engine.calibrate_one_plane(0, view(good)));

  Cloud thin = sheet(150.0, 900, 9);  // no sector reaches its fit
  EXPECT_FALSE(engine.calibrate_one_plane(0, view(thin)));
  EXPECT_EQ(engine.cell_points().size(), 15u);
  EXPECT_TRUE(engine.grid_corners().empty());
  EXPECT_TRUE(engine.cell_planes().empty());

  ASSERT_TRUE(engine.calibrate_one_plane(0, view(good)));
  Cloud origin = sheet_through_origin();
  EXPECT_FALSE(engine.calibrate_one_plane(0, view(origin)));
  EXPECT_TRUE(engine.cell_points().empty());
  EXPECT_EQ(engine.laser_plane()[3], 0.0);  // the fit's own result stays
  EXPECT_EQ(std::abs(engine.laser_plane()[0]), 1.0);
}

// A run that succeeds.

TEST_F(FacCalib, GivesAFullTableOfAFlatSheet) {
  ASSERT_EQ(run(3, sheet(150.0, 20000, 10)), KESTRANE_OK);
  const auto table = table_of(calib, 4);
  // x = 150 + 0.05 y - 0.1 z in the form a x + b y + c z + 1 = 0.
  const double expected[3] = {-1.0 / 150.0, 0.05 / 150.0, -0.1 / 150.0};
  // Noiseless points: what remains is the rounding of numbers up to 1000 across a cell of 10.
  constexpr double kRelative = 1e-10;
  const auto& row = table.row(3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(row.laser_plane_R[i], expected[i], kRelative / 150.0);
  }
  ASSERT_EQ(row.block.count, 15);
  for (int j = 0; j < 15; ++j) {
    ASSERT_EQ(row.block.lines[j].count, 50);
    for (int k = 0; k < 50; ++k) {
      for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(row.block.lines[j].cells[k].v[i], expected[i], kRelative / 150.0);
      }
    }
  }
}

// All planes of a run's row, held against the fits that it left.
void expect_divided_by_d_plus_guard(Cloud cloud) {
  KestraneLaserFactoryCalibrator engine;
  ASSERT_TRUE(engine.init());
  ASSERT_TRUE(engine.calibrate_one_plane(42, view(cloud)));
  const auto& row = engine.plane_table().planes[42];
  const auto& whole = engine.laser_plane();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(row.laser_plane_R[i], whole[i] / (whole[3] + kGuard));
  for (std::size_t j = 0; j < 15; ++j) {
    for (std::size_t k = 0; k < 50; ++k) {
      const auto& plane = engine.cell_planes()[j][k];
      for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(row.block.lines[j].cells[k].v[i], plane[i] / (plane[3] + kGuard));
      }
    }
  }
}

TEST(FactoryEngine, DividesAllPlanesByDPlusTheGuard) {
  expect_divided_by_d_plus_guard(noisy_sheet(150.0, 9000, 11));
}

TEST(FactoryEngine, AddsTheGuardWhateverTheSignOfD) {
  // So close to the origin the guard shows in the fourth digit.
  for (const double offset : {0x1p-40, -0x1p-40}) {
    Cloud cloud = sheet_through_origin();
    for (auto& point : cloud) point.x = offset;
    expect_divided_by_d_plus_guard(cloud);
  }
}

TEST_F(FacCalib, FillsTheWholeTableFromPartOfTheFan) {
  ASSERT_EQ(run(0, sheet(150.0, 6000, 12, -10.0, -2.0)), KESTRANE_OK);
  const auto table = table_of(calib, 1);
  for (int j = 0; j < 15; ++j) {
    for (int k = 0; k < 50; ++k) EXPECT_NE(table.row(0).block.lines[j].cells[k].v[0], 0.0);
  }
  HostRecords records(1);
  ASSERT_EQ(calib.get_indicators(0, records.indicators, records.corners), KESTRANE_OK);
  for (int j = 0; j < 15; ++j) {
    bool measured = false;
    for (int k = 0; k < 50; ++k) {
      measured |= records.indicators.planes[0].lines[j].cells[k].v[1] != 0.0;
    }
    EXPECT_EQ(measured, j == 5 || j == 6) << j;  // -10 to -6 and -6 to -2 degrees
  }
}

TEST_F(FacCalib, CountsDroppedPointsTowardsASectorsTwoHundred) {
  // 150 points of sector 7 and 60 dropped ones behind them, which follow into the same sector.
  Cloud cloud = sheet(150.0, 150, 13, -1.5, 1.5);
  EXPECT_EQ(run(0, cloud), KESTRANE_ERR_FAILED);
  for (int i = 0; i < 60; ++i) cloud.push_back({kNaN, 5.0, 400.0, 0});
  EXPECT_EQ(run(0, cloud), KESTRANE_OK);
}

TEST_F(FacCalib, TreatsADroppedPointAsTheOriginWhateverItsYAndZ) {
  Cloud marked = sheet(150.0, 6000, 14);
  Cloud zeroed = marked;
  for (std::size_t i = 0; i < marked.size(); i += 7) {
    marked[i].x = kNaN;
    zeroed[i] = {0.0, 0.0, 0.0, zeroed[i].id};
  }
  ASSERT_EQ(run(0, marked), KESTRANE_OK);
  ASSERT_EQ(run(1, zeroed), KESTRANE_OK);
  const auto table = table_of(calib, 2);
  EXPECT_EQ(values_of(table, 0), values_of(table, 1));
}

TEST_F(FacCalib, LetsAYThatIsNotANumberThrough) {
  Cloud cloud = sheet(150.0, 6000, 15);
  cloud[100].y = kNaN;
  ASSERT_EQ(run(0, cloud), KESTRANE_OK);
  EXPECT_TRUE(std::isnan(table_of(calib, 1).row(0).laser_plane_R[0]));
  cloud[100].y = 0.0;
  cloud[100].x = kInf;
  ASSERT_EQ(run(0, cloud), KESTRANE_OK);
  EXPECT_TRUE(std::isnan(table_of(calib, 1).row(0).block.lines[14].cells[49].v[0]));
}

TEST_F(FacCalib, SurvivesAnOptimisationOfPointsThatAreNotNumbers) {
  ASSERT_EQ(calib.set_optimize_flag(kestrane::KESTRANE_OPTIM_ON), KESTRANE_OK);
  Cloud cloud = sheet(150.0, 6000, 15);
  cloud[100].z = kNaN;
  EXPECT_EQ(run(0, cloud), KESTRANE_OK);
}

TEST_F(FacCalib, RunsThroughCloudsWithNumbersOfEveryKind) {
  // Any coordinate may be any double: no index, list or solver may stumble over it.
  constexpr double kMost = std::numeric_limits<double>::max();
  const std::vector<double> odd = {kNaN, kInf, -kInf, kMost, -kMost, 1e160, -0.0, 0x1p-1074};
  Random random(32);
  for (int round = 0; round < 24; ++round) {
    Cloud cloud = noisy_sheet(150.0, 4500, 33 + static_cast<std::uint64_t>(round));
    const int spoiled = round < 12 ? 1 : 400;
    for (int n = 0; n < spoiled; ++n) {
      auto& point = cloud[static_cast<std::size_t>(random.index(4500))];
      double* const coordinates[3] = {&point.x, &point.y, &point.z};
      *coordinates[random.index(3)] = odd[static_cast<std::size_t>(random.index(8))];
    }
    ASSERT_EQ(calib.set_optimize_flag(static_cast<kestrane::_KESTRANE_OPTIM_FLAG>(round % 2)),
              KESTRANE_OK);
    const _KESTRANE_STATUS status = run(99, cloud);
    if (status != KESTRANE_OK) {
      EXPECT_EQ(status, KESTRANE_ERR_FAILED);
      continue;
    }
    HostRecords records(1);
    ASSERT_EQ(calib.get_indicators(0, records.indicators, records.corners), KESTRANE_OK);
    EXPECT_EQ(records.indicators.planes[0].count, 15);
    EXPECT_EQ(records.corners.planes[0].lines[15].cells[50].v[2], 1500.0);
    EXPECT_EQ(table_of(calib, 100).row(99).block.lines[14].count, 50);
  }
}

TEST_F(FacCalib, IgnoresThePointsIdentifiers) {
  Cloud cloud = noisy_sheet(150.0, 6000, 16);
  ASSERT_EQ(run(0, cloud), KESTRANE_OK);
  for (auto& point : cloud) point.id = -5;
  ASSERT_EQ(run(1, cloud), KESTRANE_OK);
  const auto table = table_of(calib, 2);
  EXPECT_EQ(values_of(table, 0), values_of(table, 1));
}

TEST_F(FacCalib, OverwritesARowAndLeavesTheOthers) {
  ASSERT_EQ(run(0, sheet(150.0, 6000, 17)), KESTRANE_OK);
  ASSERT_EQ(run(99, sheet(190.0, 6000, 18)), KESTRANE_OK);
  const auto before = table_of(calib, 100);
  ASSERT_EQ(run(99, sheet(170.0, 6000, 19)), KESTRANE_OK);
  const auto after = table_of(calib, 100);
  EXPECT_EQ(values_of(after, 0), values_of(before, 0));
  EXPECT_NE(values_of(after, 99), values_of(before, 99));
  EXPECT_NEAR(after.row(99).laser_plane_R[0], -1.0 / 170.0, 1e-10);
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

// Every init leaves its block behind, so a starved process runs out of memory for another one.
void run_out_of_blocks() {
  KESTRANE_LASER_FAC_CALIB calib;
  calib.init();
  starved::starve_heap();
  _KESTRANE_STATUS status = KESTRANE_OK;
  for (int i = 0; i < 1000 && status == KESTRANE_OK; ++i) status = calib.init();
  HostTable table(1);
  table.infos().plane_count = 0;
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

// Reading the table.

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

// Reading the indicators.

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
