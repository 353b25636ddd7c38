#include "quality/factory/blocks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "simulation/random.h"
#include "tests/literal/factory_figures.h"
#include "tests/support/bits.h"

namespace {

using kestrane::_LASER_TRIPLE;
using kestrane::quality::Block;
using kestrane::quality::block_origins;
using kestrane::quality::block_seams;
using kestrane::quality::BlocksInVolume;
using kestrane::quality::Origin;
using kestrane::quality::OwnSectors;
using kestrane::quality::PlaneTable;
using kestrane::quality::WorkingVolume;
using kestrane_test::kNaN;

constexpr double kRounding = 1e-10;
constexpr std::size_t kAll = 750;

std::size_t index_of(int line, int cell) { return static_cast<std::size_t>(50 * line + cell); }

// x = offset + slope_y y + slope_z z.
_LASER_TRIPLE plane_at(double offset, double slope_y, double slope_z) {
  return {{-1.0 / offset, slope_y / offset, slope_z / offset}};
}

std::vector<Origin> all_measured() { return std::vector<Origin>(kAll, Origin::kMeasured); }

std::vector<double> seams_of(const std::vector<_LASER_TRIPLE>& cells,
                             const std::vector<Origin>& origins) {
  return block_seams(cells, origins, PlaneTable().grids());
}

TEST(SectorsWithPoints, HaveAnyIndicatorThatIsNotThreeZeros) {
  std::vector<_LASER_TRIPLE> indicators(kAll, {{0.0, 0.0, 0.0}});
  indicators[index_of(3, 49)] = {{0.0, 0.0, 1e-300}};
  indicators[index_of(14, 0)] = {{-1.0, 0.0, 0.0}};
  const OwnSectors own = kestrane::quality::sectors_with_points(indicators);
  for (std::size_t j = 0; j < own.size(); ++j) EXPECT_EQ(own[j], j == 3 || j == 14) << j;
}

TEST(SectorsWithPoints, LookAtEveryPartOfEveryIndicator) {
  for (int k = 0; k < 50; ++k) {
    for (int i = 0; i < 3; ++i) {
      for (const double mark : {-1e-300, kNaN}) {
        std::vector<_LASER_TRIPLE> indicators(kAll, {{0.0, 0.0, 0.0}});
        indicators[index_of(7, k)].v[i] = mark;
        const OwnSectors own = kestrane::quality::sectors_with_points(indicators);
        for (std::size_t j = 0; j < own.size(); ++j) EXPECT_EQ(own[j], j == 7) << j << " " << k;
      }
    }
  }
}

TEST(BlockOrigins, FollowTheirPointsAndTheirSector) {
  std::vector<_LASER_TRIPLE> cells(kAll, plane_at(100, 0, 0));
  cells[5] = {{0.0, 1.0, 1.0}};
  cells[6] = {{kNaN, 0.0, 0.0}};
  cells[7] = {{-0.01, kNaN, 0.0}};
  cells[8] = {{-0.01, 0.0, kNaN}};
  cells[9] = {{1e-17, -1e-17, 1e-17}};  // too small to be told from zero
  cells[10] = {{1e-17, 0.01, 0.0}};
  cells[11] = {{1e-17, 0.0, 0.01}};
  cells[12] = {{0.01, 0.0, 0.0}};
  std::vector<std::int64_t> points(kAll, 0);
  points[0] = 10;
  points[1] = 9;
  points[2] = 1;
  points[5] = 10;
  OwnSectors own{};
  own[0] = true;
  const std::vector<Origin> origins = block_origins(cells, points, own);
  EXPECT_EQ(origins[0], Origin::kMeasured);
  EXPECT_EQ(origins[1], Origin::kThin);
  EXPECT_EQ(origins[2], Origin::kThin);
  EXPECT_EQ(origins[3], Origin::kExtended);
  EXPECT_EQ(origins[5], Origin::kEmpty);
  for (std::size_t b = 6; b <= 9; ++b) EXPECT_EQ(origins[b], Origin::kEmpty) << b;
  for (std::size_t b = 10; b <= 12; ++b) EXPECT_EQ(origins[b], Origin::kExtended) << b;
  EXPECT_EQ(origins[50], Origin::kBorrowed);
}

// One tilted sheet, cut into blocks, has no steps.
TEST(BlockSeams, VanishOnOneTiltedSheet) {
  const std::vector<_LASER_TRIPLE> cells(kAll, plane_at(120, 0.03, -0.2));
  for (const double seam : seams_of(cells, all_measured())) EXPECT_NEAR(seam, 0.0, kRounding);
}

// Lines 0 to 6 lie 0.25 farther than lines 7 to 14: the step is the seam of lines 6 and 7, and of
// no other.
TEST(BlockSeams, AreTheKnownStepBetweenTwoHalves) {
  std::vector<_LASER_TRIPLE> cells(kAll, plane_at(120, 0.03, -0.2));
  for (std::size_t b = 0; b < index_of(7, 0); ++b) cells[b] = plane_at(120.25, 0.03, -0.2);
  const std::vector<double> seams = seams_of(cells, all_measured());
  for (std::size_t b = 0; b < kAll; ++b) {
    const bool at_step = b / 50 == 6 || b / 50 == 7;
    EXPECT_NEAR(seams[b], at_step ? 0.25 : 0.0, kRounding) << b;
  }
}

// Two planes that meet on the line z = 258 and part from there by 0.01 per unit of depth: the far
// end of the edge across the fan has all of it.
TEST(BlockSeams, TakeTheWorseEndOfAnEdge) {
  const PlaneTable table;
  std::vector<_LASER_TRIPLE> cells(kAll, plane_at(120, 0.0, 0.0));
  // Cell 4 of line 8 reaches from z = 258 to 285.
  cells[index_of(8, 4)] = plane_at(120 - 2.58, 0.0, 0.01);
  std::vector<Origin> origins(kAll, Origin::kExtended);
  origins[index_of(7, 4)] = origins[index_of(8, 4)] = Origin::kMeasured;
  const std::vector<double> seams = seams_of(cells, origins);
  EXPECT_NEAR(seams[index_of(7, 4)], 0.27, kRounding);
  EXPECT_NEAR(seams[index_of(8, 4)], 0.27, kRounding);
}

// Of two blocks one after the other the edge is that of the farther one: its ends lie at the far
// depth, as wide as the fan is there.
TEST(BlockSeams, BetweenDepthsAreTakenAtTheFartherBlocksNearEdge) {
  const PlaneTable table;
  std::vector<_LASER_TRIPLE> cells(kAll, plane_at(120, 0.0, 0.0));
  cells[index_of(14, 9)] = plane_at(120, 0.01, 0.0);
  std::vector<Origin> origins(kAll, Origin::kThin);
  origins[index_of(14, 8)] = origins[index_of(14, 9)] = Origin::kMeasured;
  const double edge = std::tan(0.5235987755982988) * table.grids().grid_z[9];
  EXPECT_NEAR(seams_of(cells, origins)[index_of(14, 8)], 0.01 * edge, kRounding);
}

TEST(BlockSeams, AreForMeasuredBlocksWithAMeasuredNeighbourAlone) {
  const std::vector<_LASER_TRIPLE> cells(kAll, plane_at(120, 0.0, 0.0));
  std::vector<Origin> origins(kAll, Origin::kThin);
  origins[index_of(4, 4)] = Origin::kMeasured;
  for (const double seam : seams_of(cells, origins)) EXPECT_TRUE(std::isnan(seam));
  origins[index_of(4, 5)] = Origin::kMeasured;
  const std::vector<double> seams = seams_of(cells, origins);
  for (std::size_t b = 0; b < kAll; ++b) {
    EXPECT_EQ(std::isnan(seams[b]), b != index_of(4, 4) && b != index_of(4, 5)) << b;
  }
}

TEST(BlockSeams, EqualAPlainTranscription) {
  simulation::Random random(8);
  literal::Scene scene;
  scene.grids = PlaneTable().grids();
  std::vector<Origin> origins;
  std::vector<literal::Source> sources;
  for (std::size_t b = 0; b < kAll; ++b) {
    scene.cells.push_back(
        plane_at(random.uniform(119, 121), random.uniform(-0.1, 0.1), random.uniform(-0.1, 0.1)));
    const bool measured = random.index(3) > 0;
    origins.push_back(measured ? Origin::kMeasured : Origin::kExtended);
    sources.push_back(measured ? literal::kMeasured : literal::kExtended);
  }
  const std::vector<double> seams = seams_of(scene.cells, origins);
  for (int b = 0; b < 750; ++b) {
    const double expected = literal::seam(scene, sources, b);
    const double found = seams[static_cast<std::size_t>(b)];
    ASSERT_EQ(std::isnan(found), std::isnan(expected)) << b;
    if (!std::isnan(expected)) {
      EXPECT_NEAR(found, expected, kRounding) << b;
    }
  }
}

// Middles lie at 163.5 + 27 k: from 200 to 300 those of k = 2 to 5.
TEST(BlocksInAVolume, AreThoseWhoseMiddleLiesInside) {
  WorkingVolume volume;
  volume.depth_near = 200.0;
  volume.depth_far = 300.0;
  std::vector<Origin> origins(kAll, Origin::kExtended);
  for (int j = 0; j < 15; ++j) origins[index_of(j, 2)] = Origin::kMeasured;
  for (int j = 0; j < 15; ++j) origins[index_of(j, 9)] = Origin::kMeasured;
  const BlocksInVolume blocks(PlaneTable(), volume);
  EXPECT_EQ(blocks.share(origins, Origin::kMeasured), 0.25);
  EXPECT_EQ(blocks.share(origins, Origin::kBorrowed), 0.0);
}

// The middle line alone lies within half a degree of the axis.
TEST(BlocksInAVolume, AreCutByTheAngle) {
  WorkingVolume volume;
  volume.half_angle_degrees = 0.5;
  std::vector<Origin> origins(kAll, Origin::kExtended);
  for (int k = 0; k < 50; ++k) origins[index_of(7, k)] = Origin::kMeasured;
  EXPECT_EQ(BlocksInVolume(PlaneTable(), volume).share(origins, Origin::kMeasured), 1.0);
}

TEST(BlocksInAVolume, IncludeMiddlesOnItsBounds) {
  WorkingVolume volume;
  volume.depth_near = volume.depth_far = 163.5;
  EXPECT_FALSE(BlocksInVolume(PlaneTable(), volume).empty());
  volume.depth_near = volume.depth_far = 164.0;
  EXPECT_TRUE(BlocksInVolume(PlaneTable(), volume).empty());
  volume.depth_near = kNaN;
  EXPECT_TRUE(BlocksInVolume(PlaneTable(), volume).empty());
}

TEST(AWorkingVolume, HoldsNothingThatIsNotANumber) {
  EXPECT_FALSE(WorkingVolume().holds(kNaN, 300.0));
  EXPECT_FALSE(WorkingVolume().holds(0.0, kNaN));
  EXPECT_TRUE(WorkingVolume().holds(-173.2, 300.0));
  EXPECT_FALSE(WorkingVolume().holds(-173.3, 300.0));
}

}  // namespace
