#include "simulation/scanner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

#include "simulation/random.h"

namespace {

using namespace simulation;
using kestrane::_LASER_TRIPLE;

// Coordinates are below 2000: a few hundred roundings of that size.
constexpr double kRounding = 1e-9;

Sheet bowed_sheet() { return {118.0, 0.004, -0.2, 0.4, -0.3}; }

Placement shaken() { return rigid_motion({0.002, -0.003, 0.001}, {0.4, -0.2, 0.3}); }

double side_of(const _LASER_TRIPLE& plane, Vec3 p) {
  return plane.v[0] * p.x + plane.v[1] * p.y + plane.v[2] * p.z + 1.0;
}

TEST(MakeDevice, RepeatsADeviceAndChangesItWithTheSeed) {
  DeviceSettings settings;
  const std::vector<Sheet> first = make_device(settings);
  const std::vector<Sheet> again = make_device(settings);
  settings.seed = 2;
  const std::vector<Sheet> other = make_device(settings);
  ASSERT_EQ(first.size(), 8u);
  for (std::size_t i = 0; i < first.size(); ++i) {
    EXPECT_EQ(first[i].offset, again[i].offset);
    EXPECT_EQ(first[i].bow_z, again[i].bow_z);
    EXPECT_NE(first[i].offset, other[i].offset);
  }
}

TEST(MakeDevice, KeepsAHundredSheetsWithinTheirSettings) {
  DeviceSettings settings;
  settings.planes = 100;
  const std::vector<Sheet> sheets = make_device(settings);
  ASSERT_EQ(sheets.size(), 100u);
  EXPECT_EQ(sheets.front().slope_z, -settings.fan_slope);
  EXPECT_EQ(sheets.back().slope_z, settings.fan_slope);
  for (const Sheet& sheet : sheets) {
    EXPECT_NEAR(sheet.offset, settings.baseline, settings.offset_spread);
    EXPECT_LE(std::abs(sheet.slope_y), settings.slope_spread);
    EXPECT_GE(std::abs(sheet.bow_y), 0.5 * settings.bow);
    EXPECT_LE(std::abs(sheet.bow_y), settings.bow);
    EXPECT_GE(std::abs(sheet.bow_z), 0.5 * settings.bow);
    EXPECT_LE(std::abs(sheet.bow_z), settings.bow);
  }
}

TEST(SheetX, HasItsBowAtTheNamedPlaces) {
  const Sheet sheet = bowed_sheet();
  EXPECT_NEAR(sheet_x(sheet, 0.0, 550.0), 118.0 - 110.0, kRounding);
  EXPECT_NEAR(sheet_x(sheet, 300.0, 550.0), 8.0 + 1.2 + 0.4, kRounding);
  EXPECT_NEAR(sheet_x(sheet, 0.0, 100.0), 98.0 - 0.3, kRounding);
  EXPECT_NEAR(sheet_x(sheet, 0.0, 1000.0), -82.0 - 0.3, kRounding);
}

Sheet shaped_sheet() {
  Sheet sheet = bowed_sheet();
  sheet.ripple = 0.1;
  sheet.kink = 0.2;
  sheet.edge = 0.3;
  return sheet;
}

TEST(SheetX, HasItsShapesAtTheNamedPlaces) {
  const Sheet plain = bowed_sheet();
  const auto shape = [&](Sheet sheet, double y, double z) {
    return sheet_x(sheet, y, z) - sheet_x(plain, y, z);
  };
  Sheet ripple = plain, kink = plain, edge = plain;
  ripple.ripple = 0.1;
  kink.kink = 0.2;
  edge.edge = 0.3;
  EXPECT_NEAR(shape(ripple, 62.5, 400.0), 0.1, kRounding);
  EXPECT_NEAR(shape(ripple, 62.5, 600.0), -0.1, kRounding);
  EXPECT_NEAR(shape(ripple, 0.0, 470.0), 0.0, kRounding);
  EXPECT_NEAR(shape(kink, -300.0, 470.0), 0.2, kRounding);
  EXPECT_NEAR(shape(kink, 150.0, 800.0), 0.1, kRounding);
  EXPECT_NEAR(shape(edge, 500.0 * std::tan(30.0 * M_PI / 180.0), 500.0), 0.3, kRounding);
  EXPECT_NEAR(shape(edge, 0.5 * 500.0 * std::tan(30.0 * M_PI / 180.0), 500.0), 0.3 / 256.0,
              kRounding);
}

// Central differences: exact but for the third derivatives, 1e-4 squared times about 1e-5.
TEST(LocalPlane, HasTheSlopesOfTheShapes) {
  const Sheet sheet = shaped_sheet();
  constexpr double kStep = 1e-3;
  for (const double y : {-120.0, 35.0, 210.0}) {
    const double z = 430.0;
    const _LASER_TRIPLE plane = local_plane(sheet, y, z);
    EXPECT_NEAR(-plane.v[1] / plane.v[0],
                (sheet_x(sheet, y + kStep, z) - sheet_x(sheet, y - kStep, z)) / (2.0 * kStep),
                1e-8);
    EXPECT_NEAR(-plane.v[2] / plane.v[0],
                (sheet_x(sheet, y, z + kStep) - sheet_x(sheet, y, z - kStep)) / (2.0 * kStep),
                1e-8);
  }
}

TEST(RigidMotion, TurnsAQuarterAboutZAsTheRightHandDoes) {
  const Placement quarter = rigid_motion({0.0, 0.0, std::acos(0.0)}, {1.0, 2.0, 3.0});
  const Vec3 moved = carry(quarter, {5.0, 0.0, 7.0});
  EXPECT_NEAR(moved.x, 1.0, kRounding);
  EXPECT_NEAR(moved.y, 7.0, kRounding);
  EXPECT_NEAR(moved.z, 10.0, kRounding);
}

TEST(RigidMotion, IsOrthonormalAndKeepsItsAxis) {
  const Placement motion = rigid_motion({0.3, -0.7, 1.1}, {0.0, 0.0, 0.0});
  const Vec3 axis = carry(motion, {0.3, -0.7, 1.1});
  EXPECT_NEAR(axis.x, 0.3, 1e-15);
  EXPECT_NEAR(axis.y, -0.7, 1e-15);
  EXPECT_NEAR(axis.z, 1.1, 1e-15);
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      double dot = 0.0;
      for (int k = 0; k < 3; ++k) dot += motion.R[3 * i + k] * motion.R[3 * j + k];
      EXPECT_NEAR(dot, i == j ? 1.0 : 0.0, 1e-15);
    }
  }
}

