#include "kestrane/quality/coefficients.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/fast_calib.h"
#include "kestrane/quality/factory.h"
#include "simulation/scanner.h"
#include "tests/support/bits.h"

namespace {

using kestrane_test::kInf;
using kestrane_test::kNaN;
using namespace kestrane::quality;  // NOLINT: everything under test stands there

// Corner [j, k] of plane p at t: a sheet that grows with the condition.
double corner_x(std::int32_t p, double y, double z, double t) {
  return 120.0 + 5.0 * p + 0.02 * y - 0.2 * z + 0.03 * (t - 30.0);
}

double ray_y(std::int32_t j, std::int32_t k) {
  return std::tan((4.0 * j - 30.0) * 0.017453292519943295) * (150.0 + 27.0 * k);
}

// Models with different scales of (a, b, c), which are the same lines.
class Coefficients {
 public:
  explicit Coefficients(std::int32_t planes) {
    kestrane::_COMPENSATOR_COEFFS* out = nullptr;
    owner_.init(planes);
    owner_.get_compensator_coeffs(planes, out);
    for (std::int32_t p = 0; p < planes; ++p) {
      for (std::int32_t j = 0; j < 16; ++j) {
        for (std::int32_t k = 0; k < 51; ++k) {
          const double at_zero = corner_x(p, ray_y(j, k), 150.0 + 27.0 * k, 0.0);
          const double scale = (j % 2 == 0 ? 1.0 : -2.0) * (1.0 + k);
          cell(p, j, k) = {{0.03 * scale, -scale, at_zero * scale}};
        }
      }
    }
  }
  kestrane::_COMPENSATOR_COEFFS& operator*() { return owner_; }
  kestrane::_COMPENSATOR_COEFFS* operator->() { return &owner_; }
  kestrane::_LASER_TRIPLE& cell(std::int32_t p, std::int32_t j, std::int32_t k) {
    return owner_.opt_coeffs->planes[p].lines[j].cells[k];
  }

