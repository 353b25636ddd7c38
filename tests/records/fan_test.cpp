#include "records/fan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "simulation/random.h"
#include "tests/support/bits.h"

namespace {

using namespace kestrane;

using kestrane_test::kInf;
using kestrane_test::kNaN;

_LASER_PLANE_GRIDS fan_grids() {
  _LASER_PLANE_GRIDS grids = {};
  fill_grids(grids);
  return grids;
}

// The lookup as it is told: cut both quotients toward zero, then compare.
std::optional<CellIndex> cell_as_told(const _LASER_PLANE_GRIDS& grids, double y, double z) {
  const double k = std::trunc((z - grids.z_start) / grids.z_step);
  if (!(k >= 0.0 && k <= 49.0)) return std::nullopt;
  const int depth = static_cast<int>(k);
  const double j = std::trunc((y - grids.grid_y_start[depth]) / grids.grid_y_step[depth]);
  if (!(j >= 0.0 && j <= 14.0)) return std::nullopt;
  return CellIndex{static_cast<int>(j), depth};
}

void expect_cell(std::optional<CellIndex> cell, std::int32_t line, std::int32_t depth) {
  ASSERT_TRUE(cell.has_value());
  EXPECT_EQ(cell->line, line);
  EXPECT_EQ(cell->cell, depth);
}

TEST(FillGrids, WorksOutEveryBoundInTheFixedOrder) {
  const _LASER_PLANE_GRIDS grids = fan_grids();
  const double t = std::tan(0.5235987755982988);
  for (int k = 0; k <= 50; ++k) {
    const double z = k * 27.0 + 150.0;
    EXPECT_EQ(grids.grid_z[k], z);
    EXPECT_EQ(grids.grid_y_start[k], -(t * z));
    EXPECT_EQ(grids.grid_y_step[k], (t * z + t * z) / 15.0);
  }
  EXPECT_EQ(grids.z_start, 150.0);
  EXPECT_EQ(grids.z_step, 27.0);
  EXPECT_EQ(grids.grid_z[50], 1500.0);
}

TEST(FillGrids, SpansTheFanWithFifteenSteps) {
  const _LASER_PLANE_GRIDS grids = fan_grids();
  for (int k = 0; k <= 50; ++k) {
    // One rounding in the division, one in the product.
    const double kTwoRoundings = 2.0 * std::numeric_limits<double>::epsilon();
    const double width = -2.0 * grids.grid_y_start[k];
    EXPECT_NEAR(grids.grid_y_step[k] * 15.0, width, width * kTwoRoundings);
  }
}

TEST(FillGrids, LeavesTheHeadAlone) {
  _LASER_PLANE_GRIDS grids = {};
  for (int i = 0; i < 4; ++i) grids.grid_head[i] = 11 + i;
  fill_grids(grids);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(grids.grid_head[i], 11 + i);
}

TEST(DepthIndex, CutsTowardZero) {
  const _LASER_PLANE_GRIDS grids = fan_grids();
  EXPECT_EQ(depth_index(grids, 150.0), 0);
  EXPECT_EQ(depth_index(grids, 176.9), 0);
  EXPECT_EQ(depth_index(grids, 177.0), 1);
  EXPECT_EQ(depth_index(grids, 1499.9), 49);
  EXPECT_EQ(depth_index(grids, 149.9), 0);
  EXPECT_EQ(depth_index(grids, 123.1), 0);
}

TEST(DepthIndex, HasNoneOutsideTheFan) {
  const _LASER_PLANE_GRIDS grids = fan_grids();
  EXPECT_FALSE(depth_index(grids, 123.0));
  EXPECT_FALSE(depth_index(grids, 0.0));
  EXPECT_FALSE(depth_index(grids, 1500.0));
  EXPECT_FALSE(depth_index(grids, 2000.0));
}

TEST(DepthIndex, HasNoneForValuesThatNoIntegerHolds) {
  const _LASER_PLANE_GRIDS grids = fan_grids();
  // The second wraps around to index 2 if it is cut to 32 bits.
  for (const double z : {kNaN, 27.0 * 4294967298.0 + 150.0, 1e300, -1e300, kInf, -kInf}) {
    EXPECT_FALSE(depth_index(grids, z)) << z;
  }
}

TEST(FanQuotient, CountsBlockWidthsFromTheLowerEdge) {
  const _LASER_PLANE_GRIDS grids = fan_grids();
  EXPECT_EQ(fan_quotient(grids, 7, grids.grid_y_start[7]), 0.0);
  EXPECT_EQ(fan_quotient(grids, 7, 12.5), (12.5 - grids.grid_y_start[7]) / grids.grid_y_step[7]);
  EXPECT_TRUE(std::isnan(fan_quotient(grids, 7, kNaN)));
}

TEST(FindCell, FindsTheMiddleAndTheEdgesOfTheFan) {
  const _LASER_PLANE_GRIDS grids = fan_grids();
  expect_cell(find_cell(grids, 0.0, 150.0), 7, 0);
  expect_cell(find_cell(grids, grids.grid_y_start[10], 430.0), 0, 10);
  // Less than one width below the lower edge is cut to line 0; a whole width is outside.
  const double step = grids.grid_y_step[10];
  expect_cell(find_cell(grids, grids.grid_y_start[10] - 0.99 * step, 430.0), 0, 10);
  EXPECT_FALSE(find_cell(grids, grids.grid_y_start[10] - 1.01 * step, 430.0));
  expect_cell(find_cell(grids, grids.grid_y_start[10] + 14.99 * step, 430.0), 14, 10);
  EXPECT_FALSE(find_cell(grids, grids.grid_y_start[10] + 15.01 * step, 430.0));
}

TEST(FindCell, HasNoneForValuesThatAreNoPosition) {
  const _LASER_PLANE_GRIDS grids = fan_grids();
  for (const double bad : {kNaN, kInf, -kInf, 1e300, -1e300}) {
    EXPECT_FALSE(find_cell(grids, bad, 430.0)) << bad;
    EXPECT_FALSE(find_cell(grids, 0.0, bad)) << bad;
  }
}

TEST(FindCell, UsesTheBoundsOfTheRecordAndNotItsOwn) {
  _LASER_PLANE_GRIDS grids = {};
  grids.z_start = 10.0;
  grids.z_step = 2.0;
  grids.grid_y_start[3] = -1.0;
  grids.grid_y_step[3] = 0.25;
  expect_cell(find_cell(grids, 0.6, 17.0), 6, 3);
}

TEST(FindCell, HasNoneWhereTheRecordIsBlank) {
  const _LASER_PLANE_GRIDS blank = {};
  EXPECT_FALSE(find_cell(blank, 0.0, 0.0));
  EXPECT_FALSE(find_cell(blank, 1.0, 300.0));
}

TEST(FindCell, AgreesWithTheLookupAsToldEverywhere) {
  const _LASER_PLANE_GRIDS grids = fan_grids();
  simulation::Random random(11);
  int inside = 0;
  for (int i = 0; i < 20000; ++i) {
    const double z = random.uniform(50.0, 1600.0);
    const double y = random.uniform(-0.8, 0.8) * z;
    const std::optional<CellIndex> told = cell_as_told(grids, y, z);
    const std::optional<CellIndex> found = find_cell(grids, y, z);
    ASSERT_EQ(found.has_value(), told.has_value()) << y << " " << z;
    if (!told) continue;
    ++inside;
    ASSERT_EQ(found->line, told->line);
    ASSERT_EQ(found->cell, told->cell);
  }
  EXPECT_GT(inside, 10000);
}

TEST(FindCell, AgreesWithTheLookupAsToldAtEveryBoundAndItsNeighbours) {
  const _LASER_PLANE_GRIDS grids = fan_grids();
  for (int k = 0; k <= 50; ++k) {
    for (const double z : {std::nextafter(grids.grid_z[k], 0.0), grids.grid_z[k],
                           std::nextafter(grids.grid_z[k], 2000.0)}) {
      for (int j = -2; j <= 16; ++j) {
        const double bound = grids.grid_y_start[k] + j * grids.grid_y_step[k];
        for (const double y :
             {std::nextafter(bound, -2000.0), bound, std::nextafter(bound, 2000.0)}) {
          const std::optional<CellIndex> told = cell_as_told(grids, y, z);
          const std::optional<CellIndex> found = find_cell(grids, y, z);
          ASSERT_EQ(found.has_value(), told.has_value()) << y << " " << z;
          if (told) {
            ASSERT_EQ(found->line, told->line);
            ASSERT_EQ(found->cell, told->cell);
          }
        }
      }
    }
  }
}

}  // namespace