TEST(CarryBack, UndoesCarry) {
  Placement placement = shaken();
  placement.scale = 1.02;
  const Vec3 back = carry_back(placement, carry(placement, {12.0, -340.0, 910.0}));
  EXPECT_NEAR(back.x, 12.0, kRounding);
  EXPECT_NEAR(back.y, -340.0, kRounding);
  EXPECT_NEAR(back.z, 910.0, kRounding);
}

void expect_carried_points_on_present_sheet(const Placement& placement) {
  const Sheet sheet = bowed_sheet();
  Random random(3);
  for (int i = 0; i < 1000; ++i) {
    const double z = random.uniform(20.0, 1600.0);
    const double y = random.uniform(-0.6, 0.6) * z;
    const Vec3 now = carry(placement, {sheet_x(sheet, y, z), y, z});
    EXPECT_NEAR(sheet_x(sheet, placement, now.y, now.z), now.x, kRounding);
  }
}

TEST(SheetX, PutsCarriedPointsOfTheSheetOnThePresentSheet) {
  Placement placement = shaken();
  placement.scale = 1.02;
  expect_carried_points_on_present_sheet(placement);
}

TEST(SheetX, FollowsMotionsFarBeyondThoseOfADevice) {
  expect_carried_points_on_present_sheet(rigid_motion({0.1, -0.2, 0.1}, {40.0, -20.0, 30.0}));
}

