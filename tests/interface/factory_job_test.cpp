// From measured clouds to a compensated table, through the shared library alone, against the truth
// of a simulated device.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/compensator.h"
#include "kestrane/factory_calib.h"
#include "simulation/host_table.h"
#include "simulation/scanner.h"
#include "tests/support/bits.h"

namespace {

using simulation::HostTable;
using simulation::Sheet;

constexpr double kNoise = 0.05;

// A sector's plane through hundreds of points of a flat sheet: the noise of a mean, doubled at the
// depths beyond the measured ones.
constexpr double kFlatSheetError = kNoise;

Sheet flat_sheet() { return {118.0, 0.004, -0.2, 0.0, 0.0}; }

simulation::Cloud cloud_of(const Sheet& sheet, double fan_low_degrees, double fan_high_degrees) {
  simulation::CloudSettings settings;
  settings.points = 20000;
  settings.noise = kNoise;
  settings.fan_low_degrees = fan_low_degrees;
  settings.fan_high_degrees = fan_high_degrees;
  settings.outlier_share = 0.01;
  settings.dropped_share = 0.01;
  settings.outside_share = 0.01;
  return simulation::measure(sheet, settings);
}

double largest_error(const Sheet& sheet, HostTable& table, int plane, int first, int last) {
  double largest = 0.0;
  for (int j = first; j <= last; ++j) {
    for (int k = 0; k < 32; ++k) {
      const simulation::CellMiddle at = simulation::cell_middle(table.grids(), j, k);
      largest =
          std::max(largest, std::abs(simulation::plane_x(table.cell(plane, j, k), at.y, at.z) -
                                     simulation::sheet_x(sheet, at.y, at.z)));
    }
  }
  return largest;
}

bool has_points(const kestrane::_LASER_LINE_INFOS& line) {
  return std::any_of(line.cells, line.cells + line.count, [](const auto& cell) {
    return cell.v[0] != 0.0 || cell.v[1] != 0.0 || cell.v[2] != 0.0;
  });
}

TEST(FactoryJob, MeetsTheTruthOfAFlatSheetWithinItsNoise) {
  simulation::Cloud cloud = cloud_of(flat_sheet(), -30.0, 30.0);
  kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
  ASSERT_EQ(calibrator.init(), KESTRANE_OK);
  ASSERT_EQ(calibrator.factory_calib(0, simulation::record_of(cloud)), KESTRANE_OK);
  HostTable table(1);
  ASSERT_EQ(calibrator.get_laser_plane_infos(table.infos()), KESTRANE_OK);
  EXPECT_LT(largest_error(flat_sheet(), table, 0, 0, 14), kFlatSheetError);
}

TEST(FactoryJob, ShowsBorrowedSectorsInTheIndicatorsAlone) {
  simulation::Cloud cloud = cloud_of(flat_sheet(), -10.0, 14.0);
  kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
  ASSERT_EQ(calibrator.init(), KESTRANE_OK);
  ASSERT_EQ(indicators.init(2), KESTRANE_OK);
  ASSERT_EQ(corners.init(2), KESTRANE_OK);
  ASSERT_EQ(calibrator.factory_calib(0, simulation::record_of(cloud)), KESTRANE_OK);
  ASSERT_EQ(calibrator.get_indicators(1, indicators, corners), KESTRANE_OK);
  for (int j = 0; j < 15; ++j) {
    // From -10 to 14 degrees: sectors 5 to 10.
    EXPECT_EQ(has_points(indicators.planes[1].lines[j]), j >= 5 && j <= 10) << j;
    EXPECT_FALSE(has_points(indicators.planes[0].lines[j]));
  }
  HostTable table(1);
  ASSERT_EQ(calibrator.get_laser_plane_infos(table.infos()), KESTRANE_OK);
  for (int j = 0; j < 15; ++j) {
    for (int k = 0; k < 50; ++k) EXPECT_NE(table.cell(0, j, k).v[0], 0.0);
  }
}

TEST(FactoryJob, PutsTheCornersOfAPlaneOnItsSheet) {
  simulation::Cloud cloud = cloud_of(flat_sheet(), -30.0, 30.0);
  kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
  ASSERT_EQ(calibrator.init(), KESTRANE_OK);
  ASSERT_EQ(indicators.init(1), KESTRANE_OK);
  ASSERT_EQ(corners.init(1), KESTRANE_OK);
  ASSERT_EQ(calibrator.factory_calib(0, simulation::record_of(cloud)), KESTRANE_OK);
  ASSERT_EQ(calibrator.get_indicators(0, indicators, corners), KESTRANE_OK);
  ASSERT_EQ(corners.planes[0].count, 16);
  for (int i = 0; i < 16; ++i) {
    ASSERT_EQ(corners.planes[0].lines[i].count, 51);
    for (int k = 0; k < 32; ++k) {
      const double* v = corners.planes[0].lines[i].cells[k].v;
      EXPECT_NEAR(v[0], simulation::sheet_x(flat_sheet(), v[1], v[2]), kFlatSheetError);
      EXPECT_EQ(v[2], 150.0 + 27.0 * k);
    }
  }
}

TEST(FactoryJob, FollowsABowBetterWithTheOptimisation) {
  const Sheet bowed = {118.0, 0.004, -0.2, 0.3, -0.4};
  simulation::Cloud cloud = cloud_of(bowed, -30.0, 30.0);
  double squares[2] = {0.0, 0.0};
  for (const auto flag : {kestrane::KESTRANE_OPTIM_OFF, kestrane::KESTRANE_OPTIM_ON}) {
    kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
    ASSERT_EQ(calibrator.init(), KESTRANE_OK);
    ASSERT_EQ(calibrator.set_optimize_flag(flag), KESTRANE_OK);
    ASSERT_EQ(calibrator.factory_calib(0, simulation::record_of(cloud)), KESTRANE_OK);
    HostTable table(1);
    ASSERT_EQ(calibrator.get_laser_plane_infos(table.infos()), KESTRANE_OK);
    for (int j = 0; j < 15; ++j) {
      for (int k = 0; k < 31; ++k) {
        const simulation::CellMiddle at = simulation::cell_middle(table.grids(), j, k);
        squares[flag] += std::pow(simulation::plane_x(table.cell(0, j, k), at.y, at.z) -
                                      simulation::sheet_x(bowed, at.y, at.z),
                                  2);
      }
    }
  }
  // RMS errors of about 0.12 and 0.04: at least halved.
  EXPECT_LT(squares[1], 0.25 * squares[0]);
}

TEST(FactoryJob, PrintsNothing) {
  const Sheet bowed = {118.0, 0.004, -0.2, 0.3, -0.4};
  simulation::Cloud cloud = cloud_of(bowed, -30.0, 30.0);
  kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
  ASSERT_EQ(calibrator.init(), KESTRANE_OK);
  ASSERT_EQ(calibrator.set_optimize_flag(kestrane::KESTRANE_OPTIM_ON), KESTRANE_OK);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const _KESTRANE_STATUS status = calibrator.factory_calib(0, simulation::record_of(cloud));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(status, KESTRANE_OK);
}

TEST(FactoryJob, LeavesTheHostsPointsAlone) {
  simulation::Cloud cloud = cloud_of(flat_sheet(), -30.0, 30.0);
  const simulation::Cloud before = cloud;
  kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
  ASSERT_EQ(calibrator.init(), KESTRANE_OK);
  ASSERT_EQ(calibrator.factory_calib(0, simulation::record_of(cloud)), KESTRANE_OK);
  for (std::size_t i = 0; i < cloud.points.size(); ++i) {
    const _KESTRANE_ID_POINT3D& now = cloud.points[i];
    const _KESTRANE_ID_POINT3D& then = before.points[i];
    EXPECT_TRUE(kestrane_test::same_bits(now.x, then.x));
    EXPECT_TRUE(now.y == then.y && now.z == then.z && now.id == then.id);
  }
}

// The compensator moves a true table as the device moves, up to rounding: a tangent plane that is
// carried along is the tangent plane at the carried place. The bow bends less than 1e-5 over the
// fraction of a millimetre between the two places.
TEST(CompensationJob, MovesATrueTableWithTheWarmDevice) {
  constexpr int kPlanes = 8;
  constexpr double kMoved = 1e-6;
  simulation::DeviceSettings settings;
  const std::vector<Sheet> sheets = simulation::make_device(settings);
  kestrane::LASER_PLANE_BLOCK_INFOS_GROUP fan;
  ASSERT_EQ(fan.init(1), KESTRANE_OK);
  HostTable table(kPlanes);
  HostTable warm(kPlanes);
  for (int p = 0; p < kPlanes; ++p) {
    const auto index = static_cast<std::size_t>(p);
    _MRV_LASER_PLANE_BLOCK_INFO& row = table.infos().planes[p];
    simulation::fill_true_table(sheets[index], {}, *fan.grids, row.block);
    const kestrane::_LASER_TRIPLE whole = simulation::whole_plane(sheets[index]);
    std::memcpy(row.laser_plane_R, whole.v, sizeof(whole.v));
  }
  _KESTRANE_COMPENSATE_PARAM param = {};
  param.temperature = 35.0;
  param.temperature_ref = 20.0;
  param.scale_per_degree = 2e-5;
  param.temperature_spread = 2e-6;
  param.drift = 0.5;
  param.drift_gain = 2.0;
  param.drift_spread = 1e-5;
  const _MRV_EXTRINSIC_PARAM extrinsic = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {120.0, 3.0, -5.0}};

