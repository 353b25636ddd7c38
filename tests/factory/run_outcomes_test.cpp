// Which clouds a run takes, which ones it refuses, and what it then leaves in the table.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "tests/factory/factory_host.h"
#include "tests/factory/sheet_clouds.h"
#include "tests/support/bits.h"

namespace {

using namespace sheet_clouds;
using namespace factory_host;

using kestrane_test::kInf;
using kestrane_test::kNaN;
constexpr double kGuard = 2.220446049250313e-16;

class FactoryRuns : public ReadyCalibrator {};

TEST_F(FactoryRuns, TakesAnyLaserTypeAndActsOnTheFarOneAlone) {
  for (const int type : {7, 0, -1, 2}) {
    EXPECT_EQ(calib.set_laser_type(static_cast<kestrane::_LASER_TYPE>(type)), KESTRANE_OK);
    EXPECT_EQ(run(0, sheet(150.0, 6000, 2, -30.0, 30.0, 110.0, 219.9)), KESTRANE_OK) << type;
  }
  EXPECT_EQ(calib.set_laser_type(kestrane::LASER_TYPE_FAR), KESTRANE_OK);
  EXPECT_EQ(run(0, sheet(150.0, 6000, 2, -30.0, 30.0, 110.0, 219.9)), KESTRANE_ERR_FAILED);
  EXPECT_EQ(run(0, sheet(150.0, 6000, 2, -30.0, 30.0, 220.0, 400.0)), KESTRANE_OK);
}

TEST_F(FactoryRuns, FitsTheWholePlaneToTheFarBandForTheFarTypeAlone) {
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

TEST_F(FactoryRuns, FailsWhenEveryPointWasDropped) {
  Cloud cloud = sheet(150.0, 6000, 3);
  for (auto& point : cloud) point.x = kNaN;
  EXPECT_EQ(run(0, cloud), KESTRANE_ERR_FAILED);
}

TEST_F(FactoryRuns, FailsWhenEveryPointLiesOutsideTheDepthBand) {
  EXPECT_EQ(run(0, sheet(150.0, 6000, 4, -30.0, 30.0, 50.0, 99.9)), KESTRANE_ERR_FAILED);
  EXPECT_EQ(run(0, sheet(150.0, 6000, 4, -30.0, 30.0, 1000.1, 1400.0)), KESTRANE_ERR_FAILED);
}

TEST_F(FactoryRuns, FailsWithFewerThanThreePoints) {
  EXPECT_EQ(run(0, sheet(150.0, 1, 5)), KESTRANE_ERR_FAILED);
  EXPECT_EQ(run(0, sheet(150.0, 2, 5)), KESTRANE_ERR_FAILED);
}

TEST_F(FactoryRuns, FailsWhenNoSectorHasEnoughPoints) {
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

TEST_F(FactoryRuns, FailsWhereTheWholeFitRejectsItsPointsThoughEverySectorWouldFit) {
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

TEST_F(FactoryRuns, FailsOnAPlaneThroughTheOrigin) {
  EXPECT_EQ(run(0, sheet_through_origin()), KESTRANE_ERR_FAILED);
}

TEST_F(FactoryRuns, RefusesAPlaneBelowTheLimitOfDAndTakesOneOnIt) {
  // The sheet x = offset: its d is exactly -offset or offset, whatever the sign of x.
  Cloud cloud = sheet_through_origin();
  for (const double sign : {1.0, -1.0}) {
    for (auto& point : cloud) point.x = sign * kGuard;
    EXPECT_EQ(run(0, cloud), KESTRANE_OK);
    for (auto& point : cloud) point.x = sign * kGuard / 2.0;
    EXPECT_EQ(run(0, cloud), KESTRANE_ERR_FAILED);
  }
}

TEST_F(FactoryRuns, HasNoLimitForAPlaneThatBarelyMissesTheOrigin) {
  Cloud cloud = sheet_through_origin();
  for (auto& point : cloud) point.x = 0x1p-40;
  ASSERT_EQ(run(0, cloud), KESTRANE_OK);
  EXPECT_GT(std::abs(table_of(calib, 1).row(0).laser_plane_R[0]), 1e11);
}

TEST_F(FactoryRuns, LeavesTheTableAsItWasAfterAFailure) {
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

TEST_F(FactoryRuns, GivesAFullTableOfAFlatSheet) {
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

TEST_F(FactoryRuns, FillsTheWholeTableFromPartOfTheFan) {
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

TEST_F(FactoryRuns, CountsDroppedPointsTowardsASectorsTwoHundred) {
  // 150 points of sector 7 and 60 dropped ones after them, which follow into the same sector.
  Cloud cloud = sheet(150.0, 150, 13, -1.5, 1.5);
  EXPECT_EQ(run(0, cloud), KESTRANE_ERR_FAILED);
  for (int i = 0; i < 60; ++i) cloud.push_back({kNaN, 5.0, 400.0, 0});
  EXPECT_EQ(run(0, cloud), KESTRANE_OK);
}

TEST_F(FactoryRuns, TreatsADroppedPointAsTheOriginWhateverItsYAndZ) {
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

TEST_F(FactoryRuns, LetsAYThatIsNotANumberThrough) {
  Cloud cloud = sheet(150.0, 6000, 15);
  cloud[100].y = kNaN;
  ASSERT_EQ(run(0, cloud), KESTRANE_OK);
  EXPECT_TRUE(std::isnan(table_of(calib, 1).row(0).laser_plane_R[0]));
  cloud[100].y = 0.0;
  cloud[100].x = kInf;
  ASSERT_EQ(run(0, cloud), KESTRANE_OK);
  EXPECT_TRUE(std::isnan(table_of(calib, 1).row(0).block.lines[14].cells[49].v[0]));
}

TEST_F(FactoryRuns, SurvivesAnOptimisationOfPointsThatAreNotNumbers) {
  ASSERT_EQ(calib.set_optimize_flag(kestrane::KESTRANE_OPTIM_ON), KESTRANE_OK);
  Cloud cloud = sheet(150.0, 6000, 15);
  cloud[100].z = kNaN;
  EXPECT_EQ(run(0, cloud), KESTRANE_OK);
}

TEST_F(FactoryRuns, RunsThroughCloudsWithNumbersOfEveryKind) {
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

TEST_F(FactoryRuns, IgnoresThePointsIdentifiers) {
  Cloud cloud = noisy_sheet(150.0, 6000, 16);
  ASSERT_EQ(run(0, cloud), KESTRANE_OK);
  for (auto& point : cloud) point.id = -5;
  ASSERT_EQ(run(1, cloud), KESTRANE_OK);
  const auto table = table_of(calib, 2);
  EXPECT_EQ(values_of(table, 0), values_of(table, 1));
}

TEST_F(FactoryRuns, OverwritesARowAndLeavesTheOthers) {
  ASSERT_EQ(run(0, sheet(150.0, 6000, 17)), KESTRANE_OK);
  ASSERT_EQ(run(99, sheet(190.0, 6000, 18)), KESTRANE_OK);
  const auto before = table_of(calib, 100);
  ASSERT_EQ(run(99, sheet(170.0, 6000, 19)), KESTRANE_OK);
  const auto after = table_of(calib, 100);
  EXPECT_EQ(values_of(after, 0), values_of(before, 0));
  EXPECT_NE(values_of(after, 99), values_of(before, 99));
  EXPECT_NEAR(after.row(99).laser_plane_R[0], -1.0 / 170.0, 1e-10);
}

}  // namespace
