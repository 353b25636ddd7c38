#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

#include "kestrane/quality/difference.h"
#include "tests/quality/field/field_scene.h"

namespace {

using kestrane::quality::compare;
using kestrane::quality::Difference;
using kestrane::quality::PlaneTable;
using kestrane::quality::WorkingVolume;

constexpr double kRounding = 1e-11;  // of sheets at some hundred millimetres

// A table of flat sheets x = offset + slope_y y + slope_z z.
struct FlatSheet {
  double offset;
  double slope_y = 0.0;
  double slope_z = 0.0;
};

PlaneTable table_of(const std::vector<FlatSheet>& sheets) {
  PlaneTable table(static_cast<std::int32_t>(sheets.size()));
  for (std::size_t p = 0; p < sheets.size(); ++p) {
    const FlatSheet& s = sheets[p];
    for (std::int32_t j = 0; j < 15; ++j) {
      for (std::int32_t k = 0; k < 50; ++k) {
        table.cell(static_cast<std::int32_t>(p),
                   {j, k}) = {{-1.0 / s.offset, s.slope_y / s.offset, s.slope_z / s.offset}};
      }
    }
  }
  return table;
}

// Moves the sheet of one block in x, along itself.
void shift_block(PlaneTable& table, std::int32_t plane, kestrane::quality::Block at, double by) {
  double* abc = table.cell(plane, at).v;
  const double offset = -1.0 / abc[0];
  for (int i = 0; i < 3; ++i) abc[i] *= offset / (offset + by);
}

// --- refusals -----------------------------------------------------------------------------------

TEST(Compare, RefusesTablesOfDifferentShape) {
  EXPECT_THROW(compare(PlaneTable(2), PlaneTable(3)), std::invalid_argument);
  PlaneTable other = table_of({{100}});
  other.grids().z_step = 26.0;
  EXPECT_THROW(compare(table_of({{100}}), other), std::invalid_argument);
  other = table_of({{100}});
  other.grids().grid_y_start[7] += 1.0;
  EXPECT_THROW(compare(table_of({{100}}), other), std::invalid_argument);
  other = table_of({{100}});
  other.grids().grid_y_step[49] *= 1.01;
  EXPECT_THROW(compare(table_of({{100}}), other), std::invalid_argument);
  other = table_of({{100}});
  other.grids().z_start += 1.0;
  EXPECT_THROW(compare(table_of({{100}}), other), std::invalid_argument);
}

TEST(Compare, TakesATableThatHasBeenThroughItsFile) {
  const PlaneTable exact = table_of({{100}});
  PlaneTable rounded = exact;
  // Six digits of a number leave at most 5e-6 of it open.
  for (double& y : rounded.grids().grid_y_start) y *= 1.0 + 4e-6;
  for (double& y : rounded.grids().grid_y_step) y *= 1.0 - 4e-6;
  EXPECT_EQ(compare(exact, rounded).max, 0.0);
  EXPECT_EQ(compare(rounded, exact).max, 0.0);
  rounded.grids().grid_y_step[7] = exact.grids().grid_y_step[7] * (1.0 + 2e-5);
  EXPECT_THROW(compare(exact, rounded), std::invalid_argument);
  rounded.grids().grid_y_step[7] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(compare(exact, rounded), std::invalid_argument);
}

TEST(Compare, RefusesTablesWithoutACommonBlock) {
  const Difference difference = compare(table_of({{100}}), PlaneTable(1));
  EXPECT_FALSE(difference.refused.empty());
  EXPECT_EQ(difference.blocks, 0);
  EXPECT_TRUE(std::isnan(difference.explained));
  EXPECT_FALSE(compare(PlaneTable(0), PlaneTable(0)).refused.empty());
}

// --- closed forms -------------------------------------------------------------------------------

TEST(Compare, OfATableWithItselfIsNothingAndExplainsNothing) {
  const PlaneTable table = table_of({{100, 0.1, 0.2}, {130, -0.1, 0.1}});
  const Difference difference = compare(table, table);
  EXPECT_TRUE(difference.refused.empty());
  EXPECT_EQ(difference.rms, 0.0);
  EXPECT_EQ(difference.max, 0.0);
  EXPECT_EQ(difference.rest, 0.0);
  EXPECT_TRUE(std::isnan(difference.explained));
}

TEST(Compare, OfAShiftInXIsItsPartAlongTheNormal) {
  const double slope = 0.3;
  const Difference difference = compare(table_of({{100, 0, slope}}), table_of({{100.5, 0, slope}}));
  const double along = 0.5 / std::sqrt(1.0 + slope * slope);
  EXPECT_NEAR(difference.rms, along, kRounding);
  EXPECT_NEAR(difference.max, along, kRounding);
  EXPECT_NEAR(difference.rest, 0.0, kRounding);
  EXPECT_NEAR(difference.explained, 1.0, kRounding);
  // Along the sheet nothing shows, so the smallest motion is along the normal.
  EXPECT_NEAR(difference.rigid.T[0], along / std::sqrt(1.0 + slope * slope), kRounding);
  EXPECT_NEAR(difference.rigid.T[1], 0.0, kRounding);
  EXPECT_NEAR(difference.rigid.T[2], -slope * along / std::sqrt(1.0 + slope * slope), kRounding);
}

TEST(Compare, HasAPositiveSignWhereTheSecondTableLiesAtLargerX) {
  const Difference forth = compare(table_of({{100}}), table_of({{100.5}}));
  const Difference back = compare(table_of({{100.5}}), table_of({{100}}));
  EXPECT_NEAR(forth.values[10], 0.5, kRounding);
  EXPECT_NEAR(back.values[10], -0.5, kRounding);
  EXPECT_NEAR(back.max, 0.5, kRounding);
}

// One block in 60 of a plane is off by 6: the largest, with its place; what a rigid motion can do
// about it is little.
TEST(Compare, FindsTheLargestDifferenceAndItsPlace) {
  const PlaneTable a = table_of({{100}, {130}});
  PlaneTable b = a;
  shift_block(b, 1, {4, 5}, -6.0);
  const WorkingVolume volume = {244.0, 326.0, 30.0};
  const Difference difference = compare(a, b, volume);
  EXPECT_EQ(difference.blocks, 120);
  EXPECT_NEAR(difference.max, 6.0, kRounding);
  EXPECT_NEAR(difference.rms, 6.0 / std::sqrt(120.0), kRounding);
  EXPECT_EQ(difference.plane, 1);
  EXPECT_EQ(difference.block.line, 4);
  EXPECT_EQ(difference.block.cell, 5);
  EXPECT_NEAR(difference.place.z, 298.5, kRounding);
  EXPECT_NEAR(difference.place.y, a.block_middle({4, 5}).y, kRounding);
  EXPECT_LT(difference.explained, 0.1);
  EXPECT_EQ(difference.planes[0].max, 0.0);
  EXPECT_EQ(difference.planes[1].blocks, 60);
  EXPECT_NEAR(difference.planes[1].rms, 6.0 / std::sqrt(60.0), kRounding);
}

// Two sheets that move apart by 1 each way: no motion of both explains any of it.
TEST(Compare, LeavesAsRestWhatNoRigidMotionExplains) {
  const Difference difference = compare(table_of({{100}, {130}}), table_of({{99}, {131}}));
  EXPECT_NEAR(difference.rms, 1.0, kRounding);
  EXPECT_NEAR(difference.rest, 1.0, kRounding);
  EXPECT_NEAR(difference.rest_max, 1.0, kRounding);
  EXPECT_NEAR(difference.explained, 0.0, kRounding);
}

// A shift of both by 2 and of one by another 1: 2.5 is rigid, 0.5 each way is not.
TEST(Compare, SplitsADifferenceIntoItsRigidPartAndTheRest) {
  const Difference difference = compare(table_of({{100}, {130}}), table_of({{102}, {133}}));
  EXPECT_NEAR(difference.rigid.T[0], 2.5, kRounding);
  EXPECT_NEAR(difference.rest, 0.5, kRounding);
  EXPECT_NEAR(difference.explained, 1.0 - 0.25 / 6.5, kRounding);
  EXPECT_NEAR(difference.planes[0].rest, 0.5, kRounding);
  EXPECT_NEAR(difference.rests[0 * 750 + 10], -0.5, kRounding);
  EXPECT_NEAR(difference.rests[1 * 750 + 10], 0.5, kRounding);
}

// --- against a device that moved ----------------------------------------------------------------

TEST(Compare, ExplainsAKnockedDeviceByItsMotion) {
  simulation::DeviceSettings device;
  device.planes = 12;
  device.bow = 0.0;
  const std::vector<simulation::Sheet> sheets = simulation::make_device(device);
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    const simulation::Placement motion = field_scene::knock(seed);
    const PlaneTable before = field_scene::true_table(sheets);
    PlaneTable after = before;
    for (std::size_t p = 0; p < sheets.size(); ++p) {
      simulation::fill_true_table(sheets[p], motion, after.grids(), after.record().planes[p].block);
    }
    const Difference difference = compare(before, after);
    EXPECT_GT(difference.explained, 0.999999);
    const std::vector<field_scene::Place> places = field_scene::places(before, 0, 11);
    EXPECT_LE(field_scene::apart(places, difference.rigid, motion), 1e-3);
  }
}

