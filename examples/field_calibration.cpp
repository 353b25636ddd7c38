// Fast calibration: the rigid motion between a stored table and the device as it is now.
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "kestrane/fast_calib.h"
#include "simulation/scanner.h"
#include "simulation/true_table.h"

namespace {

using simulation::HostTable;
using simulation::Sheet;
using FrameLists = std::vector<std::vector<_KESTRANE_ID_POINT3D>>;

constexpr int kPlanes = 8;
constexpr double kLargestError = 0.02;  // 0.05 of noise in each of 4,000 points a plane

// What happened to the device: 0.2 milliradian about y and z, and 0.15 across the sheets.
simulation::Placement knock() {
  return simulation::rigid_motion({0.0, 2e-4, -2e-4}, {0.15, 0.0, -0.1});
}

// One list per plane; a point's id is the number of its capture frame. In a real host: the device.
FrameLists measure_frames(const std::vector<Sheet>& sheets) {
  FrameLists frames;
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.points = 4000;
  for (const Sheet& sheet : sheets) {
    ++settings.seed;
    frames.push_back(simulation::measure(sheet, knock(), settings).points);
  }
  return frames;
}

struct Result {
  _MRV_TRANSFORM motion;                          // from the stored table to the device of today
  double mean = 0.0, max = 0.0, deviation = 0.0;  // of the points' distances after the motion
};

bool calibrate(HostTable& table, const FrameLists& frames, Result& result) {
  // [snippet]
  kestrane::KESTRANE_LASER_FAST_CALIB calib;
  if (calib.init() != KESTRANE_OK) return false;
  calib.set_laser_plane_standard(table.infos());
  if (calib.fast_calib(frames, 0, kPlanes - 1) != KESTRANE_OK) return false;  // both included
  calib.get_transform_param(result.motion);
  calib.get_calib_indicator(result.mean, result.max, result.deviation);
  // [snippet end]
  return true;
}

simulation::Placement placement_of(const _MRV_TRANSFORM& motion) {
  const double* q = motion.quaternion;  // x, y, z, w
  const Eigen::Matrix3d r = Eigen::Quaterniond(q[3], q[0], q[1], q[2]).toRotationMatrix();
  simulation::Placement placement;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) placement.R[3 * i + j] = r(i, j);
  }
  placement.t = {motion.translation[0], motion.translation[1], motion.translation[2]};
  return placement;
}

// How far apart the found and the true motion put the sheets, in x.
double largest_error(const std::vector<Sheet>& sheets, const simulation::Placement& found) {
  const simulation::Placement moved = knock();
  double largest = 0.0;
  for (const Sheet& sheet : sheets) {
    for (int depth = 225; depth < 350; depth += 20) {
      for (int tenths = -5; tenths <= 5; ++tenths) {
        const double z = depth;
        const double y = 0.1 * tenths * z;
        const double truly = simulation::sheet_x(sheet, moved, y, z);
        largest = std::max(largest, std::abs(simulation::sheet_x(sheet, found, y, z) - truly));
      }
    }
  }
  return largest;
}

}  // namespace

int main() {
  simulation::DeviceSettings settings;
  settings.planes = kPlanes;
  const std::vector<Sheet> sheets = simulation::make_device(settings);
  HostTable table = simulation::true_table(sheets);
  Result result = {};
  if (table.size() != kPlanes || !calibrate(table, measure_frames(sheets), result)) return 1;
  const double error = largest_error(sheets, placement_of(result.motion));
  std::printf("indicators: mean %.4f, largest %.4f, deviation %.4f\n", result.mean, result.max,
              result.deviation);
  std::printf("moved sheets off the truth by %.4f at most\n", error);
  return error <= kLargestError ? 0 : 1;
}