TEST(LocalPlane, TouchesThePresentSheetAtItsPlace) {
  const Sheet sheet = bowed_sheet();
  const Placement placement = shaken();
  constexpr double kReach = 0.1;
  // Second derivatives of the bow are below 1e-5, so a tangent misses by less than 1e-7 there.
  constexpr double kTangency = 1e-7;
  for (const double y : {-200.0, 0.0, 150.0}) {
    const _LASER_TRIPLE plane = local_plane(sheet, placement, y, 600.0);
    EXPECT_NEAR(plane_x(plane, y, 600.0), sheet_x(sheet, placement, y, 600.0), kRounding);
    for (const double dy : {-kReach, kReach}) {
      EXPECT_NEAR(plane_x(plane, y + dy, 600.0), sheet_x(sheet, placement, y + dy, 600.0),
                  kTangency);
      EXPECT_NEAR(plane_x(plane, y, 600.0 + dy), sheet_x(sheet, placement, y, 600.0 + dy),
                  kTangency);
    }
  }
}

TEST(WholePlane, IsTheFlatPartOfTheSheet) {
  const Sheet sheet = bowed_sheet();
  const _LASER_TRIPLE plane = whole_plane(sheet);
  EXPECT_NEAR(side_of(plane, {118.0, 0.0, 0.0}), 0.0, 1e-15);
  EXPECT_NEAR(plane_x(plane, 100.0, 200.0), 118.0 + 0.4 - 40.0, kRounding);
}

// The plane x = 100 grows to x = 101 and turns by 0.01 about (101, 0, 0).
TEST(WarmPlacement, GrowsAndTurnsAFlatSheetAboutItsPointAlongT) {
  const Sheet flat = {100.0, 0.0, 0.0, 0.0, 0.0};
  _KESTRANE_COMPENSATE_PARAM param = {};
  param.temperature = 30.0;
  param.temperature_ref = 20.0;
  param.scale_per_degree = 0.001;
  param.temperature_spread = 0.001;
  const _MRV_EXTRINSIC_PARAM extrinsic = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {100.0, 0.0, 0.0}};
  const Placement centre = warm_placement(flat, 5, 0, 10, param, extrinsic);
  EXPECT_NEAR(sheet_x(flat, centre, 33.0, 444.0), 101.0, kRounding);

  const Placement next = warm_placement(flat, 6, 0, 10, param, extrinsic);
  const _LASER_TRIPLE plane = local_plane(flat, next, 33.0, 444.0);
  EXPECT_NEAR(plane.v[0], -1.0 / 101.0, 1e-15);
  EXPECT_NEAR(plane.v[1], 0.0, 1e-15);
  EXPECT_NEAR(plane.v[2], -std::tan(0.01) / 101.0, 1e-15);
}

TEST(WarmPlacement, TurnsWithTheSecondReadingToo) {
  const Sheet flat = {100.0, 0.0, 0.0, 0.0, 0.0};
  _KESTRANE_COMPENSATE_PARAM param = {};
  param.drift = 3.0;
  param.drift_ref = 1.0;
  param.drift_gain = 2.0;
  param.drift_spread = 0.001;
  const _MRV_EXTRINSIC_PARAM extrinsic = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {50.0, 0.0, 0.0}};
  // Three steps below the centre of an odd range, four units of gained drift.
  const Placement warm = warm_placement(flat, 0, 0, 7, param, extrinsic);
  EXPECT_NEAR(sheet_x(flat, warm, 0.0, 500.0), 100.0 + 500.0 * std::tan(0.012), kRounding);
}

TEST(FillTrueTable, GivesEveryBlockTheTangentAtItsMiddle) {
  kestrane::_LASER_PLANE_GRIDS grids = {};
  for (int k = 0; k < 51; ++k) {
    grids.grid_z[k] = 150.0 + 27.0 * k;
    grids.grid_y_start[k] = -0.5 * grids.grid_z[k];
    grids.grid_y_step[k] = grids.grid_z[k] / 15.0;
  }
  std::array<std::array<_LASER_TRIPLE, 50>, 15> cells;
  std::array<kestrane::_LASER_LINE_INFOS, 15> lines;
  for (std::size_t j = 0; j < 15; ++j) lines[j] = {cells[j].data(), 0};
  kestrane::_LASER_LINES_INFOS table = {lines.data(), 0};
  fill_true_table(bowed_sheet(), Placement{}, grids, table);
  EXPECT_EQ(table.count, 15);
  EXPECT_EQ(lines[14].count, 50);
  // Block 0 of line 14: depth 163.5, of which the fourteen fifteenths to the edge at +z / 2.
  const CellMiddle middle = cell_middle(grids, 14, 0);
  EXPECT_NEAR(middle.z, 163.5, kRounding);
  EXPECT_NEAR(middle.y, 163.5 * (0.5 - 0.5 / 15.0), kRounding);
  EXPECT_NEAR(plane_x(cells[14][0], middle.y, middle.z), sheet_x(bowed_sheet(), middle.y, middle.z),
              kRounding);
}