// --- what takes part ----------------------------------------------------------------------------

TEST(Compare, LooksAtTheBlocksOfTheVolumeAlone) {
  const PlaneTable a = table_of({{100}});
  PlaneTable b = a;
  shift_block(b, 0, {7, 20}, 5.0);  // depth 703.5
  EXPECT_EQ(compare(a, b, {250.0, 700.0, 30.0}).max, 0.0);
  EXPECT_NEAR(compare(a, b, {250.0, 703.5, 30.0}).max, 5.0, kRounding);
  shift_block(b, 0, {0, 5}, 5.0);  // at the edge of the fan
  EXPECT_EQ(compare(a, b, {250.0, 700.0, 20.0}).max, 0.0);
  EXPECT_NEAR(compare(a, b, {250.0, 700.0, 30.0}).max, 5.0, kRounding);
}

TEST(Compare, CountsBlocksThatOnlyOneTableHas) {
  const PlaneTable a = table_of({{100}, {130}});
  PlaneTable b = a;
  b.cell(0, {3, 10}) = {{0, 0, 0}};
  b.cell(0, {3, 11}) = {{std::numeric_limits<double>::quiet_NaN(), 0, 0}};
  PlaneTable c = a;
  c.cell(1, {9, 12}) = {{0, 0.1, 0.1}};
  const Difference whole = compare(a, a);
  const Difference difference = compare(c, b);
  EXPECT_EQ(difference.blocks, whole.blocks - 3);
  EXPECT_EQ(difference.only_in_one, 3);
  EXPECT_TRUE(std::isnan(difference.values[3 * 50 + 10]));
  EXPECT_FALSE(std::isnan(difference.values[3 * 50 + 12]));
  EXPECT_TRUE(std::isfinite(difference.rms));
}

TEST(Compare, HasNotANumberForAPlaneWithoutBlocks) {
  const PlaneTable a = table_of({{100}, {130}});
  PlaneTable b = table_of({{100}});
  PlaneTable two(2);
  for (std::int32_t k = 0; k < 50; ++k) two.cell(0, {7, k}) = b.cell(0, {7, k});
  const Difference difference = compare(a, two);
  EXPECT_EQ(difference.planes[1].blocks, 0);
  EXPECT_TRUE(std::isnan(difference.planes[1].rms));
  EXPECT_TRUE(std::isnan(difference.planes[1].max));
  EXPECT_TRUE(std::isnan(difference.planes[1].rest));
  EXPECT_EQ(difference.planes[0].rms, 0.0);
}

}  // namespace
