// What the tests of whole fast calibrations share: a simulated device that has moved, and the
// result of a calibration with all that it writes.
#pragma once

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "kestrane/fast_calib.h"
#include "simulation/scanner.h"
#include "tests/fast/fast_support.h"
#include "tests/support/fast_scene.h"

namespace fast_support {

using kestrane::KESTRANE_LASER_FAST_CALIB;
using kestrane::KestraneLaserFastCalibrator;

struct Result {
  _KESTRANE_STATUS status;
  _MRV_TRANSFORM transform{};
  double mean = -7, max = -7, deviation = -7;
  std::string report;
  std::string complaints;
};

template <class Calibrator>
void read_result(Calibrator& calibrator, Result& result) {
  EXPECT_EQ(calibrator.get_transform_param(result.transform), KESTRANE_OK);
  EXPECT_EQ(calibrator.get_calib_indicator(result.mean, result.max, result.deviation), KESTRANE_OK);
}

inline Result calibrate(KESTRANE_LASER_FAST_CALIB& calib, const FrameLists& frames, int first,
                        int last) {
  Result result{};
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  result.status = calib.fast_calib(frames, first, last);
  result.complaints = testing::internal::GetCapturedStderr();
  result.report = testing::internal::GetCapturedStdout();
  read_result(calib, result);
  return result;
}

inline void expect_transform(const _MRV_TRANSFORM& t, std::array<double, 7> expected) {
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(t.quaternion[i], expected[i]) << i;
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(t.translation[i], expected[4 + i]) << i;
}

// A simulated device, its table, and what it measures after a motion.
struct Device {
  std::vector<simulation::Sheet> sheets;
  fast_scene::Standard standard;

  explicit Device(int planes, std::uint64_t seed = 1)
      : sheets(simulation::make_device({.planes = planes, .seed = seed})), standard(sheets) {}

  FrameLists measured(const simulation::Placement& motion,
                      const simulation::CloudSettings& settings) const {
    return fast_scene::measure_all(sheets, motion, settings);
  }

  FrameLists measured(const simulation::Placement& motion, int points = 800) const {
    simulation::CloudSettings settings = simulation::field_cloud_settings();
    settings.points = points;
    return measured(motion, settings);
  }
};

inline const simulation::Placement kShaken =
    simulation::rigid_motion({3e-4, -2e-4, 4e-4}, {0.2, 0.1, -0.15});

// x of the sheet where the recovered transform puts it against where it lies, over the volume.
inline double worst_plane_error(const Device& device, const simulation::Placement& truth,
                                const _MRV_TRANSFORM& found) {
  const Eigen::Quaterniond q(found.quaternion[3], found.quaternion[0], found.quaternion[1],
                             found.quaternion[2]);
  const Eigen::Matrix3d R = q.toRotationMatrix();
  simulation::Placement placement;
  for (int i = 0; i < 9; ++i) placement.R[i] = R(i / 3, i % 3);
  placement.t = {found.translation[0], found.translation[1], found.translation[2]};
  double worst = 0;
  for (const simulation::Sheet& sheet : device.sheets) {
    for (double z = 230; z <= 340; z += 22) {
      for (double slope = -0.5; slope <= 0.5; slope += 0.25) {
        const double off = simulation::sheet_x(sheet, truth, slope * z, z) -
                           simulation::sheet_x(sheet, placement, slope * z, z);
        worst = std::max(worst, std::abs(off));
      }
    }
  }
  return worst;
}

// The table's cells are flat where the sheets are bowed: up to 0.7 micrometres times 2 inside a
// cell, of which the fit of six numbers keeps little.
inline constexpr double kBow = 2e-3;

// Of the points' noise, with a residual per second point of 8 x 800: sqrt(6 / 3200) of one sigma in
// the middle, a few times that at the rim, and three sigmas of it.
inline constexpr double kNoiseShare = 0.3;

}  // namespace fast_support