TEST(Measure, RepeatsACloudAndChangesItWithTheSeed) {
  CloudSettings settings;
  settings.points = 50;
  const Cloud first = measure(bowed_sheet(), settings);
  const Cloud again = measure(bowed_sheet(), settings);
  settings.seed = 2;
  const Cloud other = measure(bowed_sheet(), settings);
  for (std::size_t i = 0; i < 50; ++i) {
    EXPECT_EQ(first.points[i].x, again.points[i].x);
    EXPECT_EQ(first.points[i].z, again.points[i].z);
    EXPECT_NE(first.points[i].z, other.points[i].z);
  }
}

TEST(Measure, PutsNoiseOfTheGivenSizeOnTheSheet) {
  CloudSettings settings;
  settings.points = 40000;
  settings.noise = 0.05;
  const Placement placement = shaken();
  const Cloud cloud = measure(bowed_sheet(), placement, settings);
  double sum = 0.0;
  double squares = 0.0;
  for (const _KESTRANE_ID_POINT3D& p : cloud.points) {
    const double error = p.x - sheet_x(bowed_sheet(), placement, p.y, p.z);
    sum += error;
    squares += error * error;
  }
  const double kFiveSigma = 5.0 / std::sqrt(40000.0);
  EXPECT_NEAR(sum / 40000.0, 0.0, 0.05 * kFiveSigma);
  EXPECT_NEAR(std::sqrt(squares / 40000.0), 0.05, 0.05 * kFiveSigma);
}

TEST(Measure, SpreadsPointsOverTheDepthsAndDirectionsAskedFor) {
  CloudSettings settings;
  settings.fan_low_degrees = -10.0;
  settings.fan_high_degrees = 18.0;
  settings.depth_low = 220.0;
  settings.depth_high = 350.0;
  double low = 90.0;
  double high = -90.0;
  for (const _KESTRANE_ID_POINT3D& p : measure(bowed_sheet(), settings).points) {
    EXPECT_GE(p.z, 220.0);
    EXPECT_LE(p.z, 350.0);
    const double degrees = std::atan2(p.y, p.z) * 180.0 / std::acos(-1.0);
    low = std::min(low, degrees);
    high = std::max(high, degrees);
  }
  EXPECT_NEAR(low, -10.0, 0.1);
  EXPECT_NEAR(high, 18.0, 0.1);
}

TEST(Measure, GivesEachKindOfPointItsShareAndItsError) {
  CloudSettings settings;
  settings.points = 40000;
  settings.noise = 0.0;
  settings.outlier_share = 0.1;
  settings.dropped_share = 0.2;
  settings.outside_share = 0.3;
  const Cloud cloud = measure(bowed_sheet(), settings);
  std::array<int, 4> counts = {};
  for (std::size_t i = 0; i < cloud.points.size(); ++i) {
    const _KESTRANE_ID_POINT3D& p = cloud.points[i];
    const PointKind kind = cloud.kinds[i];
    ++counts[static_cast<std::size_t>(kind)];
    EXPECT_EQ(std::isnan(p.x), kind == PointKind::kDropped);
    EXPECT_EQ(p.z < 100.0 || p.z > 1000.0, kind == PointKind::kOutside);
    const double error = std::abs(p.x - sheet_x(bowed_sheet(), p.y, p.z));
    if (kind == PointKind::kOutlier) {
      EXPECT_LE(error, settings.outlier_reach);
    } else if (kind != PointKind::kDropped) {
      EXPECT_LE(error, kRounding);
    }
  }
  // Five standard deviations of a share of a half, the widest.
  constexpr int kFiveSigma = 500;
  EXPECT_NEAR(counts[0], 16000, kFiveSigma);
  EXPECT_NEAR(counts[1], 4000, kFiveSigma);
  EXPECT_NEAR(counts[2], 8000, kFiveSigma);
  EXPECT_NEAR(counts[3], 12000, kFiveSigma);
}