  kestrane::KESTRANE_LASER_COMPENSATOR compensator;
  ASSERT_EQ(compensator.init(), KESTRANE_OK);
  ASSERT_EQ(compensator.set_laser_plane_param(table.infos()), KESTRANE_OK);
  ASSERT_EQ(compensator.set_extrinsic_matrix(extrinsic), KESTRANE_OK);
  ASSERT_EQ(compensator.set_compensate_param(param, 0, kPlanes), KESTRANE_OK);
  ASSERT_EQ(compensator.compensate(0, kPlanes), KESTRANE_OK);
  ASSERT_EQ(compensator.get_compensate_result(warm.infos()), KESTRANE_OK);

  for (int p = 0; p < kPlanes; ++p) {
    const Sheet& sheet = sheets[static_cast<std::size_t>(p)];
    const simulation::Placement placement =
        simulation::warm_placement(sheet, p, 0, kPlanes, param, extrinsic);
    for (int j = 0; j < 15; ++j) {
      for (int k = 0; k < 50; ++k) {
        // Follow the middle of the block on the cold sheet to where it is now.
        const simulation::CellMiddle at = simulation::cell_middle(*fan.grids, j, k);
        const simulation::Vec3 now =
            simulation::carry(placement, {simulation::sheet_x(sheet, at.y, at.z), at.y, at.z});
        EXPECT_NEAR(simulation::plane_x(warm.cell(p, j, k), now.y, now.z), now.x, kMoved);
      }
    }
  }
}

}  // namespace
