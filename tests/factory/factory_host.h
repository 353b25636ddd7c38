// What a host keeps of a factory calibration, and the calibrator that a test asks.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/factory_calib.h"
#include "simulation/host_table.h"
#include "tests/factory/sheet_clouds.h"

namespace factory_host {

using kestrane::KESTRANE_LASER_FAC_CALIB;
using simulation::HostTable;

// The first `rows` rows of the calibrator's table. The counts are the calibrator's.
inline HostTable table_of(KESTRANE_LASER_FAC_CALIB& calib, int rows) {
  HostTable table(rows);
  table.set_counts(0, 0);
  EXPECT_EQ(calib.get_laser_plane_infos(table.infos()), KESTRANE_OK);
  return table;
}

// Every number of a row that a run writes.
inline std::vector<double> values_of(const HostTable& table, int plane) {
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

// A calibrator that is ready for its runs.
class ReadyCalibrator : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(calib.init(), KESTRANE_OK); }

  _KESTRANE_STATUS run(int plane_index, sheet_clouds::Cloud cloud) {
    return calib.factory_calib(plane_index, sheet_clouds::view(cloud));
  }

  KESTRANE_LASER_FAC_CALIB calib;
};

}  // namespace factory_host
