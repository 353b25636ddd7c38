// A refined table in the jobs and files that follow.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "kestrane/compensator.h"
#include "kestrane/quality/factory.h"
#include "kestrane/quality/field.h"
#include "kestrane/quality/refinement.h"
#include "kestrane/quality/storage.h"
#include "simulation/scanner.h"
#include "tests/support/sanitized.h"

namespace {

using namespace kestrane::quality;
using simulation::Sheet;

std::vector<Sheet> bowed_device(int planes) {
  simulation::DeviceSettings device;
  device.planes = planes;
  device.bow = 0.5;
  return simulation::make_device(device);
}

PlaneTable refined_table(const std::vector<Sheet>& sheets, int points) {
  std::vector<PointList> clouds;
  simulation::CloudSettings settings;
  settings.points = points;
  settings.frames = 20;
  for (const Sheet& sheet : sheets) {
    ++settings.seed;
    clouds.push_back(simulation::measure(sheet, settings).points);
  }
  return refine(clouds).table;
}

PlaneTable true_table(const std::vector<Sheet>& sheets) {
  PlaneTable table(static_cast<std::int32_t>(sheets.size()));
  auto record = table.record();
  for (std::size_t p = 0; p < sheets.size(); ++p)
    simulation::fill_true_table(sheets[p], {}, table.grids(), record.planes[p].block);
  return table;
}

simulation::Placement placement_of(const _MRV_EXTRINSIC_PARAM& motion) {
  simulation::Placement placement;
  std::copy_n(motion.R, 9, placement.R);
  placement.t = {motion.T[0], motion.T[1], motion.T[2]};
  return placement;
}

// RMS error of where a field calibration puts the sheets, over several knocks.
double field_error(const std::vector<Sheet>& sheets, const PlaneTable& table) {
  double squares = 0.0, count = 0.0;
  for (std::uint64_t seed = 1; seed <= 6; ++seed) {
    const auto knock = simulation::rigid_motion({1e-4 * static_cast<double>(seed), 2e-4, -2e-4},
                                                {0.2, 0.0, -0.05 * static_cast<double>(seed)});
    std::vector<PointList> frames;
    simulation::CloudSettings settings = simulation::field_cloud_settings();
    settings.seed = 100 * seed;
    for (const Sheet& sheet : sheets) {
      ++settings.seed;
      frames.push_back(simulation::measure(sheet, knock, settings).points);
    }
    const FieldResult field = calibrate_field(table, frames);
    EXPECT_EQ(field.refused, "");
    const auto found = placement_of(field.smallest_motion);
    for (const Sheet& sheet : sheets) {
      for (double z = 225.0; z < 350.0; z += 20.0) {
        for (double u = -0.5; u <= 0.5; u += 0.1) {
          const double error = simulation::sheet_x(sheet, found, u * z, z) -
                               simulation::sheet_x(sheet, knock, u * z, z);
          squares += error * error;
          count += 1.0;
        }
      }
    }
  }
  return std::sqrt(squares / count);
}

TEST(RefinedTable, ServesTheFieldNearlyAsWellAsTheTrueOne) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  const auto sheets = bowed_device(10);
  EXPECT_LE(field_error(sheets, refined_table(sheets, 20000)),
            1.3 * field_error(sheets, true_table(sheets)));
}

TEST(RefinedTable, PassesThroughAFile) {
  const PlaneTable table = refined_table(bowed_device(2), 4000);
  const std::string path = testing::TempDir() + "refined_table.txt";
  const SavedTable saved = save_table(table, path);
  EXPECT_LE(saved.largest_move, 0.01);
  const PlaneTable read = read_table(path);
  std::remove(path.c_str());
  ASSERT_EQ(read.planes(), 2);
  for (const double z : {200.0, 600.0, 1400.0})
    EXPECT_NEAR(read.x_at(1, 0.2 * z, z), table.x_at(1, 0.2 * z, z), saved.largest_move);
}

// Without any change of condition the compensation gives the table back, to rounding.
TEST(RefinedTable, PassesThroughTheCompensation) {
  const PlaneTable table = refined_table(bowed_device(2), 4000);
  kestrane::KESTRANE_LASER_COMPENSATOR compensator;
  ASSERT_EQ(compensator.init(), KESTRANE_OK);
  ASSERT_EQ(compensator.set_laser_plane_param(table.record()), KESTRANE_OK);
  compensator.set_extrinsic_matrix({{1, 0, 0, 0, 1, 0, 0, 0, 1}, {120.0, 0.0, 0.0}});
  compensator.set_compensate_param({}, 0, 2);
  compensator.compensate(0, 2);
  PlaneTable result(2);
  auto record = result.record();
  ASSERT_EQ(compensator.get_compensate_result(record), KESTRANE_OK);
  for (const double z : {200.0, 600.0, 1400.0})
    EXPECT_NEAR(result.x_at(0, -0.3 * z, z), table.x_at(0, -0.3 * z, z), 1e-9);
}

}  // namespace