TEST(Measure, NumbersItsFramesAndDisplacesTheBadOnes) {
  CloudSettings settings = field_cloud_settings();
  settings.noise = 0.0;
  settings.first_frame = 40;
  settings.frame_stride = 3;
  settings.bad_frames = 4;
  settings.bad_frame_shift = 2.5;
  const Cloud cloud = measure(bowed_sheet(), settings);
  const std::set<std::int32_t> bad(cloud.bad_frames.begin(), cloud.bad_frames.end());
  EXPECT_EQ(bad.size(), 4u);
  EXPECT_EQ(bad.count(40), 0u);
  std::set<std::int32_t> ids;
  for (const _KESTRANE_ID_POINT3D& p : cloud.points) {
    ids.insert(p.id);
    const double shift = bad.count(p.id) != 0 ? 2.5 : 0.0;
    EXPECT_NEAR(p.x - sheet_x(bowed_sheet(), p.y, p.z), shift, kRounding);
  }
  EXPECT_EQ(ids.size(), 20u);
  EXPECT_EQ(*ids.begin(), 40);
  EXPECT_EQ(*ids.rbegin(), 40 + 19 * 3);
}

TEST(Measure, SharesAFramesErrorAmongItsPoints) {
  CloudSettings settings = field_cloud_settings();
  settings.noise = 0.0;
  settings.frame_noise = 0.1;
  const Cloud cloud = measure(bowed_sheet(), settings);
  std::set<double> rounded_errors;
  for (const _KESTRANE_ID_POINT3D& p : cloud.points) {
    const double error = p.x - sheet_x(bowed_sheet(), p.y, p.z);
    rounded_errors.insert(std::round(error * 1e6));
  }
  EXPECT_EQ(rounded_errors.size(), 20u);
}

// Each frame is one line z = depth + slant y, and errs by a parabola in y / z.
TEST(Measure, MakesEveryFrameALineOfItsOwnWhereAsked) {
  CloudSettings settings;
  settings.points = 600;
  settings.frames = 6;
  settings.noise = 0.0;
  settings.line_frames = true;
  settings.frame_noise = 0.1;
  settings.frame_tilt = 0.1;
  settings.frame_bend = 0.1;
  const Sheet sheet = bowed_sheet();
  const Cloud cloud = measure(sheet, settings);
  std::set<double> depths;
  for (std::size_t f = 0; f < 6; ++f) {
    const auto* frame = &cloud.points[100 * f];
    const double slant = (frame[99].z - frame[0].z) / (frame[99].y - frame[0].y);
    depths.insert(frame[0].z - slant * frame[0].y);
    EXPECT_LE(std::abs(slant), 0.1);
    const auto error = [&](int n) { return frame[n].x - sheet_x(sheet, frame[n].y, frame[n].z); };
    const auto u = [&](int n) { return frame[n].y / frame[n].z; };
    const auto divided = [&](int a, int b) { return (error(b) - error(a)) / (u(b) - u(a)); };
    const double second = (divided(1, 2) - divided(0, 1)) / (u(2) - u(0));
    for (int n = 3; n < 100; ++n) {
      EXPECT_NEAR(frame[n].z, frame[0].z + slant * (frame[n].y - frame[0].y), kRounding);
      const double parabola =
          error(0) + divided(0, 1) * (u(n) - u(0)) + second * (u(n) - u(0)) * (u(n) - u(1));
      EXPECT_NEAR(error(n), parabola, 1e-6);  // extrapolated from three points of any spacing
    }
  }
  EXPECT_EQ(depths.size(), 6u);
}

TEST(RecordOf, LeadsToThePointsOfTheCloud) {
  CloudSettings settings;
  settings.points = 7;
  Cloud cloud = measure(bowed_sheet(), settings);
  const _KESTRANE_ID_POINT3DS record = record_of(cloud);
  EXPECT_EQ(record.points, cloud.points.data());
  EXPECT_EQ(record.count, 7);
}

}  // namespace
