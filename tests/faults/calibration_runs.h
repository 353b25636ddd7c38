// Small calibrations as routines whose allocations are refused: see every_cut.h.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/factory_calib.h"
#include "kestrane/fast_calib.h"
#include "simulation/scanner.h"
#include "tests/faults/every_cut.h"
#include "tests/support/fast_scene.h"

namespace faults {

inline std::vector<simulation::Sheet> two_sheets() {
  return simulation::make_device({.planes = 2});
}

// One sector with enough points for a fit of its own, some ten cells deep.
inline simulation::Cloud small_cloud() {
  simulation::CloudSettings settings;
  settings.points = 240;
  settings.depth_low = 250.0;
  settings.depth_high = 450.0;
  settings.fan_low_degrees = -1.9;
  settings.fan_high_degrees = 1.9;
  return simulation::measure(two_sheets()[0], settings);
}

// A run of the factory calibration into row 2, through the exported class.
template <kestrane::_KESTRANE_OPTIM_FLAG kFlag>
struct FactoryRun {
  static constexpr long kStays = 1;  // the table's block
  simulation::Cloud cloud = small_cloud();
  kestrane::KESTRANE_LASER_FAC_CALIB calib;

  FactoryRun() {
    EXPECT_EQ(calib.init(), KESTRANE_OK);
    EXPECT_EQ(calib.set_optimize_flag(kFlag), KESTRANE_OK);
  }

  void operate() {
    if (calib.factory_calib(2, simulation::record_of(cloud)) != KESTRANE_OK) ADD_FAILURE();
  }

  Outcome outcome() {
    kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
    kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
    EXPECT_EQ(indicators.init(1), KESTRANE_OK);
    EXPECT_EQ(corners.init(1), KESTRANE_OK);
    EXPECT_EQ(calib.get_indicators(0, indicators, corners), KESTRANE_OK);
    fast_scene::Standard table(3);
    _MRV_LASER_PLANE_BLOCK_INFOS host = table.host();
    EXPECT_EQ(calib.get_laser_plane_infos(host), KESTRANE_OK);
    Outcome numbers;
    for (const kestrane::_LASER_LINES_INFOS& rows :
         {indicators.planes[0], corners.planes[0], host.planes[2].block}) {
      for (int j = 0; j < rows.count; ++j) {
        append(numbers, rows.lines[j].cells[0].v,
               3 * static_cast<std::size_t>(rows.lines[j].count));
      }
    }
    append(numbers, host.planes[2].laser_plane_R, 3);
    return numbers;
  }
};

// Two sheets that have moved a little, three frames each, as the field job measures them.
inline std::vector<std::vector<_KESTRANE_ID_POINT3D>> field_lists() {
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.points = 90;
  settings.frames = 3;
  return fast_scene::measure_all(
      two_sheets(), simulation::rigid_motion({0.0, 1e-3, 5e-4}, {0.2, 0.0, 0.1}), settings);
}

// Enough points of two sheets for a solve in one block.
inline std::vector<std::vector<_KESTRANE_ID_POINT3D>> many_field_points() {
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.points = 5000;
  settings.frames = 3;
  return fast_scene::measure_all(
      two_sheets(), simulation::rigid_motion({0.0, 1e-3, 5e-4}, {0.2, 0.0, 0.1}), settings);
}

// The fast calibration through the exported class.
struct FastRun {
  static constexpr long kStays = 1;  // the standard's block
  fast_scene::Standard standard{two_sheets()};
  std::vector<std::vector<_KESTRANE_ID_POINT3D>> lists = field_lists();
  kestrane::KESTRANE_LASER_FAST_CALIB calib;

  FastRun() {
    EXPECT_EQ(calib.init(), KESTRANE_OK);
    EXPECT_EQ(calib.set_laser_plane_standard(standard.host()), KESTRANE_OK);
  }

  void operate() {
    if (calib.fast_calib(lists, 0, 1) != KESTRANE_OK) ADD_FAILURE();
  }

  Outcome outcome() {
    _MRV_TRANSFORM transform{};
    double mean = 0.0, largest = 0.0, deviation = 0.0;
    EXPECT_EQ(calib.get_transform_param(transform), KESTRANE_OK);
    EXPECT_EQ(calib.get_calib_indicator(mean, largest, deviation), KESTRANE_OK);
    Outcome numbers = {mean, largest, deviation};
    append(numbers, transform.quaternion, 4);
    append(numbers, transform.translation, 3);
    return numbers;
  }
};

struct LargeFastRun : FastRun {
  LargeFastRun() { lists = many_field_points(); }
};

// The variant that writes into a coefficient record.
struct CoefficientRun {
  static constexpr long kStays = 1;  // the standard's block
  fast_scene::Standard standard{two_sheets()};
  std::vector<std::vector<_KESTRANE_ID_POINT3D>> lists = field_lists();
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER coeffs;
  kestrane::KestraneLaserFastCalibrator engine;

  CoefficientRun() {
    EXPECT_EQ(engine.init(), KESTRANE_OK);
    EXPECT_EQ(engine.set_laser_plane_standard(standard.host()), KESTRANE_OK);
    kestrane::_COMPENSATOR_COEFFS* record = nullptr;
    EXPECT_EQ(coeffs.init(2), KESTRANE_OK);
    EXPECT_EQ(coeffs.get_compensator_coeffs(2, record), KESTRANE_OK);
    coeffs.range_count = 1;
    coeffs.range_last[0] = 1;
  }

  void operate() {
    if (engine.calib_Rt(lists, 0, 1, 0.0, coeffs, coeffs) != KESTRANE_OK) ADD_FAILURE();
  }

  Outcome outcome() const {
    return Outcome(coeffs.Mbs_factory_to_user, coeffs.Mbs_factory_to_user + 1200);
  }
};

}  // namespace faults
