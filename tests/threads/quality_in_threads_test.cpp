// The jobs of kestrane::quality: two devices in two threads, and one refinement in two.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "kestrane/factory_calib.h"
#include "kestrane/fast_calib.h"
#include "kestrane/quality/factory.h"
#include "kestrane/quality/field.h"
#include "kestrane/quality/refinement.h"
#include "simulation/scanner.h"
#include "tests/threads/beside.h"

namespace {

using namespace kestrane;
using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;
using threads::Figures;

constexpr int kPlanes = 2;

// Clouds stay small: the thread sanitizer is slow.
constexpr int kFactoryPoints = 6000;
constexpr int kFieldPoints = 400;

// The solver adds up from several threads in an order that changes.
constexpr double kSolverRounding = 1e-6;

std::vector<simulation::Sheet> sheets_of(int device) {
  simulation::DeviceSettings settings;
  settings.planes = kPlanes;
  settings.seed = 80 + static_cast<std::uint64_t>(device);
  return simulation::make_device(settings);
}

std::vector<PointList> measure(const std::vector<simulation::Sheet>& sheets,
                               const simulation::Placement& moved,
                               simulation::CloudSettings settings) {
  std::vector<PointList> clouds;
  for (const simulation::Sheet& sheet : sheets) {
    ++settings.seed;
    clouds.push_back(simulation::measure(sheet, moved, settings).points);
  }
  return clouds;
}

std::vector<PointList> factory_clouds(int device) {
  simulation::CloudSettings settings;
  settings.points = kFactoryPoints;
  settings.frames = 12;
  settings.seed = 90 + 10 * static_cast<std::uint64_t>(device);
  return measure(sheets_of(device), {}, settings);
}

Figures figures_of(const PlaneTable& table) {
  Figures figures;
  for (std::int32_t p = 0; p < table.planes(); ++p) {
    for (std::int32_t j = 0; j < PlaneTable::kLines; ++j) {
      for (std::int32_t k = 0; k < PlaneTable::kCells; ++k) {
        const double* cell = table.cell(p, {j, k}).v;
        figures.insert(figures.end(), cell, cell + 3);
      }
    }
  }
  return figures;
}

TEST(TwoThreads, CalibrateTwoDevicesSafelyInTheFactoryAsOneThreadDoes) {
  threads::expect_equal_bits(
      [](int device) {
        const std::vector<PointList> clouds = factory_clouds(device);
        KESTRANE_LASER_FAC_CALIB engine;
        EXPECT_EQ(engine.init(), KESTRANE_OK);
        const quality::FactoryResult result =
            quality::calibrate_factory(engine, quality::clouds_of(clouds));
        EXPECT_FALSE(result.table.row_is_empty(0));
        return figures_of(result.table);
      },
      1);
}

TEST(TwoThreads, CalibrateTwoDevicesSafelyInTheFieldAsOneThreadDoes) {
  testing::internal::CaptureStdout();
  threads::expect_equal_to_rounding(
      [](int device) {
        const std::vector<simulation::Sheet> sheets = sheets_of(device);
        PlaneTable table(kPlanes);
        for (std::int32_t p = 0; p < kPlanes; ++p) {
          simulation::fill_true_table(sheets[static_cast<std::size_t>(p)], {}, table.grids(),
                                      table.record().planes[p].block);
        }
        simulation::CloudSettings settings = simulation::field_cloud_settings();
        settings.points = kFieldPoints;
        settings.seed = 70 + 10 * static_cast<std::uint64_t>(device);
        const simulation::Placement moved =
            simulation::rigid_motion({1e-3, 2e-3 * (1 + device), -1e-3}, {0.4, 0.2, -0.3});
        KESTRANE_LASER_FAST_CALIB engine;
        EXPECT_EQ(engine.init(), KESTRANE_OK);
        const quality::FieldResult result =
            quality::calibrate_field(engine, table, measure(sheets, moved, settings));
        EXPECT_EQ(result.refused, "");
        return Figures{result.displacement.rms, result.displacement.sigma};
      },
      1, kSolverRounding);
  testing::internal::GetCapturedStdout();
}

// Two devices side by side, each with two engines for its two planes.
TEST(TwoThreads, CalibrateTwoDevicesWithTwoEnginesEachAsOneThreadDoes) {
  threads::expect_equal_bits(
      [](int device) {
        const std::vector<PointList> clouds = factory_clouds(device);
        std::vector<KESTRANE_LASER_FAC_CALIB> engines(2);
        std::vector<KESTRANE_LASER_FAC_CALIB*> ready;
        for (KESTRANE_LASER_FAC_CALIB& engine : engines) {
          EXPECT_EQ(engine.init(), KESTRANE_OK);
          ready.push_back(&engine);
        }
        const quality::FactoryResult result =
            quality::calibrate_factory(ready, quality::clouds_of(clouds));
        EXPECT_FALSE(result.table.row_is_empty(1));
        Figures figures = figures_of(result.table);
        figures.insert(figures.end(), {result.device.rms, result.device.q95, result.device.q99});
        return figures;
      },
      1);
}

// Two refinements side by side, each of which works on its planes in two threads.
TEST(TwoThreads, RefineTwoDevicesInTwoThreadsEachAsOneThreadDoes) {
  threads::expect_equal_bits(
      [](int device) { return figures_of(quality::refine(factory_clouds(device), {}, 2).table); },
      1);
}

}  // namespace
