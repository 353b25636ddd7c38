#include "factory/engine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tests/factory/sheet_clouds.h"

namespace {

using namespace sheet_clouds;
using kestrane::KestraneLaserFactoryCalibrator;

constexpr double kGuard = 2.220446049250313e-16;

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

// Fifteen sheets side by side, in turn far on either side of the plane between them: each sector
// would fit, the whole plane does not.
TEST(FactoryEngine, EndsWhereTheWholeFitEndsEarly) {
  KestraneLaserFactoryCalibrator engine;
  ASSERT_TRUE(engine.init());
  Cloud good = sheet(120.0, 6000, 9);
  ASSERT_TRUE(engine.calibrate_one_plane(0, view(good)));
  Cloud cloud;
  for (int s = 0; s < 15; ++s) {
    const Cloud sector = sheet(s % 2 == 0 ? 100.0 : 200.0, 400, 80 + static_cast<std::uint64_t>(s),
                               4.0 * s - 29.9, 4.0 * s - 26.1);
    cloud.insert(cloud.end(), sector.begin(), sector.end());
  }
  EXPECT_FALSE(engine.calibrate_one_plane(0, view(cloud)));
  EXPECT_TRUE(engine.cell_points().empty());
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

}  // namespace
