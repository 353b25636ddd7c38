#include "factory/depth_cells.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "simulation/random.h"
#include "tests/support/bits.h"

namespace {

using kestrane::CellPoints;
using kestrane::PointMatrix3;
using simulation::Random;

using kestrane_test::kInf;
using kestrane_test::kNaN;

// The band of the single point (1, 2, z) in the first of 15 sectors.
int band_of(double z) {
  kestrane::SectorClouds sectors(15, PointMatrix3(0, 3));
  sectors[0] = PointMatrix3(1, 3);
  sectors[0] << 1.0, 2.0, z;
  CellPoints cells;
  kestrane::split_sector_points_by_depth(sectors, 50, 150.0, 1500.0, cells);
  int band = -1;
  for (std::size_t j = 0; j < cells[0].size(); ++j) {
    if (cells[0][j].rows() == 1) band = band == -1 ? static_cast<int>(j) : -2;
  }
  return band;
}

TEST(DepthBands, TakeTheLowerBoundAndLeaveTheUpperOne) {
  EXPECT_EQ(band_of(150.0), 0);
  EXPECT_EQ(band_of(std::nextafter(177.0, 0.0)), 0);
  EXPECT_EQ(band_of(177.0), 1);
  EXPECT_EQ(band_of(1473.0), 49);
  EXPECT_EQ(band_of(std::nextafter(1473.0, 0.0)), 48);
}

TEST(DepthBands, CollectNearPointsInTheFirstBand) {
  EXPECT_EQ(band_of(149.9), 0);
  EXPECT_EQ(band_of(123.0), 0);
  EXPECT_EQ(band_of(100.0), 0);
  EXPECT_EQ(band_of(-1e300), 0);
  EXPECT_EQ(band_of(-kInf), 0);
}

TEST(DepthBands, CollectFarPointsInTheLastBand) {
  EXPECT_EQ(band_of(1500.0), 49);
  EXPECT_EQ(band_of(2000.0), 49);
  EXPECT_EQ(band_of(1e300), 49);
  EXPECT_EQ(band_of(kInf), 49);
}

TEST(DepthBands, PutADepthThatIsNotANumberIntoTheFirstBand) { EXPECT_EQ(band_of(kNaN), 0); }

TEST(DepthBands, GiveFifteenRowsOfFiftyAlsoWithoutPoints) {
  CellPoints cells(3);
  kestrane::split_sector_points_by_depth(kestrane::SectorClouds(15, PointMatrix3(0, 3)), 50, 150.0,
                                         1500.0, cells);
  ASSERT_EQ(cells.size(), 15u);
  for (const auto& row : cells) {
    ASSERT_EQ(row.size(), 50u);
    for (const auto& cell : row) EXPECT_EQ(cell.rows(), 0);
  }
}

TEST(DepthBands, KeepEveryPointOnceAndInOrder) {
  Random random(3);
  kestrane::SectorClouds sectors;
  for (int s = 0; s < 15; ++s) {
    PointMatrix3 cloud(200, 3);
    for (int i = 0; i < 200; ++i) cloud.row(i) << i, s, random.uniform(50.0, 1700.0);
    sectors.push_back(cloud);
  }
  CellPoints cells;
  kestrane::split_sector_points_by_depth(sectors, 50, 150.0, 1500.0, cells);
  for (std::size_t s = 0; s < 15; ++s) {
    Eigen::Index rows = 0;
    for (std::size_t j = 0; j < 50; ++j) {
      const PointMatrix3& cell = cells[s][j];
      rows += cell.rows();
      for (Eigen::Index i = 0; i < cell.rows(); ++i) {
        const double z = cell(i, 2);
        const int band = std::min(std::max(static_cast<int>((z - 150.0) / 27.0), 0), 49);
        EXPECT_EQ(band, static_cast<int>(j));
        EXPECT_EQ(cell(i, 1), static_cast<double>(s));
        EXPECT_EQ(z, sectors[s](static_cast<Eigen::Index>(cell(i, 0)), 2));
        if (i > 0) {
          EXPECT_LT(cell(i - 1, 0), cell(i, 0));
        }
      }
    }
    EXPECT_EQ(rows, 200);
  }
}

}  // namespace