 private:
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER owner_;
};

// --- refusals --------------------------------------------------------------------------------

TEST(CornersAt, RefusesAHostsMistakes) {
  for (const double condition : {kNaN, kInf}) {
    Coefficients record(1);
    EXPECT_THROW(corners_at(*record, condition), std::invalid_argument);
  }
  const auto refuses = [](auto spoil) {
    Coefficients owner(2);
    kestrane::_COMPENSATOR_COEFFS record = *owner;
    kestrane::_LASER_PLANE_GRID_OPT_COEFFS_INFOS table = *record.opt_coeffs;
    record.opt_coeffs = &table;
    spoil(record);
    EXPECT_THROW(corners_at(record, 25.0), std::invalid_argument);
  };
  refuses([](auto& record) { record.opt_coeffs = nullptr; });
  refuses([](auto& record) { record.opt_coeffs->planes = nullptr; });
  refuses([](auto& record) { record.plane_count = 0; });
  refuses([](auto& record) { record.plane_count = 3; });
  refuses([](auto& record) { record.plane_count = record.opt_coeffs->plane_count = 101; });
  refuses([](auto& record) { record.opt_coeffs->planes[1].count = 15; });
  refuses([](auto& record) { record.opt_coeffs->planes[1].lines[15].count = 50; });
}

TEST(CornersAt, RefusesAModelWithoutX) {
  Coefficients record(2);
  record.cell(1, 3, 7).v[1] = 0.0;
  DeviceCorners device = corners_at(*record, 25.0);
  EXPECT_EQ(device.refused, "corner [3, 7] of plane 1 has no x: its b is 0");
  EXPECT_TRUE(device.corners.empty());
  EXPECT_EQ(table_of(device).refused, device.refused);
  EXPECT_EQ(table_of(device).table.planes(), 0);
  record.cell(1, 3, 7) = {{kNaN, 1.0, 0.0}};
  EXPECT_EQ(corners_at(*record, 25.0).refused,
            "corner [3, 7] of plane 1 has an x that is not finite");
}

TEST(TableOf, RefusesAnotherNumberOfCorners) {
  EXPECT_THROW(table_of(std::vector<kestrane::_LASER_TRIPLE>()), std::invalid_argument);
  EXPECT_THROW(table_of(std::vector<kestrane::_LASER_TRIPLE>(815)), std::invalid_argument);
  EXPECT_THROW(table_of(std::vector<kestrane::_LASER_TRIPLE>(817)), std::invalid_argument);
  EXPECT_THROW(table_of(std::vector<kestrane::_LASER_TRIPLE>(101 * 816)), std::invalid_argument);
}

TEST(TableOf, RefusesAPlaneThatIsNotFiniteThroughout) {
  Coefficients record(2);
  for (int i = 0; i < 3; ++i) {
    for (const double value : {kNaN, -kInf}) {
      DeviceCorners device = corners_at(*record, 25.0);
      device.corners[816 + 5].v[i] = value;
      EXPECT_EQ(table_of(device).refused, "plane 1 has corners that are not finite") << i;
    }
  }
}

TEST(TableOf, RefusesAPlaneThroughTheOrigin) {
  Coefficients record(2);
  DeviceCorners device = corners_at(*record, 25.0);
  for (std::size_t i = 816; i < 2 * 816; ++i) device.corners[i].v[0] = 0.0;
  EXPECT_EQ(table_of(device).refused, "plane 1 passes through the origin");
}

TEST(TableOf, RefusesOneCellThroughTheOrigin) {
  Coefficients record(2);
  DeviceCorners device = corners_at(*record, 25.0);
  for (const std::size_t i : {51 * 3 + 20, 51 * 3 + 21, 51 * 4 + 20, 51 * 4 + 21})
    device.corners[i].v[0] = 0.0;
  EXPECT_EQ(table_of(device).refused, "plane 0 passes through the origin");
}

// --- corners ---------------------------------------------------------------------------------

TEST(CornersAt, EvaluatesEachModelOnTheNominalRays) {
  Coefficients record(3);
  for (const double t : {22.0, 30.0, 55.5}) {
    const DeviceCorners device = corners_at(*record, t);
    ASSERT_EQ(device.corners.size(), 3U * 816);
    EXPECT_EQ(device.refused, "");
    std::size_t i = 0;
    for (std::int32_t p = 0; p < 3; ++p) {
      for (std::int32_t j = 0; j < 16; ++j) {
        for (std::int32_t k = 0; k < 51; ++k, ++i) {
          const double z = 150.0 + 27.0 * k;
          ASSERT_NEAR(device.corners[i].v[0], corner_x(p, ray_y(j, k), z, t), 1e-10);
          ASSERT_NEAR(device.corners[i].v[1], ray_y(j, k), 1e-10);
          ASSERT_EQ(device.corners[i].v[2], z);
        }
      }
    }
  }
}

TEST(CornersAt, GivesNansForAPlaneWithoutModels) {
  Coefficients record(2);
  record->opt_coeffs->planes[0].count = 0;
  const DeviceCorners device = corners_at(*record, 25.0);
  EXPECT_TRUE(std::isnan(device.corners[815].v[0]));
  EXPECT_FALSE(std::isnan(device.corners[816].v[0]));
  const TableOfCorners made = table_of(device);
  EXPECT_EQ(made.refused, "");
  EXPECT_TRUE(made.table.row_is_empty(0));
  EXPECT_EQ(made.table.whole_plane(0)[0], 0.0);
  EXPECT_FALSE(made.table.row_is_empty(1));
}

// --- the table -------------------------------------------------------------------------------

TEST(TableOf, GivesFlatSheetsBack) {
  Coefficients record(2);
  const PlaneTable table = table_of(corners_at(*record, 40.0)).table;
  for (std::int32_t p = 0; p < 2; ++p) {
    for (std::int32_t j = 0; j < 15; ++j) {
      for (std::int32_t k = 0; k < 50; ++k) {
        const FanPlace middle = table.block_middle({j, k});
        ASSERT_NEAR(table.x_at(p, middle.y, middle.z), corner_x(p, middle.y, middle.z, 40.0), 1e-8);
      }
    }
    // x = x0 + 0.02 y - 0.2 z: (a, b, c) = (-1, 0.02, -0.2) / x0.
    const double x0 = corner_x(p, 0.0, 0.0, 40.0);
    EXPECT_NEAR(table.whole_plane(p)[0], -1.0 / x0, 1e-10);
    EXPECT_NEAR(table.whole_plane(p)[1], 0.02 / x0, 1e-10);
    EXPECT_NEAR(table.whole_plane(p)[2], -0.2 / x0, 1e-10);
  }
  EXPECT_EQ(table.grids().grid_z[50], 1500.0);
}

// A sheet with a step between rays 7 and 8: the whole plane is that of least squares, each cell
// that of its own corners.
TEST(TableOf, TakesEachCellFromItsOwnCorners) {
  Coefficients record(1);
  DeviceCorners device = corners_at(*record, 30.0);
  for (std::int32_t j = 8; j < 16; ++j) {
    for (std::int32_t k = 0; k < 51; ++k)
      device.corners[static_cast<std::size_t>(51 * j + k)].v[0] += 1.0;
  }
  const PlaneTable table = table_of(device).table;
  const auto x_of = [&](Block at) {
    const kestrane::_LASER_TRIPLE& abc = table.cell(0, at);
    const double y = 0.5 * (ray_y(at.line, at.cell) + ray_y(at.line + 1, at.cell));
    const double z = 150.0 + 27.0 * at.cell;
    return simulation::plane_x(abc, y, z) - corner_x(0, y, z, 30.0);
  };
  EXPECT_NEAR(x_of({6, 20}), 0.0, 1e-9);
  EXPECT_NEAR(x_of({8, 20}), 1.0, 1e-9);
  EXPECT_NEAR(x_of({7, 20}), 0.5, 0.05);
}

// The corners of a calibrated device give its cells back, to the bit.
TEST(TableOf, MakesCellsAsTheFactoryCalibrationDoes) {
  simulation::CloudSettings settings;
  settings.points = 12000;
  const simulation::Cloud cloud = simulation::measure(simulation::make_device({})[3], settings);
  const std::vector<PointList> lists = {cloud.points};
  const FactoryResult result = calibrate_factory(clouds_of(lists));
  ASSERT_EQ(result.refused, "");
  const PlaneTable table = table_of(result.corners).table;
  for (std::size_t i = 0; i < table.size(); ++i)
    ASSERT_EQ(table.data()[i], result.table.data()[i]) << i;
}

}  // namespace
